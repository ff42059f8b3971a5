// See column.h. Of columns, what time does: the states in force in the arrays, copies of these for
// other seconds, and when a value changes next.
#include <algorithm>
#include <cmath>

#include "column.h"

namespace velmora {
namespace {

constexpr std::int64_t always = std::numeric_limits<std::int64_t>::max();

// Has the rules, and of nearer ones the states, brought into the cache for a loop that comes to
// them in some steps.
void prefetchRules(const std::vector<Cell>& cells, std::size_t i) noexcept {
  constexpr std::size_t near = 8;
  constexpr std::size_t far = 16;
  if (i + far >= cells.size()) return;
  __builtin_prefetch(cells[i + far].tempRule.get());
  const TempRule* const rule = cells[i + near].tempRule.get();
  if (rule != nullptr) __builtin_prefetch(rule->states.data());
}

}  // namespace

// A chunk's arrays at a second, without room for further rows.
struct ColumnValues::Snapshot {
  std::unique_ptr<std::byte[]> values;  // null where there are texts
  std::unique_ptr<Text[]> texts;
  std::unique_ptr<std::uint8_t[]> codes;  // null where they are the values
  std::unique_ptr<std::uint8_t[]> odd;
  std::int64_t since = 0;  // the seconds for which they are right
  std::int64_t until = 0;

