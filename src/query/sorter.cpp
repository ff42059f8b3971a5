// See sorter.h.
#include "sorter.h"

#include <algorithm>

#include "value_order.h"

namespace velmora::query {

Sorter::Sorter(std::vector<bool> descends, std::size_t kept)
    : descends_(std::move(descends)), kept_(kept) {}

bool Sorter::comesBefore(const Entry& a, const Entry& b) const {
  for (std::size_t i = 0; i < descends_.size(); ++i) {
    const int order = compareValues(keys_[a.firstKey + i], keys_[b.firstKey + i]);
    if (order != 0) return (order < 0) != descends_[i];
  }
  return a.ordinal < b.ordinal;
}

void Sorter::offer(const Item& item, std::span<const TypedValue> keys) {
  const auto comesFirst = [this](const Entry& a, const Entry& b) { return comesBefore(a, b); };
  Entry entry{item, offered_++, keys_.size()};
  if (entries_.size() < kept_) {
    keys_.insert(keys_.end(), keys.begin(), keys.end());
    entries_.push_back(entry);
    if (entries_.size() == kept_) std::make_heap(entries_.begin(), entries_.end(), comesFirst);
    return;
  }
  if (kept_ == 0) return;
  // It stands behind the others for a look, and takes the place of the one that goes.
  keys_.insert(keys_.end(), keys.begin(), keys.end());
  const bool isKept = comesFirst(entry, entries_.front());
  if (isKept) {
    std::pop_heap(entries_.begin(), entries_.end(), comesFirst);
    const std::size_t place = entries_.back().firstKey;
    std::copy(keys.begin(), keys.end(), keys_.begin() + static_cast<std::ptrdiff_t>(place));
    entry.firstKey = place;
    entries_.back() = entry;
    std::push_heap(entries_.begin(), entries_.end(), comesFirst);
  }
  keys_.resize(kept_ * descends_.size());
}

std::span<const TypedValue> Sorter::last() const {
  if (kept_ == 0 || entries_.size() < kept_) return {};
  return std::span(keys_).subspan(entries_.front().firstKey, descends_.size());
}

std::vector<Item> Sorter::take() {
  std::sort(entries_.begin(), entries_.end(),
            [this](const Entry& a, const Entry& b) { return comesBefore(a, b); });
  std::vector<Item> items;
  items.reserve(entries_.size());
  for (const Entry& entry : entries_) items.push_back(entry.item);
  return items;
}

}  // namespace velmora::query
