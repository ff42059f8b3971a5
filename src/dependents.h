// What a parent row knows of its children: the rows that were linked to it.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

#include "text.h"

namespace velmora {

// The child side of a link, as a parent row remembers it.
struct ForeignRelation {
  Text childTable;
  Text childColumn;
  bool operator==(const ForeignRelation&) const = default;
};

// Row indices, ascending, each once. The first lies in the object itself: most parents have few
// children, and whether there is one is asked most often.
class RowIndices {
 public:
  std::size_t size() const noexcept { return first_ == none ? 0 : 1 + others_.size(); }
  std::int32_t operator[](std::size_t place) const noexcept {
    return place == 0 ? first_ : others_[place - 1];
  }
  void add(std::int32_t row);
  void remove(std::int32_t row);

 private:
  static constexpr std::int32_t none = -1;
  std::int32_t first_ = none;
  std::vector<std::int32_t> others_;
};

// The child rows that were linked to a parent row through one relation. A child that has moved to
// another key since stays listed; who asks compares its current key.
struct Dependents {
  ForeignRelation relation;
  RowIndices childRows;
  std::unique_ptr<Dependents> next;  // those of another relation; null behind the last
};

// Remembers a child row with its parent, whose list this is.
void addDependent(std::unique_ptr<Dependents>& list, const ForeignRelation& relation,
                  std::int32_t childRow);

}  // namespace velmora
