// Rhythms: timed values put together by how they change, so that what all of them show at a second
// is told without looking at each.
//
// Values have one rhythm if the times between their changes are the same, and both cycle or both
// do not; they differ in their texts and in the second of their first change. Sorted by that, and
// cycling ones by where in a pass it lies, those lie side by side that are at the same point of
// their way: a few searches tell where such a run begins, and which of its values changes next.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <vector>

#include "cell.h"

namespace velmora {

struct Rhythm {
  std::int64_t passLength = 0;  // 0: it does not cycle
  // When what is shown from the first change on ends, counted from there, but for the last text of
  // a pass.
  std::vector<std::int64_t> ends;

  bool operator==(const Rhythm&) const = default;
};

// The way of one rule through different texts. One object that takes many is quicker than many.
struct Course {
  // A state and where it ends, counted from the start of the rule.
  struct Step {
    std::size_t state;
    std::int64_t end;
  };

  Rhythm rhythm;
  std::int64_t firstChange = 0;
  // The states shown from there on. The last one is shown before it, too, and nowhere else if the
  // rule does not cycle.
  std::vector<std::size_t> states;

  std::vector<Step> steps;  // the same, from the start of the rule

  // Takes that of the rule; false if it has none, but has to be asked at each second.
  bool take(const TempRule& rule);
};

// Values of one rhythm, which belong to places of a chunk.
class RhythmGroup {
 public:
  static constexpr std::int64_t never = std::numeric_limits<std::int64_t>::max();

  explicit RhythmGroup(const Rhythm& rhythm) : rhythm_(rhythm) {}
  const Rhythm& rhythm() const noexcept { return rhythm_; }
  std::size_t stateCount() const noexcept { return rhythm_.ends.size() + 1; }
  // How many values there are of all states together.
  std::size_t valueCount() const noexcept { return stateCount() * places_.size(); }
  // Of each value, in the order of the group.
  const std::vector<std::uint16_t>& places() const noexcept { return places_; }
  std::size_t memoryBytes() const noexcept;

  void add(std::uint16_t place, std::int64_t firstChange);
  // To be called behind the last one.
  void sort();

  // Calls use(state, first, last) with the values from one to another that show the same of their
  // course's states at a usual second, until all were there.
  template <typename Use>
  void forEachRun(std::int64_t now, Use use) const;
  // The same for those alone that show another state than at another usual second.
  template <typename Use>
  void forEachChange(std::int64_t before, std::int64_t now, Use use) const;
  // The first second behind `now` at which one of such a run shows another text whose place is not
  // skipped.
  template <typename IsSkipped>
  std::int64_t nextOfRun(std::int64_t now, std::size_t state, std::size_t first, std::size_t last,
                         IsSkipped isSkipped) const;

 private:
  bool cycles() const noexcept { return rhythm_.passLength > 0; }
  // A second's place in a pass.
  std::int64_t phaseOf(std::int64_t second) const noexcept {
    if (!cycles()) return second;
    const std::int64_t rest = second % rhythm_.passLength;
    return rest < 0 ? rest + rhythm_.passLength : rest;
  }
  std::size_t firstBehind(std::int64_t phase) const noexcept;
  std::int64_t changeOf(std::size_t i, std::size_t state, std::int64_t now) const noexcept;
  template <typename Use>
  void cutRun(std::int64_t now, std::size_t state, std::size_t first, std::size_t last,
              Use use) const;

  Rhythm rhythm_;
  // So many values that lie side by side; in a large group about as many as it has blocks.
  static constexpr std::size_t blockSize = 128;
  struct Block {
    std::int64_t phase;     // of the first one
    std::int64_t earliest;  // of their first changes
    std::int64_t latest;
  };
  static std::size_t behindBlock(std::size_t i) noexcept { return i - i % blockSize + blockSize; }
  std::size_t endOfEqual(std::int64_t now, std::size_t first, std::size_t last) const noexcept;

  std::vector<std::int64_t> firstChanges_;
  std::vector<std::uint16_t> places_;
  std::vector<Block> blocks_;
  std::int64_t latest_ = std::numeric_limits<std::int64_t>::min();  // first change
};

template <typename Use>
void RhythmGroup::forEachRun(std::int64_t now, Use use) const {
  const std::int64_t phase = phaseOf(now);
  const std::size_t start = firstBehind(phase);
  std::int64_t lastPhase = phase;
  std::size_t last = start;
  for (std::size_t state = 0; state < stateCount(); ++state) {
    const bool isLast = state + 1 == stateCount();
    const std::int64_t firstPhase = isLast ? phase : phaseOf(now - rhythm_.ends[state]);
    const std::size_t first = isLast ? start : firstBehind(firstPhase);
    if (firstPhase < lastPhase) {
      cutRun(now, state, first, last, use);
    } else {  // it goes beyond the end of a pass
      cutRun(now, state, first, places_.size(), use);
      cutRun(now, state, 0, last, use);
    }
    lastPhase = firstPhase;
    last = first;
  }
}

template <typename Use>
void RhythmGroup::forEachChange(std::int64_t before, std::int64_t now, Use use) const {
  struct Run {
    std::size_t state;
    std::size_t first;
    std::size_t last;
  };
  std::vector<Run> runs;  // of then: side by side, once sorted
  forEachRun(before, [&](std::size_t state, std::size_t first, std::size_t last) {
    runs.push_back({state, first, last});
  });
  std::sort(runs.begin(), runs.end(), [](const Run& a, const Run& b) { return a.first < b.first; });
  forEachRun(now, [&](std::size_t state, std::size_t first, std::size_t last) {
    auto run = std::partition_point(runs.begin(), runs.end(),
                                    [=](const Run& each) { return each.last <= first; });
    for (; run != runs.end() && run->first < last; ++run) {
      if (run->state != state) use(state, std::max(first, run->first), std::min(last, run->last));
    }
  });
}

// Those that cycle and have not changed yet are anywhere in the order.
template <typename Use>
void RhythmGroup::cutRun(std::int64_t now, std::size_t state, std::size_t first, std::size_t last,
                         Use use) const {
  while (first < last) {
    const bool areMixed = cycles() && latest_ > now;
    const std::size_t end = areMixed ? endOfEqual(now, first, last) : last;
    use(firstChanges_[first] > now ? stateCount() - 1 : state, first, end);
    first = end;
  }
}

template <typename IsSkipped>
std::int64_t RhythmGroup::nextOfRun(std::int64_t now, std::size_t state, std::size_t first,
                                    std::size_t last, IsSkipped isSkipped) const {
  // Of cycling ones before their first change any one may be the next; of others it is the first.
  const bool areWaiting = cycles() && first < last && firstChanges_[first] > now;
  std::int64_t next = never;
  for (std::size_t i = first; i < last; ++i) {
    if (areWaiting) {
      if (i % blockSize == 0 && blocks_[i / blockSize].earliest >= next) {
        i = behindBlock(i) - 1;
      } else if (firstChanges_[i] < next && !isSkipped(places_[i])) {
        next = firstChanges_[i];
      }
    } else if (!isSkipped(places_[i])) {
      return changeOf(i, state, now);
    }
  }
  return next;
}

}  // namespace velmora
