// Rows by a range of keys: conditions on the primary key narrow a range of the key map, and every
// condition is then asked of the rows that it names.
#include <optional>

#include "matching.h"

namespace velmora {
namespace {

std::size_t keyColumnOf(const Table& table) {
  return static_cast<std::size_t>(table.primaryKeyIndex);
}

// Which end of a range a comparison narrows; nothing for one that narrows none.
std::optional<PrimaryKeyMap::Bound> boundOf(Comparison comparison) {
  using Bound = PrimaryKeyMap::Bound;
  switch (comparison) {
    case Comparison::equal:
      return Bound::equal;
    case Comparison::less:
      return Bound::less;
    case Comparison::greater:
      return Bound::greater;
    case Comparison::lessOrEqual:
      return Bound::lessOrEqual;
    case Comparison::greaterOrEqual:
      return Bound::greaterOrEqual;
    case Comparison::notEqual:
    case Comparison::never:
      break;
  }
  return std::nullopt;
}

// Narrows the range by every condition on the primary key; false when the group can match nothing.
bool narrowByKey(Group group, const Table& table, PrimaryKeyMap::Range& range) {
  const Predicate* equality = nullptr;
  for (const Predicate& predicate : group) {
    const auto bound = boundOf(predicate.comparison());
    if (predicate.column() != keyColumnOf(table) || !bound) continue;
    if (*bound == PrimaryKeyMap::Bound::equal) {
      if (equality != nullptr && equality->literal() != predicate.literal()) return false;
      equality = &predicate;
    }
    const bool isEmpty = !atPlace(table, keyColumnOf(table), std::nullopt,
                                  [&] { return range.narrow(*bound, predicate.literal()); });
    if (isEmpty) return false;
  }
  return true;
}

}  // namespace

bool narrowsKey(Group group, const Table& table) {
  return table.hasPrimaryKey() &&
         std::any_of(group.begin(), group.end(), [&](const Predicate& predicate) {
           return predicate.column() == keyColumnOf(table);
         });
}

void matchKeyRange(Group group, const Table& table, std::int64_t now,
                   std::vector<std::int32_t>& matched) {
  const auto first = static_cast<std::ptrdiff_t>(matched.size());
  PrimaryKeyMap::Range range(table.keys());
  if (!narrowByKey(group, table, range)) return;
  const ColumnValues& keys = table.values(keyColumnOf(table));
  range.forEachRow([&](std::int32_t found, const auto& key) {
    const auto row = static_cast<std::size_t>(found);
    if (!table.isLive(row)) return;
    const bool isTimed = keys.rule(row) != nullptr;
    const bool matches = std::all_of(group.begin(), group.end(), [&](const Predicate& predicate) {
      return !isTimed && predicate.column() == keyColumnOf(table)
                 ? predicate.holdsForKey(key, row, now)
                 : predicate.holds(row, now);
    });
    if (matches) matched.push_back(found);
  });
  if (!std::is_sorted(matched.begin() + first, matched.end())) {
    std::sort(matched.begin() + first, matched.end());
  }
}

}  // namespace velmora
