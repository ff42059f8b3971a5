// Totals: COUNT, MIN, MAX, SUM and AVG over all rows and over groups; what they make of nulls, of
// no rows and of sums that do not fit.

#include <gtest/gtest.h>

#include "query_fixture.h"

namespace velmora {
namespace {

class QueryAggregate : public testing::Test {
 protected:
  QueryAggregate() {
    Table& table =
        addTable(tables_, "t", {{"k", "string", 2}, {"n", "int"}, {"f", "float"}, {"b", "bool"}});
    const auto whole = [](std::int64_t value) { return Value(value); };
    addRow(table, {textValue("b"), whole(3), Value(0.5), Value(true)});
    addRow(table, {textValue("a"), whole(1), Value(), Value(false)});
    addRow(table, {Value(), whole(7), Value(2.0), Value()});
    addRow(table, {textValue("b"), Value(), Value(0.25), Value()});
    addRow(table, {Value(), whole(5), Value(-1.0), Value(true)});
  }

  strict::Select totals(const std::vector<strict::Output>& outputs) {
    strict::Select select = selectFrom("t", {"n"});
    select.outputs = outputs;
    return select;
  }
  strict::Select ofAll(const std::string& column) {
    return totals({output(Function::countRows), output(Function::count, column),
                   output(Function::min, column), output(Function::max, column),
                   output(Function::sum, column), output(Function::avg, column)});
  }
  Texts rows(const strict::Select& select) { return rowsOf(run(tables_, select)); }

  Tables tables_;
};

TEST_F(QueryAggregate, passesNullsOver) {
  const Answer answer = run(tables_, ofAll("n"));
  EXPECT_EQ(headings(answer),
            (Texts{"COUNT(*)", "COUNT(n)", "MIN(n)", "MAX(n)", "SUM(n)", "AVG(n)"}));
  EXPECT_EQ(rowsOf(answer), Texts{"5|4|1|7|16|4"});
  EXPECT_EQ((*answer.columns())[4].type, AnswerType::integer);
  EXPECT_EQ((*answer.columns())[5].type, AnswerType::real);
  EXPECT_EQ(rows(ofAll("f")), Texts{"5|4|-1|2|1.75|0.4375"});
  EXPECT_EQ(rows(totals({output(Function::min, "k"), output(Function::max, "k"),
                         output(Function::min, "b"), output(Function::max, "b")})),
            Texts{"a|b|false|true"});
}

TEST_F(QueryAggregate, isNullOfNoValueAndACountIsZero) {
  strict::Select select = ofAll("n");
  select.filter = {where("n", Operator::greater, 100)};
  EXPECT_EQ(rows(select), Texts{"0|0|null|null|null|null"});
  select.groupBy = {named("k")};
  EXPECT_EQ(rows(select), Texts{});
}

TEST_F(QueryAggregate, hasTheDeclaredTypeWhereItIsAValueOfTheColumn) {
  const Answer answer = run(tables_, totals({output(Function::min, "f"), output(Function::max, "k"),
                                             output(Function::sum, "n")}));
  EXPECT_EQ((*answer.columns())[0].declaredType, "float");
  EXPECT_EQ((*answer.columns())[1].declaredType, "string");
  EXPECT_EQ((*answer.columns())[2].declaredType, "");
}

TEST_F(QueryAggregate, isOfTheRowsThatPass) {
  strict::Select select = totals({output(Function::countRows), output(Function::sum, "n")});
  select.filter = {where("n", Operator::lessOrEqual, 5)};
  EXPECT_EQ(rows(select), Texts{"3|9"});
}

TEST_F(QueryAggregate, groupsInTheOrderOfTheirFirstRowsNullsInOne) {
  strict::Select select = totals({output({}, "k"), output(Function::countRows),
                                  output(Function::sum, "n"), output(Function::max, "f")});
  select.groupBy = {named("k")};
  EXPECT_EQ(rows(select), (Texts{"b|2|3|0.5", "a|1|1|null", "null|2|12|2"}));
  select.orderBy = {by("k")};
  EXPECT_EQ(rows(select), (Texts{"null|2|12|2", "a|1|1|null", "b|2|3|0.5"}));
  select.orderBy = {{output(Function::sum, "n"), true}};
  select.limit = whole(2);
  EXPECT_EQ(rows(select), (Texts{"null|2|12|2", "b|2|3|0.5"}));
  select.orderBy = {{output(Function::count, "f"), false}};
  EXPECT_EQ(rows(select), (Texts{"a|1|1|null", "b|2|3|0.5"}));
}

TEST_F(QueryAggregate, groupsBySeveralColumns) {
  strict::Select select = totals({output({}, "k"), output({}, "b"), output(Function::countRows)});
  select.groupBy = {named("k"), named("b")};
  EXPECT_EQ(rows(select),
            (Texts{"b|true|1", "a|false|1", "null|null|1", "b|null|1", "null|true|1"}));
}

TEST_F(QueryAggregate, refusesSumsThatDoNotFit) {
  Table& table = addTable(tables_, "l", {{"n", "/long"}});
  constexpr std::int64_t most = std::numeric_limits<std::int64_t>::max();
  for (const std::int64_t value : {most, most, -most}) addRow(table, {Value(value)});
  strict::Select select = selectFrom("l", {"n"});
  select.outputs = {output(Function::sum, "n")};
  EXPECT_EQ(rows(select), Texts{std::to_string(most)});
  table.setDeleted(2, true);
  EXPECT_EQ(failureOf([&] { return rows(select); }), "10 SUM(n) does not fit 64 bits at -1");
  select.outputs = {output(Function::avg, "n")};
  EXPECT_EQ(rows(select), Texts{"9223372036854775808"});
}

TEST_F(QueryAggregate, refusesWhatDoesNotGoTogether) {
  const auto failure = [&](const strict::Select& select) {
    return failureOf([&] { return rows(select); });
  };
  strict::Select select = totals({output({}, "n"), output(Function::countRows)});
  select.outputs[0].column = named("n", 7);
  EXPECT_EQ(failure(select), "11 Column 'n' has to be in GROUP BY or within a function at 7");
  select = selectFrom("t", {});
  select.groupBy = {named("k")};
  select.table.offset = 14;
  EXPECT_EQ(failure(select), "11 * does not go with GROUP BY or a function at 14");
  select = totals({output(Function::sum, "k")});
  select.outputs[0].column = named("k", 11);
  EXPECT_EQ(failure(select), "9 SUM(k) takes numbers at 11");
  select = totals({output(Function::countRows)});
  select.orderBy = {by("n")};
  select.orderBy[0].output.column = named("n", 40);
  EXPECT_EQ(failure(select), "11 Column 'n' has to be in GROUP BY or within a function at 40");
}

TEST_F(QueryAggregate, changesWhenAColumnThatIsGroupedOrTotalledDoes) {
  Table& table = tables_.at("t");
  table.set(1, 0, timedCell(ruleOf({{"a", 10}, {"b", 10}}, false, 0)), 0);
  strict::Select select = totals({output(Function::countRows)});
  EXPECT_EQ(run(tables_, select, 5).nextChange, Answer::never);
  select.groupBy = {named("k")};
  EXPECT_EQ(run(tables_, select, 5).nextChange, 10);
  EXPECT_EQ(rowsOf(run(tables_, select, 10)), (Texts{"3", "2"}));
  EXPECT_EQ(run(tables_, totals({output(Function::max, "k")}), 5).nextChange, 10);
  select.at = whole(3);
  EXPECT_EQ(run(tables_, select, 10).nextChange, 10);
}

}  // namespace
}  // namespace velmora
