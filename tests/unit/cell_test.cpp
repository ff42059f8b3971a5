// Cells: reading, comparing by the column's type, and copies that share nothing with their
// original.

#include "cell.h"

#include <gtest/gtest.h>

#include <memory>
#include <set>
#include <stdexcept>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "clock.h"
#include "text.h"

namespace velmora {
namespace {

Cell cell(const std::string& type, const std::string& value, const std::string& name = "c") {
  return {Text(value), ColumnHeading(name, type)};
}

// A cell whose single state lasts for ever.
Cell timedCell(const std::string& type, const std::string& value) {
  Cell made = cell(type, "stored");
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

class CellOrder : public testing::TestWithParam<Ordering> {};

TEST_P(CellOrder, followsTheLeftCellsType) {
  const auto& [type, a, b, isLess, isGreater] = GetParam();
  // The right cell's type is not looked at.
  for (const char* const other : {"int", "float", "bool", "string", "nothing"}) {
    EXPECT_EQ(cell(type, a) < cell(other, b), isLess) << type << ' ' << a << " < " << b;
    EXPECT_EQ(cell(type, a) > cell(other, b), isGreater) << type << ' ' << a << " > " << b;
  }
  // A timed cell orders by its current state.
  EXPECT_EQ(timedCell(type, a) < timedCell(type, b), isLess);
  EXPECT_EQ(timedCell(type, a) > cell(type, b), isGreater);
}

INSTANTIATE_TEST_SUITE_P(
    Types, CellOrder,
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
std::string failureOf(const Cell& a, const Cell& b) {
  try {
    static_cast<void>(a < b);
  } catch (const Error& error) {
    return error.what();
  }
  return "no failure";
}

TEST(CellOrder, failsWhenANumberDoesNotConvert) {
  const Cell one = cell("int", "1");
  EXPECT_EQ(failureOf<std::invalid_argument>(cell("int", "abc"), one), "stoi");
  EXPECT_EQ(failureOf<std::invalid_argument>(one, cell("string", "abc")), "stoi");
  EXPECT_EQ(failureOf<std::invalid_argument>(cell("ApexInt", ""), one), "stoi");
  EXPECT_EQ(failureOf<std::out_of_range>(cell("int", "2147483648"), one), "stoi");
  EXPECT_EQ(failureOf<std::out_of_range>(one, cell("int", "-2147483649")), "stoi");
  EXPECT_EQ(failureOf<std::invalid_argument>(cell("float", "abc"), one), "stof");
  EXPECT_EQ(failureOf<std::out_of_range>(cell("float", "1e39"), one), "stof");
  EXPECT_EQ(failureOf<std::invalid_argument>(cell("float", "#/#?"), one), "stof");
  EXPECT_THROW(static_cast<void>(cell("int", "abc") > one), std::invalid_argument);
}

TEST(CellEquality, isOfColumnNameAndText) {
  EXPECT_TRUE(cell("int", "5") == cell("int", "5"));
  EXPECT_FALSE(cell("int", "5") == cell("int", "05"));
  EXPECT_FALSE(cell("float", "1.0") == cell("float", "1"));
  EXPECT_FALSE(cell("int", "5", "a") == cell("int", "5", "b"));
  EXPECT_FALSE(cell("int", "5", "a") == cell("int", "5", "A"));
  EXPECT_TRUE(cell("int", "5") == cell("string", "5"));
  EXPECT_TRUE(timedCell("int", "5") == cell("int", "5"));
  EXPECT_FALSE(timedCell("int", "5") == cell("int", "stored"));
  EXPECT_TRUE(cell("int", "abc") == cell("int", "abc"));
}

TEST(Cell, readsItsTextOrItsCurrentState) {
  EXPECT_EQ(cell("string", "x").getVal(), "x");
  EXPECT_EQ(cell("string", "").getVal(), "");
  EXPECT_EQ(timedCell("string", "state").getVal(), "state");
  EXPECT_EQ(Cell().getVal(), "");
  EXPECT_EQ(Cell().columnName(), "");
  EXPECT_EQ(Cell().type(), "");
}

TEST(Cell, withARuleWithoutStatesFailsOnEveryRead) {
  Cell empty = cell("string", "x");
  empty.tempRule = std::make_unique<TempRule>();
  EXPECT_THROW(empty.getVal(), std::out_of_range);
  EXPECT_THROW(static_cast<void>(empty == empty), std::out_of_range);
  EXPECT_EQ(empty.tempRule->currentIndex, 0);
}

Cell fullCell() {
  Cell made = cell("string", "a text that is too long for sixteen bytes", "column");
  made.tag = -7;
  made.tempRule = std::make_unique<TempRule>();
  made.tempRule->states = {{Text("first"), 10}, {Text("a second state with a long text"), 20}};
  made.tempRule->startTime = 1000;
  made.tempRule->cycleLength = 30;
  made.tempRule->repeat = true;
  made.tempRule->currentIndex = 1;
  return made;
}

void expectFull(const Cell& actual) {
  EXPECT_EQ(actual.value.view(), "a text that is too long for sixteen bytes");
  EXPECT_EQ(actual.columnName(), "column");
  EXPECT_EQ(actual.type(), "string");
  EXPECT_EQ(actual.tag, -7);
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
  EXPECT_EQ(rule.currentIndex, 1);
}

void change(Cell& victim) {
  victim.value = Text("changed");
  victim.tag = 1;
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
  Cell plain = cell("int", "5");
  plain = original;
  Cell timed = timedCell("int", "5");
  timed = original;
  change(original);
  expectFull(plain);
  expectFull(timed);
}

TEST(CellCopy, ofAPlainCellEndsTheTargetsRule) {
  Cell timed = fullCell();
  timed = cell("int", "5");
  EXPECT_EQ(timed.tempRule, nullptr);
  EXPECT_EQ(timed.getVal(), "5");
  EXPECT_EQ(timed.type(), "int");
  EXPECT_EQ(timed.tag, 0);
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
  Cell assigned = timedCell("int", "5");
  assigned = std::move(moved);
  expectFull(assigned);
}

// The texts a foreign key has to find.
TEST(KeyTexts, areTheOnesThatCanStillBeShown) {
  const auto keyTexts = [](const Cell& from, std::int64_t now) {
    std::vector<std::string> texts;
    forEachKeyText(from, now, [&](std::string_view text) { texts.emplace_back(text); });
    return texts;
  };
  using Texts = std::vector<std::string>;
  EXPECT_EQ(keyTexts(cell("int", "5"), 0), Texts{"5"});
  Cell timed = cell("int", "5");
  timed.tempRule = std::make_unique<TempRule>();
  timed.tempRule->states = {{Text("1"), 10}, {Text("2"), 10}, {Text("3"), 10}};
  timed.tempRule->cycleLength = 30;
  EXPECT_EQ(keyTexts(timed, -5), (Texts{"1", "2", "3"}));
  EXPECT_EQ(keyTexts(timed, 9), (Texts{"1", "2", "3"}));
  EXPECT_EQ(keyTexts(timed, 10), (Texts{"2", "3"}));
  EXPECT_EQ(keyTexts(timed, 29), (Texts{"3"}));
  EXPECT_EQ(keyTexts(timed, 1000), (Texts{"3"}));
  timed.tempRule->repeat = true;
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

TEST(ColumnHeadings, areSharedByNameAndType) {
  const ColumnHeading a("name", "int");
  EXPECT_EQ(a, ColumnHeading("name", "int"));
  EXPECT_NE(a, ColumnHeading("name", "string"));
  EXPECT_NE(a, ColumnHeading("Name", "int"));
  EXPECT_EQ(a.name(), "name");
  EXPECT_EQ(a.type(), "int");
  EXPECT_EQ(ColumnHeading(), ColumnHeading("", ""));
}

TEST(ColumnHeadings, areFoundByManyThreadsAtOnce) {
  constexpr int threadCount = 4;
  constexpr int nameCount = 3000;
  std::vector<std::vector<ColumnHeading>> found(threadCount);
  std::vector<std::thread> threads;
  for (std::vector<ColumnHeading>& mine : found) {
    threads.emplace_back([&mine] {
      for (int i = 0; i < nameCount; ++i) mine.emplace_back("many" + std::to_string(i), "int");
    });
  }
  for (std::thread& thread : threads) thread.join();
  for (int i = 0; i < nameCount; ++i) {
    const auto index = static_cast<std::size_t>(i);
    EXPECT_EQ(found[0][index].name(), "many" + std::to_string(i));
    for (const std::vector<ColumnHeading>& other : found) EXPECT_EQ(other[index], found[0][index]);
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
