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

}  // namespace

// A section's arrays at a second.
struct ColumnValues::Snapshot {
  Arrays arrays[sectionChunks];
  std::int64_t since = 0;  // the seconds for which they are right
  std::int64_t until = 0;
  std::int64_t next = 0;  // when a live value changes

  bool holdsAt(std::int64_t now) const noexcept { return since <= now && now < until; }
};

const std::shared_ptr<const ColumnValues::Snapshot>* ColumnValues::Section::snapshotAt(
    std::int64_t now) const noexcept {
  for (const auto& kept : snapshots) {
    if (kept != nullptr && kept->holdsAt(now)) return &kept;
  }
  return nullptr;
}

// Which places of a section are of deleted rows; none, if nothing is said of that.
class ColumnValues::DeletedPlaces {
 public:
  DeletedPlaces() = default;
  DeletedPlaces(const Rows& rows, std::size_t section) {
    const std::size_t first = section * sectionChunks;
    const std::size_t count = std::min(sectionChunks, rows.chunkCount() - first);
    for (std::size_t i = 0; i < count; ++i) {
      if (rows.hasDeleted(first + i)) marks_[i] = rows.deleted(first + i);
      hasSome_ = hasSome_ || marks_[i] != nullptr;
    }
  }
  bool hasSome() const noexcept { return hasSome_; }
  bool has(std::size_t place) const noexcept {
    if (!hasSome_) return false;
    const std::uint8_t* const marks = marks_[Rows::chunkOf(place)];
    return marks != nullptr && marks[Rows::placeOf(place)] != 0;
  }

