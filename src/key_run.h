// A run of keys: consecutive integers that name consecutive rows, as an identity column gives them.
//
// Its first key, the row of that and their number tell all: an entry takes no memory, and finding
// one is a subtraction and a comparison. A run grows and shrinks at its end alone; keys that do
// not fit are kept beside it (key_map.h).
#pragma once

#include <algorithm>
#include <cstdint>

namespace velmora {

class KeyRun {
 public:
  static constexpr std::int32_t noRow = -1;

  bool holds(std::int64_t key) const noexcept {
    // Without a sign, since any key may be asked for.
    return static_cast<std::uint64_t>(key) - static_cast<std::uint64_t>(firstKey_) <
           static_cast<std::uint64_t>(count_);
  }
  // The row of the key, or noRow.
  std::int32_t rowOf(std::int64_t key) const noexcept { return holds(key) ? rowAt(key) : noRow; }

  // Goes on with the key if both it and the row are the next; an empty run begins anywhere.
  bool extend(std::int64_t key, std::int32_t row) noexcept {
    if (count_ == 0) {
      firstKey_ = key;
      firstRow_ = row;
    }
    const bool isNext = key == firstKey_ + count_ && row == firstRow_ + count_;
    if (isNext) ++count_;
    return isNext;
  }
  // The same; returns whether the key names the row now.
  bool take(std::int64_t key, std::int32_t row) noexcept {
    return extend(key, row) || rowOf(key) == row;
  }
  void dropIfLast(std::int64_t key) noexcept {
    if (holds(key) && key == firstKey_ + count_ - 1) --count_;
  }

  // Calls use(row, key) for the keys from `from` up to but without `to`.
  template <typename Use>
  void forEachRow(std::int64_t from, std::int64_t to, Use& use) const {
    const std::int64_t end = std::min(to, firstKey_ + count_);
    for (std::int64_t key = std::max(from, firstKey_); key < end; ++key) {
      use(rowAt(key), static_cast<std::int32_t>(key));
    }
  }

 private:
  std::int32_t rowAt(std::int64_t key) const noexcept {
    return firstRow_ + static_cast<std::int32_t>(key - firstKey_);
  }

  std::int64_t firstKey_ = 0;
  std::int32_t firstRow_ = 0;
  std::int64_t count_ = 0;
};

}  // namespace velmora
