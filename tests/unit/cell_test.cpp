// Cells: reading, the order of values by type, and copies that share nothing with their
// original.

#include "cell.h"

#include <gtest/gtest.h>

#include <memory>
#include <set>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "text.h"

namespace velmora {
namespace {

Cell cell(const std::string& value) { return Cell(Text(value)); }

// A cell whose single state lasts for ever.
Cell timedCell(const std::string& value) {
  Cell made = cell("stored");
  made.tempRule = std::make_unique<TempRule>();
  made.tempRule->states.push_back({Text(value), 10});
  return made;
}

struct Ordering {
  std::string type;
  std::string a;
  std::string b;
  bool isLess;
  bool isGreater;
};

class ValueOrder : public testing::TestWithParam<Ordering> {};

TEST_P(ValueOrder, followsTheType) {
  const auto& [type, a, b, isLess, isGreater] = GetParam();
  EXPECT_EQ(comesBefore(valueKind(type), a, b), isLess) << type << ' ' << a << " < " << b;
  EXPECT_EQ(comesBefore(valueKind(type), b, a), isGreater) << type << ' ' << a << " > " << b;
}

INSTANTIATE_TEST_SUITE_P(
    Types, ValueOrder,
    testing::Values(
        Ordering{"int", "10", "9", false, true}, Ordering{"int", "9", "10", true, false},
        Ordering{"int", "5", "05", false, false}, Ordering{"int", "-1", "0", true, false},
        Ordering{"int", " +7x", "7.9", false, false},
        Ordering{"int", "-2147483648", "2147483647", true, false},
        Ordering{"ApexInt", "10", "9", false, true}, Ordering{"ApexInt", "2", "11", true, false},
        Ordering{"float", "10", "9.5", false, true}, Ordering{"float", "1.0", "1", false, false},
        Ordering{"float", "-1e-3", "0", true, false},
        Ordering{"float", "16777216", "16777217", false, false},
        Ordering{"float", "nan", "1", false, false}, Ordering{"bool", "false", "true", true, false},
        Ordering{"bool", "true", "false", false, true},
        Ordering{"bool", "true", "true", false, false},
        Ordering{"bool", "yes", "true", false, false}, Ordering{"bool", "false", "1", false, false},
        Ordering{"bool", "0", "1", false, false}, Ordering{"bool", "FALSE", "true", false, false},
        Ordering{"string", "10", "9", true, false}, Ordering{"string", "9", "10", false, true},
        Ordering{"string", "ab", "abc", true, false}, Ordering{"string", "", "a", true, false},
        Ordering{"string", "Z", "a", true, false}, Ordering{"string", "a", "a", false, false},
        Ordering{"string", "\xff", "a", false, true},
        Ordering{"string", std::string("a\0b", 3), std::string("a\0c", 3), true, false},
        Ordering{"INT", "1", "2", false, false}, Ordering{"", "a", "b", false, false}));

template <typename Error>
std::string failureOf(ValueKind kind, const std::string& a, const std::string& b) {
  try {
    static_cast<void>(comesBefore(kind, a, b));
  } catch (const Error& error) {
    return error.what();
  }
  return "no failure";
}

TEST(ValueOrder, failsWhenANumberDoesNotConvert) {
  EXPECT_EQ(failureOf<std::invalid_argument>(ValueKind::integer, "abc", "1"), "stoi");
  EXPECT_EQ(failureOf<std::invalid_argument>(ValueKind::integer, "1", "abc"), "stoi");
  EXPECT_EQ(failureOf<std::invalid_argument>(ValueKind::integer, "", "1"), "stoi");
  EXPECT_EQ(failureOf<std::out_of_range>(ValueKind::integer, "2147483648", "1"), "stoi");
  EXPECT_EQ(failureOf<std::out_of_range>(ValueKind::integer, "1", "-2147483649"), "stoi");
  EXPECT_EQ(failureOf<std::invalid_argument>(ValueKind::real, "abc", "1"), "stof");
  EXPECT_EQ(failureOf<std::out_of_range>(ValueKind::real, "1e39", "1"), "stof");
  EXPECT_EQ(failureOf<std::invalid_argument>(ValueKind::real, "#/#?", "1"), "stof");
}

TEST(Cell, readsItsTextOrItsCurrentState) {
  EXPECT_EQ(cell("x").valueAt(0), "x");
  EXPECT_EQ(cell("").valueAt(0), "");
  EXPECT_EQ(timedCell("state").valueAt(0), "state");
  EXPECT_EQ(Cell().valueAt(0), "");
}

TEST(Cell, withARuleWithoutStatesFailsOnEveryRead) {
  Cell empty = cell("x");
  empty.tempRule = std::make_unique<TempRule>();
  EXPECT_THROW(static_cast<void>(empty.valueAt(0)), std::out_of_range);
}

Cell fullCell() {
  Cell made = cell("a text that is too long for sixteen bytes");
  made.tempRule = std::make_unique<TempRule>();
  made.tempRule->states = {{Text("first"), 10}, {Text("a second state with a long text"), 20}};
  made.tempRule->startTime = 1000;
  made.tempRule->cycleLength = 30;
  made.tempRule->repeat = true;
  return made;
}

void expectFull(const Cell& actual) {
  EXPECT_EQ(actual.value.view(), "a text that is too long for sixteen bytes");
  ASSERT_NE(actual.tempRule, nullptr);
  const TempRule& rule = *actual.tempRule;
  ASSERT_EQ(rule.states.size(), 2U);
  EXPECT_EQ(rule.states[0].value.view(), "first");
  EXPECT_EQ(rule.states[0].duration, 10);
  EXPECT_EQ(rule.states[1].value.view(), "a second state with a long text");
  EXPECT_EQ(rule.states[1].duration, 20);
  EXPECT_EQ(rule.startTime, 1000);
  EXPECT_EQ(rule.cycleLength, 30);
  EXPECT_TRUE(rule.repeat);
}

void change(Cell& victim) {
  victim.value = Text("changed");
  victim.tempRule->states[1].value = Text("changed");
  victim.tempRule->states.pop_back();
  victim.tempRule->startTime = 5;
}

TEST(CellCopy, isDeepWhenConstructed) {
  Cell original = fullCell();
  const Cell copy(original);
  EXPECT_NE(copy.tempRule, original.tempRule);
  change(original);
  expectFull(copy);
}

TEST(CellCopy, isDeepWhenAssigned) {
  Cell original = fullCell();
  Cell plain = cell("5");
  plain = original;
  Cell timed = timedCell("5");
  timed = original;
  change(original);
  expectFull(plain);
  expectFull(timed);
}

TEST(CellCopy, ofAPlainCellEndsTheTargetsRule) {
  Cell timed = fullCell();
  timed = cell("5");
  EXPECT_EQ(timed.tempRule, nullptr);
  EXPECT_EQ(timed.valueAt(0), "5");
}

TEST(CellCopy, ofItselfChangesNothing) {
  Cell one = fullCell();
  const Cell& same = one;
  one = same;
  expectFull(one);
}

TEST(CellCopy, outlivesItsOriginal) {
  auto original = std::make_unique<Cell>(fullCell());
  const Cell copy = *original;
  original.reset();
  expectFull(copy);
}

TEST(CellMove, takesEverythingAndCannotThrow) {
  static_assert(std::is_nothrow_move_constructible_v<Cell>);
  static_assert(std::is_nothrow_move_assignable_v<Cell>);
  Cell original = fullCell();
  Cell moved(std::move(original));
  expectFull(moved);
  Cell assigned = timedCell("5");
  assigned = std::move(moved);
  expectFull(assigned);
}

// The texts a foreign key has to find.
TEST(KeyTexts, areTheOnesThatCanStillBeShown) {
  TempRule timed;
  const auto keyTexts = [](const TempRule& from, std::int64_t now) {
    std::vector<std::string> texts;
    from.forEachComingText(now, [&](std::string_view text) { texts.emplace_back(text); });
    return texts;
  };
  using Texts = std::vector<std::string>;
  EXPECT_EQ(keyTexts(timed, 0), Texts());
  timed.states = {{Text("1"), 10}, {Text("2"), 10}, {Text("3"), 10}};
  timed.cycleLength = 30;
  EXPECT_EQ(keyTexts(timed, -5), (Texts{"1", "2", "3"}));
  EXPECT_EQ(keyTexts(timed, 9), (Texts{"1", "2", "3"}));
  EXPECT_EQ(keyTexts(timed, 10), (Texts{"2", "3"}));
  EXPECT_EQ(keyTexts(timed, 29), (Texts{"3"}));
  EXPECT_EQ(keyTexts(timed, 1000), (Texts{"3"}));
  timed.repeat = true;
  EXPECT_EQ(keyTexts(timed, 29), (Texts{"1", "2", "3"}));
}

TEST(ValueKinds, areFoundByExactTypeName) {
  EXPECT_EQ(valueKind("int"), ValueKind::integer);
  EXPECT_EQ(valueKind("ApexInt"), ValueKind::integer);
  EXPECT_EQ(valueKind("float"), ValueKind::real);
  EXPECT_EQ(valueKind("bool"), ValueKind::boolean);
  EXPECT_EQ(valueKind("string"), ValueKind::text);
  for (const char* const name : {"", "Int", "apexint", "text", "int "}) {
    EXPECT_EQ(valueKind(name), ValueKind::unknown) << name;
  }
  EXPECT_EQ(std::set<std::string_view>(typeNames.begin(), typeNames.end()),
            (std::set<std::string_view>{"int", "float", "bool", "string", "ApexInt"}));
}

TEST(BoolTexts, countAsTrueInTwoSpellings) {
  EXPECT_TRUE(isTrueText("true"));
  EXPECT_TRUE(isTrueText("1"));
  for (const char* const text : {"false", "0", "yes", "TRUE", "True", "", "11", "true "}) {
    EXPECT_FALSE(isTrueText(text)) << text;
  }
}

// Texts inside the object and on the heap, at the sizes where one becomes the other.
TEST(Texts, copyMoveAndAssignAtEverySize) {
  for (std::size_t size = 0; size < 40; ++size) {
    std::string bytes;
    while (bytes.size() < size) bytes += static_cast<char>('a' + bytes.size() % 26);
    if (size > 3) bytes[2] = '\0';
    const Text text(bytes);
    EXPECT_EQ(text.view(), bytes);
    Text copy(text);
    EXPECT_EQ(copy, text);
    const Text moved(std::move(copy));
    EXPECT_EQ(moved.view(), bytes);
    for (const std::size_t other : {std::size_t{0}, std::size_t{15}, std::size_t{16}}) {
      Text target(std::string(other, 'z'));
      target = text;
      EXPECT_EQ(target.view(), bytes);
      target = std::string_view(target.view()).substr(size / 2);
      EXPECT_EQ(target.view(), bytes.substr(size / 2));
      const Text& same = target;
      target = same;
      EXPECT_EQ(target.view(), bytes.substr(size / 2));
    }
  }
}

}  // namespace
}  // namespace velmora
