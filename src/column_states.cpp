// See column.h. Of columns, what time does: the states in force in the arrays, copies of these for
// other seconds, and when a value changes next.
#include <algorithm>
#include <type_traits>
#include <utility>

#include "column.h"

namespace velmora {
namespace {

constexpr std::int64_t always = std::numeric_limits<std::int64_t>::max();

// Has the rules, and of nearer ones the states, brought into the cache for a loop that comes to
// them in some steps. Inlined always: gcc leaves calls of a function out that does nothing else.
[[gnu::always_inline]] inline void prefetchRules(const std::vector<Cell>& cells,
                                                 std::size_t i) noexcept {
  constexpr std::size_t near = 8;
  constexpr std::size_t far = 16;
  if (i + far >= cells.size()) return;
  __builtin_prefetch(cells[i + far].tempRule.get());
  const TempRule* const rule = cells[i + near].tempRule.get();
  if (rule != nullptr) __builtin_prefetch(rule->states.data());
}

// That second, or the one behind `now` at which the rule's value changes if that comes first.
std::int64_t sooner(std::int64_t second, const TempRule& rule, std::int64_t now) {
  // No value changes before its state does, which is told more quickly.
  return rule.nextChange(now) < second ? std::min(second, rule.nextValueChange(now)) : second;
}

template <typename Value>
void scatter(const Value* values, const std::uint16_t* places, std::size_t count, Value* to) {
  for (std::size_t i = 0; i < count; ++i) {
    // Long texts take memory; most of them stay.
    if constexpr (std::is_same_v<Value, Text>) {
      if (to[places[i]] == values[i]) continue;
    }
    to[places[i]] = values[i];
  }
}

}  // namespace

// A chunk's arrays at a second.
struct ColumnValues::Snapshot {
  Arrays arrays;
  std::int64_t since = 0;  // the seconds for which they are right
  std::int64_t until = 0;
  std::int64_t next = 0;  // when a live value changes

