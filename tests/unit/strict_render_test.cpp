// Values as literals: their exact texts. And that any command's text is read again as that command
// when its clock has been left out.

#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <limits>
#include <random>
#include <string>
#include <vector>

#include "failure.h"
#include "strict/parser.h"
#include "strict/render.h"
#include "strict_description.h"

namespace velmora::strict {
namespace {

TEST(StrictLiteral, isTheShortestThatReadsBack) {
  EXPECT_EQ(literal(Value()), "NULL");
  EXPECT_EQ(literal(true), "true");
  EXPECT_EQ(literal(false), "false");
  EXPECT_EQ(literal(std::int64_t{-5}), "-5");
  EXPECT_EQ(literal(std::numeric_limits<std::int64_t>::min()), "-9223372036854775808");
  EXPECT_EQ(literal(5.0), "5.0");
  EXPECT_EQ(literal(-0.0), "-0.0");
  EXPECT_EQ(literal(0.1), "0.1");
  EXPECT_EQ(literal(1e300), "1e+300");
  EXPECT_EQ(literal(5e-324), "5e-324");
  EXPECT_EQ(literal(123456789012345680.0), "123456789012345680.0");
  EXPECT_EQ(literal(std::string("it's \"here\"\n")), "'it''s \"here\"\n'");
  EXPECT_EQ(literal(std::string()), "''");
}

class Generator {
 public:
  explicit Generator(unsigned seed) : random_(seed) {}

  std::size_t below(std::size_t limit) { return random_() % limit; }

  Value value() {
    switch (below(6)) {
      case 0:
        return {};
      case 1:
        return below(2) == 0;
      case 2:
        return static_cast<std::int64_t>(random_());
      case 3:
        return static_cast<std::int64_t>(below(100)) - 50;
      case 4:
        return real();
      default:
        return text();
    }
  }
  // A command with parameters and literals, with and without blanks around them.
  std::string command() {
    std::string text;
    switch (below(5)) {
      case 0:
        text = "INSERT INTO t " + assignments();
        return text + clock();
      case 1:
        text = "UPDATE t SET " + assignments();
        text += filter();
        return text + clock();
      case 2:
        return "DELETE FROM t" + filter();
      case 3:
        return "SHOW SCHEDULE UNTIL" + whole();
      default:
        text = "SELECT a, COUNT(*) FROM t" + filter() + " GROUP BY a ";
        for (const char* clause : {"LIMIT", "OFFSET", "AT"}) text += clause + whole();
        return text;
    }
  }

 private:
  double real() {
    while (true) {
      const std::uint64_t bits = random_();
      double number = 0;
      std::memcpy(&number, &bits, sizeof number);
      if (below(3) == 0) number = static_cast<double>(bits % 1000) / 4;
      if (std::isfinite(number)) return number;
    }
  }
  std::string text() {
    static const std::vector<std::string> pieces = {"'",  "\"", "\n", " ",        "?",
                                                    "ab", "--", "\\", "\xC3\xBC", " #TIME# 5"};
    std::string text;
    for (std::size_t i = below(6); i > 0; --i) text += pieces[below(pieces.size())];
    return text;
  }
  // A parameter, with or without blanks around it, or a literal between blanks.
  std::string parameterOr(const std::string& written) {
    static const std::vector<std::string> forms = {"?", " ?", "\n?\t"};
    const std::size_t form = below(forms.size() * 2);
    return form < forms.size() ? forms[form] : " " + written + " ";
  }
  std::string operand() { return parameterOr(literal(value())); }
  std::string whole() { return parameterOr(std::to_string(below(1000) + 1)); }
  std::string assignments() {
    std::string text;
    for (std::size_t i = below(4) + 1; i > 0; --i) {
      text += "col=" + operand();
      for (std::size_t states = below(3); states > 0; --states) {
        text += "-->" + operand();
        text += "@" + whole() + "mo ";
      }
    }
    return text;
  }
  std::string filter() {
    std::string text = " WHERE a IS NOT NULL";
    for (std::size_t i = below(4); i > 0; --i) {
      text += below(2) == 0 ? " && b <" : "||t.b!=";
      text += operand();
    }
    return text;
  }
  std::string clock() { return below(2) == 0 ? "" : " #TIME#" + whole(); }

  std::mt19937_64 random_;
};

// What the log keeps of a command.
TEST(StrictRendering, aTextWithoutItsClockIsReadAsTheSameStatement) {
  Generator generator(20240607);
  for (int i = 0; i < 20000; ++i) {
    const std::string text = generator.command();
    Statement statement = parse(text);
    std::vector<Value> values;
    for (const bool isWhole : wholeParameters(statement)) {
      values.push_back(isWhole ? Value(static_cast<std::int64_t>(generator.below(400000) + 1))
                               : generator.value());
    }
    statement.clock.reset();
    const Statement again = parse(statement.text);
    ASSERT_EQ(describe(again, values), describe(statement, values)) << text;
    ASSERT_EQ(again.text, statement.text);
  }
}

}  // namespace
}  // namespace velmora::strict
