// Row matching: which rows satisfy a WHERE filter.
//
// A filter is an OR of ANDs without parentheses: && binds tighter than ||. Each group of conditions
// joined by && finds its rows on its own; conditions on the primary key narrow a range of the key
// map, and every condition is then tested row by row, in written order, with the row's cell on the
// left. Equality compares texts, order compares by the column's type: a stored 05 is not = 5, but
// it is < 6. A column that the table lacks, and an operator without meaning here, match nothing.
#include <algorithm>

#include "../clock.h"
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

// One condition made ready for one table: names looked up and the literal read, once.
class Predicate {
 public:
  Predicate(const Condition& condition, const Table& table)
      : comparison_(comparisonOf(condition.op)),
        column_(table.columnPosition(condition.column)),
        literal_(condition.value) {
    if (column_ == noColumn) return;
    kind_ = table.kind(column_);
    if (kind_ == ValueKind::integer) conversion_ = convertInt(literal_, integer_);
    if (kind_ == ValueKind::real) conversion_ = convertFloat(literal_, real_);
  }

  std::size_t column() const noexcept { return column_; }
  Comparison comparison() const noexcept { return comparison_; }
  std::string_view literal() const noexcept { return literal_; }

  // Throws what the conversion of the cell's text throws, or else the literal's.
  bool holds(const Row& row, std::int64_t now) const {
    if (column_ == noColumn) return false;
    const std::string_view text = row.cells()[column_].valueAt(now);
    switch (comparison_) {
      case Comparison::equal:
        return text == literal_;
      case Comparison::notEqual:
        return text != literal_;
      case Comparison::less:
        return isLess(text);
      case Comparison::greater:
        return isGreater(text);
      case Comparison::lessOrEqual:
        return isLess(text) || text == literal_;
      case Comparison::greaterOrEqual:
        return isGreater(text) || text == literal_;
      case Comparison::never:
        break;
    }
    return false;
  }

 private:
  bool isLess(std::string_view text) const {
    switch (kind_) {
      case ValueKind::integer:
        return cellInt(text) < integer_;
      case ValueKind::real:
        return cellFloat(text) < real_;
      default:
        return comesBefore(kind_, text, literal_);
    }
  }
  bool isGreater(std::string_view text) const {
    switch (kind_) {
      case ValueKind::integer:
        return cellInt(text) > integer_;
      case ValueKind::real:
        return cellFloat(text) > real_;
      default:
        return comesBefore(kind_, literal_, text);
    }
  }
  std::int32_t cellInt(std::string_view text) const {
    const std::int32_t value = parseInt(text);
    requireConverted(conversion_, "stoi");
    return value;
  }
  float cellFloat(std::string_view text) const {
    const float value = parseFloat(text);
    requireConverted(conversion_, "stof");
    return value;
  }

  Comparison comparison_;
  ValueKind kind_ = ValueKind::unknown;
  Conversion conversion_ = Conversion::ok;  // of the literal; asked only when a row is compared
  std::size_t column_;
  std::string_view literal_;
  std::int32_t integer_ = 0;
  float real_ = 0;
};

using Group = std::vector<Predicate>;

std::vector<Group> groupsOf(const std::vector<Condition>& conditions, const Table& table) {
  std::vector<Group> groups(1);
  for (std::size_t i = 0; i < conditions.size(); ++i) {
    if (i > 0 && conditions[i].logic == 'o') groups.emplace_back();
    groups.back().emplace_back(conditions[i], table);
  }
  return groups;
}

bool allHold(const Group& group, const Row& row, std::int64_t now) {
  return std::all_of(group.begin(), group.end(),
                     [&](const Predicate& predicate) { return predicate.holds(row, now); });
}

// Narrows the range by every condition on the primary key; false when the group can match nothing.
bool narrowByKey(const Group& group, std::size_t keyColumn, PrimaryKeyMap::Range& range) {
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
    if (!range.narrow(bound, predicate.literal())) return false;
  }
  return true;
}

// Appends the live rows that satisfy one group, ascending.
void matchGroup(const Group& group, const Table& table, std::int64_t now,
                std::vector<std::int32_t>& matched) {
  const auto keyColumn = static_cast<std::size_t>(table.primaryKeyIndex);
  const bool usesKey = table.hasPrimaryKey() &&
                       std::any_of(group.begin(), group.end(), [&](const Predicate& predicate) {
                         return predicate.column() == keyColumn;
                       });
  if (usesKey) {
    PrimaryKeyMap::Range range(table.primaryKeyMap);
    if (!narrowByKey(group, keyColumn, range)) return;
    std::vector<std::int32_t> candidates = range.rows();
    for (const std::int32_t index : candidates) {
      const Row& row = table.rows.at(static_cast<std::size_t>(index));
      if (!row.isDeleted && allHold(group, row, now)) matched.push_back(index);
    }
    if (!std::is_sorted(matched.begin(), matched.end())) {
      std::sort(matched.begin(), matched.end());
    }
    return;
  }
  for (std::size_t i = 0; i < table.rows.size(); ++i) {
    if (table.isLive(i) && allHold(group, table.rows[i], now)) {
      matched.push_back(static_cast<std::int32_t>(i));
    }
  }
}

}  // namespace

std::vector<std::int32_t> Database::getRequestedRows(const std::vector<Condition>& conditions,
                                                     const Table& table) const {
  const std::int64_t now = clock::now();
  std::vector<std::int32_t> matched;
  const std::vector<Group> groups = groupsOf(conditions, table);
  for (const Group& group : groups) matchGroup(group, table, now, matched);
  if (groups.size() > 1) {
    std::sort(matched.begin(), matched.end());
    matched.erase(std::unique(matched.begin(), matched.end()), matched.end());
  }
  return matched;
}

}  // namespace velmora
