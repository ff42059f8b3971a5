// One condition of a filter, made ready for one table: names looked up and the literal read, once.
//
// The row's cell stands on the left. Equality compares texts, order compares by the column's type:
// a stored 05 is not = 5, but it is < 6. A column that the table lacks, and an operator without
// meaning here, match nothing.
#pragma once

#include <algorithm>
#include <cstdint>
#include <optional>
#include <span>
#include <string_view>

#include "../byte_mask.h"
#include "../condition.h"
#include "../read_ahead.h"
#include "../table.h"

namespace velmora {

enum class Comparison : std::uint8_t {
  equal,
  notEqual,
  less,
  greater,
  lessOrEqual,
  greaterOrEqual,
  never
};
Comparison comparisonOf(std::string_view op);

// The rows of one chunk during a scan, first as bytes so that loops over them vectorise, then as a
// list.
struct Block {
  std::size_t size = 0;
  std::size_t count = 0;  // of the list
  bool hasUnsure = false;
  ReadAhead next;  // what is read of the chunk behind this one, by who decides this one
  alignas(64) std::uint8_t mayMatch[Rows::chunkRows];  // 0: no condition so far lets the row in
  // 1: only the row itself can tell. Undefined unless hasUnsure.
  alignas(64) std::uint8_t isUnsure[Rows::chunkRows];
  // The list: the rows that all conditions let in, ascending.
  std::uint16_t places[Rows::chunkRows];

  bool isSure(std::size_t place) const noexcept { return !hasUnsure || isUnsure[place] == 0; }
  template <typename Fails>
  void removeIf(Fails fails) {
    count = static_cast<std::size_t>(std::remove_if(places, places + count, fails) - places);
  }
};

class Predicate {
 public:
  // The condition and the table have to stay.
  Predicate(const Condition& condition, const Table& table);

  std::size_t column() const noexcept { return column_; }
  Comparison comparison() const noexcept { return comparison_; }
  std::string_view literal() const noexcept { return literal_; }

  // Whether the row satisfies the condition. Throws what the conversion of the cell's text throws,
  // or else the literal's.
  bool holds(std::size_t row, std::int64_t now) const;
  // The same for a row whose key cell is filed under this key and not timed, of whose column the
  // condition is. Only equality needs the text.
  bool holdsForKey(std::int32_t key, std::size_t row, std::int64_t now) const {
    if (key == integer_ || !isOrder()) return holds(row, now);
    const bool isUpper = comparison_ == Comparison::less || comparison_ == Comparison::lessOrEqual;
    return comparison_ != Comparison::never && (key < integer_) == isUpper;
  }
  bool holdsForKey(std::string_view /*key*/, std::size_t row, std::int64_t now) const {
    return holds(row, now);
  }

  // Whether decide can tell for the rows of a chunk, but for odd cells.
  bool canDecide() const noexcept;
  // Lets rows of a block go that do not satisfy the condition. A row that an earlier condition left
  // unsure stays: deciding the earlier one may have to throw. Of texts only most are let go.
  void decide(const ColumnValues::Chunk& values, Block& block) const;
  // Of those left, that are listed by then: has them brought into the cache, and lets the rest go.
  void prefetch(const ColumnValues::Chunk& values, const Block& block) const;
  void settle(const ColumnValues::Chunk& values, Block& block) const;

 private:
  bool isOrder() const noexcept {
    return comparison_ != Comparison::equal && comparison_ != Comparison::notEqual;
  }
  bool leavesTexts() const noexcept {
    return (kind_ == ValueKind::text || kind_ == ValueKind::unknown) &&
           comparison_ == Comparison::equal;
  }
  bool isLess(std::string_view text, std::size_t row) const;
  bool isGreater(std::string_view text, std::size_t row) const;
  std::int32_t cellInt(std::string_view text, std::size_t row) const;
  float cellFloat(std::string_view text, std::size_t row) const;
  void require(Conversion conversion, const char* name, std::string_view text,
               std::optional<std::size_t> row) const;
  void decideIntegers(const ColumnValues::Chunk& values, Block& block) const;
  void decideReals(const ColumnValues::Chunk& values, Block& block) const;
  void decideBools(const ColumnValues::Chunk& values, Block& block) const;
  void decideTexts(const ColumnValues::Chunk& values, Block& block) const;

  const Table* table_;
  Comparison comparison_;
  ValueKind kind_ = ValueKind::unknown;
  Conversion conversion_ = Conversion::ok;  // of the literal; asked only when a row is compared
  std::size_t column_;
  std::string_view literal_;
  std::int32_t integer_ = 0;
  float real_ = 0;
};

using Group = std::span<const Predicate>;

inline bool allHold(Group group, std::size_t row, std::int64_t now) {
  return std::all_of(group.begin(), group.end(),
                     [&](const Predicate& predicate) { return predicate.holds(row, now); });
}

}  // namespace velmora
