// Which rows of a table differ from those that its files hold.
//
// The rows behind those of the files are dirty without being marked, so that only a change of a
// stored row costs something: one bit, for which the room is there already, since a row that has
// changed must not go unmarked. Marks outlive their rows: one that is taken off and made anew is
// another row than the files hold.
#pragma once

#include <algorithm>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <new>
#include <span>
#include <vector>

namespace velmora {

class DirtyRows {
 public:
  // The table's files are not known to hold anything of it; a new table begins so.
  void markAll() noexcept {
    isAll_ = true;
    storedCount_ = 0;
  }
  void mark(std::size_t row) noexcept {
    if (row >= storedCount_) return;
    words_[row / wordBits] |= std::uint64_t{1} << row % wordBits;
    isMarked_ = true;
  }
  void mark(std::span<const std::int32_t> rows) noexcept {
    if (storedCount_ == 0) return;
    for (const std::int32_t row : rows) mark(static_cast<std::size_t>(row));
  }
  // A row that has been deleted, come back, or been taken off.
  void markLife(std::size_t row) noexcept {
    mark(row);
    isLifeMarked_ |= row < storedCount_;
  }
  // The files hold these rows and no others.
  void markNone(std::size_t rowCount) noexcept {
    try {
      words_.assign(rowCount / wordBits + 1, 0);
      storedCount_ = rowCount;
      isAll_ = isMarked_ = isLifeMarked_ = false;
    } catch (const std::bad_alloc&) {
      markAll();
    }
  }

  bool isAll() const noexcept { return isAll_; }
  // Whether the files lack something of a table of so many rows, or hold more.
  bool isAny(std::size_t rowCount) const noexcept {
    return isAll_ || isMarked_ || rowCount != storedCount_;
  }
  // Whether the files may tell other rows deleted than a table of so many has.
  bool isAnyLife(std::size_t rowCount) const noexcept {
    return isAll_ || isLifeMarked_ || rowCount != storedCount_;
  }
  // How many rows the files hold.
  std::size_t storedCount() const noexcept { return storedCount_; }
  // Calls use(first, count) for the runs of dirty rows among so many, ascending.
  template <typename Use>
  void forEachRun(std::size_t rowCount, Use use) const {
    for (std::size_t first = next(0, true); first < rowCount;) {
      const std::size_t end = std::min(next(first, false), rowCount);
      use(first, end - first);
      first = next(end, true);
    }
  }

 private:
  static constexpr std::size_t wordBits = 64;

  // The first row from there on that is dirty, or is not.
  std::size_t next(std::size_t row, bool isDirty) const noexcept {
    const std::size_t firstUnstored = std::max(row, storedCount_);
    while (row < storedCount_) {
      const std::uint64_t word = isDirty ? words_[row / wordBits] : ~words_[row / wordBits];
      const std::uint64_t rest = word >> row % wordBits;
      row +=
          rest != 0 ? static_cast<std::size_t>(std::countr_zero(rest)) : wordBits - row % wordBits;
      if (rest != 0 && row < storedCount_) return row;
    }
    return isDirty ? firstUnstored : static_cast<std::size_t>(-1);
  }

  bool isAll_ = true;
  bool isMarked_ = false;
  bool isLifeMarked_ = false;
  std::size_t storedCount_ = 0;
  std::vector<std::uint64_t> words_;  // a bit for each stored row
};

}  // namespace velmora
