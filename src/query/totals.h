// Totals: one aggregate over all groups: COUNT, MIN, MAX, SUM or AVG of a column, or COUNT(*).
// Nulls are passed over; of no value there is none, but for a count. The groups' rows are counted
// elsewhere, once for all aggregates.
#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <vector>

#include "../strict/statement.h"
#include "column_batch.h"
#include "row_mask.h"

namespace velmora::query {

class Totals {
 public:
  // Throws Failure: type for a sum of what are no numbers.
  Totals(strict::Function function, ValueKind kind, std::string name);

  // What it is of; not said by a count of rows.
  AnswerType type() const noexcept;
  void growTo(std::size_t groups);
  // Adds rows, each to its group, or all that pass to the first group.
  void add(const ColumnBatch& batch, std::span<const std::uint16_t> places,
           const std::uint32_t* groups);
  void add(const ColumnBatch& batch, const RowMask& mask);
  // Of a group of so many rows. Throws Failure: range for a sum of whole numbers that 64 bits do
  // not hold.
  TypedValue result(std::size_t group, std::int64_t rows) const;

 private:
  // Whatever 2^31 whole numbers of 64 bits come to.
  __extension__ typedef __int128 Wide;

  void keepBest(const TypedValue& value, std::size_t group);
  bool isBest() const noexcept {
    return function_ == strict::Function::min || function_ == strict::Function::max;
  }

  strict::Function function_;
  ValueKind kind_;
  std::string name_;
  std::vector<std::int64_t> nulls_;  // how many
  std::vector<Wide> wholes_;
  std::vector<double> reals_;
  std::vector<Value> bests_;
};

}  // namespace velmora::query
