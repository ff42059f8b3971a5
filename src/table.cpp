// See table.h.
#include "table.h"

#include <new>
#include <stdexcept>
#include <utility>

namespace velmora {
Table::Table(std::string name, std::vector<Column> columns_)
    : tableName(std::move(name)),
      columns(std::move(columns_)),
      typedColumns(columns.size()),
      rows(columns.size()) {
  for (const Column& column : columns) {
    positions_.emplace(column.name, kinds_.size());
    kinds_.push_back(valueKind(column.type));
  }
  mirrors_ = std::make_unique<ColumnMirrors>(kinds_);
}

std::size_t Table::searchColumn(std::string_view name) const {
  const auto found = positions_.find(name);
  return found != positions_.end() ? found->second : noColumn;
}

std::int32_t Table::findLive(std::string_view key, std::int64_t now) const {
  const std::int32_t index = primaryKeyMap.find(key);
  if (index == PrimaryKeyMap::noRow) return index;
  const Row& row = rows[static_cast<std::size_t>(index)];
  // "7" and "07" are one key, but two texts.
  const Cell& cell = row.cells()[static_cast<std::size_t>(primaryKeyIndex)];
  const bool isFound = isLive(static_cast<std::size_t>(index)) && cell.valueAt(now) == key;
  return isFound ? index : PrimaryKeyMap::noRow;
}

Row& Table::appendRow() {
  deletedRows.push_back(0);
  try {
    return rows.emplaceBack();
  } catch (...) {
    deletedRows.pop_back();
    throw;
  }
}

void Table::removeLastRow() noexcept {
  rows.popBack();
  deletedRows.pop_back();
  dirtyRows_.mark(rows.size());
  mirrors_->truncate(rows.size());
}

void Table::setUpPrimaryKeyMap(const std::string& columnName, std::int64_t now, KeyRule rule) {
  const std::size_t position = columnPosition(columnName);
  if (position == noColumn) throw std::runtime_error("Primary key not found");
  primaryKeyColumn = columnName;
  primaryKeyIndex = static_cast<std::int32_t>(position);
  primaryKeyMap = PrimaryKeyMap(columns[position].type);
  const bool isTimedLast = rule == KeyRule::liveFirstTimedLast;
  for (std::size_t i = 0; i < rows.size(); ++i) {
    Cell& cell = rows[i].cells()[position];
    if (cell.tempRule != nullptr) cell.value = cell.valueAt(now);
    if (cell.tempRule == nullptr || !isTimedLast) fileKey(i, rule);
  }
  if (isTimedLast && columns[position].maxStates > 0) fileTimedKeys();
}

void Table::fileKey(std::size_t row, KeyRule rule) {
  const auto column = static_cast<std::size_t>(primaryKeyIndex);
  const std::string_view key = rows[row].cells()[column].value;
  const auto index = static_cast<std::int32_t>(row);
  const std::int32_t holder =
      atPlace(*this, column, row, [&] { return primaryKeyMap.findOrAdd(key, index); });
  if (holder == PrimaryKeyMap::noRow) return;
  const bool bothLive = isLive(static_cast<std::size_t>(holder)) && isLive(row);
  if (rule == KeyRule::noDuplicates || bothLive) {
    throw std::runtime_error("Cannot create Primary Key: Duplicate value '" + std::string(key) +
                             "' already exists in column");
  }
  if (isLive(row)) primaryKeyMap.assign(key, index);
}

void tellPlace(FailedConversion& failure, const Table& table, std::size_t column,
               std::optional<std::size_t> row) {
  if (!failure.table.empty()) return;
  failure.table = table.tableName;
  failure.column = table.columns[column].name;
  failure.row = row;
}

void Table::fileTimedKeys() {
  for (std::size_t i = 0; i < rows.size(); ++i) {
    const Cell& cell = rows[i].cells()[static_cast<std::size_t>(primaryKeyIndex)];
    if (cell.tempRule == nullptr) continue;
    try {
      fileKey(i, KeyRule::liveFirst);
    } catch (const std::bad_alloc&) {
      throw;
    } catch (const std::exception&) {
      // The key is another's, or none: what the clock has made of it must not end the start.
    }
  }
}

}  // namespace velmora
