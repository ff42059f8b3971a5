// What a SELECT of two joined tables answers: pairs of equal values, in the order of the left rows
// and then of the right ones, and filters that are about both.

#include <gtest/gtest.h>

#include "query_fixture.h"

namespace velmora {
namespace {

class QueryJoin : public testing::Test {
 protected:
  QueryJoin() {
    Table& parts = addTable(tables_, "p", {{"id", "int"}, {"name", "string", 2}, {"w", "float"}});
    const auto whole = [](std::int64_t value) { return Value(value); };
    addRow(parts, {whole(1), textValue("nut"), Value(1.0)});
    addRow(parts, {whole(2), textValue("bolt"), Value(2.5)});
    addRow(parts, {Value(), textValue("none"), Value()});
    addRow(parts, {whole(3), textValue("pin"), Value(3.0)});
    Table& orders = addTable(tables_, "o", {{"part", "/long"}, {"count", "int"}});
    addRow(orders, {whole(2), whole(20)});
    addRow(orders, {whole(1), whole(10)});
    addRow(orders, {Value(), whole(99)});
    addRow(orders, {whole(2), whole(21)});
    addRow(orders, {whole(2), whole(22)});
    orders.setDeleted(4, true);
  }

  strict::Select joined(const Texts& columns, const std::string& first = "p.id",
                        const std::string& second = "o.part") {
    strict::Select select = selectFrom("p", columns);
    select.join = strict::Join{{"o", 30}, named(first, 40), named(second, 50)};
    return select;
  }
  std::string failure(const strict::Select& select) {
    return failureOf([&] { return run(tables_, select); });
  }

  Tables tables_;
};

TEST_F(QueryJoin, pairsEqualValuesAndNullsWithNothing) {
  const Answer answer = run(tables_, joined({"name", "count"}));
  EXPECT_EQ(headings(answer), (Texts{"p.name", "o.count"}));
  const Texts expected = {"nut|10", "bolt|20", "bolt|21"};
  EXPECT_EQ(rowsOf(answer), expected);
  EXPECT_EQ(rowsOf(run(tables_, joined({"name", "count"}, "part", "p.id"))), expected);
  EXPECT_EQ(rowsOf(run(tables_, joined({"p.name", "o.count"}, "id", "part"))), expected);
}

TEST_F(QueryJoin, answersAllColumnsOfBothForAStar) {
  EXPECT_EQ(headings(run(tables_, joined({}))),
            (Texts{"p.id", "p.name", "p.w", "o.part", "o.count"}));
}

TEST_F(QueryJoin, comparesNumbersOfUnlikeTypesAsNumbers) {
  EXPECT_EQ(rowsOf(run(tables_, joined({"w", "count"}, "p.w", "o.part"))), Texts{"1|10"});
}

TEST_F(QueryJoin, filtersEitherTableAndPairs) {
  strict::Select select = joined({"name", "count"});
  select.filter = {where("name", Operator::equal, textValue("bolt")),
                   andAlso(where("o.count", Operator::greater, 20))};
  EXPECT_EQ(rowsOf(run(tables_, select)), Texts{"bolt|21"});
  select.filter = {where("name", Operator::equal, textValue("nut")),
                   where("count", Operator::equal, 21)};
  EXPECT_EQ(rowsOf(run(tables_, select)), (Texts{"nut|10", "bolt|21"}));
  select.filter = {where("count", Operator::equal, 10), where("count", Operator::equal, 20)};
  EXPECT_EQ(rowsOf(run(tables_, select)), (Texts{"nut|10", "bolt|20"}));
}

TEST_F(QueryJoin, ordersLimitsAndGroups) {
  strict::Select select = joined({"count"});
  select.orderBy = {by("name"), by("count", true)};
  EXPECT_EQ(rowsOf(run(tables_, select)), (Texts{"21", "20", "10"}));
  select.limit = whole(1);
  select.offset = whole(1);
  EXPECT_EQ(rowsOf(run(tables_, select)), (Texts{"20"}));
  strict::Select grouped = joined({"name"});
  grouped.outputs.push_back(output(Function::sum, "o.count"));
  grouped.outputs.push_back(output(Function::countRows));
  grouped.groupBy = {named("name")};
  const Answer answer = run(tables_, grouped);
  EXPECT_EQ(headings(answer), (Texts{"p.name", "SUM(o.count)", "COUNT(*)"}));
  EXPECT_EQ(rowsOf(answer), (Texts{"nut|10|1", "bolt|41|2"}));
}

TEST_F(QueryJoin, joinsATableWithItself) {
  strict::Select select = selectFrom("o", {"count"});
  select.join = strict::Join{{"o", 0}, named("o.part"), named("o.part")};
  EXPECT_EQ(rowsOf(run(tables_, select)), (Texts{"20", "20", "10", "21", "21"}));
}

TEST_F(QueryJoin, tellsWhenATimedCellOfEitherTableChanges) {
  tables_.at("p").set(0, 1, timedCell(ruleOf({{"nut", 10}, {"screw", 10}}, true, 0)), 0);
  const Answer answer = run(tables_, joined({"count", "name"}), 12);
  EXPECT_EQ(rowsOf(answer).front(), "10|screw");
  ASSERT_EQ(answer.timed.size(), 1U);
  EXPECT_EQ(answer.timed[0].column, 1U);
  EXPECT_EQ(answer.nextChange, 20);
  EXPECT_EQ(run(tables_, joined({"count"}), 12).nextChange, Answer::never);
}

TEST_F(QueryJoin, pairsMoreRowsThanAChunkHas) {
  Table& many = addTable(tables_, "m", {{"k", "int"}});
  for (std::int64_t i = 0; i < 5000; ++i) addRow(many, {Value(i % 3)});
  strict::Select select = selectFrom("m", {});
  select.isStar = false;
  select.outputs = {output(Function::countRows)};
  select.join = strict::Join{{"o", 0}, named("m.k"), named("o.part")};
  EXPECT_EQ(rowsOf(run(tables_, select)), Texts{std::to_string(1667 + 2 * 1666)});
}

TEST_F(QueryJoin, refusesWhatCannotBeJoined) {
  EXPECT_EQ(failure(joined({}, "p.id", "p.w")), "11 JOIN ON needs a column of each table at 50");
  EXPECT_EQ(failure(joined({}, "x.id", "o.part")), "4 Unknown table 'x' at 40");
  EXPECT_EQ(failure(joined({}, "p.id", "o.x")), "4 Unknown column 'x' at 50");
  EXPECT_EQ(failure(joined({}, "p.name", "o.part")),
            "9 Columns 'name' and 'part' cannot be compared at 50");
  strict::Select select = joined({});
  select.join->table.text = "x";
  EXPECT_EQ(failure(select), "4 Unknown table 'x' at 30");
}

}  // namespace
}  // namespace velmora
