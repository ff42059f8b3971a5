// The row-changing operations: insert, update, delete. Each finds its rows, checks, changes them in
// memory, keeps the key map, the links and the column mirrors in step, leaves undo records for the
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

// The row that a key names, which this row is about to bear.
std::int32_t rowOfKey(const Table& table, std::string_view key, std::int32_t bearer) {
  return atPlace(table, static_cast<std::size_t>(table.primaryKeyIndex),
                 static_cast<std::size_t>(bearer), [&] { return table.primaryKeyMap.find(key); });
}

// The number of a new row: one more than the last row's, deleted or not, or 1.
std::int32_t nextIdentity(const Table& table, std::size_t column, std::int64_t now) {
  if (table.rows.size() < 2) return 1;
  const std::size_t previous = table.rows.size() - 2;
  const Cell& cell = table.rows[previous].cells()[column];
  const std::int32_t last =
      atPlace(table, column, previous, [&] { return parseInt(cell.valueAt(now)); });
  if (last == std::numeric_limits<std::int32_t>::max()) {
    throw std::runtime_error("ApexInt is exhausted");
  }
  return last + 1;
}

// Fills the cells of the row just appended from the given values.
void fillCells(const Table& table, Row& row, std::vector<GivenValue>& values, std::int64_t now) {
  const auto cells = row.cells();
  for (Cell& cell : cells) cell.value = missingValue;
  for (GivenValue& given : values) {
    Cell& cell = cells[given.column];
    cell = std::move(given.cell);
    if (cell.tempRule != nullptr) cell.value = cell.valueAt(now);
  }
  for (std::size_t i = 0; i < cells.size(); ++i) {
    if (table.kind(i) != ValueKind::integer) continue;
    if (table.columns[i].type == "ApexInt") {
      char number[maxNumberText];
      cells[i].value = std::string_view(number, writeInt(number, nextIdentity(table, i, now)));
    } else if (cells[i].value == missingValue) {
      cells[i].value = "0";
    }
  }
}

}  // namespace

ResultSet Database::insertInto(const std::string& tableName, std::vector<GivenValue>& values,
                               std::int64_t now) {
  const std::unique_lock lock(dbMutex);
  checkLog();
  checkSchedule(values);
  Table& table = tableOrNew(tableName);
  const auto rowIndex = static_cast<std::int32_t>(table.rows.size());
  Row& row = table.appendRow();
  try {
    fillCells(table, row, values, now);
    if (table.hasPrimaryKey()) {
      // The row is filed under the text that its key cell shows now.
      Cell& keyCell = row.cells()[static_cast<std::size_t>(table.primaryKeyIndex)];
      if (keyCell.tempRule != nullptr) keyCell.value = keyCell.valueAt(now);
      const std::int32_t holder = rowOfKey(table, keyCell.value, rowIndex);
      if (isTaken(table, holder, rowIndex)) throwDuplicate(keyCell.value);
    }
    linkRow(table, rowIndex, now);
    if (inTransaction) makeRoom(transactionLog, 1);
    if (table.hasPrimaryKey()) {
      const auto keyColumn = static_cast<std::size_t>(table.primaryKeyIndex);
      table.primaryKeyMap.assign(row.cells()[keyColumn].value, rowIndex);
    }
  } catch (...) {
    table.removeLastRow();
    throw;
  }
  if (inTransaction) transactionLog.push_back({"INSERT", tableName, rowIndex, {}});
  if (!isReplaying) {
    for (std::size_t i = 0; i < table.columns.size(); ++i) {
      const TempRule* const rule = row.cells()[i].tempRule.get();
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
      const Row& row = table.rows[static_cast<std::size_t>(index)];
      const auto cells = row.cells();
      transactionLog.push_back({"UPDATE", tableName, index, {cells.begin(), cells.end()}});
    }
  }
  for (const GivenValue& given : newValues) {
    if (table.columns[given.column].type == "ApexInt") {
      throw std::runtime_error("ApexInt is an immutable identity column and cannot be updated");
    }
    constexpr std::size_t stepsAhead = 8;
    for (std::size_t i = 0; i < matched.size(); ++i) {
      if (i + stepsAhead < matched.size()) {
        const auto coming = static_cast<std::size_t>(matched[i + stepsAhead]);
        table.rows.prefetch(coming, given.column);
      }
      applyValue(table, matched[i], given, now);
    }
  }
  return successful("success!", static_cast<std::int32_t>(matched.size()));
}

void Database::applyValue(Table& table, std::int32_t rowIndex, const GivenValue& given,
                          std::int64_t now) {
  Row& row = table.rows[static_cast<std::size_t>(rowIndex)];
  Cell& cell = row.cells()[given.column];
  const bool isKey = static_cast<std::int32_t>(given.column) == table.primaryKeyIndex;
  const TempRule* const rule = given.cell.tempRule.get();
  if (isKey || rule != nullptr) {
    Cell next = given.cell;
    if (isKey) {
      if (rule != nullptr) next.value = next.valueAt(now);
      moveKey(table, rowIndex, next.value, now);
    }
    cell = std::move(next);
  } else {
    cell.value = given.cell.value.view();
    cell.tempRule.reset();
  }
  table.cellChanged(static_cast<std::size_t>(rowIndex), given.column);
  if (!table.links.empty()) linkRow(table, rowIndex, now);
  if (rule != nullptr && !isReplaying) {
    registerWebhook(table.tableName, rowIndex, table.columns[given.column].name, *rule);
  }
}

void Database::moveKey(Table& table, std::int32_t rowIndex, std::string_view newKey,
                       std::int64_t now) {
  Row& row = table.rows[static_cast<std::size_t>(rowIndex)];
  const Cell& cell = row.cells()[static_cast<std::size_t>(table.primaryKeyIndex)];
  const std::string_view shown = cell.valueAt(now);
  if (row.isReferenced && shown != newKey && isActivelyRestricted(row, shown, now)) {
    throw std::runtime_error(
        "Cannot update a primary key that is referenced by an active foreign table");
  }
  PrimaryKeyMap& keys = table.primaryKeyMap;
  if (isTaken(table, rowOfKey(table, newKey, rowIndex), rowIndex)) throwDuplicate(newKey);
  keys.assign(newKey, rowIndex);
  const std::string_view filed = cell.value;
  const KeyComparator& comesFirst = keys.comparator();
  if (comesFirst(filed, newKey) || comesFirst(newKey, filed)) keys.eraseEntry(filed, rowIndex);
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
    Row& row = table.rows[static_cast<std::size_t>(index)];
    if (row.isReferenced) {
      const std::string_view key =
          table.hasPrimaryKey()
              ? row.cells()[static_cast<std::size_t>(table.primaryKeyIndex)].valueAt(now)
              : std::string_view();
      if (isActivelyRestricted(row, key, now)) {
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
