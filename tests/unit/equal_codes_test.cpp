// Different texts with one code: a column keeps a byte for each text, a join a number, and both
// have to tell apart what these do not.

#include <algorithm>
#include <functional>

#include "engine_fixture.h"
#include "rows.h"
#include "text.h"

namespace velmora {
namespace {

struct TextPair {
  std::string one;
  std::string other;
};

// Found by trying: texts that lie inside a cell, and longer ones. The codes of joins are hashes by
// the standard library; were it another one, such pairs would have to be looked for again.
const TextPair pairOfShortTexts = {"name003148", "name205040"};
const TextPair pairOfLongTexts = {"a longer name, number 003049", "a longer name, number 013579"};

std::int32_t joinCode(const std::string& text) {
  return static_cast<std::int32_t>(std::hash<std::string_view>()(text));
}

// A text and another one with the same fingerprint, which a column keeps.
TextPair pairLike(const std::string& text) {
  for (int i = 0;; ++i) {
    const std::string other = text + std::to_string(i);
    if (Text(other).fingerprint() == Text(text).fingerprint()) return {text, other};
  }
}

TEST(CodesOfTexts, AreEqualForThesePairs) {
  for (const auto& [one, other] : {pairOfShortTexts, pairOfLongTexts}) {
    EXPECT_NE(one, other);
    EXPECT_EQ(joinCode(one), joinCode(other)) << one;
  }
  EXPECT_NE(joinCode(pairOfShortTexts.one), joinCode(pairOfLongTexts.one));
}

// A number that is the code of a text which is no number in its shortest form.
std::string numberLike(const std::string& text) { return std::to_string(joinCode(text)); }

class EqualCodes : public EngineTest {
 protected:
  // Fills a table with some hundred rows; `values` then stand in the rows 100, 200, ... Every row
  // has its number in n.
  static void fill(const std::string& table, const std::string& type, const std::string& filler,
                   const Texts& values) {
    run("CREATE TABLE " + table + " n int v " + type);
    for (int i = 0; i < 800; ++i) {
      const auto place = static_cast<std::size_t>(i / 100);
      const bool isValue = i % 100 == 0 && place > 0 && place <= values.size();
      run("INSERT INTO " + table + " n = " + std::to_string(i) +
          " v = " + (isValue ? values[place - 1] : filler));
    }
  }

