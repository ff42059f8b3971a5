// See rhythm.h.
#include "rhythm.h"

namespace velmora {
namespace {

// Behind every usual second, however far that lies from another one.
constexpr std::int64_t endless = std::int64_t{1} << 62;

// Those with another text than the one before. What is never shown is left out, but for the first
// state, which is shown before the start.
void takeSteps(const TempRule& rule, std::vector<Course::Step>& steps) {
  steps.clear();
  std::int64_t end = 0;
  for (std::size_t i = 0; i < rule.states.size(); ++i) {
    const std::int64_t start = end;
    end = rule.repeat ? rule.cycleLength : endless;
    if (i + 1 < rule.states.size()) {
      end = std::min(start + rule.states[i].duration, rule.cycleLength);
    }
    if (i > 0 && end == start) continue;
    if (steps.empty() || rule.states[steps.back().state].value != rule.states[i].value) {
      steps.push_back({i, end});
    } else {
      steps.back().end = end;
    }
  }
  const bool isSeamless =
      rule.repeat && steps.size() > 1 &&
      rule.states[steps.front().state].value == rule.states[steps.back().state].value;
  if (isSeamless) steps.pop_back();
}

}  // namespace

bool Course::take(const TempRule& rule) {
  if (rule.states.empty() || !rule.isUsual()) return false;
  // A first state of no length is not what is shown at the end of each pass before the start.
  if (rule.repeat && rule.states.front().duration == 0) return false;
  takeSteps(rule, steps);
  rhythm.passLength = rule.repeat && steps.size() > 1 ? rule.cycleLength : 0;
  rhythm.ends.clear();
  states.clear();
  firstChange = steps.size() > 1 ? rule.startTime + steps.front().end : RhythmGroup::never;
  for (std::size_t i = 1; i < steps.size(); ++i) {
    const bool isEndless = steps[i].end == endless;
    rhythm.ends.push_back(isEndless ? endless : steps[i].end - steps.front().end);
    states.push_back(steps[i].state);
  }
  states.push_back(steps.front().state);
  return true;
}

void RhythmGroup::add(std::uint16_t place, std::int64_t firstChange) {
  places_.push_back(place);
  firstChanges_.push_back(firstChange);
  latest_ = std::max(latest_, firstChange);
}

void RhythmGroup::sort() {
  struct Entry {
    std::int64_t phase;
    std::int64_t firstChange;
    std::uint16_t place;
  };
  std::vector<Entry> entries;
  entries.reserve(places_.size());
  for (std::size_t i = 0; i < places_.size(); ++i) {
    entries.push_back({phaseOf(firstChanges_[i]), firstChanges_[i], places_[i]});
  }
  std::sort(entries.begin(), entries.end(),
            [](const Entry& a, const Entry& b) { return a.phase < b.phase; });
  for (std::size_t i = 0; i < places_.size(); ++i) {
    firstChanges_[i] = entries[i].firstChange;
    places_[i] = entries[i].place;
  }
  blocks_.clear();
  for (std::size_t i = 0; i < entries.size(); i += blockSize) {
    const auto first = firstChanges_.begin() + static_cast<std::ptrdiff_t>(i);
    const auto [earliest, latest] = std::minmax_element(
        first, first + static_cast<std::ptrdiff_t>(std::min(blockSize, entries.size() - i)));
    blocks_.push_back({entries[i].phase, *earliest, *latest});
  }
  firstChanges_.shrink_to_fit();
  places_.shrink_to_fit();
}

std::size_t RhythmGroup::memoryBytes() const noexcept {
  return sizeof *this + rhythm_.ends.capacity() * sizeof rhythm_.ends[0] +
         firstChanges_.capacity() * sizeof firstChanges_[0] +
         places_.capacity() * sizeof places_[0] + blocks_.capacity() * sizeof blocks_[0];
}

// In the cold, a search among all waits for memory at each step; here it waits twice.
std::size_t RhythmGroup::firstBehind(std::int64_t phase) const noexcept {
  std::size_t count = 0;
  for (const Block& block : blocks_) count += block.phase <= phase ? 1 : 0;
  if (count == 0) return 0;
  const std::size_t end = std::min(count * blockSize, firstChanges_.size());
  const std::int64_t* const first = firstChanges_.data() + (count - 1) * blockSize;
  const std::int64_t* const last = firstChanges_.data() + end;
  for (const std::int64_t* line = first; line < last; line += 8) __builtin_prefetch(line);
  return static_cast<std::size_t>(
      std::partition_point(first, last,
                           [&](std::int64_t second) { return phaseOf(second) <= phase; }) -
      firstChanges_.data());
}

// The first one behind `first` that is before its first change if that is not, or the other way
// round.
std::size_t RhythmGroup::endOfEqual(std::int64_t now, std::size_t first,
                                    std::size_t last) const noexcept {
  const bool isWaiting = firstChanges_[first] > now;
  std::size_t i = first + 1;
  while (i < last && (firstChanges_[i] > now) == isWaiting) {
    const Block& block = blocks_[i / blockSize];
    const bool areEqual = isWaiting ? block.earliest > now : block.latest <= now;
    i = areEqual ? behindBlock(i) : i + 1;
  }
  return std::min(i, last);
}

std::int64_t RhythmGroup::changeOf(std::size_t i, std::size_t state,
                                   std::int64_t now) const noexcept {
  if (firstChanges_[i] > now) return firstChanges_[i];
  const std::int64_t end = state < rhythm_.ends.size() ? rhythm_.ends[state] : rhythm_.passLength;
  if (end == endless) return never;
  return now + end - (cycles() ? phaseOf(now - firstChanges_[i]) : now - firstChanges_[i]);
}

}  // namespace velmora
