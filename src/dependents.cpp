// See dependents.h.
#include "dependents.h"

#include <algorithm>

namespace velmora {

void RowIndices::add(std::int32_t row) {
  if (first_ == none) {
    first_ = row;
    return;
  }
  if (row == first_) return;
  const std::int32_t other = std::max(row, first_);
  if (others_.empty() || others_.back() < other) {
    others_.push_back(other);
  } else if (const auto at = std::lower_bound(others_.begin(), others_.end(), other);
             *at != other) {
    others_.insert(at, other);
  }
  first_ = std::min(row, first_);
}

void RowIndices::remove(std::int32_t row) {
  if (row == first_) {
    first_ = others_.empty() ? none : others_.front();
    row = first_;
  }
  const auto at = std::lower_bound(others_.begin(), others_.end(), row);
  if (at != others_.end() && *at == row) others_.erase(at);
}

void addDependent(std::unique_ptr<Dependents>& list, const ForeignRelation& relation,
                  std::int32_t childRow) {
  std::unique_ptr<Dependents>* known = &list;
  while (*known != nullptr && (*known)->relation != relation) known = &(*known)->next;
  if (*known == nullptr) *known = std::make_unique<Dependents>(Dependents{relation, {}, nullptr});
  (*known)->childRows.add(childRow);
}

}  // namespace velmora
