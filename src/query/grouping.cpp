// See grouping.h.
#include "grouping.h"

#include <algorithm>
#include <array>
#include <numeric>

namespace velmora::query {
namespace {

constexpr auto everyPlace = [] {
  std::array<std::uint16_t, Rows::chunkRows> places = {};
  std::iota(places.begin(), places.end(), std::uint16_t{0});
  return places;
}();

}  // namespace

Grouping::Grouping(const Plan& plan, std::int64_t now)
    : plan_(plan), now_(now), values_(plan.groupBy.size()) {
  const auto load = [&](const Expression& expression) {
    const auto isSame = [&](const Loaded& each) { return each.place == expression.place; };
    if (!expression.hasColumn() || std::any_of(loaded_.begin(), loaded_.end(), isSame)) return;
    loaded_.push_back({expression.place, std::make_unique<ColumnBatch>()});
  };
  for (const Expression& expression : plan.groupBy) load(expression);
  for (const Expression& expression : plan.totals) {
    load(expression);
    const ValueKind kind = expression.hasColumn() ? expression.values->kind() : ValueKind::integer;
    totals_.emplace_back(expression.function, kind, plan.nameOf(expression));
    if (values_.empty()) totals_.back().growTo(1);
  }
  if (values_.empty()) {
    rowCounts_.resize(1);
    return;
  }
  combined_.resize(values_.size() - 1);
  groups_.resize(Rows::chunkRows);
  others_.resize(combined_.empty() ? 0 : Rows::chunkRows);
}

ColumnBatch& Grouping::batchOf(const Place& place) {
  return *std::find_if(loaded_.begin(), loaded_.end(), [&](const Loaded& each) {
            return each.place == place;
          })->batch;
}

void Grouping::addChunk(std::size_t chunk, const RowMask& mask) {
  const std::size_t count = mask.count();
  if (count == 0) return;
  for (const Loaded& each : loaded_) {
    const ColumnValues& values = plan_.scope.values(each.place);
    each.batch->load(values, chunk, now_, mask.size);
  }
  if (values_.empty()) {
    rowCounts_.front() += static_cast<std::int64_t>(count);
    for (std::size_t i = 0; i < totals_.size(); ++i) {
      const Expression& total = plan_.totals[i];
      if (total.hasColumn()) totals_[i].add(batchOf(total.place), mask);
    }
    return;
  }
  std::uint16_t own[Rows::chunkRows];
  const std::uint16_t* places = everyPlace.data();
  if (count < mask.size) {
    mask.places(own);
    places = own;
  }
  addPlaces({places, count}, [&](std::size_t i) {
    return Item{static_cast<std::int32_t>(chunk * Rows::chunkRows + places[i])};
  });
}

void Grouping::addRows(std::span<const std::int32_t> left, std::span<const std::int32_t> right) {
  for (const Loaded& each : loaded_) {
    each.batch->gather(plan_.scope.values(each.place), each.place.isRight ? right : left, now_);
  }
  addPlaces({everyPlace.data(), left.size()}, [&](std::size_t i) {
    return Item{left[i], right.empty() ? -1 : right[i]};
  });
}

std::size_t Grouping::findGroups(std::span<const std::uint16_t> places) {
  values_.front().add(batchOf(plan_.groupBy.front().place), places, groups_.data());
  for (std::size_t column = 1; column < values_.size(); ++column) {
    values_[column].add(batchOf(plan_.groupBy[column].place), places, others_.data());
    for (std::size_t i = 0; i < places.size(); ++i) {
      groups_[i] = combined_[column - 1].addPair(groups_[i], others_[i]);
    }
  }
  return combined_.empty() ? values_.front().size() : combined_.back().size();
}

template <typename ItemOf>
void Grouping::addPlaces(std::span<const std::uint16_t> places, ItemOf itemOf) {
  if (values_.empty()) {
    groups_.assign(places.size(), 0);
  } else {
    const std::size_t count = findGroups(places);
    for (std::size_t i = 0; items_.size() < count; ++i) {
      if (groups_[i] != items_.size()) continue;
      items_.push_back(itemOf(i));
      items_.back().group = groups_[i];
    }
    rowCounts_.resize(items_.size());
  }
  for (std::size_t i = 0; i < places.size(); ++i) ++rowCounts_[groups_[i]];
  for (std::size_t i = 0; i < totals_.size(); ++i) {
    const Expression& total = plan_.totals[i];
    if (!values_.empty()) totals_[i].growTo(items_.size());
    if (total.hasColumn()) totals_[i].add(batchOf(total.place), places, groups_.data());
  }
}

std::vector<Item> Grouping::groups() const {
  return values_.empty() ? std::vector<Item>(1) : items_;
}

}  // namespace velmora::query
