// VACUUM, and what commands look up; see changes.h.
#include <string>
#include <utility>

#include "../failure.h"
#include "changes.h"

namespace velmora {
namespace {

bool hasDeletedRows(const Table& table) {
  for (std::size_t row = 0; row < table.rowCount(); ++row) {
    if (!table.isLive(row)) return true;
  }
  return false;
}

// A copy without the deleted rows, but for the last row, from whose number the next one follows.
Table withoutDeletedRows(const Table& table, std::int64_t now, const Interrupt& interrupt) {
  Table copy(table.tableName, table.columns);
  copy.links = table.links;
  for (std::size_t row = 0; row < table.rowCount(); ++row) {
    if (row % Rows::chunkRows == 0) interrupt.check();
    const bool isLast = row + 1 == table.rowCount();
    if (!table.isLive(row) && !isLast) continue;
    const std::size_t to = copy.appendRow();
    for (std::size_t column = 0; column < table.columns.size(); ++column) {
      if (table.values(column).rule(row) != nullptr) {
        copy.restore(to, column, table.values(column).cell(row), now);
      } else {
        copy.setValue(to, column, table.values(column).value(row, now));
      }
    }
    if (!table.isLive(row)) copy.setDeleted(to, true);
  }
  if (table.hasPrimaryKey()) {
    copy.setUpPrimaryKeyMap(table.primaryKeyColumn, now, KeyRule::liveFirst);
  }
  return copy;
}

}  // namespace

Table& Changes::tableOf(const strict::Name& name) {
  const auto found = database_->tables.find(name.text);
  if (found != database_->tables.end()) return found->second;
  throw Failure(Code::notFound, "Unknown table '" + name.text + "'").of(name.text).at(name.offset);
}

std::size_t Changes::columnOf(const Table& table, const strict::Name& name) {
  const std::size_t column = table.columnPosition(name.text);
  if (column != noColumn) return column;
  throw Failure(Code::notFound, "Unknown column '" + name.text + "'")
      .of(table.tableName, name.text)
      .at(name.offset);
}

std::vector<Table> Changes::vacuum(const strict::Vacuum& command, const RunContext& context) {
  std::vector<Table> copies;
  for (auto& [name, table] : database_->tables) {
    const bool isMeant = !command.table || command.table->text == name;
    if (!isMeant || !hasDeletedRows(table)) continue;
    copies.push_back(withoutDeletedRows(table, context.now, context.interrupt));
  }
  if (command.table) tableOf(*command.table);
  restore(copies, context.now);
  return copies;
}

void Changes::restore(std::vector<Table>& tables, std::int64_t now) {
  for (Table& table : tables) std::swap(database_->tables.find(table.tableName)->second, table);
  if (tables.empty()) return;
  // Rows have other indices now, by which parents know their children.
  for (auto& [name, table] : database_->tables) database_->forgetChildTable(table);
  for (const auto& [name, table] : database_->tables) database_->linkRows(table, now);
}

}  // namespace velmora
