// See table.h.
#include "table.h"

#include <algorithm>
#include <new>
#include <stdexcept>
#include <utility>

namespace velmora {
Table::Table(std::string name, std::vector<Column> columns_)
    : tableName(std::move(name)),
      columns(std::move(columns_)),
      typedColumns(columns.size()),
      rows_(std::make_unique<Rows>()) {
  try {
    for (const Column& column : columns) {
      positions_.emplace(column.name, values_.size());
      values_.push_back(std::make_unique<ColumnValues>(valueKind(column.type), *rows_));
    }
  } catch (...) {
    values_.clear();  // no destructor comes to it, and the rows go first
    throw;
  }
}

std::size_t Table::searchColumn(std::string_view name) const {
  const auto found = positions_.find(name);
  return found != positions_.end() ? found->second : noColumn;
}

std::int32_t Table::findLive(std::string_view key, std::int64_t now) const {
  const std::int32_t index = primaryKeyMap_.find(key);
  if (index == PrimaryKeyMap::noRow) return index;
  const auto row = static_cast<std::size_t>(index);
  // "7" and "07" are one key, but two texts.
  const bool isFound =
      isLive(row) && values_[static_cast<std::size_t>(primaryKeyIndex)]->shows(row, key, now);
  return isFound ? index : PrimaryKeyMap::noRow;
}

std::int64_t Table::nextNumber(std::size_t column, std::size_t row, std::int64_t now) const {
  if (row == 0) return 1;
  std::int64_t number = values_[column]->value(row - 1, now).integer + 1;
  const auto isTaken = [&] {
    const std::int32_t holder = primaryKeyMap_.findNumber(number);
    return holder != PrimaryKeyMap::noRow && isLive(static_cast<std::size_t>(holder));
  };
  while (isTaken()) ++number;
  return number;
}

std::size_t Table::appendRows(std::size_t count) {
  const std::size_t first = rowCount();
  count = std::min(count, Rows::chunkRows - Rows::placeOf(first));
  extend(count);
  makeRows(first, count);
  return count;
}

void Table::makeRows(std::size_t first, std::size_t count) noexcept {
  while (count > 0) {
    const std::size_t piece = std::min(count, Rows::chunkRows - Rows::placeOf(first));
    rows_->make(first, piece);
    for (const auto& column : values_) column->append(first, piece);
    first += piece;
    count -= piece;
  }
}

void Table::removeLastRow() noexcept {
  for (const auto& column : values_) column->removeLast(rowCount() - 1);
  rows_->removeLast();
  dirtyRows_.markLife(rowCount());
}

bool Table::haveRulesChanged() const noexcept {
  return isAllDirty() || std::any_of(values_.begin(), values_.end(),
                                     [](const auto& column) { return column->haveRulesChanged(); });
}

void Table::markClean() noexcept {
  dirtyRows_.markNone(rowCount());
  for (const auto& column : values_) column->forgetRuleChanges();
}

std::int32_t Table::keyHolder(std::size_t row) const {
  if (const std::int32_t* const number = plainKey(row)) return primaryKeyMap_.findNumber(*number);
  TextRoom room;
  return primaryKeyMap_.find(keyText(row, room));
}

void Table::fileRow(std::size_t row) {
  const auto index = static_cast<std::int32_t>(row);
  if (const std::int32_t* const number = plainKey(row)) {
    primaryKeyMap_.assignNumber(*number, index);
    return;
  }
  TextRoom room;
  primaryKeyMap_.assign(keyText(row, room), index);
}

void Table::unfileRow(std::size_t row) {
  TextRoom room;
  primaryKeyMap_.eraseEntry(keyText(row, room), static_cast<std::int32_t>(row));
}

void Table::setKey(std::size_t row, const Cell& cell, std::int64_t now) {
  const auto index = static_cast<std::int32_t>(row);
  const std::string_view key = cell.valueAt(now);
  TextRoom room;
  const Text filed(keyText(row, room));
  const KeyComparator& comesFirst = primaryKeyMap_.comparator();
  const bool isOther = comesFirst(filed, key) || comesFirst(key, filed);
  primaryKeyMap_.assign(key, index);
  try {
    if (isOther) primaryKeyMap_.eraseEntry(filed, index);
    set(row, static_cast<std::size_t>(primaryKeyIndex), cell, now);
  } catch (...) {
    // What was there a moment ago needs no memory.
    if (isOther) primaryKeyMap_.eraseEntry(key, index);
    primaryKeyMap_.assign(filed, index);
    throw;
  }
}

void Table::dropPrimaryKey() {
  primaryKeyColumn.clear();
  primaryKeyIndex = -1;
  primaryKeyMap_ = PrimaryKeyMap();
}

void Table::setUpPrimaryKeyMap(const std::string& columnName, std::int64_t now, KeyRule rule) {
  const std::size_t position = columnPosition(columnName);
  if (position == noColumn) throw std::runtime_error("Primary key not found");
  primaryKeyColumn = columnName;
  primaryKeyIndex = static_cast<std::int32_t>(position);
  primaryKeyMap_ = PrimaryKeyMap(columns[position].type);
  const bool isTimedLast = rule == KeyRule::liveFirstTimedLast;
  ColumnValues& keys = *values_[position];
  ReadAhead next;
  for (std::size_t i = 0; i < rowCount(); ++i) {
    if (Rows::placeOf(i) == 0) {
      const std::size_t chunk = Rows::chunkOf(i) + 1;
      next = chunk < rows_->chunkCount() ? keys.readAhead(chunk, now) : ReadAhead();
    }
    const std::size_t place = Rows::placeOf(i);
    if (place % next.step() == 0) next.prefetch(place, place + next.step());
    // Most keys are numbers and new.
    const std::int32_t* const number = plainKey(i);
    const auto index = static_cast<std::int32_t>(i);
    if (number && primaryKeyMap_.findOrAddNumber(*number, index) == PrimaryKeyMap::noRow) continue;
    keys.refile(i, now);
    if (keys.rule(i) == nullptr || !isTimedLast) fileKey(i, rule);
  }
  if (isTimedLast && columns[position].maxStates > 0) fileTimedKeys();
}

void Table::fileKey(std::size_t row, KeyRule rule) {
  const auto column = static_cast<std::size_t>(primaryKeyIndex);
  const auto index = static_cast<std::int32_t>(row);
  TextRoom room;
  const std::string_view key = keyText(row, room);
  const std::int32_t holder =
      atPlace(*this, column, row, [&] { return primaryKeyMap_.findOrAdd(key, index); });
  if (holder == PrimaryKeyMap::noRow) return;
  const bool bothLive = isLive(static_cast<std::size_t>(holder)) && isLive(row);
  if (rule == KeyRule::noDuplicates || bothLive) {
    throw std::runtime_error("Cannot create Primary Key: Duplicate value '" + std::string(key) +
                             "' already exists in column");
  }
  if (isLive(row)) primaryKeyMap_.assign(key, index);
}

void tellPlace(FailedConversion& failure, const Table& table, std::size_t column,
               std::optional<std::size_t> row) {
  if (!failure.table.empty()) return;
  failure.table = table.tableName;
  failure.column = table.columns[column].name;
  failure.row = row;
}

void Table::fileTimedKeys() {
  for (std::size_t i = 0; i < rowCount(); ++i) {
    if (values_[static_cast<std::size_t>(primaryKeyIndex)]->rule(i) == nullptr) continue;
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