 private:
  const std::uint8_t* marks_[sectionChunks]{};
  bool hasSome_ = false;
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

template <typename Use>
void ColumnValues::forEachOdd(std::size_t section, Use use) const {
  const std::size_t first = section * sectionChunks;
  for (std::size_t i = 0; i < sectionChunks; ++i) {
    if (hasOdd(first + i)) use(i, *odd_[first + i]);
  }
}

std::unique_ptr<ColumnValues::States> ColumnValues::makeStates(std::size_t section) const {
  // Where there are more, cells are looked for in too many of them.
  constexpr std::size_t mostGroups = 32;
  auto made = std::make_unique<States>();
  Course course;
  std::vector<std::uint16_t> single;
  std::size_t oddCount = 0;
  forEachOdd(section, [&](std::size_t chunk, const OddCells& odd) {
    oddCount += odd.places.size();
    for (std::size_t i = 0; i < odd.places.size(); ++i) {
      prefetchRules(odd.cells, i);
      if (odd.cells[i].tempRule == nullptr) continue;
      const auto place = static_cast<std::uint16_t>(chunk * Rows::chunkRows + odd.places[i]);
      const bool isUsual = course.take(*odd.cells[i].tempRule);
      auto group = std::find_if(made->groups.begin(), made->groups.end(),
                                [&](const auto& each) { return each.rhythm() == course.rhythm; });
      if (!isUsual || (group == made->groups.end() && made->groups.size() == mostGroups)) {
        single.push_back(place);
        continue;
      }
      if (group == made->groups.end()) group = made->groups.emplace(group, course.rhythm);
      group->add(place, course.firstChange);
    }
  });
  for (RhythmGroup& group : made->groups) group.sort();
  // Room for cells that change; where it is used up, arranging all anew takes less time.
  made->single.reserve(single.size() + oddCount / 8);
  for (const std::uint16_t place : single) made->makeSingle(place);
  storeStates(section, *made);
  return made;
}

// Has rules of a section brought into the cache for a loop that comes to their places in some
// steps.
template <typename PlaceAt>
void ColumnValues::prefetchRulesAt(std::size_t section, std::size_t count, std::size_t i,
                                   PlaceAt placeAt) const {
  for (int step = 0; step < 3; ++step) {
    const std::size_t ahead = i + 24 - 8 * static_cast<std::size_t>(step);
    if (ahead < count) prefetchRule(section * sectionRows + placeAt(ahead), step);
  }
}

void ColumnValues::storeStates(std::size_t section, States& states) const {
  std::size_t count = 0;
  for (const RhythmGroup& group : states.groups) count += group.valueCount();
  states.values = makeArrays(count);
  const Chunk arrays = states.values.chunk();
  // Those that no value tells are copied as well.
  forEachArray([&](auto arrayOf) {
    auto* const to = arrayOf(arrays);
    std::fill_n(to, count, std::remove_cvref_t<decltype(*to)>());
  });
  bool areTold = true;
  std::size_t first = 0;
  Course course;
  for (const RhythmGroup& group : states.groups) {
    const std::vector<std::uint16_t>& places = group.places();
    const std::size_t size = places.size();
    for (std::size_t i = 0; i < size; ++i) {
      prefetchRulesAt(section, size, i, [&](std::size_t other) { return places[other]; });
      const TempRule& rule = *oddCell(section * sectionRows + places[i]).tempRule;
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
  if (kind_ == ValueKind::integer) states.measureDistances(arrays.numbers(), count);
}

void ColumnValues::States::measureDistances(const std::int32_t* numbers, std::size_t count) {
  constexpr std::int64_t farthest = std::numeric_limits<std::uint8_t>::max();
  if (count == 0) return;
  const auto [lowest, highest] = std::minmax_element(numbers, numbers + count);
  if (std::int64_t{*highest} - *lowest > farthest) return;
  least = *lowest;
  distances = std::make_unique_for_overwrite<std::uint8_t[]>(count);
  for (std::size_t i = 0; i < count; ++i) {
    distances[i] = static_cast<std::uint8_t>(numbers[i] - least);
  }
}

// The states of a section that can tell them at a second; else each rule has to be asked.
const ColumnValues::States* ColumnValues::statesAt(std::size_t section, std::int64_t now) const {
  return isUsualSecond(now) ? sections_[section]->states.get() : nullptr;
}

template <typename Use>
void ColumnValues::forEachRun(const States& states, std::optional<std::int64_t> before,
                              std::int64_t now, Use use) {
  std::size_t firstOfGroup = 0;
  for (const RhythmGroup& group : states.groups) {
    const auto useRun = [&](std::size_t state, std::size_t first, std::size_t last) {
      use(group, state, first, last, firstOfGroup + state * group.places().size() + first);
    };
    if (before) {
      group.forEachChange(*before, now, useRun);
    } else {
      group.forEachRun(now, useRun);
    }
    firstOfGroup += group.valueCount();
  }
}

// Whether the groups' cell at a place says nothing about when a value changes.
bool ColumnValues::States::isSkipped(std::size_t place,
                                     const DeletedPlaces& deleted) const noexcept {
  return (!single.empty() && isSingle[place]) || deleted.has(place);
}

// When a cell of a group changes next that is not deleted.
std::int64_t ColumnValues::nextOfGroups(std::size_t section, std::int64_t now,
                                        const DeletedPlaces& deleted) const {
  std::int64_t next = always;
  const States* const states = statesAt(section, now);
  if (states == nullptr) return next;
  const auto isSkipped = [&](std::size_t place) { return states->isSkipped(place, deleted); };
  forEachRun(*states, {}, now,
             [&](const RhythmGroup& group, std::size_t state, std::size_t first, std::size_t last,
                 std::size_t /*firstValue*/) {
               next = std::min(next, group.nextOfRun(now, state, first, last, isSkipped));
             });
  return next;
}

// Calls use(place, rule) with those timed cells that no group stands for.
template <typename Use>
void ColumnValues::forEachSingle(std::size_t section, std::int64_t now, Use use) const {
  if (const States* const states = statesAt(section, now)) {
    const std::vector<std::uint16_t>& places = states->single;
    for (std::size_t i = 0; i < places.size(); ++i) {
      prefetchRulesAt(section, places.size(), i, [&](std::size_t other) { return places[other]; });
      const TempRule* const timed = rule(section * sectionRows + places[i]);
      if (timed != nullptr) use(places[i], *timed);
    }
    return;
  }
  forEachOdd(section, [&](std::size_t chunk, const OddCells& odd) {
    for (std::size_t i = 0; i < odd.places.size(); ++i) {
      prefetchRules(odd.cells, i);
      const TempRule* const rule = odd.cells[i].tempRule.get();
      if (rule != nullptr) use(chunk * Rows::chunkRows + odd.places[i], *rule);
    }
  });
}

// Puts what the timed cells show at a second into arrays, which may have been made by the same
// states for a second before; up to when they show it.
std::int64_t ColumnValues::show(std::size_t section, std::optional<std::int64_t> before,
                                std::int64_t now, const Targets& to) const {
  auto& states = sections_[section]->states;
  if (states == nullptr) states = makeStates(section);
  if (isUsualSecond(now)) showGroups(*states, before, now, to);
  std::int64_t next = nextOfGroups(section, now, {});
  forEachSingle(section, now, [&](std::size_t place, const TempRule& rule) {
    const std::size_t chunk = Rows::chunkOf(place);
    const std::size_t inChunk = Rows::placeOf(place);
    const bool isTold = !rule.states.empty() && store(to.arrays[chunk], inChunk, rule.valueAt(now));
    to.flags[chunk][inChunk] = isTold ? listed : listed | unclear;
    next = sooner(next, rule, now);
  });
  return next;
}

void ColumnValues::showGroups(const States& states, std::optional<std::int64_t> before,
                              std::int64_t now, const Targets& to) const {
  struct Part {
    const std::uint16_t* places;
    std::size_t firstValue;
    std::size_t count;
  };
  std::vector<Part> parts;
  forEachRun(states, before, now,
             [&](const RhythmGroup& group, std::size_t /*state*/, std::size_t first,
                 std::size_t last, std::size_t firstValue) {
               parts.push_back({group.places().data() + first, firstValue, last - first});
             });
  const Chunk all = states.values.chunk();
  const bool hasSingle = !states.single.empty();
  const auto put = [&](auto arrayOf, const auto& targetOf) {
    using Element = std::remove_cvref_t<decltype(*targetOf(0))>;
    Element* targets[sectionChunks];
    for (std::size_t i = 0; i < sectionChunks; ++i) targets[i] = targetOf(i);
    for (const Part& part : parts) {
      const Element* const values = arrayOf(all) + part.firstValue;
      for (std::size_t i = 0; i < part.count; ++i) {
        const std::size_t place = part.places[i];
        if (hasSingle && states.isSingle[place]) continue;
        Element& target = targets[Rows::chunkOf(place)][Rows::placeOf(place)];
        // Long texts take memory; most of them stay.
        if constexpr (std::is_same_v<Element, Text>) {
          if (target == values[i]) continue;
        }
        target = values[i];
      }
    }
  };
  forEachArray([&](auto arrayOf) {
    put(arrayOf, [&](std::size_t chunk) { return arrayOf(to.arrays[chunk]); });
  });
  if (states.values.odd == nullptr) return;
  put([](const Chunk& chunk) { return chunk.odd; },
      [&](std::size_t chunk) { return to.flags[chunk]; });
}

std::int64_t ColumnValues::nextOfSingle(std::size_t section, std::int64_t now,
                                        const DeletedPlaces& deleted) const {
  std::int64_t next = always;
  forEachSingle(section, now, [&](std::size_t place, const TempRule& rule) {
    if (!deleted.has(place)) next = sooner(next, rule, now);
  });
  return next;
}

void ColumnValues::keepRight(std::size_t section, std::int64_t now) const {
  if (!sections_[section]->holdsAt(now)) refresh(section, now);
}

// Puts the states in force into the arrays.
void ColumnValues::refresh(std::size_t section, std::int64_t now) const {
  Section& kept = *sections_[section];
  Targets targets;
  forEachOdd(section, [&](std::size_t chunk, OddCells& odd) {
    targets.arrays[chunk] = this->chunk(section * sectionChunks + chunk);
    targets.flags[chunk] = odd.flags.data();
  });
  // Until all is done nothing is right.
  kept.since = always;
  kept.next.reset();
  std::optional<std::int64_t> before;
  if (kept.states != nullptr) before.swap(kept.states->shown);
  kept.until = show(section, before, now, targets);
  kept.since = now;
  if (isUsualSecond(now)) kept.states->shown = now;
}

void ColumnValues::dropKept(std::size_t section) noexcept {
  Section& kept = *sections_[section];
  for (auto& snapshot : kept.snapshots) snapshot.reset();
  kept.next.reset();
  kept.fresh.reset();
}

std::shared_ptr<const ColumnValues::Snapshot> ColumnValues::snapshot(std::size_t section,
                                                                     std::int64_t now) const {
  const auto made = std::make_shared<Snapshot>();
  const States* const states = statesAt(section, now);
  const bool areAllGrouped = states != nullptr && states->areAllGrouped(rowsOf(section));
  Targets targets;
  forEachOdd(section, [&](std::size_t number, const OddCells& odd) {
    const std::size_t chunk = section * sectionChunks + number;
    const std::size_t count = rows_.sizeOf(chunk);
    Arrays& arrays = made->arrays[number];
    arrays = makeArrays(count);
    const Chunk to = arrays.chunk();
    targets.arrays[number] = to;
    targets.flags[number] = arrays.odd.get();
    if (areAllGrouped) {
      std::fill_n(arrays.odd.get(), count, listed);
      return;
    }
    forEachArray(
        [&](auto arrayOf) { std::copy_n(arrayOf(this->chunk(chunk)), count, arrayOf(to)); });
    std::copy_n(odd.flags.data(), count, arrays.odd.get());
  });
  made->since = now;
  made->until = show(section, {}, now, targets);
  const DeletedPlaces deleted(rows_, section);
  made->next = made->until;
  if (deleted.hasSome()) {
    made->next = std::min(nextOfGroups(section, now, deleted), nextOfSingle(section, now, deleted));
  }
  return made;
}

ReadAhead ColumnValues::readAhead(std::size_t chunk, std::int64_t now) const noexcept {
  const std::size_t count = rows_.sizeOf(chunk);
  if (!hasOdd(chunk)) return readAhead(this->chunk(chunk), count);
  Section& section = *sections_[sectionOf(chunk)];
  if (section.holdsAt(now)) return readAhead(this->chunk(chunk), count);
  const std::lock_guard lock(section.guard);
  const auto* const kept = section.snapshotAt(now);
  if (kept == nullptr) return {};
  return readAhead((*kept)->arrays[chunk % sectionChunks].chunk(), count);
}

ColumnValues::ChunkAt ColumnValues::chunkAt(std::size_t chunk, std::int64_t now) const {
  if (!hasOdd(chunk)) return {this->chunk(chunk), nullptr};
  Section& section = *sections_[sectionOf(chunk)];
  if (section.holdsAt(now)) return {this->chunk(chunk), nullptr};
  const std::lock_guard lock(section.guard);
  const auto* kept = section.snapshotAt(now);
  if (kept == nullptr) {
    auto made = snapshot(sectionOf(chunk), now);
    section.newerSnapshot ^= 1;
    kept = &(section.snapshots[section.newerSnapshot] = std::move(made));
  }
  return {(*kept)->arrays[chunk % sectionChunks].chunk(), *kept};
}

void ColumnValues::readFresh(std::size_t section, std::int64_t now, FreshSection& fresh) const {
  fresh.states = nullptr;
  fresh.runs.clear();
  if (section >= sections_.size() || sections_[section] == nullptr || !isUsualSecond(now)) return;
  Section& kept = *sections_[section];
  if (kept.holdsAt(now)) return;
  const std::lock_guard lock(kept.guard);
  if (kept.snapshotAt(now) != nullptr) return;
  if (kept.fresh && kept.fresh->second == now) return;
  if (kept.states == nullptr) kept.states = makeStates(section);
  const States& states = *kept.states;
  // Asking many one by one is worth keeping what they say.
  if (states.single.size() > rowsOf(section) / 8) return;
  const DeletedPlaces deleted(rows_, section);
  std::int64_t next = nextOfSingle(section, now, deleted);
  const auto isSkipped = [&](std::size_t place) { return states.isSkipped(place, deleted); };
  const Chunk all = states.values.chunk();
  forEachRun(states, {}, now,
             [&](const RhythmGroup& group, std::size_t state, std::size_t first, std::size_t last,
                 std::size_t firstValue) {
               const std::size_t count = last - first;
               const std::uint8_t* distances = nullptr;
               if (states.distances != nullptr) distances = states.distances.get() + firstValue;
               fresh.runs.push_back({from(all, firstValue), distances,
                                     std::span(group.places()).subspan(first, count)});
               const ReadAhead run = distances != nullptr
                                         ? ReadAhead(distances, count, 1)
                                         : readAhead(fresh.runs.back().arrays, count);
               run.prefetch(0, count);
               next = std::min(next, group.nextOfRun(now, state, first, last, isSkipped));
             });
  kept.fresh = {now, next};
  fresh.states = &states;
}

std::int64_t ColumnValues::nextChangeOf(std::size_t section, std::int64_t now) const {
  Section& kept = *sections_[section];
  const std::lock_guard lock(kept.guard);
  if (const auto* const snapshot = kept.snapshotAt(now)) return (*snapshot)->next;
  if (kept.fresh && kept.fresh->second == now) return kept.fresh->next;
  const bool isCurrent = kept.holdsAt(now);
  if (isCurrent && kept.next) return *kept.next;
  const DeletedPlaces deleted(rows_, section);
  const std::int64_t next =
      std::min(nextOfGroups(section, now, deleted), nextOfSingle(section, now, deleted));
  if (isCurrent) kept.next = next;
  return next;
}

std::int64_t ColumnValues::nextChange(std::int64_t now) const {
  std::int64_t next = always;
  for (std::size_t section = 0; section < sections_.size(); ++section) {
    if (sections_[section] != nullptr) next = std::min(next, nextChangeOf(section, now));
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
  const bool isRight = sectionOfRow(row).holdsAt(now) || oddCell(row).tempRule == nullptr;
  return isRight ? value(arrays, row, now) : oddValue(row, now);
}

}  // namespace velmora
