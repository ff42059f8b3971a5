// Row matching: which rows satisfy a WHERE filter.
//
// A filter is an OR of ANDs without parentheses: && binds tighter than ||. Each group of conditions
// joined by && finds its rows on its own; conditions on the primary key narrow a range of the key
// map (a filter that only asks for one key is a look-up in it), and every condition is then tested
// row by row, in written order, with the row's cell on the left. Equality compares texts, order
// compares by the column's type: a stored 05 is not = 5, but it is < 6. A column that the table
// lacks, and an operator without meaning here, match nothing.
#include <algorithm>
#include <cstring>
#include <memory_resource>
#include <optional>
#include <span>
#include <vector>

#include "../number.h"
#include "database.h"

namespace velmora {
namespace {

enum class Comparison : std::uint8_t {
  equal,
  notEqual,
  less,
  greater,
  lessOrEqual,
  greaterOrEqual,
  never
};

Comparison comparisonOf(std::string_view op) {
  if (op == "=" || op == "==") return Comparison::equal;
  if (op == "!=") return Comparison::notEqual;
  if (op == "<") return Comparison::less;
  if (op == ">") return Comparison::greater;
  if (op == "<=") return Comparison::lessOrEqual;
  if (op == ">=") return Comparison::greaterOrEqual;
  return Comparison::never;
}

// The rows of one step of a scan, as bytes so that loops over them vectorise.
struct Block {
  static constexpr std::size_t capacity = 1024;
  std::size_t size = 0;
  alignas(64) std::uint8_t mayMatch[capacity];  // 0: no condition so far lets the row in
  alignas(64) std::uint8_t isUnsure[capacity];  // 1: only the row itself can tell
};

// One condition made ready for one table: names looked up and the literal read, once.
class Predicate {
 public:
  Predicate(const Condition& condition, const Table& table)
      : table_(&table),
        comparison_(comparisonOf(condition.op)),
        column_(table.columnPosition(condition.column, likelyColumn(table))),
        literal_(condition.value) {
    if (column_ == noColumn) return;
    kind_ = table.kind(column_);
    if (kind_ == ValueKind::integer) conversion_ = convertInt(literal_, integer_);
    if (kind_ == ValueKind::real) conversion_ = convertFloat(literal_, real_);
  }

  std::size_t column() const noexcept { return column_; }
  Comparison comparison() const noexcept { return comparison_; }
  std::string_view literal() const noexcept { return literal_; }

  // Whether the row of this index satisfies the condition. Throws what the conversion of the cell's
  // text throws, or else the literal's.
  bool holds(const Row& row, std::size_t index, std::int64_t now) const {
    if (column_ == noColumn) return false;
    const std::string_view text = row.cells()[column_].valueAt(now);
    switch (comparison_) {
      case Comparison::equal:
        return text == literal_;
      case Comparison::notEqual:
        return text != literal_;
      case Comparison::less:
        return isLess(text, index);
      case Comparison::greater:
        return isGreater(text, index);
      case Comparison::lessOrEqual:
        return isLess(text, index) || text == literal_;
      case Comparison::greaterOrEqual:
        return isGreater(text, index) || text == literal_;
      case Comparison::never:
        break;
    }
    return false;
  }

  // The same for a row whose key cell is plain and filed under this key, of whose column the
  // condition is. Only equality needs the text.
  bool holdsForKey(std::int32_t key, const Row& row, std::size_t index, std::int64_t now) const {
    if (key == integer_) return holds(row, index, now);
    switch (comparison_) {
      case Comparison::less:
      case Comparison::lessOrEqual:
        return key < integer_;
      case Comparison::greater:
      case Comparison::greaterOrEqual:
        return key > integer_;
      default:
        return holds(row, index, now);
    }
  }
  bool holdsForKey(std::string_view /*key*/, const Row& row, std::size_t index,
                   std::int64_t now) const {
    return holds(row, index, now);
  }

  // Whether a mirror can decide this condition for all rows but the exceptions.
  bool canUseMirror() const noexcept {
    if (column_ == noColumn || comparison_ == Comparison::never) return false;
    const bool isOrder = comparison_ != Comparison::equal && comparison_ != Comparison::notEqual;
    const bool isNumber = kind_ == ValueKind::integer || kind_ == ValueKind::real;
    return !isOrder || (isNumber && conversion_ == Conversion::ok);
  }

