// ValueTest: one comparison with its value at hand, for one column: of single values, and of a
// chunk's arrays at once. A comparison of numbers is made a range of the column's own type, which
// is exact whatever the two types are.
#pragma once

#include <cstdint>
#include <vector>

#include "../column.h"
#include "../strict/statement.h"
#include "../typed_value.h"

namespace velmora::query {

// The values of a type that a comparison lets pass: those within, or those outside; none where low
// is above high. NaN, which is null, passes neither.
template <typename Value>
struct ValueRange {
  Value low = 1;
  Value high = 0;
  bool isOutside = false;
};

class ValueTest {
 public:
  // The value's text has to stay. A value that is compared with floats becomes one, if it is not
  // whole: 0.1 is then the float that is written so.
  ValueTest(strict::Operator op, const ColumnValues& column, TypedValue wanted);

  bool matches(const TypedValue& value) const noexcept;
  bool matchesRow(std::size_t row, std::int64_t now) const {
    return matches(column_->value(row, now));
  }
  // Has the next call of decide bring what is read of this chunk into the cache.
  void readAhead(std::size_t chunk, std::int64_t now);
  // For each row of the chunk, 1 or 0.
  void decide(std::size_t chunk, std::int64_t now, std::size_t size, std::uint8_t* matches);

 private:
  // A section of the column's chunks, if no arrays tell what it shows: what has been read of it,
  // and what decide found out for all of its rows when it came to the first ones.
  struct Fresh {
    std::size_t section = static_cast<std::size_t>(-1);
    ColumnValues::FreshSection values;
    std::vector<std::uint8_t> matches;
    bool isDecided = false;
  };

  Fresh& freshOf(std::size_t chunk, std::int64_t now);
  void decideFresh(Fresh& fresh, std::int64_t now) const;
  void decideRuns(const ColumnValues::FreshSection& fresh, std::uint8_t* matches) const;
  void decideArrays(const ColumnValues::Chunk& arrays, std::size_t size,
                    std::uint8_t* matches) const;
  void decideTexts(const ColumnValues::Chunk& arrays, std::size_t size,
                   std::uint8_t* matches) const;
  void makeRange();
  bool isAboutNull() const noexcept {
    return op_ == strict::Operator::isNull || op_ == strict::Operator::isNotNull;
  }

  const ColumnValues* column_;
  strict::Operator op_;
  TypedValue wanted_;
  // Of columns of numbers, once a chunk is decided: the values that pass.
  bool hasRange_ = false;
  ValueRange<std::int64_t> integers_;
  ValueRange<double> reals_;
  Fresh fresh_[2];  // of even sections and of odd ones
  ReadAhead next_;  // for decide
};

}  // namespace velmora::query
