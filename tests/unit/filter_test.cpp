// The filter parser: the conditions that a filter's text becomes, and every message when its shape
// is wrong. The texts are what stands behind WHERE.

#include <gtest/gtest.h>

#include <ostream>
#include <stdexcept>
#include <string>
#include <vector>

#include "condition.h"
#include "lexer.h"
#include "parser/parser.h"

namespace velmora {

void PrintTo(const Condition& condition, std::ostream* out) {
  *out << '{' << condition.tableName << ',' << condition.column << ',' << condition.value << ','
       << condition.op << ',' << condition.logic << '}';
}

namespace {

using Conditions = std::vector<Condition>;

Conditions parse(const std::string& filter, std::size_t start = 0) {
  Lexer lexer(filter);
  const std::vector<Token> tokens = lexer.tokenize();
  std::vector<Condition> conditions;
  Parser::parseFiltering(tokens, start, conditions);
  return conditions;
}

std::string failureOf(const std::string& filter) {
  try {
    parse(filter);
  } catch (const std::runtime_error& error) {
    return error.what();
  }
  return "no failure";
}

struct Accepted {
  std::string filter;
  Conditions conditions;
};

class AcceptedFilters : public testing::TestWithParam<Accepted> {};

TEST_P(AcceptedFilters, becomeTheirConditions) {
  EXPECT_EQ(parse(GetParam().filter), GetParam().conditions) << GetParam().filter;
}

INSTANTIATE_TEST_SUITE_P(
    Filter, AcceptedFilters,
    testing::Values(
        Accepted{"", {}}, Accepted{"a = 1", {{"", "a", "1", "=", 'o'}}},
        Accepted{"u.age >= 18 && u.name = 'Bob' || x != y",
                 {{"u", "age", "18", ">=", 'o'},
                  {"u", "name", "Bob", "=", 'a'},
                  {"", "x", "y", "!=", 'o'}}},
        Accepted{"a -->  5", {{"", "a", "5", "-->", 'o'}}},
        Accepted{"a && 5", {{"", "a", "5", "&&", 'o'}}},
        Accepted{"a || b || c && d", {{"", "a", "b", "||", 'o'}, {"", "c", "d", "&&", 'o'}}},
        Accepted{"a ! 'x y'", {{"", "a", "x y", "!", 'o'}}},
        Accepted{"a == ''", {{"", "a", "", "==", 'o'}}},
        Accepted{"t . a < -5.5", {{"t", "a", "-5.5", "<", 'o'}}},
        Accepted{"a '.' b <= 5", {{"a", "b", "5", "<=", 'o'}}},
        Accepted{"a=1&&b>2&&c<3",
                 {{"", "a", "1", "=", 'o'}, {"", "b", "2", ">", 'a'}, {"", "c", "3", "<", 'a'}}},
        Accepted{"drop = drop", {{"", "drop", "drop", "=", 'o'}}},
        Accepted{"a = 05", {{"", "a", "05", "=", 'o'}}}));

struct Refused {
  std::string filter;
  std::string message;
};

class RefusedFilters : public testing::TestWithParam<Refused> {};

TEST_P(RefusedFilters, failWithTheirMessage) {
  EXPECT_EQ(failureOf(GetParam().filter), "Syntax Error: " + GetParam().message)
      << GetParam().filter;
}

const std::string noColumn = "Expected column name in WHERE clause";
const std::string noColumnBehindPoint = "Expected column name after '.'";
const std::string noOperator = "Expected operator (=, >, <, >=, <=) after column";
const std::string noValue = "Expected value to compare against";

INSTANTIATE_TEST_SUITE_P(
    Filter, RefusedFilters,
    testing::Values(
        Refused{"1 = a", noColumn}, Refused{"'a' = 1", noColumn}, Refused{"table = 1", noColumn},
        Refused{"(a = 1)", noColumn}, Refused{"= 1", noColumn}, Refused{"a = 1 && 5", noColumn},
        Refused{"a = 1 || ||", noColumn}, Refused{". a = 1", noColumn},
        Refused{"t. = 1", noColumnBehindPoint}, Refused{"t.", noColumnBehindPoint},
        Refused{"t.5 = 1", noColumnBehindPoint}, Refused{"t.'a' = 1", noColumnBehindPoint},
        Refused{"t.from = 1", noColumnBehindPoint}, Refused{"t..a = 1", noColumnBehindPoint},
        Refused{"a", noOperator}, Refused{"a 1", noOperator}, Refused{"t.a", noOperator},
        Refused{"t.a.b = 1", noOperator}, Refused{"a '=' 1", noOperator},
        Refused{"a = 1 && b", noOperator}, Refused{"a @ 1", noOperator}, Refused{"a =", noValue},
        Refused{"a = (", noValue}, Refused{"a = = 1", noValue}, Refused{"a <> 1", noValue},
        Refused{"a => 1", noValue}, Refused{"a = select", noValue},
        Refused{"a = 1 && b =", noValue},
        Refused{"a = 1 b = 2", "Unexpected token 'b' after condition"},
        Refused{"a = 1 = 2", "Unexpected token '=' after condition"},
        Refused{"a = 1 )", "Unexpected token ')' after condition"},
        Refused{"a = 1 where", "Unexpected token 'WHERE' after condition"},
        Refused{"a = 1 '&&' b = 2", "Unexpected token '&&' after condition"},
        Refused{"a = 1 '||'", "Unexpected token '||' after condition"},
        Refused{"a = 1 --> b", "Unexpected token '-->' after condition"},
        Refused{"a = 1 ''", "Unexpected token '' after condition"},
        Refused{"a = 1 &&", "Dangling '&&' at end of query"},
        Refused{"a = 1 ||", "Dangling '||' at end of query"},
        Refused{"a = 1 || b = 2 &&", "Dangling '&&' at end of query"}));

TEST(Filter, beginsAtTheGivenToken) {
  const Conditions one = {{"", "a", "1", "=", 'o'}};
  EXPECT_EQ(parse("DELETE FROM t WHERE a = 1", 4), one);
  EXPECT_EQ(parse("a = 1", 3), Conditions());
  EXPECT_EQ(parse("a = 1", 1000), Conditions());
}

TEST(Filter, takesTenThousandConditions) {
  std::string filter = "a = 0";
  for (int i = 1; i < 10000; ++i) {
    filter += (i % 2 == 0 ? " || a = " : " && a = ") + std::to_string(i);
  }
  const Conditions conditions = parse(filter);
  ASSERT_EQ(conditions.size(), 10000U);
  EXPECT_EQ(conditions[9998], (Condition{"", "a", "9998", "=", 'o'}));
  EXPECT_EQ(conditions[9999], (Condition{"", "a", "9999", "=", 'a'}));
}

}  // namespace
}  // namespace velmora