  void decideBlock(const ColumnMirror& mirror, std::size_t start, Block& block) const;

 private:
  // Most filters name the key.
  static std::size_t likelyColumn(const Table& table) {
    return table.hasPrimaryKey() ? static_cast<std::size_t>(table.primaryKeyIndex) : 0;
  }
  bool isLess(std::string_view text, std::size_t index) const {
    switch (kind_) {
      case ValueKind::integer:
        return cellInt(text, index) < integer_;
      case ValueKind::real:
        return cellFloat(text, index) < real_;
      default:
        return comesBefore(kind_, text, literal_);
    }
  }
  bool isGreater(std::string_view text, std::size_t index) const {
    switch (kind_) {
      case ValueKind::integer:
        return cellInt(text, index) > integer_;
      case ValueKind::real:
        return cellFloat(text, index) > real_;
      default:
        return comesBefore(kind_, literal_, text);
    }
  }
  std::int32_t cellInt(std::string_view text, std::size_t index) const {
    std::int32_t value = 0;
    require(convertInt(text, value), "stoi", text, index);
    require(conversion_, "stoi", literal_, std::nullopt);
    return value;
  }
  float cellFloat(std::string_view text, std::size_t index) const {
    float value = 0;
    require(convertFloat(text, value), "stof", text, index);
    require(conversion_, "stof", literal_, std::nullopt);
    return value;
  }
  void require(Conversion conversion, const char* name, std::string_view text,
               std::optional<std::size_t> row) const {
    if (conversion != Conversion::ok) fail(conversion, name, text, row);
  }
  void fail(Conversion conversion, const char* name, std::string_view text,
            std::optional<std::size_t> row) const;

