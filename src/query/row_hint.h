// RowHint: where the row of a key is likely to lie, as earlier runs of a statement have found, so
// that it is asked for as soon as its key is bound. That is before anybody is let to the tables:
// what is looked at is the statement's own, and an address that is no longer right costs a look at
// the wrong memory, which the processor does for any address.
#pragma once

#include <cstddef>
#include <cstdint>
#include <limits>
#include <utility>
#include <variant>
#include <vector>

#include "../rows.h"
#include "../value.h"

namespace velmora {

class RowHint {
 public:
  static constexpr std::size_t noParameter = std::numeric_limits<std::size_t>::max();
  // What is read of a row: where its column begins in a chunk, and how far apart its rows are.
  struct Part {
    std::size_t offset;
    std::size_t width;
  };

  // The value of that parameter is the key; there is none before something has been learned.
  bool isKey(std::size_t parameter) const noexcept { return parameter == parameter_; }
  // Has the row brought into the cache. Inlined always, since compilers drop calls of functions
  // that change nothing.
  [[gnu::always_inline]] void prefetch(const Value& key) const noexcept {
    const auto* const number = std::get_if<std::int64_t>(&key);
    if (number == nullptr || !isRun_) return;
    const std::uint64_t row = static_cast<std::uint64_t>(*number) - distance_;
    const std::size_t chunk = Rows::chunkOf(row);
    if (chunk >= chunks_.size()) return;
    const std::uintptr_t place = Rows::placeOf(row);
    for (const Part& part : parts_) {
      const std::uintptr_t address = chunks_[chunk] + part.offset + place * part.width;
      // Not a pointer before, since what it would point to may be gone.
      // NOLINTNEXTLINE(performance-no-int-to-ptr)
      __builtin_prefetch(reinterpret_cast<const void*>(address));
    }
  }

  // To be asked within the gate: whether prefetch has found, or would find, the row of the key,
  // whose last part is of the column that begins there in the row's chunk. If not, and the keys are
  // such that it can, it will when it has learned.
  bool isRight(std::int64_t key, std::size_t row, const Rows& rows,
               const std::byte* lastColumn) noexcept {
    const std::uint64_t distance = static_cast<std::uint64_t>(key) - row;
    isRun_ = std::exchange(distance_, distance) == distance;
    const std::size_t chunk = Rows::chunkOf(row);
    return isRun_ && chunk < chunks_.size() && chunks_[chunk] == addressOf(rows, chunk) &&
           chunks_[chunk] + parts_.back().offset == reinterpret_cast<std::uintptr_t>(lastColumn);
  }
  const std::vector<Part>& parts() const noexcept { return parts_; }
  // There is a part at least. Throws std::bad_alloc.
  void learn(std::size_t parameter, std::vector<Part> parts, const Rows& rows) {
    parts_ = std::move(parts);
    chunks_.clear();
    chunks_.reserve(rows.chunkCount());
    for (std::size_t i = 0; i < rows.chunkCount(); ++i) chunks_.push_back(addressOf(rows, i));
    parameter_ = parameter;
  }
  // Whether keys and rows have been as far apart twice, which makes it worth learning the rest.
  bool isWorthLearning() const noexcept { return isRun_; }

 private:
  static std::uintptr_t addressOf(const Rows& rows, std::size_t chunk) noexcept {
    return reinterpret_cast<std::uintptr_t>(rows.memory(chunk));
  }

  std::size_t parameter_ = noParameter;
  std::uint64_t distance_ = 0;  // from the row to its key
  bool isRun_ = false;          // the last two keys were as far from theirs
  std::vector<std::uintptr_t> chunks_;
  std::vector<Part> parts_;
};

}  // namespace velmora