  bool holdsAt(std::int64_t now) const noexcept { return since <= now && now < until; }
};

ColumnValues::Chunk ColumnValues::Arrays::chunk() const noexcept {
  std::byte* const bytes = texts ? reinterpret_cast<std::byte*>(texts.get()) : values.get();
  std::uint8_t* const ownCodes = codes ? codes.get() : reinterpret_cast<std::uint8_t*>(bytes);
  return {bytes, ownCodes, odd.get()};
}

ColumnValues::Arrays ColumnValues::makeArrays(std::size_t count) const {
  Arrays made;
  if (holdsTexts(kind_)) {
    made.texts = std::make_unique<Text[]>(count);
  } else {
    made.values = std::make_unique_for_overwrite<std::byte[]>(count * width_);
  }
  if (codes_ != values_) made.codes = std::make_unique_for_overwrite<std::uint8_t[]>(count);
  made.odd = std::make_unique_for_overwrite<std::uint8_t[]>(count);
  return made;
}

// Puts the rules that are to be asked one by one apart, as far as there is room; whether there was.
bool ColumnValues::States::makeSingle(std::size_t place) noexcept {
  if (isSingle[place]) return true;
  if (single.size() == single.capacity()) return false;
  single.push_back(static_cast<std::uint16_t>(place));
  isSingle[place] = true;
  return true;
}

// Whether the groups tell what each of so many rows shows.
bool ColumnValues::States::areAllGrouped(std::size_t rows) const noexcept {
  std::size_t count = 0;
  for (const RhythmGroup& group : groups) count += group.places().size();
  return count == rows && single.empty();
}

std::unique_ptr<ColumnValues::States> ColumnValues::makeStates(const OddCells& odd) const {
  // Where there are more, cells are looked for in too many of them.
  constexpr std::size_t mostGroups = 32;
  auto made = std::make_unique<States>();
  Course course;
  std::vector<std::uint16_t> single;
  for (std::size_t i = 0; i < odd.places.size(); ++i) {
    prefetchRules(odd.cells, i);
    if (odd.cells[i].tempRule == nullptr) continue;
    const bool isUsual = course.take(*odd.cells[i].tempRule);
    auto group = std::find_if(made->groups.begin(), made->groups.end(),
                              [&](const auto& each) { return each.rhythm() == course.rhythm; });
    if (!isUsual || (group == made->groups.end() && made->groups.size() == mostGroups)) {
      single.push_back(odd.places[i]);
      continue;
    }
    if (group == made->groups.end()) group = made->groups.emplace(group, course.rhythm);
    group->add(odd.places[i], course.firstChange);
  }
  for (RhythmGroup& group : made->groups) group.sort();
  // Room for cells that change; where it is used up, arranging all anew takes less time.
  made->single.reserve(single.size() + odd.places.size() / 8);
  for (const std::uint16_t place : single) made->makeSingle(place);
  storeStates(odd, *made);
  return made;
}

void ColumnValues::storeStates(const OddCells& odd, States& states) const {
  std::size_t count = 0;
  for (const RhythmGroup& group : states.groups) count += group.valueCount();
  states.values = makeArrays(count);
  const Chunk arrays = states.values.chunk();
  // Those that no value tells are copied as well.
  forEachArray(arrays, arrays, [&](const auto*, auto* to) {
    std::fill_n(to, count, std::remove_cvref_t<decltype(*to)>());
  });
  bool areTold = true;
  std::size_t first = 0;
  Course course;
  for (const RhythmGroup& group : states.groups) {
    const std::size_t size = group.places().size();
    for (std::size_t i = 0; i < size; ++i) {
      const TempRule& rule = *odd.cells[odd.find(group.places()[i])].tempRule;
      course.take(rule);
      for (std::size_t state = 0; state < course.states.size(); ++state) {
        const std::size_t at = first + state * size + i;
        const bool isTold = store(arrays, at, rule.states[course.states[state]].value);
        states.values.odd[at] = isTold ? listed : listed | unclear;
        areTold = areTold && isTold;
      }
    }
    first += group.valueCount();
  }
  if (areTold) states.values.odd.reset();
}

// The states of a chunk that can tell them at a second; else each rule has to be asked.
const ColumnValues::States* ColumnValues::statesAt(const OddCells& odd, std::int64_t now) {
  return isUsualSecond(now) ? odd.states.get() : nullptr;
}

template <typename Use>
void ColumnValues::forEachRun(const States& states, std::int64_t now, Use use) {
  std::size_t firstOfGroup = 0;
  for (const RhythmGroup& group : states.groups) {
    group.forEachRun(now, [&](std::size_t state, std::size_t first, std::size_t last) {
      use(group, state, first, last, firstOfGroup + state * group.places().size() + first);
    });
    firstOfGroup += group.valueCount();
  }
}

ColumnValues::Chunk ColumnValues::valuesOf(const States& states, std::size_t first) const noexcept {
  const Chunk all = states.values.chunk();
  return {all.values + first * width_, all.codes + first,
          all.odd == nullptr ? nullptr : all.odd + first};
}

// Whether the groups' cell at a place says nothing about when a value changes; where nothing is
// deleted no place has to be looked at.
bool ColumnValues::States::isSkipped(std::size_t place,
                                     const std::uint8_t* deleted) const noexcept {
  return (!single.empty() && isSingle[place]) || (deleted != nullptr && deleted[place] != 0);
}

// When a cell of a group changes next that is not marked deleted.
std::int64_t ColumnValues::nextOfGroups(const OddCells& odd, std::int64_t now,
                                        const std::uint8_t* deleted) {
  std::int64_t next = always;
  const States* const states = statesAt(odd, now);
  if (states == nullptr) return next;
  const auto isSkipped = [&](std::size_t place) { return states->isSkipped(place, deleted); };
  forEachRun(*states, now,
             [&](const RhythmGroup& group, std::size_t state, std::size_t first, std::size_t last,
                 std::size_t /*firstValue*/) {
               next = std::min(next, group.nextOfRun(now, state, first, last, isSkipped));
             });
  return next;
}

// Calls use(place, rule) with those timed cells that no group stands for.
template <typename Use>
void ColumnValues::forEachSingle(const OddCells& odd, std::int64_t now, Use use) {
  const States* const states = statesAt(odd, now);
  const std::vector<std::uint16_t>& places = states == nullptr ? odd.places : states->single;
  for (std::size_t i = 0; i < places.size(); ++i) {
    const std::size_t cell = odd.find(places[i]);
    prefetchRules(odd.cells, cell);
    const TempRule* const rule = odd.cells[cell].tempRule.get();
    if (rule != nullptr) use(places[i], *rule);
  }
}

// Puts what the timed cells show at a second into arrays of the chunk; up to when they show it.
std::int64_t ColumnValues::show(const OddCells& odd, std::int64_t now, const Chunk& to,
                                std::uint8_t* flags) const {
  if (odd.states == nullptr) odd.states = makeStates(odd);
  const States* const states = statesAt(odd, now);
  if (states != nullptr) showGroups(*states, now, to, flags);
  std::int64_t next = nextOfGroups(odd, now, nullptr);
  forEachSingle(odd, now, [&](std::size_t place, const TempRule& rule) {
    const bool isTold = !rule.states.empty() && store(to, place, rule.valueAt(now));
    flags[place] = isTold ? listed : listed | unclear;
    next = sooner(next, rule, now);
  });
  return next;
}

void ColumnValues::showGroups(const States& states, std::int64_t now, const Chunk& to,
                              std::uint8_t* flags) const {
  forEachRun(states, now,
             [&](const RhythmGroup& group, std::size_t /*state*/, std::size_t first,
                 std::size_t last, std::size_t firstValue) {
               const Chunk from = valuesOf(states, firstValue);
               const auto copy = [&](const auto* source, auto* target) {
                 scatter(source, group.places().data() + first, last - first, target);
               };
               forEachArray(from, to, copy);
               if (from.odd != nullptr) copy(from.odd, flags);
             });
}

// The first second behind `now` at which a cell shows another value that is not marked deleted.
std::int64_t ColumnValues::nextChange(const OddCells& odd, std::int64_t now,
                                      const std::uint8_t* deleted) {
  return std::min(nextOfGroups(odd, now, deleted), nextOfSingle(odd, now, deleted));
}

std::int64_t ColumnValues::nextOfSingle(const OddCells& odd, std::int64_t now,
                                        const std::uint8_t* deleted) {
  std::int64_t next = always;
  forEachSingle(odd, now, [&](std::size_t place, const TempRule& rule) {
    if (deleted == nullptr || deleted[place] == 0) next = sooner(next, rule, now);
  });
  return next;
}

void ColumnValues::keepRight(std::size_t chunk, std::int64_t now) const {
  OddCells& odd = *odd_[chunk];
  if (!odd.holdsAt(now)) refresh(chunk, odd, now);
}

// Puts the states in force into the arrays.
void ColumnValues::refresh(std::size_t chunk, OddCells& odd, std::int64_t now) const {
  // Until all is done nothing is right.
  odd.since = always;
  odd.next.reset();
  odd.until = show(odd, now, this->chunk(chunk), odd.flags.data());
  odd.since = now;
}

void ColumnValues::dropKept(std::size_t chunk) noexcept {
  OddCells& odd = *odd_[chunk];
  for (auto& snapshot : odd.snapshots) snapshot.reset();
  odd.next.reset();
  odd.fresh.reset();
}

std::shared_ptr<const ColumnValues::Snapshot> ColumnValues::snapshot(std::size_t chunk,
                                                                     std::int64_t now) const {
  const OddCells& odd = *odd_[chunk];
  const std::size_t count = rows_.sizeOf(chunk);
  const auto made = std::make_shared<Snapshot>();
  made->arrays = makeArrays(count);
  const Chunk arrays = made->arrays.chunk();
  const bool areAllGrouped = odd.states != nullptr && odd.states->areAllGrouped(count);
  if (areAllGrouped && isUsualSecond(now)) {
    std::fill_n(made->arrays.odd.get(), count, listed);
  } else {
    forEachArray(this->chunk(chunk), arrays,
                 [&](const auto* from, auto* to) { std::copy_n(from, count, to); });
    std::copy_n(odd.flags.data(), count, made->arrays.odd.get());
  }
  made->since = now;
  made->until = show(odd, now, arrays, made->arrays.odd.get());
  made->next = rows_.hasDeleted(chunk) ? nextChange(odd, now, rows_.deleted(chunk)) : made->until;
  return made;
}

void ColumnValues::prefetchKept(const OddCells& odd, std::int64_t now,
                                std::size_t count) const noexcept {
  const std::lock_guard lock(odd.guard);
  for (const auto& kept : odd.snapshots) {
    if (kept != nullptr && kept->holdsAt(now)) return prefetchArrays(kept->arrays.chunk(), count);
  }
}

ColumnValues::ChunkAt ColumnValues::chunkAt(std::size_t chunk, std::int64_t now) const {
  if (chunk >= odd_.size() || odd_[chunk] == nullptr) return {this->chunk(chunk), nullptr};
  const OddCells& odd = *odd_[chunk];
  if (odd.holdsAt(now)) return {this->chunk(chunk), nullptr};
  const std::lock_guard lock(odd.guard);
  for (const auto& kept : odd.snapshots) {
    if (kept != nullptr && kept->holdsAt(now)) return {kept->arrays.chunk(), kept};
  }
  auto made = snapshot(chunk, now);
  odd.newerSnapshot ^= 1;
  odd.snapshots[odd.newerSnapshot] = made;
  return {made->arrays.chunk(), std::move(made)};
}

void ColumnValues::readFresh(std::size_t chunk, std::int64_t now, FreshChunk& fresh) const {
  fresh.states = nullptr;
  fresh.runs.clear();
  if (chunk >= odd_.size() || odd_[chunk] == nullptr || !isUsualSecond(now)) return;
  const OddCells& odd = *odd_[chunk];
  if (odd.holdsAt(now)) return;
  const std::lock_guard lock(odd.guard);
  for (const auto& kept : odd.snapshots) {
    if (kept != nullptr && kept->holdsAt(now)) return;
  }
  if (odd.fresh && odd.fresh->second == now) return;
  if (odd.states == nullptr) odd.states = makeStates(odd);
  const States& states = *odd.states;
  // Asking many one by one is worth keeping what they say.
  if (states.single.size() > odd.places.size() / 8) return;
  const std::uint8_t* const deleted = rows_.hasDeleted(chunk) ? rows_.deleted(chunk) : nullptr;
  std::int64_t next = nextOfSingle(odd, now, deleted);
  const auto isSkipped = [&](std::size_t place) { return states.isSkipped(place, deleted); };
  forEachRun(states, now,
             [&](const RhythmGroup& group, std::size_t state, std::size_t first, std::size_t last,
                 std::size_t firstValue) {
               const std::size_t count = last - first;
               fresh.runs.push_back(
                   {valuesOf(states, firstValue), std::span(group.places()).subspan(first, count)});
               prefetchArrays(fresh.runs.back().arrays, count);
               next = std::min(next, group.nextOfRun(now, state, first, last, isSkipped));
             });
  odd.fresh = {now, next};
  fresh.states = &states;
}

std::int64_t ColumnValues::nextChange(std::size_t chunk, std::int64_t now) const {
  const OddCells& odd = *odd_[chunk];
  const std::lock_guard lock(odd.guard);
  for (const auto& kept : odd.snapshots) {
    if (kept != nullptr && kept->holdsAt(now)) return kept->next;
  }
  if (odd.fresh && odd.fresh->second == now) return odd.fresh->next;
  const bool isCurrent = odd.holdsAt(now);
  if (isCurrent && odd.next) return *odd.next;
  const std::int64_t next = nextChange(odd, now, rows_.deleted(chunk));
  if (isCurrent) odd.next = next;
  return next;
}

std::int64_t ColumnValues::nextChange(std::int64_t now) const {
  std::int64_t next = always;
  for (std::size_t chunk = 0; chunk < odd_.size(); ++chunk) {
    if (odd_[chunk] != nullptr) next = std::min(next, nextChange(chunk, now));
  }
  return next;
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
  const bool isRight = odd_[Rows::chunkOf(row)]->holdsAt(now) || oddCell(row).tempRule == nullptr;
  return isRight ? value(arrays, row, now) : oddValue(row, now);
}

}  // namespace velmora
