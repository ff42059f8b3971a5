// The row-changing operations: insert, update, delete. Each finds its rows, checks, changes them in
// memory, keeps the key map and the links in step, leaves undo records for the
// open transaction, and schedules the coming changes of timed values. What links demand is decided
// in links.cpp.
#include <algorithm>
#include <limits>
#include <stdexcept>
#include <utility>

#include "../number.h"
#include "database.h"

namespace velmora {
namespace {

[[noreturn]] void throwDuplicate(std::string_view key) {
  throw std::runtime_error("Duplicate entry '" + std::string(key) + "' for primary key");
}

// Makes sure that so many more records can be pushed without allocating, growing by doubling.
void makeRoom(std::vector<TransactionAction>& log, std::size_t count) {
  if (log.capacity() - log.size() < count) {
    log.reserve(std::max(log.size() + count, 2 * log.capacity()));
  }
}

// Whether a live row other than this one bears the key.
bool isTaken(const Table& table, std::int32_t holder, std::int32_t rowIndex) {
  return holder != PrimaryKeyMap::noRow && holder != rowIndex &&
         table.isLive(static_cast<std::size_t>(holder));
}

// The number of a new row: one more than the last row's, deleted or not, or 1.
std::int32_t nextIdentity(const Table& table, std::size_t column, std::int64_t now) {
  if (table.rowCount() < 2) return 1;
  const std::size_t previous = table.rowCount() - 2;
  const std::int32_t last = atPlace(table, column, previous, [&] {
    if (const std::int32_t* const number = table.values(column).plainNumber(previous)) {
      return *number;
    }
    TextRoom room;
    return parseInt(table.text(previous, column, now, room));
  });
  if (last == std::numeric_limits<std::int32_t>::max()) {
    throw std::runtime_error("ApexInt is exhausted");
  }
  return last + 1;
}

// Fills the cells of the row just appended from the given values.
void fillCells(Table& table, std::size_t row, const std::vector<GivenValue>& values,
               std::int64_t now) {
  for (std::size_t i = 0; i < table.columns.size(); ++i) {
    if (isNumbered(table.columns[i])) table.setNumber(row, i, nextIdentity(table, i, now));
  }
  for (const GivenValue& given : values) {
    // An identity is the engine's to give, but for a timed one.
    if (!isNumbered(table.columns[given.column]) || given.cell.tempRule != nullptr) {
      table.set(row, given.column, given.cell, now);
    }
  }
}

// Keeps the cells of a row that new values will replace; and its timed ones, which a LINK may file
// under other texts before a rollback.
void keepCells(const Table& table, std::size_t row, const std::vector<GivenValue>& newValues,
               std::vector<GivenValue>& kept) {
  for (const GivenValue& given : newValues) {
    kept.push_back({given.column, table.values(given.column).cell(row)});
  }
  for (std::size_t i = 0; i < table.columns.size(); ++i) {
    if (table.values(i).rule(row) == nullptr) continue;
    const auto isGiven = [i](const GivenValue& given) { return given.column == i; };
    if (std::any_of(newValues.begin(), newValues.end(), isGiven)) continue;
    kept.push_back({i, table.values(i).cell(row)});
  }
}

}  // namespace

ResultSet Database::insertInto(const std::string& tableName, std::vector<GivenValue>& values,
                               std::int64_t now) {
  const std::unique_lock lock(dbMutex);
  checkLog();
  checkSchedule(values);
  Table& table = tableOrNew(tableName);
  const std::size_t row = table.appendRow();
  const auto rowIndex = static_cast<std::int32_t>(row);
  try {
    fillCells(table, row, values, now);
    if (table.hasPrimaryKey()) {
      const std::int32_t holder = atPlace(table, static_cast<std::size_t>(table.primaryKeyIndex),
                                          row, [&] { return table.keyHolder(row); });
      if (isTaken(table, holder, rowIndex)) {
        TextRoom room;
        throwDuplicate(table.keyText(row, room));
      }
    }
    linkRow(table, rowIndex, now);
    if (inTransaction) makeRoom(transactionLog, 1);
    if (table.hasPrimaryKey()) table.fileRow(row);
  } catch (...) {
    table.removeLastRow();
    throw;
  }
  if (inTransaction) transactionLog.push_back({"INSERT", tableName, rowIndex, {}});
  if (!isReplaying) {
    for (std::size_t i = 0; i < table.columns.size(); ++i) {
      const TempRule* const rule = table.values(i).rule(row);
      if (rule != nullptr) registerWebhook(tableName, rowIndex, table.columns[i].name, *rule);
    }
  }
  return successful("success!", 1);
}

ResultSet Database::update(const std::string& tableName, std::vector<GivenValue>& newValues,
                           const std::vector<Condition>& conditions, std::int64_t now) {
  const std::unique_lock lock(dbMutex);
  checkLog();
  checkSchedule(newValues);
  Table& table = tableOrNew(tableName);
  const std::vector<std::int32_t> matched = getRequestedRows(conditions, table, now);
  if (inTransaction) {
    // Before any check, so that a rollback also undoes what a failing update has changed.
    for (const std::int32_t index : matched) {
      transactionLog.push_back({"UPDATE", tableName, index, {}});
      keepCells(table, static_cast<std::size_t>(index), newValues, transactionLog.back().cells);
    }
  }
  for (const GivenValue& given : newValues) {
    if (isNumbered(table.columns[given.column])) {
      throw std::runtime_error("ApexInt is an immutable identity column and cannot be updated");
    }
    const bool isKey = static_cast<std::int32_t>(given.column) == table.primaryKeyIndex;
    if (isKey || !table.links.empty() || given.cell.tempRule != nullptr) {
      for (const std::int32_t index : matched) applyValue(table, index, given, now);
    } else {
      table.setRows(matched, given.column, given.cell);
    }
  }
  return successful("success!", static_cast<std::int32_t>(matched.size()));
}

void Database::applyValue(Table& table, std::int32_t rowIndex, const GivenValue& given,
                          std::int64_t now) {
  const auto row = static_cast<std::size_t>(rowIndex);
  if (static_cast<std::int32_t>(given.column) == table.primaryKeyIndex) {
    moveKey(table, rowIndex, given.cell, now);
  } else {
    table.set(row, given.column, given.cell, now);
  }
  if (!table.links.empty()) linkRow(table, rowIndex, now);
  const TempRule* const rule = given.cell.tempRule.get();
  if (rule != nullptr && !isReplaying) {
    registerWebhook(table.tableName, rowIndex, table.columns[given.column].name, *rule);
  }
}

void Database::moveKey(Table& table, std::int32_t rowIndex, const Cell& cell, std::int64_t now) {
  const auto row = static_cast<std::size_t>(rowIndex);
  const auto column = static_cast<std::size_t>(table.primaryKeyIndex);
  const std::string_view newKey = cell.valueAt(now);
  TextRoom room;
  const std::string_view shown = table.text(row, column, now, room);
  if (shown != newKey && isActivelyRestricted(table, rowIndex, shown, now)) {
    throw std::runtime_error(
        "Cannot update a primary key that is referenced by an active foreign table");
  }
  const std::int32_t holder =
      atPlace(table, column, row, [&] { return table.keys().find(newKey); });
  if (isTaken(table, holder, rowIndex)) throwDuplicate(newKey);
  table.setKey(row, cell, now);
}

ResultSet Database::deleteRows(const std::string& tableName,
                               const std::vector<Condition>& conditions, std::int64_t now) {
  const std::unique_lock lock(dbMutex);
  Table& table = tableOrNew(tableName);
  const std::vector<std::int32_t> matched = getRequestedRows(conditions, table, now);
  if (inTransaction) makeRoom(transactionLog, matched.size());
  // A refusal is asked for often, and must not wait for the system; so the log is looked at once
  // the first row may go.
  bool isLogChecked = false;
  const auto checkLogOnce = [&] {
    if (!std::exchange(isLogChecked, true)) checkLog();
  };
  for (const std::int32_t index : matched) {
    if (table.dependents(static_cast<std::size_t>(index)) != nullptr) {
      TextRoom room;
      const std::string_view key =
          table.hasPrimaryKey()
              ? table.text(static_cast<std::size_t>(index),
                           static_cast<std::size_t>(table.primaryKeyIndex), now, room)
              : std::string_view();
      if (isActivelyRestricted(table, index, key, now)) {
        return refused("Foreign key points at rows that were meant for deletion");
      }
    }
    checkLogOnce();
    table.setDeleted(static_cast<std::size_t>(index), true);
  }
  checkLogOnce();
  if (inTransaction) {
    for (const std::int32_t index : matched) {
      transactionLog.push_back({"DELETE", tableName, index, {}});
    }
  }
  return successful("success!", static_cast<std::int32_t>(matched.size()));
}

}  // namespace velmora
