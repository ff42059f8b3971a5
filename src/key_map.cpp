// See key_map.h.
#include "key_map.h"

#include <type_traits>

#include "number.h"

namespace velmora {
namespace {

// Narrows a range for a comparison with a key that stands, or would stand, between two places.
template <typename Place>
void narrowEnds(PrimaryKeyMap::Bound bound, Place at, Place behind, Place& from, Place& to) {
  using Bound = PrimaryKeyMap::Bound;
  if (bound == Bound::equal || bound == Bound::greaterOrEqual) from = at;
  if (bound == Bound::greater) from = behind;
  if (bound == Bound::less) to = at;
  if (bound == Bound::equal || bound == Bound::lessOrEqual) to = behind;
}

}  // namespace

bool KeyComparator::operator()(std::string_view a, std::string_view b) const {
  if (valueKind(type) == ValueKind::integer) return parseInt(a) < parseInt(b);
  return a < b;
}

PrimaryKeyMap::PrimaryKeyMap(std::string keyType)
    : comparator_{std::move(keyType)}, kind_(valueKind(comparator_.type)) {}

template <typename Map, typename Use>
auto PrimaryKeyMap::inKeys(Map& map, std::string_view key, Use use) {
  return map.isInteger() ? use(map.numbers_, std::int64_t{parseInt(key)}) : use(map.texts_, key);
}

std::int32_t PrimaryKeyMap::find(std::string_view key) const {
  return inKeys(*this, key, [](const auto& keys, auto wanted) { return keys.rowOf(wanted); });
}

std::int32_t PrimaryKeyMap::findNumber(std::string_view key) const noexcept {
  std::int32_t number = 0;
  if (!isInteger() || convertInt(key, number) != Conversion::ok) return noRow;
  return numbers_.rowOf(number);
}

std::int32_t PrimaryKeyMap::findOrAdd(std::string_view key, std::int32_t row) {
  return inKeys(*this, key, [&](auto& keys, auto wanted) {
    const std::int32_t holder = keys.rowOf(wanted);
    if (holder == noRow) keys.assign(wanted, row);
    return holder;
  });
}

void PrimaryKeyMap::assign(std::string_view key, std::int32_t row) {
  inKeys(*this, key, [&](auto& keys, auto wanted) { keys.assign(wanted, row); });
}

void PrimaryKeyMap::eraseEntry(std::string_view key, std::int32_t row) {
  inKeys(*this, key, [&](auto& keys, auto wanted) {
    if (keys.rowOf(wanted) == row) keys.erase(wanted);
  });
}

bool PrimaryKeyMap::Range::narrow(Bound bound, std::string_view key) {
  if (map_->isInteger()) {
    const std::int64_t number = parseInt(key);
    narrowEnds(bound, number, number + 1, numberFrom_, numberTo_);
    return bound != Bound::equal || map_->numbers_.rowOf(number) != noRow;
  }
  const TextPlace at = map_->texts_.placeOf(key);
  const bool isThere = map_->texts_.holds(at, key);
  narrowEnds(bound, at, {at.block, at.entry + (isThere ? 1U : 0U)}, textFrom_, textTo_);
  return bound != Bound::equal || isThere;
}

std::vector<std::string> PrimaryKeyMap::keys() const {
  std::vector<std::string> keys;
  Range(*this).forEachRow([&](std::int32_t /*row*/, const auto& key) {
    if constexpr (std::is_integral_v<std::remove_cvref_t<decltype(key)>>) {
      keys.push_back(std::to_string(key));
    } else {
      keys.emplace_back(key.view());
    }
  });
  return keys;
}

}  // namespace velmora