  bool holdsAt(std::int64_t now) const noexcept { return since <= now && now < until; }
  Chunk arrays() const noexcept {
    std::byte* const bytes = texts ? reinterpret_cast<std::byte*>(texts.get()) : values.get();
    std::uint8_t* const ownCodes = codes ? codes.get() : reinterpret_cast<std::uint8_t*>(bytes);
    return {bytes, ownCodes, odd.get()};
  }
};

void ColumnValues::keepRight(std::size_t chunk, std::int64_t now) const {
  OddCells& odd = *odd_[chunk];
  if (!odd.holdsAt(now)) refresh(chunk, odd, now);
}

// Puts the states in force into the arrays where they have changed.
void ColumnValues::refresh(std::size_t chunk, OddCells& odd, std::int64_t now) const {
  const bool isBack = now < odd.since;
  const Chunk values = this->chunk(chunk);
  // Until all is done nothing is right.
  odd.since = always;
  std::int64_t until = always;
  for (std::size_t i = 0; i < odd.places.size(); ++i) {
    const TempRule* const rule = odd.cells[i].tempRule.get();
    if (rule != nullptr && (isBack || odd.changes[i] <= now)) {
      const bool isTold = !rule->states.empty() && store(values, odd.places[i], rule->valueAt(now));
      odd.flags[odd.places[i]] = isTold ? listed : listed | unclear;
      odd.changes[i] = rule->nextChange(now);
    }
    until = std::min(until, odd.changes[i]);
  }
  odd.since = now;
  odd.until = until;
}

void ColumnValues::dropKept(std::size_t chunk) noexcept {
  OddCells& odd = *odd_[chunk];
  for (auto& snapshot : odd.snapshots) snapshot.reset();
  for (auto& change : odd.nextChanges) change = {};
}

std::shared_ptr<const ColumnValues::Snapshot> ColumnValues::snapshot(std::size_t chunk,
                                                                     std::int64_t now) const {
  const OddCells& odd = *odd_[chunk];
  const Chunk model = this->chunk(chunk);
  const std::size_t count = rows_.sizeOf(chunk);
  const auto made = std::make_shared<Snapshot>();
  if (holdsTexts(kind_)) {
    made->texts = std::make_unique<Text[]>(count);
    std::copy_n(model.texts(), count, made->texts.get());
  } else {
    made->values = std::make_unique_for_overwrite<std::byte[]>(count * width_);
    std::copy_n(model.values, count * width_, made->values.get());
  }
  if (codes_ != values_) {
    made->codes = std::make_unique_for_overwrite<std::uint8_t[]>(count);
    std::copy_n(model.codes, count, made->codes.get());
  }
  made->odd = std::make_unique_for_overwrite<std::uint8_t[]>(count);
  std::copy_n(odd.flags.data(), count, made->odd.get());
  made->since = now;
  made->until = always;
  std::int64_t next = always;
  const std::uint8_t* const deleted = rows_.deleted(chunk);
  for (std::size_t i = 0; i < odd.places.size(); ++i) {
    prefetchRules(odd.cells, i);
    const TempRule* const rule = odd.cells[i].tempRule.get();
    if (rule == nullptr) continue;
    const std::size_t place = odd.places[i];
    const TempRule::Moment moment = rule->momentAt(now);
    const bool isTold =
        !rule->states.empty() && store(made->arrays(), place, rule->states[moment.index].value);
    made->odd[place] = isTold ? listed : listed | unclear;
    made->until = std::min(made->until, moment.change);
    // The rules are in the cache, and who asks for the states asks for this next.
    const bool isSooner = moment.change < next && deleted[place] == 0;
    if (isSooner) next = std::min(next, rule->nextValueChange(now));
  }
  odd.keepChange(now, next);
  return made;
}

ColumnValues::ChunkAt ColumnValues::chunkAt(std::size_t chunk, std::int64_t now) const {
  if (chunk >= odd_.size() || odd_[chunk] == nullptr) return {this->chunk(chunk), nullptr};
  const OddCells& odd = *odd_[chunk];
  if (odd.holdsAt(now)) return {this->chunk(chunk), nullptr};
  const std::lock_guard lock(odd.guard);
  for (const auto& kept : odd.snapshots) {
    if (kept != nullptr && kept->holdsAt(now)) return {kept->arrays(), kept};
  }
  auto made = snapshot(chunk, now);
  odd.newerSnapshot ^= 1;
  odd.snapshots[odd.newerSnapshot] = made;
  return {made->arrays(), std::move(made)};
}

std::int64_t ColumnValues::nextChange(std::size_t chunk, std::int64_t now) const {
  const OddCells& odd = *odd_[chunk];
  const std::lock_guard lock(odd.guard);
  for (const OddCells::Change& kept : odd.nextChanges) {
    if (kept.from <= now && now < kept.second) return kept.second;
  }
  std::int64_t next = always;
  const std::uint8_t* const deleted = rows_.deleted(chunk);
  for (std::size_t i = 0; i < odd.places.size(); ++i) {
    prefetchRules(odd.cells, i);
    const TempRule* const rule = odd.cells[i].tempRule.get();
    if (rule == nullptr || deleted[odd.places[i]] != 0) continue;
    // No value changes before its state does, which is told more quickly.
    if (rule->nextChange(now) < next) next = std::min(next, rule->nextValueChange(now));
  }
  odd.keepChange(now, next);
  return next;
}

std::int64_t ColumnValues::nextChange(std::int64_t now) const {
  std::int64_t next = always;
  for (std::size_t chunk = 0; chunk < odd_.size(); ++chunk) {
    if (odd_[chunk] != nullptr) next = std::min(next, nextChange(chunk, now));
  }
  return next;
}

TypedValue ColumnValues::toldValue(const Chunk& chunk, std::size_t place) const {
  switch (kind_) {
    case ValueKind::integer:
      return TypedValue::ofInteger(chunk.numbers()[place]);
    case ValueKind::longInteger:
      return TypedValue::ofInteger(chunk.longs()[place]);
    case ValueKind::real:
      if (std::isnan(chunk.reals()[place])) return {};
      return TypedValue::ofReal(static_cast<double>(chunk.reals()[place]));
    case ValueKind::doubleReal:
      if (std::isnan(chunk.doubles()[place])) return {};
      return TypedValue::ofReal(chunk.doubles()[place]);
    case ValueKind::boolean:
      if (chunk.codes[place] == static_cast<std::uint8_t>(BoolCode::missing)) return {};
      return TypedValue::ofBoolean(chunk.codes[place] != 0);
    case ValueKind::text:
    case ValueKind::unknown:
      break;
  }
  return chunk.isNullText(place) ? TypedValue() : TypedValue::ofText(chunk.texts()[place]);
}

TypedValue ColumnValues::oddValue(std::size_t row, std::int64_t now) const {
  const Cell& cell = oddCell(row);
  const bool hasStates = cell.tempRule == nullptr || !cell.tempRule->states.empty();
  return hasStates ? typedValue(kind_, cell.valueAt(now)) : TypedValue();
}

TypedValue ColumnValues::value(const Chunk& chunk, std::size_t row, std::int64_t now) const {
  const std::size_t place = Rows::placeOf(row);
  return chunk.isUnclear(place) ? oddValue(row, now) : toldValue(chunk, place);
}

TypedValue ColumnValues::value(std::size_t row, std::int64_t now) const {
  const Chunk arrays = chunk(Rows::chunkOf(row));
  if (!arrays.isOdd(Rows::placeOf(row))) return toldValue(arrays, Rows::placeOf(row));
  return oddCell(row).tempRule == nullptr ? value(arrays, row, now) : oddValue(row, now);
}

}  // namespace velmora
