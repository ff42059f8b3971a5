// Sorter: orders rows by keys, and of many keeps only the first so many, in a heap whose top is the
// last of these. Rows with equal keys stay in the order in which they came.
#pragma once

#include <cstdint>
#include <span>
#include <vector>

#include "../typed_value.h"

namespace velmora::query {

// A row of an answer on its way: a row of each table, or a group.
struct Item {
  std::int32_t left = -1;
  std::int32_t right = -1;
  std::uint32_t group = 0;
};

class Sorter {
 public:
  // Which keys descend; how many rows are kept.
  Sorter(std::vector<bool> descends, std::size_t kept);

  // The keys' texts have to stay.
  void offer(const Item& item, std::span<const TypedValue> keys);
  // The keys of the last row that is kept, once there are as many as that; else none.
  std::span<const TypedValue> last() const;
  std::vector<Item> take();

 private:
  struct Entry {
    Item item;
    std::uint64_t ordinal;
    std::size_t firstKey;
  };
  bool comesBefore(const Entry& a, const Entry& b) const;

  std::vector<bool> descends_;
  std::size_t kept_;
  std::uint64_t offered_ = 0;
  std::vector<Entry> entries_;  // a heap once there are so many
  std::vector<TypedValue> keys_;
};

}  // namespace velmora::query
