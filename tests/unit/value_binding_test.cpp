// Binding values to a command: which "?" are places, how each value is written, what is refused,
// and that no value can become more than the one literal that it stands for.

#include "value_binding.h"

#include <gtest/gtest.h>

#include <cfloat>
#include <cmath>
#include <cstring>
#include <limits>
#include <random>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "lexer.h"
#include "number.h"

namespace velmora {
namespace {

velmora_value integer(std::int64_t value) {
  velmora_value bound = {};
  bound.type = VELMORA_INTEGER;
  bound.integer = value;
  return bound;
}

velmora_value real(double value) {
  velmora_value bound = {};
  bound.type = VELMORA_FLOAT;
  bound.real = value;
  return bound;
}

velmora_value boolean(int value) {
  velmora_value bound = {};
  bound.type = VELMORA_BOOL;
  bound.boolean = value;
  return bound;
}

velmora_value text(std::string_view value) {
  velmora_value bound = {};
  bound.type = VELMORA_TEXT;
  bound.text = value.data();
  bound.text_size = value.size();
  return bound;
}

std::string bind(std::string_view command, const std::vector<velmora_value>& values) {
  return bindValues(command, values).text;
}

std::string refusalOf(std::string_view command, const std::vector<velmora_value>& values) {
  try {
    return "bound: " + bind(command, values);
  } catch (const std::runtime_error& error) {
    return error.what();
  }
}

std::string literalOf(const velmora_value& value) { return bind("?", {value}); }
std::string refusalOf(const velmora_value& value) { return refusalOf("?", {value}); }

TEST(BoundValues, TakeThePlacesInOrder) {
  EXPECT_EQ(bind("INSERT INTO t a = ? b = ? c = ? d = ?",
                 {integer(-7), real(2.5), boolean(1), text("x y")}),
            "INSERT INTO t a = -7 b = 2.5 c = true d = 'x y'");
  EXPECT_EQ(bind("SELECT a FROM t", {}), "SELECT a FROM t");
  EXPECT_EQ(bind("", {}), "");
}

TEST(BoundValues, LeaveQuestionMarksInLiteralsAlone) {
  EXPECT_EQ(bind("a = '?' b = \"?'?\" c = ?", {integer(1)}), "a = '?' b = \"?'?\" c = 1");
  EXPECT_EQ(bind("a = ? b = 'not ended ?", {integer(1)}), "a = 1 b = 'not ended ?");
}

TEST(BoundValues, AreNotLookedThroughForPlaces) {
  EXPECT_EQ(bind("a = ? b = ?", {text("?"), text("'?")}), "a = '?' b = \"'?\"");
}

TEST(BoundValues, HaveToBeAsManyAsPlaces) {
  EXPECT_EQ(refusalOf("a = ? b = ?", {integer(1)}), "Command has 2 placeholders for 1 value");
  EXPECT_EQ(refusalOf("a = ?", {}), "Command has 1 placeholder for 0 values");
  EXPECT_EQ(refusalOf("a = '?'", {integer(1)}), "Command has 0 placeholders for 1 value");
  EXPECT_EQ(refusalOf("", {integer(1), integer(2)}), "Command has 0 placeholders for 2 values");
}

TEST(BoundValues, StayApartFromWhatStandsBesideThem) {
  EXPECT_EQ(bind("1?", {integer(5)}), "1 5");
  EXPECT_EQ(bind("?1", {integer(5)}), "5 1");
  EXPECT_EQ(bind("-?", {integer(5)}), "- 5");
  EXPECT_EQ(bind("a?b", {boolean(0)}), "a false b");
  EXPECT_EQ(bind("1.?", {integer(5)}), "1. 5");
  EXPECT_EQ(bind("?.5", {integer(1)}), "1 .5");
  EXPECT_EQ(bind("??", {integer(1), integer(2)}), "1 2");
  EXPECT_EQ(bind("a=?-->?@?s", {integer(1), integer(-2), integer(3)}), "a=1 -->-2@3 s");
}

TEST(BoundValues, WriteTextsInTheQuoteThatTheyDoNotHold) {
  EXPECT_EQ(literalOf(text("plain")), "'plain'");
  EXPECT_EQ(literalOf(text("O'Brien")), "\"O'Brien\"");
  EXPECT_EQ(literalOf(text("5\" nails")), "'5\" nails'");
  EXPECT_EQ(literalOf(text("")), "''");
  EXPECT_EQ(literalOf(text("line\nfeed\tand \xff byte")), "'line\nfeed\tand \xff byte'");
  velmora_value none = {};
  none.type = VELMORA_TEXT;
  EXPECT_EQ(literalOf(none), "''");
}

TEST(BoundValues, RefuseTextsThatTheLanguageCannotCarry) {
  EXPECT_EQ(refusalOf(text("'\"")), "Parameter 1 is a text with both kinds of quotes");
  EXPECT_EQ(refusalOf(text(std::string_view("a\0b", 3))), "Parameter 1 is a text with a NUL");
  EXPECT_EQ(refusalOf(text("x #TIME# 5")), "Parameter 1 is a text with a clock marker and digits");
  EXPECT_EQ(literalOf(text("x #TIME# ")), "'x #TIME# '");
  EXPECT_EQ(literalOf(text("#TIME# 5")), "'#TIME# 5'");
  velmora_value lost = {};
  lost.type = VELMORA_TEXT;
  lost.text_size = 1;
  EXPECT_EQ(refusalOf(lost), "Parameter 1 has no text");
}

TEST(BoundValues, RefusalsNameTheParameter) {
  EXPECT_EQ(refusalOf("a = ? b = '?' c = ?", {integer(1), text("'\"")}),
            "Parameter 2 is a text with both kinds of quotes");
}

TEST(BoundValues, CarryTheIntegersOf32Bits) {
  EXPECT_EQ(literalOf(integer(0)), "0");
  EXPECT_EQ(literalOf(integer(2147483647)), "2147483647");
  EXPECT_EQ(literalOf(integer(-2147483648LL)), "-2147483648");
  EXPECT_EQ(refusalOf(integer(2147483648LL)), "Parameter 1 is an integer outside 32 bits");
  EXPECT_EQ(refusalOf(integer(-2147483649LL)), "Parameter 1 is an integer outside 32 bits");
  EXPECT_EQ(refusalOf(integer(std::numeric_limits<std::int64_t>::min())),
            "Parameter 1 is an integer outside 32 bits");
}

TEST(BoundValues, WriteFloatsAsPlainDecimals) {
  EXPECT_EQ(literalOf(real(0.1)), "0.1");
  EXPECT_EQ(literalOf(real(static_cast<double>(0.1F))), "0.1");
  EXPECT_EQ(literalOf(real(3)), "3");
  EXPECT_EQ(literalOf(real(-0.0)), "-0");
  EXPECT_EQ(literalOf(real(1e10)), "10000000000");
  EXPECT_EQ(literalOf(real(-1e-5)), "-0.00001");
  EXPECT_EQ(literalOf(real(static_cast<double>(FLT_MAX))),
            "340282346638528859811704183484516925440");
}

TEST(BoundValues, TellWhereFloatsStand) {
  const BoundCommand bound =
      bindValues("a=? b = '?' c = ? d=1? e = ?",
                 std::vector<velmora_value>{integer(1), real(-2.5), real(3), text("4.5")});
  EXPECT_EQ(bound.text, "a=1 b = '?' c = -2.5 d=1 3 e = '4.5'");
  ASSERT_EQ(bound.floats.size(), 2U);
  EXPECT_EQ(bound.text.substr(bound.floats[0].offset, 4), "-2.5");
  EXPECT_EQ(bound.floats[0].parameter, 2U);
  EXPECT_EQ(bound.text.substr(bound.floats[1].offset, 2), "3 ");
  EXPECT_EQ(bound.floats[1].parameter, 3U);
}

TEST(BoundValues, RefuseFloatsThatCannotBeReadBack) {
  constexpr const char* notFinite = "Parameter 1 is a float that is not finite";
  constexpr const char* unreadable = "Parameter 1 is a float that the engine cannot read back";
  EXPECT_EQ(refusalOf(real(std::numeric_limits<double>::infinity())), notFinite);
  EXPECT_EQ(refusalOf(real(-std::numeric_limits<double>::infinity())), notFinite);
  EXPECT_EQ(refusalOf(real(std::numeric_limits<double>::quiet_NaN())), notFinite);
  EXPECT_EQ(refusalOf(real(1e39)), unreadable);
  EXPECT_EQ(refusalOf(real(-DBL_MAX)), unreadable);
  EXPECT_EQ(refusalOf(real(1e-40)), unreadable);
  EXPECT_EQ(refusalOf(real(DBL_MIN)), unreadable);
}

TEST(BoundValues, FloatsReadBackAsTheSameNumber) {
  std::mt19937 random(1);
  std::uniform_real_distribution<double> exponent(-37, 38);
  for (int i = 0; i < 20000; ++i) {
    const auto value = static_cast<float>((i % 2 == 0 ? 1 : -1) * std::pow(10.0, exponent(random)));
    const std::string literal = literalOf(real(static_cast<double>(value)));
    EXPECT_EQ(parseFloat(literal), value) << literal;
  }
}

TEST(BoundValues, RefuseUnknownTypes) {
  velmora_value unknown = integer(1);
  const int type = 4;
  std::memcpy(&unknown.type, &type, sizeof type);
  EXPECT_EQ(refusalOf(unknown), "Parameter 1 is of no known type");
}

// Whatever a text holds, the lexer sees the command's own tokens and one literal with that text.
TEST(BoundValues, TextsStayOneLiteral) {
  constexpr std::string_view alphabet = "'\"? #=x5-@()\\\n;";
  std::mt19937 random(2);
  std::uniform_int_distribution<std::size_t> letter(0, alphabet.size() - 1);
  for (int i = 0; i < 20000; ++i) {
    std::string value;
    for (std::size_t left = letter(random); left > 0; --left) value += alphabet[letter(random)];
    std::string command;
    try {
      command = bind("UPDATE t SET a=?WHERE b = 1", {text(value)});
    } catch (const std::runtime_error& error) {
      EXPECT_STREQ(error.what(), "Parameter 1 is a text with both kinds of quotes");
      continue;
    }
    const std::vector<Token> tokens = Lexer(command).tokenize();
    ASSERT_EQ(tokens.size(), 10U) << command;
    EXPECT_EQ(tokens[5].type, TokenType::STRING) << command;
    EXPECT_EQ(tokens[5].value, value) << command;
    EXPECT_EQ(tokens[6].value, "WHERE") << command;
  }
}

}  // namespace
}  // namespace velmora