  const Table* table_;
  Comparison comparison_;
  ValueKind kind_ = ValueKind::unknown;
  Conversion conversion_ = Conversion::ok;  // of the literal; asked only when a row is compared
  std::size_t column_;
  std::string_view literal_;
  std::int32_t integer_ = 0;
  float real_ = 0;
};

// Out of line, since the loops over rows are to stay small.
void Predicate::fail(Conversion conversion, const char* name, std::string_view text,
                     std::optional<std::size_t> row) const {
  atPlace(*table_, column_, row, [&] { requireConverted(conversion, name, text); });
}

// Narrows the block by matches(value) over an array; exceptions stay, unsure, and so do rows of
// which isClose(value) says that their code is not enough. A row that an earlier condition left
// unsure is not let go by a later one: deciding the earlier one may have to throw.
template <typename Value, typename Matches, typename IsClose>
void narrow(Block& block, const Value* values, const std::uint8_t* exceptions, Matches matches,
            IsClose isClose) {
  for (std::size_t i = 0; i < block.size; ++i) {
    const auto matched = static_cast<std::uint8_t>(matches(values[i]));
    const auto stays = matched | exceptions[i] | block.isUnsure[i];
    block.mayMatch[i] = static_cast<std::uint8_t>(block.mayMatch[i] & stays);
  }
  for (std::size_t i = 0; i < block.size; ++i) {
    const auto close = static_cast<std::uint8_t>(isClose(values[i]));
    block.isUnsure[i] = static_cast<std::uint8_t>(block.isUnsure[i] | close | exceptions[i]);
  }
}

// The same for an ordered value and a limit; rows equal to the limit are unsure if the comparison
// admits equality and equal numbers may be unequal texts.
template <typename Value>
void narrowByOrder(Block& block, const Value* values, const std::uint8_t* exceptions,
                   Comparison comparison, Value limit, bool equalIsUnsure) {
  const auto never = [](Value) { return false; };
  const auto atLimit = [=](Value value) { return equalIsUnsure && value == limit; };
  switch (comparison) {
    case Comparison::less:
      narrow(
          block, values, exceptions, [=](Value value) { return value < limit; }, never);
      break;
    case Comparison::greater:
      narrow(
          block, values, exceptions, [=](Value value) { return value > limit; }, never);
      break;
    case Comparison::lessOrEqual:
      narrow(
          block, values, exceptions, [=](Value value) { return value <= limit; }, atLimit);
      break;
    default:
      narrow(
          block, values, exceptions, [=](Value value) { return value >= limit; }, atLimit);
      break;
  }
}

void Predicate::decideBlock(const ColumnMirror& mirror, std::size_t start, Block& block) const {
  const std::int32_t* const codes = mirror.codes() + start;
  const std::uint8_t* const exceptions = mirror.exceptions() + start;
  const auto never = [](std::int32_t) { return false; };
  const std::int32_t wanted = codeOf(kind_, literal_);
  const auto isWanted = [=](std::int32_t code) { return code == wanted; };
  const bool isInteger = kind_ == ValueKind::integer;
  const bool isCanonical = isInteger && canonicalInt(literal_).has_value();
  switch (comparison_) {
    case Comparison::equal:
      if (isCanonical) {
        narrow(block, codes, exceptions, isWanted, never);
      } else if (isInteger) {
        // No number in its shortest form equals this literal.
        narrow(block, codes, exceptions, never, never);
      } else {
        narrow(block, codes, exceptions, isWanted, isWanted);
      }
      return;
    case Comparison::notEqual:
      if (isCanonical) {
        narrow(
            block, codes, exceptions, [=](std::int32_t code) { return code != wanted; }, never);
      } else {
        const auto always = [](std::int32_t) { return true; };
        const auto isClose = [=](std::int32_t code) { return !isInteger && code == wanted; };
        narrow(block, codes, exceptions, always, isClose);
      }
      return;
    default:
      if (isInteger) {
        narrowByOrder(block, codes, exceptions, comparison_, integer_, !isCanonical);
      } else {
        narrowByOrder(block, mirror.numbers() + start, exceptions, comparison_, real_, true);
      }
  }
}

using Group = std::span<const Predicate>;

bool allHold(Group group, const Table& table, std::size_t index, std::int64_t now) {
  const Row& row = table.rows[index];
  return std::all_of(group.begin(), group.end(),
                     [&](const Predicate& predicate) { return predicate.holds(row, index, now); });
}

// Narrows the range by every condition on the primary key; false when the group can match nothing.
bool narrowByKey(Group group, const Table& table, PrimaryKeyMap::Range& range) {
  const auto keyColumn = static_cast<std::size_t>(table.primaryKeyIndex);
  using Bound = PrimaryKeyMap::Bound;
  const Predicate* equality = nullptr;
  for (const Predicate& predicate : group) {
    if (predicate.column() != keyColumn) continue;
    Bound bound = Bound::equal;
    switch (predicate.comparison()) {
      case Comparison::equal:
        if (equality != nullptr && equality->literal() != predicate.literal()) return false;
        equality = &predicate;
        break;
      case Comparison::less:
        bound = Bound::less;
        break;
      case Comparison::greater:
        bound = Bound::greater;
        break;
      case Comparison::lessOrEqual:
        bound = Bound::lessOrEqual;
        break;
      case Comparison::greaterOrEqual:
        bound = Bound::greaterOrEqual;
        break;
      case Comparison::notEqual:
      case Comparison::never:
        continue;
    }
    const bool isEmpty = !atPlace(table, keyColumn, std::nullopt,
                                  [&] { return range.narrow(bound, predicate.literal()); });
    if (isEmpty) return false;
  }
  return true;
}

// Appends the live rows of a large table that satisfy a group whose first `mirrored` conditions
// can use mirrors.
void scanMirrors(Group group, std::size_t mirrored, const Table& table, std::int64_t now,
                 std::vector<std::int32_t>& matched) {
  std::vector<const ColumnMirror*> mirrors;
  for (std::size_t i = 0; i < mirrored; ++i) mirrors.push_back(&table.mirror(group[i].column()));
  const Group unmirrored = group.subspan(mirrored);
  Block block;
  for (std::size_t start = 0; start < table.rows.size(); start += Block::capacity) {
    block.size = std::min(Block::capacity, table.rows.size() - start);
    for (std::size_t i = 0; i < block.size; ++i) {
      block.mayMatch[i] = table.deletedRows[start + i] ^ std::uint8_t{1};
    }
    std::fill_n(block.isUnsure, block.size, std::uint8_t{0});
    for (std::size_t i = 0; i < mirrored; ++i) group[i].decideBlock(*mirrors[i], start, block);
    for (std::size_t i = 0; i < block.size; ++i) {
      if (i % 8 == 0 && i + 8 <= block.size) {
        std::uint64_t eight;
        std::memcpy(&eight, block.mayMatch + i, sizeof eight);
        if (eight == 0) {
          i += 7;
          continue;
        }
      }
      if (block.mayMatch[i] == 0) continue;
      const Group open = block.isUnsure[i] != 0 ? group : unmirrored;
      if (open.empty() || allHold(open, table, start + i, now)) {
        matched.push_back(static_cast<std::int32_t>(start + i));
      }
    }
  }
}

// Appends the live rows that satisfy one group, ascending.
void matchGroup(Group group, const Table& table, std::int64_t now,
                std::vector<std::int32_t>& matched) {
  const auto first = static_cast<std::ptrdiff_t>(matched.size());
  const auto keyColumn = static_cast<std::size_t>(table.primaryKeyIndex);
  const bool usesKey = table.hasPrimaryKey() &&
                       std::any_of(group.begin(), group.end(), [&](const Predicate& predicate) {
                         return predicate.column() == keyColumn;
                       });
  if (usesKey) {
    PrimaryKeyMap::Range range(table.primaryKeyMap);
    if (!narrowByKey(group, table, range)) return;
    range.forEachRow([&](std::int32_t found, const auto& key) {
      const auto index = static_cast<std::size_t>(found);
      const Row& row = table.rows.at(index);
      table.rows.prefetch(index, table.columns.size() - 1);
      if (!table.isLive(index)) return;
      const bool isPlain = row.cells()[keyColumn].tempRule == nullptr;
      const bool matches = std::all_of(group.begin(), group.end(), [&](const Predicate& predicate) {
        return isPlain && predicate.column() == keyColumn
                   ? predicate.holdsForKey(key, row, index, now)
                   : predicate.holds(row, index, now);
      });
      if (matches) matched.push_back(found);
    });
    if (!std::is_sorted(matched.begin() + first, matched.end())) {
      std::sort(matched.begin() + first, matched.end());
    }
    return;
  }
  if (table.rows.size() >= leastMirroredRows) {
    const auto firstUnmirrored =
        std::find_if(group.begin(), group.end(),
                     [](const Predicate& predicate) { return !predicate.canUseMirror(); });
    const auto mirrored = static_cast<std::size_t>(firstUnmirrored - group.begin());
    if (mirrored > 0) {
      scanMirrors(group, mirrored, table, now, matched);
      return;
    }
  }
  if (group.empty()) matched.reserve(table.rows.size());
  for (std::size_t i = 0; i < table.rows.size(); ++i) {
    if (table.isLive(i) && (group.empty() || allHold(group, table, i, now))) {
      matched.push_back(static_cast<std::int32_t>(i));
    }
  }
}

// Whether a condition is what most commands have for a filter: that the key is this one.
bool asksForKey(const Condition& condition, const Table& table) {
  return table.hasPrimaryKey() && condition.column == table.primaryKeyColumn &&
         comparisonOf(condition.op) == Comparison::equal;
}

}  // namespace

void Database::prefetchRow(std::string_view tableName, std::string_view column,
                           std::string_view key) const {
  const std::shared_lock lock(dbMutex, std::try_to_lock);
  if (!lock.owns_lock()) return;
  const auto entry = tables.find(tableName);
  if (entry == tables.end()) return;
  const Table& table = entry->second;
  if (!table.hasPrimaryKey() || table.primaryKeyColumn != column) return;
  const std::int32_t row = table.primaryKeyMap.findNumber(key);
  if (row != PrimaryKeyMap::noRow) table.rows.prefetch(static_cast<std::size_t>(row));
}

std::vector<std::int32_t> Database::getRequestedRows(const std::vector<Condition>& conditions,
                                                     const Table& table, std::int64_t now) const {
  std::vector<std::int32_t> matched;
  if (conditions.size() == 1 && asksForKey(conditions.front(), table)) {
    const auto keyColumn = static_cast<std::size_t>(table.primaryKeyIndex);
    const std::int32_t row = atPlace(table, keyColumn, std::nullopt,
                                     [&] { return table.findLive(conditions.front().value, now); });
    if (row != PrimaryKeyMap::noRow) matched.push_back(row);
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
    matchGroup(Group(predicates).subspan(start, end - start), table, now, matched);
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
