// The catalogue: finding, creating and dropping tables, and the access that makes a table come into
// being when it is first named. What a table's files look like is the storage room's business.
// Dropping also takes back what other tables and the open transaction know of a table.
#include <algorithm>
#include <stdexcept>

#include "database.h"

namespace velmora {
namespace {

void requireRegularFiles(const Directory& directory, const std::string& tableName) {
  for (const std::string& file : Storage::filesOfTable(tableName)) requireRegular(directory, file);
}

}  // namespace

Table& Database::getTable(std::string_view name) {
  const auto found = tables.find(name);
  if (found == tables.end()) {
    throw std::runtime_error("Syntax Error: Table '" + std::string(name) + "' does not exist.");
  }
  return found->second;
}

bool Database::checkTypes(const std::vector<Column>& columns) {
  return std::all_of(columns.begin(), columns.end(), [](const Column& column) {
    return std::find(typeNames.begin(), typeNames.end(), column.type) != typeNames.end();
  });
}

void Database::createTable(const std::string& name, const std::vector<Column>& columns) {
  const std::unique_lock lock(dbMutex);
  checkLog();
  if (!deferred_) {
    requireRegularFiles(directory, name);
    Storage::finishCheckpoint(directory, log);
  }
  Table created(name, columns);
  if (!checkTypes(columns)) throw std::runtime_error("Unknown type");
  const auto replaced = tables.find(name);
  if (replaced != tables.end()) {
    forgetChildTable(replaced->second);
    forgetUndo(name);
  }
  Table& table = tables.insert_or_assign(name, std::move(created)).first->second;

  // Deliberate: a table that fails from here on stays in the catalogue, without a file, and the
  // columns behind a second ApexInt stay without a type to check values against.
  std::string keyColumn;
  for (std::size_t i = 0; i < columns.size(); ++i) {
    if (!isNumbered(columns[i])) continue;
    if (!keyColumn.empty()) {
      table.typedColumns = i + 1;
      throw std::runtime_error("A table can only have one ApexInt column");
    }
    keyColumn = columns[i].name;
  }
  if (!keyColumn.empty()) table.setUpPrimaryKeyMap(keyColumn, 0);  // no rows, at any second
  if (deferred_) {
    deferred_->tables.insert(name);
  } else {
    Storage::saveTable(table, directory);
    table.markClean();
  }
}

bool Database::lacksFiles(const std::string& name) const {
  return tables.contains(name) && !Storage::hasTable(name, directory);
}

void Database::checkMissingFiles(const std::string& name) const {
  if (lacksFiles(name)) requireRegularFiles(directory, name);
}

void Database::saveTableIfMissing(const std::string& name) {
  if (lacksFiles(name)) Storage::saveTable(getTable(name), directory);
}

void Database::dropTable(const std::string& name) {
  const std::unique_lock lock(dbMutex);
  const Table& table = getTable(name);
  // Everything that can fail comes first: a table that is gone from memory only would come back.
  std::vector<std::string> files = Storage::filesOfTable(name);
  for (std::string& file : Storage::getRelFiles(directory)) {
    // A relation file of the dropped child, even of a link that was skipped at the start, would
    // give a new table of this name the link.
    const auto relation = Storage::readRelation(file, directory);
    if (relation && relation->childTable == name) files.push_back(std::move(file));
  }
  forgetChildTable(table);
  forgetUndo(name);
  tables.erase(tables.find(name));
  listeners.erase(name);
  if (deferred_) {
    std::erase_if(deferred_->relations, [&](const auto& relation) {
      const auto& [file, child] = relation;
      if (child != name) return false;
      removeFile(directory, unfinishedName(file));
      return true;
    });
    deferred_->removals.insert(deferred_->removals.end(), files.begin(), files.end());
  } else {
    Storage::removeTable(files, directory);
  }
}

Table& Database::tableOrNew(const std::string& name) {
  const auto found = tables.find(name);
  if (found != tables.end()) return found->second;
  return tables.emplace(name, Table(name, {})).first->second;
}

}  // namespace velmora
