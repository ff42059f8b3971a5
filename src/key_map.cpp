// See key_map.h.
#include "key_map.h"

#include "number.h"

namespace velmora {
namespace {

template <typename Place>
bool narrowPlaces(const auto& blocks, PrimaryKeyMap::Bound bound, const auto& key, Place& from,
                  Place& to) {
  using Bound = PrimaryKeyMap::Bound;
  switch (bound) {
    case Bound::equal:
      from = blocks.find(key);
      to = from;
      ++to.entry;
      return from != blocks.end();
    case Bound::greater:
      from = blocks.upperBound(key);
      return true;
    case Bound::greaterOrEqual:
      from = blocks.lowerBound(key);
      return true;
    case Bound::less:
      to = blocks.lowerBound(key);
      return true;
    case Bound::lessOrEqual:
      to = blocks.upperBound(key);
      return true;
  }
  return true;
}

template <typename Key>
void assignKey(SortedBlocks<Key>& blocks, Key key, std::int32_t row) {
  const auto at = blocks.find(key);
  if (at != blocks.end()) {
    blocks.setRowAt(at, row);
  } else {
    blocks.insert(std::move(key), row);
  }
}

template <typename Key>
std::int32_t findOrAddKey(SortedBlocks<Key>& blocks, Key key, std::int32_t row) {
  const std::int32_t holder = blocks.rowOf(key);
  if (holder == PrimaryKeyMap::noRow) blocks.insert(std::move(key), row);
  return holder;
}

void eraseKey(auto& blocks, const auto& key, std::int32_t row) {
  const auto at = blocks.find(key);
  if (at != blocks.end() && blocks.rowAt(at) == row) blocks.erase(at);
}

}  // namespace

bool KeyComparator::operator()(std::string_view a, std::string_view b) const {
  if (valueKind(type) == ValueKind::integer) return parseInt(a) < parseInt(b);
  return a < b;
}

PrimaryKeyMap::PrimaryKeyMap(std::string keyType)
    : comparator_{std::move(keyType)}, kind_(valueKind(comparator_.type)) {}

std::int32_t PrimaryKeyMap::find(std::string_view key) const {
  return isInteger() ? integers_.rowOf(parseInt(key)) : texts_.rowOf(key);
}

std::int32_t PrimaryKeyMap::findNumber(std::string_view key) const noexcept {
  std::int32_t number = 0;
  if (!isInteger() || convertInt(key, number) != Conversion::ok) return noRow;
  return integers_.rowOf(number);
}

std::int32_t PrimaryKeyMap::findOrAdd(std::string_view key, std::int32_t row) {
  return isInteger() ? findOrAddKey(integers_, parseInt(key), row)
                     : findOrAddKey(texts_, Text(key), row);
}

std::int32_t PrimaryKeyMap::findOrAddNumber(std::int32_t key, std::int32_t row) {
  return findOrAddKey(integers_, key, row);
}

void PrimaryKeyMap::assign(std::string_view key, std::int32_t row) {
  if (isInteger()) {
    assignKey(integers_, parseInt(key), row);
  } else {
    assignKey(texts_, Text(key), row);
  }
}

void PrimaryKeyMap::eraseEntry(std::string_view key, std::int32_t row) {
  if (isInteger()) {
    eraseKey(integers_, parseInt(key), row);
  } else {
    eraseKey(texts_, key, row);
  }
}

PrimaryKeyMap::Range::Range(const PrimaryKeyMap& map)
    : map_(&map), integerTo_(map.integers_.end()), textTo_(map.texts_.end()) {}

bool PrimaryKeyMap::Range::narrow(Bound bound, std::string_view key) {
  return map_->isInteger()
             ? narrowPlaces(map_->integers_, bound, parseInt(key), integerFrom_, integerTo_)
             : narrowPlaces(map_->texts_, bound, key, textFrom_, textTo_);
}

std::vector<std::string> PrimaryKeyMap::keys() const {
  std::vector<std::string> keys;
  for (auto at = integers_.begin(); at < integers_.end();) {
    keys.push_back(std::to_string(integers_.keyAt(at)));
    at = integers_.upperBound(integers_.keyAt(at));
  }
  for (auto at = texts_.begin(); at < texts_.end();) {
    keys.emplace_back(texts_.keyAt(at).view());
    at = texts_.upperBound(texts_.keyAt(at));
  }
  return keys;
}

}  // namespace velmora
