// Row matching: which rows satisfy a WHERE filter.
//
// A filter is an OR of ANDs without parentheses: && binds tighter than ||. Each group of conditions
// joined by && finds its rows on its own, by a range of keys if it can and by a scan if not; a
// filter that only asks for one key is a look-up.
#include "matching.h"

#include <memory_resource>
#include <optional>

#include "database.h"

namespace velmora {
namespace {

// Whether a condition is what most commands have for a filter: that the key is this one.
bool asksForKey(const Condition& condition, const Table& table) {
  return table.hasPrimaryKey() && condition.column == table.primaryKeyColumn &&
         comparisonOf(condition.op) == Comparison::equal;
}

}  // namespace

void Database::prefetchRow(std::string_view tableName, std::string_view column,
                           std::string_view key) const {
  const std::unique_lock lock(dbMutex, std::try_to_lock);
  if (!lock.owns_lock()) return;
  const auto entry = tables.find(tableName);
  if (entry == tables.end()) return;
  const Table& table = entry->second;
  if (!table.hasPrimaryKey() || table.primaryKeyColumn != column) return;
  const std::int32_t row = table.keys().findNumber(key);
  if (row != PrimaryKeyMap::noRow) table.prefetch(static_cast<std::size_t>(row));
}

std::optional<std::int32_t> Database::findRequestedKey(const std::vector<Condition>& conditions,
                                                       const Table& table, std::int64_t now) {
  if (conditions.size() != 1 || !asksForKey(conditions.front(), table)) return std::nullopt;
  const auto keyColumn = static_cast<std::size_t>(table.primaryKeyIndex);
  return atPlace(table, keyColumn, std::nullopt,
                 [&] { return table.findLive(conditions.front().value, now); });
}

std::vector<std::int32_t> Database::getRequestedRows(const std::vector<Condition>& conditions,
                                                     const Table& table, std::int64_t now) const {
  std::vector<std::int32_t> matched;
  if (const auto row = findRequestedKey(conditions, table, now)) {
    if (*row != PrimaryKeyMap::noRow) matched.push_back(*row);
    return matched;
  }
  std::byte memory[16 * sizeof(Predicate)];  // enough for a usual filter
  std::pmr::monotonic_buffer_resource resource(memory, sizeof memory);
  std::pmr::vector<Predicate> predicates(&resource);
  predicates.reserve(conditions.size());
  for (const Condition& condition : conditions) predicates.emplace_back(condition, table);
  // A group ends where the next one begins: before each || but the first condition's.
  std::size_t start = 0;
  std::size_t groupCount = 0;
  do {
    std::size_t end = start;
    while (end < conditions.size() && (end == start || conditions[end].logic != 'o')) ++end;
    const Group group = Group(predicates).subspan(start, end - start);
    if (narrowsKey(group, table)) {
      matchKeyRange(group, table, now, matched);
    } else {
      scanRows(group, table, now, matched);
    }
    start = end;
    ++groupCount;
  } while (start < conditions.size());
  if (groupCount > 1) {
    std::sort(matched.begin(), matched.end());
    matched.erase(std::unique(matched.begin(), matched.end()), matched.end());
  }
  return matched;
}

}  // namespace velmora
