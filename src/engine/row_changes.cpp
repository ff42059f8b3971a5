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

// Refuses a key that another live row has.
void refuseTaken(const Table& table, std::string_view key, std::size_t row) {
  const std::int32_t holder = table.keys().find(key);
  if (holder == PrimaryKeyMap::noRow || static_cast<std::size_t>(holder) == row) return;
  if (!table.isLive(static_cast<std::size_t>(holder))) return;
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
  if (isNull(value.value)) refuse("be NULL");
  const auto* const text = std::get_if<std::string>(&value.value);
  if (text != nullptr && *text == missingValue) {
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

// One more than the last row's number, deleted or not, or 1.
std::int32_t nextIdentity(const Table& table, std::size_t column, std::size_t row,
                          std::int64_t now) {
  if (row == 0) return 1;
  const std::int64_t last = table.values(column).value(row - 1, now).integer;
  if (last >= std::numeric_limits<std::int32_t>::max()) {
    throw Failure(Code::full, "The numbers of column '" + table.columns[column].name +
                                  "' of table '" + table.tableName + "' are used up")
        .of(table.tableName, table.columns[column].name);
  }
  return static_cast<std::int32_t>(last) + 1;
}

}  // namespace

void Changes::run(const strict::Insert& command, const RunContext& context, Answer& answer) {
  Table& table = tableOf(command.table);
  std::vector<FittedValue> values = fit(command.assignments, table, context);
  const std::size_t row = table.rowCount();
  undo_.noteInsert(table, row);
  table.appendRow();
  fillRow(table, row, values, context.now);
  fileRow(table, row, context.now);
  answer.rowsAffected = 1;
  for (std::size_t i = 0; i < table.columns.size(); ++i) {
    if (isNumbered(table.columns[i])) {
      answer.identity = table.values(i).value(row, context.now).integer;
    }
  }
}

void Changes::fillRow(Table& table, std::size_t row, std::vector<FittedValue>& values,
                      std::int64_t now) {
  for (std::size_t i = 0; i < table.columns.size(); ++i) {
    const ValueKind kind = table.kind(i);
    if (isNumbered(table.columns[i])) {
      table.setNumber(row, i, nextIdentity(table, i, row, now));
      continue;
    }
    const auto given = std::find_if(values.begin(), values.end(),
                                    [i](const FittedValue& value) { return value.column == i; });
    if (given == values.end()) {
      if (isKey(table, i)) checkKey(table, {i, static_cast<std::size_t>(-1), {}, nullptr});
      // A new row has zeros where whole numbers belong, and null elsewhere.
      if (kind == ValueKind::integer || kind == ValueKind::longInteger) table.setValue(row, i, {});
    } else {
      if (isKey(table, i)) checkKey(table, *given);
      if (given->rule == nullptr) {
        table.setValue(row, i, given->value);
      } else {
        table.set(row, i, cellOf(*given, kind), now);
      }
    }
  }
}

void Changes::fileRow(Table& table, std::size_t row, std::int64_t now) {
  if (table.hasPrimaryKey()) {
    TextRoom room;
    refuseTaken(table, table.keyText(row, room), row);
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
  const std::vector<FittedValue> values = fit(command.assignments, table, context);
  const RowFilter filter(command.filter, table);
  const std::vector<std::int32_t> rows =
      filter.rows({context.values, context.now, context.interrupt});
  for (const FittedValue& value : values) {
    undo_.noteUpdate(table, value.column, rows, context.now);
    giveValue(table, rows, value, context.now);
  }
  for (const LinkRecord& link : table.links) {
    const auto isLinked = [&](const FittedValue& value) {
      return table.columns[value.column].name == link.column;
    };
    if (std::none_of(values.begin(), values.end(), isLinked)) continue;
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
  refuseTaken(table, newKey, row);
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
