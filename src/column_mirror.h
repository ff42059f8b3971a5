// Column mirrors: one column's values as plain numbers side by side, for scans and joins.
//
// Deciding a condition row by row chases pointers through cells and compares texts; over a mirror
// it is one pass through an array that the compiler vectorises. The rows stay the truth: a mirror
// is built when a scan first wants its column, takes over new rows at the next scan, and is told of
// every changed cell.
//
// Each row has a code. In a column of integers it is the number, of other types a hash of the text.
// A row whose cell a code cannot stand for is an exception, and is always decided by its cell: a
// timed cell, and in a column of integers a text that is no number in its shortest form (05 is
// equal to no 5). Columns of floats have their numbers mirrored too; there a text that does not
// convert is an exception.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <mutex>
#include <string_view>
#include <vector>

#include "cell.h"
#include "rows.h"

namespace velmora {

// What a mirror holds for a text. Of integers, only texts in shortest form have their number as
// code; a hash stands for any other, and may be equal to some number.
std::int32_t codeOf(ValueKind kind, std::string_view text) noexcept;

// Tables smaller than this are read row by row.
inline constexpr std::size_t leastMirroredRows = 256;

class ColumnMirror {
 public:
  ColumnMirror(std::size_t column, ValueKind kind) : column_(column), kind_(kind) {}

  // Takes over the rows that were appended since the last time.
  void catchUp(const Rows& rows);
  // Takes over one row again, if it was taken over before.
  void refresh(const Rows& rows, std::size_t row);
  // Forgets the rows from this one on.
  void truncate(std::size_t rowCount);

  ValueKind kind() const noexcept { return kind_; }
  std::int32_t code(std::size_t row) const noexcept { return codes_[row]; }
  bool isException(std::size_t row) const noexcept { return exceptions_[row] != 0; }
  const std::int32_t* codes() const noexcept { return codes_.data(); }
  const float* numbers() const noexcept { return numbers_.data(); }  // of a column of floats
  const std::uint8_t* exceptions() const noexcept { return exceptions_.data(); }  // 1 or 0 a row

 private:
  void put(const Cell& cell, std::size_t row);

  std::size_t column_;
  ValueKind kind_;
  std::vector<std::int32_t> codes_;
  std::vector<float> numbers_;
  std::vector<std::uint8_t> exceptions_;
};

// The mirrors of one table. Readers beside each other may ask for one; all other functions need
// the table to themselves.
class ColumnMirrors {
 public:
  explicit ColumnMirrors(std::vector<ValueKind> kinds)
      : mirrors_(kinds.size()), kinds_(std::move(kinds)) {}

  // The mirror of a column with all rows; stays as it is until the table changes.
  const ColumnMirror& of(std::size_t column, const Rows& rows);
  void refresh(const Rows& rows, std::size_t row, std::size_t column);
  void refreshRow(const Rows& rows, std::size_t row);
  void truncate(std::size_t rowCount);

 private:
  std::mutex mutex_;  // held while a mirror is made or catches up
  std::vector<std::unique_ptr<ColumnMirror>> mirrors_;
  std::vector<ValueKind> kinds_;
};

}  // namespace velmora
