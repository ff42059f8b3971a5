// See table.h.
#include "table.h"

#include <iostream>
#include <stdexcept>
#include <utility>

#include "clock.h"

namespace velmora {
Table::Table(std::string name, std::vector<Column> columns_)
    : tableName(std::move(name)),
      columns(std::move(columns_)),
      typedColumns(columns.size()),
      rows(columns.size()) {
  for (const Column& column : columns) {
    positions_.emplace(column.name, headings_.size());
    headings_.emplace_back(column.name, column.type);
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
  return !row.isDeleted && cell.valueAt(now) == key ? index : PrimaryKeyMap::noRow;
}

void Table::setDeleted(std::size_t row, bool isDeleted) {
  rows[row].isDeleted = isDeleted;
  deletedRows[row] = isDeleted ? 1 : 0;
}

Row& Table::appendRow() {
  deletedRows.push_back(0);
  try {
    Row& row = rows.emplaceBack();
    for (std::size_t i = 0; i < headings_.size(); ++i) row.cells()[i].heading = headings_[i];
    return row;
  } catch (...) {
    deletedRows.pop_back();
    throw;
  }
}

void Table::removeLastRow() noexcept {
  rows.popBack();
  deletedRows.pop_back();
  mirrors_->truncate(rows.size());
}

void Table::setUpPrimaryKeyMap(const std::string& columnName, bool preferLive) {
  const std::size_t position = columnPosition(columnName);
  if (position == noColumn) throw std::runtime_error("Primary key not found");
  primaryKeyColumn = columnName;
  primaryKeyIndex = static_cast<std::int32_t>(position);
  primaryKeyMap = PrimaryKeyMap(columns[position].type);
  const std::int64_t now = clock::now();
  for (std::size_t i = 0; i < rows.size(); ++i) {
    Cell& cell = rows[i].cells()[position];
    if (cell.tempRule != nullptr) cell.value = cell.valueAt(now);
    const std::string_view key = cell.value;
    const auto row = static_cast<std::int32_t>(i);
    const std::int32_t holder =
        atPlace(*this, position, i, [&] { return primaryKeyMap.findOrAdd(key, row); });
    if (holder == PrimaryKeyMap::noRow) continue;
    const bool bothLive = isLive(static_cast<std::size_t>(holder)) && isLive(i);
    if (!preferLive || bothLive) {
      throw std::runtime_error("Cannot create Primary Key: Duplicate value '" + std::string(key) +
                               "' already exists in column");
    }
    if (isLive(i)) primaryKeyMap.assign(key, row);
  }
}

void tellPlace(FailedConversion& failure, const Table& table, std::size_t column,
               std::optional<std::size_t> row) {
  if (!failure.table.empty()) return;
  failure.table = table.tableName;
  failure.column = table.columns[column].name;
  failure.row = row;
}

void Table::display() const {
  std::cout << '|';
  for (const Column& column : columns) std::cout << column.name << '|';
  std::cout << std::endl;
  for (std::size_t i = 0; i < rows.size(); ++i) {
    std::cout << '|';
    for (const Cell& cell : rows[i].cells()) std::cout << cell.value.view() << '|';
    std::cout << std::endl;
  }
}

}  // namespace velmora
