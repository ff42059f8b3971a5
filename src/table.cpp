// See table.h.
#include "table.h"

#include <algorithm>
#include <iostream>
#include <limits>
#include <new>
#include <stdexcept>
#include <utility>

#include "clock.h"

namespace velmora {
namespace {

constexpr std::size_t chunkBytes = 64 * 1024;
constexpr unsigned maxChunkShift = 10;
constexpr auto maxRows = static_cast<std::size_t>(std::numeric_limits<std::int32_t>::max());

unsigned shiftFor(std::size_t rowBytes) {
  unsigned shift = 0;
  while (shift < maxChunkShift && (rowBytes << (shift + 1)) <= chunkBytes) ++shift;
  return shift;
}

}  // namespace

RowCopy copyOf(const Row& row) {
  const auto cells = row.cells();
  return {row.rowKey, std::vector<Cell>(cells.begin(), cells.end())};
}

Rows::Rows(std::size_t cellsPerRow)
    : cellsPerRow_(cellsPerRow),
      rowBytes_(sizeof(Row) + cellsPerRow * sizeof(Cell)),
      chunkShift_(shiftFor(rowBytes_)) {}

Rows::~Rows() { clear(); }

Rows::Rows(Rows&& other) noexcept
    : cellsPerRow_(other.cellsPerRow_),
      rowBytes_(other.rowBytes_),
      chunkShift_(other.chunkShift_),
      size_(std::exchange(other.size_, 0)),
      chunks_(std::move(other.chunks_)) {}

Rows& Rows::operator=(Rows&& other) noexcept {
  if (this != &other) {
    clear();
    cellsPerRow_ = other.cellsPerRow_;
    rowBytes_ = other.rowBytes_;
    chunkShift_ = other.chunkShift_;
    size_ = std::exchange(other.size_, 0);
    chunks_ = std::move(other.chunks_);
  }
  return *this;
}

void Rows::clear() noexcept {
  while (size_ > 0) popBack();
  for (std::byte* const chunk : chunks_) ::operator delete(chunk);
  chunks_.clear();
}

Row& Rows::at(std::size_t index) {
  if (index >= size_) throw std::out_of_range("Row index outside the table");
  return *rowAt(index);
}

const Row& Rows::at(std::size_t index) const {
  if (index >= size_) throw std::out_of_range("Row index outside the table");
  return *rowAt(index);
}

Row& Rows::emplaceBack() {
  if (size_ == maxRows) throw std::runtime_error("Table is full");
  if (size_ >> chunkShift_ == chunks_.size()) {
    chunks_.push_back(nullptr);
    try {
      chunks_.back() = static_cast<std::byte*>(::operator new(rowBytes_ << chunkShift_));
    } catch (...) {
      chunks_.pop_back();
      throw;
    }
  }
  Row* const row = new (static_cast<void*>(rowAt(size_))) Row;
  row->cellCount = static_cast<std::uint32_t>(cellsPerRow_);
  std::uninitialized_default_construct(row->cells().begin(), row->cells().end());
  ++size_;
  return *row;
}

void Rows::popBack() noexcept {
  Row& row = back();
  std::destroy(row.cells().begin(), row.cells().end());
  std::destroy_at(&row);
  --size_;
}

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
}

std::size_t Table::columnPosition(std::string_view name, std::size_t hint) const {
  if (hint < columns.size() && columns[hint].name == name) {
    // A name given twice means its first column.
    if (positions_.size() == columns.size()) return hint;
  }
  const auto found = positions_.find(name);
  return found != positions_.end() ? found->second : noColumn;
}

void Table::setDeleted(std::size_t row, bool isDeleted) {
  rows[row].isDeleted = isDeleted;
  deletedRows[row] = isDeleted;
}

Row& Table::appendRow() {
  deletedRows.push_back(false);
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
    const std::int32_t holder = primaryKeyMap.find(key);
    if (holder != PrimaryKeyMap::noRow) {
      const bool bothLive = isLive(static_cast<std::size_t>(holder)) && isLive(i);
      if (!preferLive || bothLive) {
        throw std::runtime_error("Cannot create Primary Key: Duplicate value '" + std::string(key) +
                                 "' already exists in column");
      }
      if (!isLive(i)) continue;
    }
    primaryKeyMap.assign(key, static_cast<std::int32_t>(i));
  }
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
