// Rhythms: what the groups say of timed values at a second, and of when the next one changes, is
// what their rules say one by one.

#include "rhythm.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <map>
#include <set>
#include <string>
#include <vector>

#include "column_fixture.h"

namespace velmora {
namespace {

Rhythm rhythmOf(const TempRule& rule) {
  Course course;
  EXPECT_TRUE(course.take(rule));
  return course.rhythm;
}

TEST(Rhythms, areThoseOfTheTextsAndNotOfTheStates) {
  const Rhythm rhythm = rhythmOf(ruleOf({{"a", 5}, {"b", 10}}, true, 100));
  EXPECT_EQ(rhythm, rhythmOf(ruleOf({{"x", 5}, {"y", 10}}, true, -7)));
  EXPECT_EQ(rhythm, rhythmOf(ruleOf({{"a", 2}, {"a", 3}, {"c", 0}, {"b", 10}}, true, 0)));
  EXPECT_EQ(rhythm, rhythmOf(ruleOf({{"a", 1}, {"b", 10}, {"a", 4}}, true, 0)));
  EXPECT_NE(rhythm, rhythmOf(ruleOf({{"a", 5}, {"b", 10}}, false, 100)));
  EXPECT_NE(rhythm, rhythmOf(ruleOf({{"a", 5}, {"b", 11}}, true, 100)));
  // How long the first state lasts is told by when it changes.
  EXPECT_EQ(rhythmOf(ruleOf({{"a", 5}, {"b", 10}}, false, 0)),
            rhythmOf(ruleOf({{"a", 700}, {"b", 8}}, false, 0)));
  EXPECT_EQ(rhythmOf(ruleOf({{"a", 5}, {"a", 10}}, true, 0)), Rhythm());
}

TEST(Rhythms, areNoneOfRulesThatAreNotUsual) {
  Course course;
  EXPECT_FALSE(course.take(TempRule()));
  EXPECT_FALSE(course.take(ruleOf({{"a", -1}, {"b", 10}}, false, 0)));
  EXPECT_FALSE(course.take(ruleOf({{"a", 1}, {"b", 1}}, false, std::int64_t{1} << 60)));
  EXPECT_FALSE(course.take(ruleOf({{"a", 0}, {"b", 10}}, true, 0)));
}

// Rules in a group, and a skipped one among them.
struct Grouped {
  std::vector<TempRule> rules;
  RhythmGroup group;
  std::size_t skipped;
};

// Those of the rule's rhythm that begin at other seconds.
Grouped grouped(Choices& choices, const TempRule& model, std::int64_t range) {
  Course course;
  EXPECT_TRUE(course.take(model));
  Grouped made{{}, RhythmGroup(course.rhythm), 0};
  const std::int64_t most = choices.oneIn(40) ? 600 : 20;
  for (std::int64_t i = choices.within(0, most); i >= 0; --i) {
    TempRule rule = model;
    rule.startTime = choices.within(-range, range);
    EXPECT_TRUE(course.take(rule));
    made.group.add(static_cast<std::uint16_t>(made.rules.size()), course.firstChange);
    made.rules.push_back(rule);
  }
  made.group.sort();
  made.skipped = static_cast<std::size_t>(choices.within(0, 20));
  return made;
}

void checkAt(const Grouped& made, std::int64_t now) {
  std::set<std::size_t> seen;
  const auto isSkipped = [&](std::size_t place) { return place == made.skipped; };
  std::int64_t told = RhythmGroup::never;
  made.group.forEachRun(now, [&](std::size_t state, std::size_t first, std::size_t last) {
    for (std::size_t i = first; i < last; ++i) {
      const std::size_t place = made.group.places()[i];
      const TempRule& rule = made.rules[place];
      Course course;
      ASSERT_TRUE(course.take(rule));
      ASSERT_EQ(rule.states[course.states[state]].value, rule.valueAt(now)) << now;
      ASSERT_TRUE(seen.insert(place).second);
    }
    told = std::min(told, made.group.nextOfRun(now, state, first, last, isSkipped));
  });
  ASSERT_EQ(seen.size(), made.rules.size());
  std::int64_t next = RhythmGroup::never;
  for (std::size_t place = 0; place < made.rules.size(); ++place) {
    if (place != made.skipped) next = std::min(next, made.rules[place].nextValueChange(now));
  }
  ASSERT_EQ(told, next) << now;
}

TEST(Rhythms, tellWhatTheRulesTellOneByOne) {
  Choices choices(7);
  for (int round = 0; round < 4000; ++round) {
    const TempRule model = choices.rule(Texts{"a", "b", "c"}, 0, 0);
    Course course;
    if (!course.take(model)) continue;
    const Grouped made = grouped(choices, model, 60);
    for (int i = 0; i < 30; ++i) {
      ASSERT_NO_FATAL_FAILURE(checkAt(made, choices.within(-120, 200))) << round;
    }
  }
}

// The states of the places at a second, or of those that have changed since one before.
std::map<std::uint16_t, std::size_t> statesAt(const RhythmGroup& group, std::int64_t now) {
  std::map<std::uint16_t, std::size_t> states;
  group.forEachRun(now, [&](std::size_t state, std::size_t first, std::size_t last) {
    for (std::size_t i = first; i < last; ++i) states.emplace(group.places()[i], state);
  });
  return states;
}
std::map<std::uint16_t, std::size_t> changes(const RhythmGroup& group, std::int64_t before,
                                             std::int64_t now) {
  std::map<std::uint16_t, std::size_t> states;
  group.forEachChange(before, now, [&](std::size_t state, std::size_t first, std::size_t last) {
    for (std::size_t i = first; i < last; ++i) {
      EXPECT_TRUE(states.emplace(group.places()[i], state).second);
    }
  });
  return states;
}

TEST(Rhythms, tellWhichHaveChangedBetweenTwoSeconds) {
  Choices choices(9);
  for (int round = 0; round < 1000; ++round) {
    const TempRule model = choices.rule(Texts{"a", "b", "c"}, 0, 0);
    Course course;
    if (!course.take(model)) continue;
    const Grouped made = grouped(choices, model, 60);
    for (int i = 0; i < 10; ++i) {
      const std::int64_t before = choices.within(-120, 200);
      const std::int64_t now = choices.oneIn(2) ? before + choices.within(0, 5)  // mostly so
                                                : choices.within(-120, 200);
      const auto old = statesAt(made.group, before);
      auto expected = statesAt(made.group, now);
      std::erase_if(expected, [&](const auto& each) { return old.at(each.first) == each.second; });
      ASSERT_EQ(changes(made.group, before, now), expected) << before << ' ' << now;
    }
  }
}

TEST(Rhythms, tellItOfLongStatesAndFarSeconds) {
  constexpr std::int64_t longest = std::int64_t{1} << 40;
  constexpr std::int64_t farthest = std::int64_t{1} << 59;
  Choices choices(8);
  for (int round = 0; round < 2000; ++round) {
    std::vector<State> states;
    for (std::int64_t i = choices.within(1, 5); i > 0; --i) {
      states.push_back({choices.of(Texts{"a", "b", "c"}), choices.within(1, longest)});
    }
    const TempRule model = ruleOf(states, choices.oneIn(2), 0);
    const Grouped made = grouped(choices, model, choices.oneIn(2) ? farthest : longest);
    for (int i = 0; i < 10; ++i) {
      ASSERT_NO_FATAL_FAILURE(checkAt(made, choices.within(-farthest, farthest))) << round;
      ASSERT_NO_FATAL_FAILURE(checkAt(made, choices.within(-longest, longest))) << round;
      const TempRule& rule = made.rules.front();
      const std::int64_t change = rule.nextValueChange(choices.within(0, longest));
      if (change == RhythmGroup::never) continue;
      ASSERT_NO_FATAL_FAILURE(checkAt(made, change - 1)) << round;
      ASSERT_NO_FATAL_FAILURE(checkAt(made, change)) << round;
    }
    for (const std::int64_t end : {-farthest, std::int64_t{0}, farthest}) {
      ASSERT_NO_FATAL_FAILURE(checkAt(made, end)) << round;
    }
  }
}

}  // namespace
}  // namespace velmora