  static Texts numbersWhere(const std::string& filter) {
    return rows("SELECT n FROM t WHERE " + filter);
  }
  // Both filters by equality: exactly these rows, and all others.
  static void expectEqualRows(const std::string& literal, const Texts& expected) {
    EXPECT_EQ(numbersWhere("v = " + literal), expected) << literal;
    const Texts others = numbersWhere("v != " + literal);
    EXPECT_EQ(others.size() + expected.size(), rows("SELECT n FROM t").size()) << literal;
    for (const std::string& number : expected) {
      EXPECT_EQ(std::count(others.begin(), others.end(), number), 0) << literal;
    }
  }
};

std::string quoted(const std::string& text) { return '\'' + text + '\''; }

TEST_F(EqualCodes, FiltersTellTextsApart) {
  for (const auto& [one, other] : {pairLike("name"), pairLike("a longer name, number 3")}) {
    fill("t", "string", "'filler'", {quoted(one), quoted(other), quoted(one)});
    expectEqualRows(quoted(one), {"100", "300"});
    expectEqualRows(quoted(other), {"200"});
    EXPECT_EQ(numbersWhere("v = " + quoted(one) + " && n > 100"), Texts{"300"});
    EXPECT_EQ(numbersWhere("n < 300 && v != 'filler' && v != " + quoted(one)), Texts{"200"});
    EXPECT_EQ(numbersWhere("v = " + quoted(one) + " || v = " + quoted(other)),
              (Texts{"100", "200", "300"}));
    run("UPDATE t SET v = " + quoted(other) + " WHERE n = 100");
    expectEqualRows(quoted(one), {"300"});
    expectEqualRows(quoted(other), {"100", "200"});
    run("DROP TABLE t");
  }
}

TEST_F(EqualCodes, FiltersFindNoneOfATextThatIsNotThere) {
  const TextPair pair = pairLike("name");
  fill("t", "string", "'filler'", {quoted(pair.one)});
  expectEqualRows(quoted(pair.other), {});
}

// Equality is of texts: one float may be spelled in many ways, and two texts may be one float.
TEST_F(EqualCodes, FiltersTellFloatsApart) {
  fill("t", "float", "1.5", {"16777216", "16777217", "1.50", "01.5", "16777216.0"});
  expectEqualRows("16777216", {"100"});
  expectEqualRows("16777217", {"200"});
  expectEqualRows("1.50", {"300"});
  expectEqualRows("01.5", {"400"});
  expectEqualRows("16777216.0", {"500"});
  expectEqualRows("1.500", {});
  EXPECT_EQ(numbersWhere("v > 1.5"), (Texts{"100", "200", "500"}));
}

TEST_F(EqualCodes, FiltersTellNumbersFromTextsThatAreNone) {
  fill("t", "int", "1", {"007", "0", "7"});
  expectEqualRows("007", {"100"});
  expectEqualRows("0", {"200"});
  expectEqualRows("7", {"300"});
  EXPECT_EQ(numbersWhere("v >= 2 && v <= 9"), (Texts{"100", "300"}));
  // What stands in a column of numbers for a text that is none matters to no order, either.
  EXPECT_EQ(numbersWhere("v < 1"), Texts{"200"});
}

TEST_F(EqualCodes, JoinsTellTextsApart) {
  for (const bool isLarge : {true, false}) {
    for (const auto& [one, other] : {pairOfShortTexts, pairOfLongTexts}) {
      fill("t", "string", "'left'", {quoted(one), quoted(other), quoted(one)});
      run("CREATE TABLE u m int v string");
      run("INSERT INTO u m = 1 v = " + quoted(one));
      run("INSERT INTO u m = 2 v = " + quoted(other));
      for (int i = 3; isLarge && i < 600; ++i) {
        run("INSERT INTO u m = " + std::to_string(i) + " v = 'right'");
      }
      const Texts pairs = {"100 1", "200 2", "300 1"};
      EXPECT_EQ(rows("SELECT n, m FROM t JOIN u ON t.v = u.v"), pairs);
      EXPECT_EQ(rows("SELECT n, m FROM u JOIN t ON t.v = u.v"), (Texts{"100 1", "300 1", "200 2"}));
      run("DELETE FROM u WHERE m = 1");
      EXPECT_EQ(rows("SELECT n, m FROM t JOIN u ON t.v = u.v"), Texts{"200 2"});
      run("DROP TABLE t");
      run("DROP TABLE u");
    }
  }
}

TEST_F(EqualCodes, JoinsTellNumbersFromTextsThatAreNone) {
  const std::string number = numberLike("007");
  fill("t", "int", "1", {"007", number, "7"});
  for (const int others : {0, 600}) {
    run("CREATE TABLE u m int v int");
    run("INSERT INTO u m = 1 v = " + number);
    run("INSERT INTO u m = 2 v = 007");
    run("INSERT INTO u m = 3 v = 7");
    for (int i = 0; i < others; ++i) run("INSERT INTO u m = 4 v = 2");
    EXPECT_EQ(rows("SELECT n, m FROM t JOIN u ON t.v = u.v"), (Texts{"100 2", "200 1", "300 3"}));
    EXPECT_EQ(rows("SELECT n, m FROM u JOIN t ON t.v = u.v"), (Texts{"200 1", "100 2", "300 3"}));
    run("DROP TABLE u");
  }
}

// Numbers on one side and texts on the other: equal when their texts are.
TEST_F(EqualCodes, JoinsOfNumbersAndTextsCompareTexts) {
  fill("t", "int", "1", {"007", numberLike("007"), "7"});
  fill("u", "string", "'x'", {"'7'", "'007'", quoted(pairOfShortTexts.one), "'7'"});
  EXPECT_EQ(rows("SELECT t.n, u.n FROM t JOIN u ON t.v = u.v"),
            (Texts{"100 200", "300 100", "300 400"}));
  EXPECT_EQ(rows("SELECT t.n, u.n FROM u JOIN t ON t.v = u.v"),
            (Texts{"300 100", "100 200", "300 400"}));
}

// Different numbers that the join keeps in one bucket: squares meet there, small numbers in a row
// do not.
TEST_F(EqualCodes, JoinsTellSpreadNumbersApart) {
  constexpr int factor = 1999;
  constexpr int count = 900;
  for (const char* const table : {"t", "u"}) run(std::string("CREATE TABLE ") + table + " v int");
  Texts shared;
  for (int i = 0; i < count; ++i) {
    const std::string number = std::to_string(factor * i * i);
    if (i % 3 != 0) run("INSERT INTO t v = " + number);
    if (i % 3 != 1) run("INSERT INTO u v = " + number);
    if (i % 3 == 2) shared.push_back(number + ' ' + number);
  }
  EXPECT_EQ(rows("SELECT t.v, u.v FROM t JOIN u ON t.v = u.v"), shared);
  EXPECT_EQ(rows("SELECT t.v, u.v FROM u JOIN t ON t.v = u.v"), shared);
}

// The limit of an order that admits equality: equal numbers may be unequal texts.
TEST_F(EqualCodes, LimitsAreEqualByTheirTexts) {
  fill("t", "int", "9", {"007", "7", "6", "8"});
  EXPECT_EQ(numbersWhere("v <= 7"), (Texts{"200", "300"}));
  EXPECT_EQ(numbersWhere("v <= 007"), (Texts{"100", "300"}));
  EXPECT_EQ(numbersWhere("v >= 7 && v < 9"), (Texts{"200", "400"}));
  EXPECT_EQ(numbersWhere("v >= 007 && v < 9"), (Texts{"100", "400"}));
  EXPECT_EQ(numbersWhere("v < 007"), Texts{"300"});
  run("DROP TABLE t");
  fill("t", "float", "9.5", {"7.50", "7.5", "6.5", "8.5"});
  EXPECT_EQ(numbersWhere("v <= 7.5"), (Texts{"200", "300"}));
  EXPECT_EQ(numbersWhere("v <= 7.50"), (Texts{"100", "300"}));
  EXPECT_EQ(numbersWhere("v >= 7.5 && v < 9"), (Texts{"200", "400"}));
  EXPECT_EQ(numbersWhere("v >= 7.500 && v < 9"), Texts{"400"});
  EXPECT_EQ(numbersWhere("v > 7.50 && v < 9"), Texts{"400"});
}

// A literal that is no number of its column's kind fails in a large table as in a small one.
TEST_F(EqualCodes, LimitsThatDoNotConvertFail) {
  run("CREATE TABLE few v int w float");
  run("INSERT INTO few v = 1 w = 1.5");
  run("CREATE TABLE t v int w float");
  for (std::size_t i = 0; i <= Rows::chunkRows; ++i) run("INSERT INTO t v = 1 w = 1.5");
  const auto thrownBy = [](const std::string& command) -> std::string {
    try {
      return answer(command);
    } catch (const std::logic_error& error) {
      return error.what();
    }
  };
  for (const char* const table : {"few", "t"}) {
    const std::string read = std::string("SELECT v FROM ") + table + " WHERE ";
    EXPECT_EQ(thrownBy(read + "v < 99999999999"), "stoi");
    EXPECT_EQ(thrownBy(read + "v >= 'x'"), "stoi");
    EXPECT_EQ(thrownBy(read + "w > 'x'"), "stof");
    EXPECT_EQ(thrownBy(read + "w <= 'x'"), "stof");
  }
  EXPECT_EQ(rows("SELECT v FROM t WHERE v = 99999999999"), Texts());
  EXPECT_EQ(rows("SELECT v FROM t WHERE w != 'x' && v > 1"), Texts());
}

}  // namespace
}  // namespace velmora
