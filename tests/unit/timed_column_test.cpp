// Timed values in columns: the arrays of a chunk show the state of whatever second is asked for,
// and a timed value says how long its state stays.

#include <gtest/gtest.h>

#include <cstdint>
#include <limits>
#include <string>
#include <string_view>
#include <vector>

#include "column_fixture.h"

namespace velmora {
namespace {

constexpr std::int64_t most = std::numeric_limits<std::int64_t>::max();
constexpr std::int64_t least = std::numeric_limits<std::int64_t>::min();

TEST(TimedColumns, changeAtTheSecond) {
  for (const std::string& type : allTypes) {
    Table table = tableOf(type);
    const Texts texts = textsFor(valueKind(type));
    const std::vector<State> states = {{texts[0], 10}, {texts[1], 5}, {texts[2], 1}};
    add(table, timedCell(ruleOf(states, true, 100)));
    add(table, timedCell(ruleOf(states, false, 100)));
    struct Reading {
      std::int64_t second;
      std::size_t cycling;
      std::size_t once;
    };
    const std::vector<Reading> readings = {{0, 0, 0},   {99, 0, 0},  {100, 0, 0}, {109, 0, 0},
                                           {110, 1, 1}, {114, 1, 1}, {115, 2, 2}, {116, 0, 2},
                                           {125, 0, 2}, {126, 1, 2}, {131, 2, 2}, {132, 0, 2}};
    const auto check = [&](const Reading& each) {
      const ColumnValues::Chunk chunk = table.values(0).chunk(0, each.second);
      EXPECT_EQ(textOf(table, 0, 0, each.second), texts[each.cycling]) << each.second;
      EXPECT_EQ(textOf(table, 1, 0, each.second), texts[each.once]) << each.second;
      for (const std::size_t row : {0U, 1U}) {
        const std::string& shown = texts[row == 0 ? each.cycling : each.once];
        EXPECT_EQ(toldText(table.kind(0), chunk, row).value_or(shown), shown) << each.second;
      }
    };
    for (const Reading& each : readings) check(each);
    for (auto each = readings.rbegin(); each != readings.rend(); ++each) check(*each);
  }
}

// Rules and seconds as no clock shows them.
TempRule absurdRule(Choices& choices, const Texts& texts) {
  TempRule rule = choices.rule(texts, -50, 50);
  const std::vector<std::int64_t> limits = {least,    least + 1, -(std::int64_t{1} << 40),
                                            most - 1, most,      std::int64_t{1} << 40};
  const auto nearLimit = [&] {
    const std::int64_t limit = choices.of(limits);
    return limit < 0 ? limit + choices.within(0, 20) : limit - choices.within(0, 20);
  };
  if (choices.oneIn(2)) rule.startTime = nearLimit();
  if (choices.oneIn(2)) rule.cycleLength = nearLimit();
  for (TempState& state : rule.states) {
    if (choices.oneIn(3)) state.duration = nearLimit();
  }
  return rule;
}

void checkArrays(const Table& table, const std::vector<TempRule>& rules, std::int64_t now) {
  const ColumnValues::Chunk chunk = table.values(0).chunk(0, now);
  for (std::size_t row = 0; row < rules.size(); ++row) {
    const std::string_view expected = rules[row].valueAt(now);
    const auto told = toldText(table.kind(0), chunk, row);
    ASSERT_EQ(told.value_or(std::string(expected)), expected) << "row " << row << " at " << now;
    ASSERT_EQ(textOf(table, row, 0, now), expected);
  }
}

TEST(TimedColumns, haveTheArraysRightAtEverySecond) {
  for (const std::string& type : allTypes) {
    const Texts texts = textsFor(valueKind(type));
    Choices choices(11);
    for (int round = 0; round < 60; ++round) {
      Table table = tableOf(type);
      std::vector<TempRule> rules;
      for (int i = 0; i < 12; ++i) {
        rules.push_back(round % 4 == 3 ? absurdRule(choices, texts)
                                       : choices.rule(texts, -60, 120));
        add(table, timedCell(rules.back()), choices.within(-100, 100));
      }
      for (std::int64_t now = -100; now < 160; ++now) {
        ASSERT_NO_FATAL_FAILURE(checkArrays(table, rules, now)) << type << ' ' << round;
      }
      for (std::int64_t now = 160; now > -100; --now) {
        ASSERT_NO_FATAL_FAILURE(checkArrays(table, rules, now)) << type << ' ' << round;
      }
      for (int jump = 0; jump < 60; ++jump) {
        const std::int64_t now = choices.within(-200, 300);
        ASSERT_NO_FATAL_FAILURE(checkArrays(table, rules, now)) << type << ' ' << round;
      }
      for (const std::int64_t end : {least, most}) {
        for (std::int64_t i = 0; i < 40; ++i) {
          const std::int64_t now = end == least ? least + i : most - i;
          ASSERT_NO_FATAL_FAILURE(checkArrays(table, rules, now)) << type << ' ' << round;
        }
      }
    }
  }
}

TEST(NextChange, isTheSecondOfTheNextState) {
  const TempRule cycling = ruleOf({{"a", 10}, {"b", 20}}, true, 100);
  EXPECT_EQ(cycling.nextChange(0), 100);
  EXPECT_EQ(cycling.nextChange(100), 110);
  EXPECT_EQ(cycling.nextChange(109), 110);
  EXPECT_EQ(cycling.nextChange(110), 130);
  EXPECT_EQ(cycling.nextChange(130), 140);
  EXPECT_EQ(cycling.nextChange(100 + 30 * 1'000'000), 110 + 30 * 1'000'000);
  const TempRule once = ruleOf({{"a", 10}, {"b", 20}}, false, 100);
  EXPECT_EQ(once.nextChange(0), 100);
  EXPECT_EQ(once.nextChange(105), 110);
  EXPECT_EQ(once.nextChange(129), 130);
  EXPECT_EQ(once.nextChange(130), most);
  EXPECT_EQ(cycling.nextChange(most), most);
}

// Up to the second that it gives the state stays; and that second is a later one.
void checkNextChange(const TempRule& rule, std::int64_t now) {
  const std::int64_t change = rule.nextChange(now);
  ASSERT_GT(change, now);
  const std::size_t index = rule.calculateIndex(now);
  // Beyond some hundred seconds, where no short pass can hide a change, only the end is looked at.
  for (std::int64_t later = now + 1; later < change && later <= now + 400; ++later) {
    ASSERT_EQ(rule.calculateIndex(later), index) << now << ", " << change << ", " << later;
  }
  if (change != most) {
    ASSERT_EQ(rule.calculateIndex(change - 1), index) << now << ", " << change;
  }
}

TEST(NextChange, isNeverBehindAChangeOfState) {
  Choices choices(12);
  const Texts texts = {"a", "b", "c"};
  for (int round = 0; round < 20'000; ++round) {
    const TempRule rule =
        round % 4 == 3 ? absurdRule(choices, texts) : choices.rule(texts, -60, 120);
    for (int i = 0; i < 12; ++i) {
      ASSERT_NO_FATAL_FAILURE(checkNextChange(rule, choices.within(-200, 300))) << round;
    }
    if (round % 10 == 0) {
      ASSERT_NO_FATAL_FAILURE(checkNextChange(rule, least + choices.within(0, 50))) << round;
      ASSERT_NO_FATAL_FAILURE(checkNextChange(rule, most - choices.within(401, 500))) << round;
    }
  }
}

// The first second behind `now` that shows another value, of a rule whose passes are short.
std::int64_t changeFound(const TempRule& rule, std::int64_t now) {
  for (std::int64_t second = now + 1; second < now + 600; ++second) {
    if (rule.valueAt(second) != rule.valueAt(now)) return second;
  }
  return most;
}

TEST(NextValueChange, isTheFirstSecondOfAnotherValue) {
  Choices choices(13);
  for (int round = 0; round < 5000; ++round) {
    const TempRule rule = choices.rule({"a", "b", "c"}, -60, 120);
    if (!rule.isUsual()) continue;
    for (int i = 0; i < 6; ++i) {
      const std::int64_t now = choices.within(-200, 300);
      ASSERT_EQ(rule.nextValueChange(now), changeFound(rule, now)) << round << ", " << now;
    }
  }
}

// In as many steps as there are states: with their square this would take a quarter of an hour.
TEST(NextValueChange, isSoonFoundBehindManyEqualStates) {
  std::vector<State> states(65535, State{"a", 1});
  for (const bool isRepeated : {false, true}) {
    states.back().text = "a";
    const TempRule even = ruleOf(states, isRepeated, 0);
    states.back().text = "b";
    const TempRule uneven = ruleOf(states, isRepeated, 0);
    for (std::int64_t now = 0; now < 20; ++now) {
      ASSERT_EQ(even.nextValueChange(now), most);
      ASSERT_EQ(uneven.nextValueChange(now), 65534);
    }
  }
}

}  // namespace
}  // namespace velmora
