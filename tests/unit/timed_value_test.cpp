// Timed values: which state is current at which second, read under a clock that the test sets.

#include <gtest/gtest.h>

#include <cstdint>
#include <limits>
#include <memory>
#include <ostream>
#include <random>
#include <stdexcept>
#include <string>
#include <vector>

#include "cell.h"

namespace velmora {
namespace {

constexpr std::int64_t most = std::numeric_limits<std::int64_t>::max();
constexpr std::int64_t least = std::numeric_limits<std::int64_t>::min();

std::string valueAt(const Cell& cell, std::int64_t second) {
  return std::string(cell.valueAt(second));
}

struct State {
  std::string value;
  std::int64_t duration;
};

Cell timedCell(const std::vector<State>& states, bool repeat, std::int64_t startTime,
               std::int64_t cycleLength) {
  Cell cell(Text("stored"));
  cell.tempRule = std::make_unique<TempRule>();
  for (const State& state : states) {
    cell.tempRule->states.push_back({Text(state.value), state.duration});
  }
  cell.tempRule->repeat = repeat;
  cell.tempRule->startTime = startTime;
  cell.tempRule->cycleLength = cycleLength;
  return cell;
}

struct Reading {
  std::int64_t elapsed;
  std::string value;
};

struct Case {
  std::string name;
  std::vector<State> states;
  bool repeat;
  std::int64_t cycleLength;
  std::vector<Reading> readings;
};

void PrintTo(const Case& tried, std::ostream* out) { *out << tried.name; }

class TimedValueCases : public testing::TestWithParam<Case> {};

TEST_P(TimedValueCases, showTheStateOfTheSecond) {
  const Case& tried = GetParam();
  for (const std::int64_t startTime : {std::int64_t{0}, std::int64_t{1700000000}}) {
    const Cell cell = timedCell(tried.states, tried.repeat, startTime, tried.cycleLength);
    for (const Reading& reading : tried.readings) {
      EXPECT_EQ(valueAt(cell, startTime + reading.elapsed), reading.value)
          << tried.name << " at " << reading.elapsed;
    }
  }
}

const std::vector<State> twoStates = {{"a", 10}, {"b", 20}};
const std::vector<State> threeStates = {{"a", 5}, {"b", 600}, {"c", 600}};

INSTANTIATE_TEST_SUITE_P(
    Rules, TimedValueCases,
    testing::Values(
        Case{"cycling",
             twoStates,
             true,
             30,
             {{0, "a"},
              {9, "a"},
              {10, "b"},
              {29, "b"},
              {30, "a"},
              {39, "a"},
              {40, "b"},
              {65, "a"},
              {3'000'000'009, "a"},
              {3'000'000'010, "b"}}},
        Case{"once",
             twoStates,
             false,
             30,
             {{0, "a"}, {9, "a"}, {10, "b"}, {29, "b"}, {30, "b"}, {31, "b"}, {1'000'000, "b"}}},
        Case{"future, cycling", twoStates, true, 30, {{-1, "a"}, {-100, "a"}, {-30, "a"}}},
        Case{"future, once", twoStates, false, 30, {{-1, "a"}, {-100, "a"}, {-30, "a"}}},
        Case{"three, cycling",
             threeStates,
             true,
             1205,
             {{0, "a"}, {4, "a"}, {5, "b"}, {604, "b"}, {605, "c"}, {1204, "c"}, {1205, "a"}}},
        Case{"one, cycling", {{"a", 7}}, true, 7, {{-1, "a"}, {0, "a"}, {6, "a"}, {7, "a"}}},
        Case{"one, once", {{"a", 7}}, false, 7, {{-1, "a"}, {0, "a"}, {6, "a"}, {7, "a"}}},
        Case{"no cycle length", twoStates, true, 0, {{0, "a"}, {10, "b"}, {30, "b"}, {45, "b"}}},
        Case{"negative cycle", twoStates, true, -30, {{0, "a"}, {10, "b"}, {30, "b"}, {45, "b"}}},
        Case{"once, length 0", twoStates, false, 0, {{-1, "a"}, {0, "b"}, {5, "b"}}},
        // The length is used as given, whatever the durations come to.
        Case{"short cycle", twoStates, true, 5, {{0, "a"}, {4, "a"}, {12, "a"}, {100, "a"}}},
        Case{"long cycle", twoStates, true, 50, {{29, "b"}, {49, "b"}, {50, "a"}, {60, "b"}}},
        Case{"ends early", twoStates, false, 5, {{4, "a"}, {5, "b"}, {9, "b"}}},
        Case{"no durations", {{"a", 0}, {"b", 0}}, true, 0, {{-1, "a"}, {0, "b"}, {5, "b"}}},
        Case{"nothing first", {{"a", 0}, {"b", 5}}, true, 5, {{-1, "a"}, {0, "b"}, {5, "b"}}},
        Case{"negative duration",
             {{"a", -5}, {"b", 20}, {"c", 20}},
             true,
             35,
             {{-6, "a"}, {-5, "b"}, {0, "b"}, {14, "b"}, {15, "c"}, {34, "c"}, {35, "b"}}}));

TEST(TimedValue, wrapsInsteadOfOverflowing) {
  // Two states as long as can be: their sum is -2.
  EXPECT_EQ(valueAt(timedCell({{"a", most}, {"b", most}}, true, 0, -2), 5), "a");
  EXPECT_EQ(valueAt(timedCell({{"a", most}, {"b", most}}, false, 0, -2), 5), "b");
  // The time since the earliest start there is has wrapped to the earliest second.
  EXPECT_EQ(valueAt(timedCell(twoStates, false, least, 30), 0), "a");
  EXPECT_EQ(valueAt(timedCell(twoStates, true, least, 30), 0), "a");
  EXPECT_EQ(valueAt(timedCell(twoStates, false, most, 30), 0), "a");
  EXPECT_EQ(valueAt(timedCell(twoStates, true, most, 30), 0), "a");
  EXPECT_EQ(valueAt(timedCell(twoStates, false, 0, 30), most), "b");
  // 2^63 - 1 is 7 more than a multiple of 30.
  EXPECT_EQ(valueAt(timedCell(twoStates, true, 0, 30), most), "a");
  EXPECT_EQ(valueAt(timedCell(twoStates, true, 0, 1), most), "a");
  // The least time divided by -1, were it divided.
  EXPECT_EQ(valueAt(timedCell(twoStates, true, 0, -1), least), "a");
}

// The rule written down once more, plainly, with its own arithmetic.
std::size_t expectedIndex(const std::vector<State>& states, bool repeat, std::int64_t cycleLength,
                          std::int64_t elapsed) {
  if (!repeat && elapsed >= cycleLength) return states.size() - 1;
  if (repeat && cycleLength > 0) elapsed = elapsed - elapsed / cycleLength * cycleLength;
  std::int64_t sum = 0;
  for (std::size_t i = 0; i < states.size(); ++i) {
    sum += states[i].duration;
    if (elapsed < sum) return i;
  }
  return states.size() - 1;
}

TEST(TimedValue, followsItsRuleOnRandomStates) {
  std::mt19937 random(1);
  const auto within = [&](int low, int high) {
    return low + static_cast<int>(random() % static_cast<unsigned>(high - low + 1));
  };
  for (int round = 0; round < 5000; ++round) {
    std::vector<State> states;
    std::int64_t sum = 0;
    for (int count = within(1, 6), i = 0; i < count; ++i) {
      states.push_back({std::to_string(i), within(-3, 12)});
      sum += states.back().duration;
    }
    const bool repeat = round % 2 == 0;
    const std::int64_t cycleLength = within(0, 3) == 0 ? within(-5, 40) : sum;
    const std::int64_t startTime = within(-1000, 1000);
    const Cell cell = timedCell(states, repeat, startTime, cycleLength);
    for (int elapsed = -20; elapsed < 100; ++elapsed) {
      const std::size_t index = expectedIndex(states, repeat, cycleLength, elapsed);
      ASSERT_EQ(valueAt(cell, startTime + elapsed), states[index].value)
          << "round " << round << " elapsed " << elapsed;
      ASSERT_EQ(cell.tempRule->calculateIndex(startTime + elapsed), index);
    }
  }
}

TEST(TimedValue, withoutStatesFailsOnReadAndNeverChanges) {
  const TempRule rule;
  EXPECT_EQ(rule.calculateIndex(0), 0U);
  EXPECT_THROW(static_cast<void>(rule.valueAt(0)), std::out_of_range);
  EXPECT_EQ(rule.nextChange(0), most);
}

TEST(TimedValue, copiesGoOnByThemselves) {
  Cell original = timedCell(twoStates, true, 0, 30);
  const Cell copy = original;
  original.tempRule->startTime = 10;
  EXPECT_EQ(valueAt(copy, 10), "b");
  EXPECT_EQ(valueAt(original, 10), "a");
}

}  // namespace
}  // namespace velmora
