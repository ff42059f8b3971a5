// See column_mirror.h.
#include "column_mirror.h"

#include <functional>

#include "number.h"

namespace velmora {

std::int32_t codeOf(ValueKind kind, std::string_view text) noexcept {
  if (kind == ValueKind::integer) {
    if (const auto number = canonicalInt(text)) return *number;
  }
  return static_cast<std::int32_t>(std::hash<std::string_view>()(text));
}

void ColumnMirror::catchUp(const Rows& rows) {
  const std::size_t first = codes_.size();
  if (first == rows.size()) return;
  try {
    exceptions_.resize(rows.size());
    if (kind_ == ValueKind::real) numbers_.resize(rows.size());
    codes_.resize(rows.size());
    for (std::size_t i = first; i < rows.size(); ++i) put(rows[i].cells()[column_], i);
  } catch (...) {
    truncate(first);
    throw;
  }
}

void ColumnMirror::refresh(const Rows& rows, std::size_t row) {
  if (row < codes_.size()) put(rows[row].cells()[column_], row);
}

void ColumnMirror::truncate(std::size_t rowCount) {
  if (rowCount < codes_.size()) codes_.resize(rowCount);
  if (rowCount < exceptions_.size()) exceptions_.resize(rowCount);
  if (rowCount < numbers_.size()) numbers_.resize(rowCount);
}

void ColumnMirror::put(const Cell& cell, std::size_t row) {
  // Until its code is known the row is an exception, so that nothing wrong stays if this throws.
  exceptions_[row] = 1;
  bool isException = cell.tempRule != nullptr;
  const std::string_view text = cell.value;
  if (!isException && kind_ == ValueKind::integer) {
    const auto number = canonicalInt(text);
    isException = !number.has_value();
    codes_[row] = number.value_or(0);
  } else if (!isException) {
    codes_[row] = codeOf(kind_, text);
    if (kind_ == ValueKind::real) {
      isException = convertFloat(text, numbers_[row]) != Conversion::ok;
    }
  }
  exceptions_[row] = isException ? 1 : 0;
}

const ColumnMirror& ColumnMirrors::of(std::size_t column, const Rows& rows) {
  const std::lock_guard lock(mutex_);
  std::unique_ptr<ColumnMirror>& mirror = mirrors_[column];
  if (mirror == nullptr) mirror = std::make_unique<ColumnMirror>(column, kinds_[column]);
  mirror->catchUp(rows);
  return *mirror;
}

void ColumnMirrors::refresh(const Rows& rows, std::size_t row, std::size_t column) {
  if (mirrors_[column] != nullptr) mirrors_[column]->refresh(rows, row);
}

void ColumnMirrors::refreshRow(const Rows& rows, std::size_t row) {
  for (std::size_t column = 0; column < mirrors_.size(); ++column) refresh(rows, row, column);
}

void ColumnMirrors::truncate(std::size_t rowCount) {
  for (const auto& mirror : mirrors_) {
    if (mirror != nullptr) mirror->truncate(rowCount);
  }
}

}  // namespace velmora
