// Grouping: the groups of a SELECT, and the totals of each.
#pragma once

#include <memory>
#include <vector>

#include "plan.h"
#include "row_mask.h"
#include "sorter.h"
#include "totals.h"
#include "value_ids.h"

namespace velmora::query {

class Grouping {
 public:
  Grouping(const Plan& plan, std::int64_t now);

  // Adds the rows of a chunk that pass; and pairs of rows, or rows of the left table alone.
  void addChunk(std::size_t chunk, const RowMask& mask);
  void addRows(std::span<const std::int32_t> left, std::span<const std::int32_t> right);

  // The groups in the order of their first rows.
  std::vector<Item> groups() const;
  TypedValue total(const Expression& expression, const Item& group) const {
    return totals_[expression.total].result(group.group, rowCounts_[group.group]);
  }

 private:
  struct Loaded {
    Place place;
    std::unique_ptr<ColumnBatch> batch;
  };
  ColumnBatch& batchOf(const Place& place);
  // Adds the rows at these places of the batches; rowOf(i) is the item of the i-th.
  template <typename ItemOf>
  void addPlaces(std::span<const std::uint16_t> places, ItemOf itemOf);
  std::size_t findGroups(std::span<const std::uint16_t> places);

  const Plan& plan_;
  std::int64_t now_;
  std::vector<Loaded> loaded_;
  std::vector<ValueIds> values_;       // of each column of the groups
  std::vector<ValueIds> combined_;     // of each but the first, with those before it
  std::vector<std::uint32_t> groups_;  // of the rows at hand
  std::vector<std::uint32_t> others_;
  std::vector<Item> items_;  // each group's first row
  std::vector<std::int64_t> rowCounts_;
  std::vector<Totals> totals_;
};

}  // namespace velmora::query
