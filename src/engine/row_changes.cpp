// INSERT, UPDATE and DELETE; see changes.h.
#include <algorithm>
#include <limits>
#include <string>

#include "../failure.h"
#include "../query/query.h"
#include "../typed_value.h"
#include "changes.h"

namespace velmora {
namespace {

std::string quoted(std::string_view text) { return "'" + printable(text) + "'"; }

const Column& keyOf(const Table& table) {
  return table.columns[static_cast<std::size_t>(table.primaryKeyIndex)];
}

bool isKey(const Table& table, std::size_t column) {
  return table.hasPrimaryKey() && static_cast<std::size_t>(table.primaryKeyIndex) == column;
}

// Whether another live row has the key that names the holder.
bool isTaken(const Table& table, std::int32_t holder, std::size_t row) {
  if (holder == PrimaryKeyMap::noRow || static_cast<std::size_t>(holder) == row) return false;
  return table.isLive(static_cast<std::size_t>(holder));
}

[[noreturn]] void refuseTaken(const Table& table, std::string_view key) {
  throw Failure(Code::duplicate,
                "Table '" + table.tableName + "' has a row with the key " + quoted(key))
      .of(table.tableName, keyOf(table).name);
}

// Refuses what no key can be.
void checkKey(const Table& table, const FittedValue& value) {
  const Column& column = table.columns[value.column];
  const auto refuse = [&](const char* what) {
    throw Failure(Code::type, "Column '" + column.name + "' of table '" + table.tableName +
                                  "' is its key, which cannot " + what)
        .of(table.tableName, column.name)
        .at(value.offset);
  };
  // Rows could come to have the same key, or lose that of their children, without a command.
  if (value.rule != nullptr) refuse("be timed");
  if (value.value.type == AnswerType::null) refuse("be NULL");
  if (value.value.type == AnswerType::text && value.value.text == missingValue) {
    throw Failure(Code::range, "'#/#?' is no key")
        .of(table.tableName, column.name)
        .at(value.offset);
  }
}

Cell cellOf(const FittedValue& value, ValueKind kind) {
  Cell cell;
  if (value.rule == nullptr) {
    cell.value = textOf(kind, value.value);
  } else {
    cell.value = value.rule->states.front().value.view();
    cell.tempRule = std::make_unique<TempRule>(*value.rule);
  }
  return cell;
}

std::int32_t nextIdentity(const Table& table, std::size_t column, std::size_t row,
                          std::int64_t now) {
  const std::int64_t number = table.nextNumber(column, row, now);
  if (number > std::numeric_limits<std::int32_t>::max()) {
    throw Failure(Code::full, "The numbers of column '" + table.columns[column].name +
                                  "' of table '" + table.tableName + "' are used up")
        .of(table.tableName, table.columns[column].name);
  }
  return static_cast<std::int32_t>(number);
}

}  // namespace

InsertPlan Changes::planOf(const strict::Insert& command) {
  Table& table = tableOf(command.table);
  InsertPlan plan{&table, targetsOf(command.assignments, table), {}};
  plan.sources.assign(table.columns.size(), noColumn);
  for (std::size_t i = 0; i < plan.targets.columns.size(); ++i) {
    plan.sources[plan.targets.columns[i]] = i;
  }
  return plan;
}

void Changes::run(const strict::Insert& command, const InsertPlan& plan, const RunContext& context,
                  Answer& answer) {
  Table& table = *plan.table;
  fit(command.assignments, plan.targets, table, context, fitted_);
  const std::size_t row = table.rowCount();
  undo_.noteInsert(table, row);
  table.appendRow();
  fillRow(plan, row, context.now, answer);
  fileRow(table, row, context.now);
  answer.rowsAffected = 1;
}

void Changes::fillRow(const InsertPlan& plan, std::size_t row, std::int64_t now, Answer& answer) {
  Table& table = *plan.table;
  for (std::size_t i = 0; i < table.columns.size(); ++i) {
    if (isNumbered(table.columns[i])) {
      const std::int32_t number = nextIdentity(table, i, row, now);
      table.setNumber(row, i, number);
      answer.identity = number;
    } else if (plan.sources[i] == noColumn) {
      if (isKey(table, i)) checkKey(table, {i, static_cast<std::size_t>(-1), {}, nullptr});
      // A new row has zeros where whole numbers belong, and null elsewhere.
      const ValueKind kind = table.kind(i);
      const bool isWhole = kind == ValueKind::integer || kind == ValueKind::longInteger;
      if (isWhole) table.setValue(row, i, TypedValue());
    } else {
      const FittedValue& given = fitted_[plan.sources[i]];
      if (isKey(table, i)) checkKey(table, given);
      if (given.rule == nullptr) {
        table.setValue(row, i, given.value);
      } else {
        table.set(row, i, cellOf(given, table.kind(i)), now);
      }
    }
  }
}

void Changes::fileRow(Table& table, std::size_t row, std::int64_t now) {
  if (table.hasPrimaryKey() && isTaken(table, table.keyHolder(row), row)) {
    TextRoom room;
    refuseTaken(table, table.keyText(row, room));
  }
  linkRow(table, row, now);
  if (table.hasPrimaryKey()) table.fileRow(row);
  undo_.noteFiled();
}

void Changes::linkRow(const Table& table, std::size_t row, std::int64_t now) {
  if (table.links.empty()) return;
  try {
    database_->linkRow(table, static_cast<std::int32_t>(row), now);
  } catch (const MissingParent& missing) {
    throw Failure(Code::missingParent, "Table '" + missing.link.parentTable +
                                           "' has no row with the key " + quoted(missing.key) +
                                           ", which column '" + missing.link.column +
                                           "' of table '" + table.tableName + "' is linked to")
        .of(table.tableName, missing.link.column);
  }
}

void Changes::run(const strict::Update& command, const RunContext& context, Answer& answer) {
  Table& table = tableOf(command.table);
  fit(command.assignments, targetsOf(command.assignments, table), table, context, fitted_);
  const RowFilter filter(command.filter, table);
  const std::vector<std::int32_t> rows =
      filter.rows({context.values, context.now, context.interrupt});
  for (const FittedValue& value : fitted_) {
    undo_.noteUpdate(table, value.column, rows, context.now);
    giveValue(table, rows, value, context.now);
  }
  for (const LinkRecord& link : table.links) {
    const auto isLinked = [&](const FittedValue& value) {
      return table.columns[value.column].name == link.column;
    };
    if (std::ranges::none_of(fitted_, isLinked)) continue;
    // All links of a row are checked at once.
    for (const std::int32_t row : rows) linkRow(table, static_cast<std::size_t>(row), context.now);
    break;
  }
  answer.rowsAffected = static_cast<std::int64_t>(rows.size());
}

void Changes::giveValue(Table& table, const std::vector<std::int32_t>& rows,
                        const FittedValue& value, std::int64_t now) {
  if (isKey(table, value.column)) {
    checkKey(table, value);
    for (const std::int32_t row : rows) moveKey(table, static_cast<std::size_t>(row), value, now);
    return;
  }
  const Cell cell = value.rule == nullptr ? Cell() : cellOf(value, table.kind(value.column));
  for (const std::int32_t each : rows) {
    const auto row = static_cast<std::size_t>(each);
    if (value.rule == nullptr) {
      table.setValue(row, value.column, value.value);
    } else {
      table.set(row, value.column, cell, now);
    }
  }
}

void Changes::moveKey(Table& table, std::size_t row, const FittedValue& value, std::int64_t now) {
  const Cell cell = cellOf(value, table.kind(value.column));
  const std::string_view newKey = cell.valueAt(now);
  TextRoom room;
  const std::string_view shown = table.text(row, value.column, now, room);
  if (shown != newKey && !database_->isReplaying &&
      database_->isActivelyRestricted(table, static_cast<std::int32_t>(row), shown, now)) {
    throw Failure(Code::restricted, "Rows are linked to the key " + quoted(shown) + " of table '" +
                                        table.tableName + "'")
        .of(table.tableName, table.columns[value.column].name);
  }
  if (isTaken(table, table.keys().find(newKey), row)) refuseTaken(table, newKey);
  table.setKey(row, cell, now);
}

// All rows go before any is asked for its children, so that rows may go together with theirs.
void Changes::run(const strict::Delete& command, const RunContext& context, Answer& answer) {
  Table& table = tableOf(command.table);
  const RowFilter filter(command.filter, table);
  const std::vector<std::int32_t> rows =
      filter.rows({context.values, context.now, context.interrupt});
  undo_.noteDeletions(table, rows.size());
  for (const std::int32_t row : rows) {
    table.setDeleted(static_cast<std::size_t>(row), true);
    undo_.noteDeleted(row);
  }
  answer.rowsAffected = static_cast<std::int64_t>(rows.size());
  if (!table.hasPrimaryKey() || database_->isReplaying) return;
  for (const std::int32_t row : rows) {
    const auto index = static_cast<std::size_t>(row);
    if (table.dependents(index) == nullptr) continue;
    TextRoom room;
    const auto keyColumn = static_cast<std::size_t>(table.primaryKeyIndex);
    const std::string_view key = table.text(index, keyColumn, context.now, room);
    if (database_->isActivelyRestricted(table, row, key, context.now)) {
      throw Failure(Code::restricted, "Rows are linked to the key " + quoted(key) + " of table '" +
                                          table.tableName + "'")
          .of(table.tableName, keyOf(table).name);
    }
  }
}

}  // namespace velmora
