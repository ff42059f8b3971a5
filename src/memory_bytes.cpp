// How much memory a table takes, about: what is asked of the system for it, without what the
// allocator adds.
#include <algorithm>

#include "table.h"

namespace velmora {

std::size_t ColumnValues::memoryBytesOf(const States& states) const {
  std::size_t bytes = sizeof states + states.single.capacity() * sizeof states.single[0];
  std::size_t count = 0;
  for (const RhythmGroup& group : states.groups) {
    bytes += group.memoryBytes();
    count += group.valueCount();
  }
  bytes += count * (width_ + (codes_ != values_ ? 1 : 0) + (states.values.odd != nullptr ? 1 : 0) +
                    (states.distances != nullptr ? 1 : 0));
  for (std::size_t i = 0; holdsTexts(kind_) && i < count; ++i) {
    bytes += states.values.texts[i].memoryBytes();
  }
  return bytes;
}

std::size_t ColumnValues::memoryBytes() const {
  std::size_t bytes = 0;
  for (std::size_t row = 0; holdsTexts(kind_) && row < rows_.size(); ++row) {
    bytes += rows_.at<Text>(row, values_).memoryBytes();
  }
  for (const auto& odd : odd_) {
    if (odd == nullptr) continue;
    bytes += sizeof *odd + odd->flags.capacity() + odd->places.capacity() * sizeof odd->places[0] +
             odd->cells.capacity() * sizeof(Cell);
    for (const Cell& cell : odd->cells) {
      bytes += cell.value.memoryBytes();
      if (cell.tempRule == nullptr) continue;
      bytes += sizeof(TempRule) + cell.tempRule->states.capacity() * sizeof(TempState);
      for (const TempState& state : cell.tempRule->states) bytes += state.value.memoryBytes();
    }
  }
  for (const auto& section : sections_) {
    if (section == nullptr) continue;
    bytes += sizeof *section;
    const std::lock_guard lock(section->guard);
    if (section->states != nullptr) bytes += memoryBytesOf(*section->states);
  }
  return bytes;
}

std::size_t PrimaryKeyMap::memoryBytes() const {
  std::size_t bytes = numbers_.memoryBytes() + texts_.memoryBytes();
  const auto add = [&](std::int32_t /*row*/, const Text& key) { bytes += key.memoryBytes(); };
  texts_.forEachRow({}, texts_.end(), add);
  return bytes;
}

std::size_t Table::memoryBytes() const {
  std::size_t bytes = rows_->memoryBytes() + primaryKeyMap_.memoryBytes();
  for (const auto& column : values_) bytes += column->memoryBytes();
  return bytes;
}

std::int64_t Table::nextChange(std::int64_t now) const {
  std::int64_t next = std::numeric_limits<std::int64_t>::max();
  for (const auto& column : values_) next = std::min(next, column->nextChange(now));
  return next;
}

}  // namespace velmora
