// ValueIds: a number for each distinct value, in the order in which they come: what groups and
// joins find equal values by. Numbers are equal as numbers, whatever their types.
#pragma once

#include <cstdint>
#include <span>
#include <vector>

#include "column_batch.h"

namespace velmora::query {

class ValueIds {
 public:
  static constexpr std::uint32_t none = ~std::uint32_t{0};

  ValueIds();
  std::uint32_t size() const noexcept { return size_; }

  // The numbers of the values at some places, null being one as well; new ones are added.
  void add(const ColumnBatch& batch, std::span<const std::uint16_t> places, std::uint32_t* ids);
  // The same of given values; none for null.
  void addGiven(const ColumnBatch& batch, std::span<const std::uint16_t> places,
                std::uint32_t* ids);
  // The same without adding; none for what is not there.
  void findGiven(const ColumnBatch& batch, std::span<const std::uint16_t> places,
                 std::uint32_t* ids) const;
  // The number of a pair of numbers, so that several columns make one.
  std::uint32_t addPair(std::uint32_t first, std::uint32_t second);

 private:
  static constexpr std::size_t nearCount = 4096;
  enum class Sort : std::uint32_t { empty, null, integer, real, boolean, text, longText };
  // A value in two words, of a long text its hash.
  struct Slot {
    std::uint64_t first = 0;
    std::uint64_t second = 0;
    Sort sort = Sort::empty;
    std::uint32_t id = 0;
  };
  struct Key {
    std::uint64_t first;
    std::uint64_t second;
    Sort sort;
    const Text* text = nullptr;  // of a long one
  };
  static Key keyOf(const ColumnBatch& batch, std::size_t place) noexcept;
  // Where the key is, or belongs.
  std::size_t slotOf(const Key& key) const noexcept;
  std::uint32_t addKey(const Key& key);
  std::uint32_t addInteger(std::int64_t value) {
    const auto key = static_cast<std::uint64_t>(value);
    if (key < nearCount && near_[key] != none) return near_[key];
    return addUnseen(key);
  }
  std::uint32_t addUnseen(std::uint64_t integer);
  void grow();

  std::vector<Slot> slots_;          // a power of two, at most half of them in use
  std::vector<std::uint32_t> near_;  // of small whole numbers
  std::vector<Text> texts_;          // by number, where there are long ones
  std::uint32_t size_ = 0;
};

}  // namespace velmora::query
