// What a SELECT of one table answers: columns by name and type, order, limit, offset, timed cells
// with what becomes of them, and when the answer changes by itself.

#include <gtest/gtest.h>

#include "query_fixture.h"

namespace velmora {
namespace {

class QuerySelect : public testing::Test {
 protected:
  QuerySelect() {
    Table& table = addTable(tables_, "t",
                            {{"id", "ApexInt"},
                             {"name", "string"},
                             {"price", "float"},
                             {"state", "string", 3},
                             {"wide", "/long"},
                             {"big", "/double"},
                             {"on", "bool"}},
                            "id");
    const auto whole = [](std::int64_t value) { return Value(value); };
    addRow(table, {whole(1), textValue("pear"), Value(0.1), textValue("new"), whole(1LL << 40),
                   Value(0.1), Value(true)});
    addRow(table, {whole(2), textValue("fig"), Value(2.5), textValue("old")});
    addRow(table,
           {whole(3), textValue("apple"), Value(), Value(), whole(-5), Value(1e300), Value(false)});
    addRow(table, {whole(4), textValue("fig"), Value(1.5), textValue("new")});
    for (const std::size_t column : {4U, 5U, 6U}) {
      table.setValue(1, column, Value());
      table.setValue(3, column, Value());
    }
    table.set(1, 3, timedCell(ruleOf({{"old", 10}, {"sold", 20}}, true, 100)), 100);
    table.set(3, 3, timedCell(ruleOf({{"new", 5}, {"gone", 5}}, false, 100)), 100);
  }

  Texts rows(const strict::Select& select, std::int64_t now = 100) {
    return rowsOf(run(tables_, select, now));
  }
  std::string failure(const strict::Select& select) {
    return failureOf([&] { return run(tables_, select); });
  }

  Tables tables_;
};

TEST_F(QuerySelect, answersAllColumnsForAStar) {
  const Answer answer = run(tables_, selectFrom("t", {}), 100);
  EXPECT_EQ(headings(answer), (Texts{"id", "name", "price", "state", "wide", "big", "on"}));
  EXPECT_EQ(rowsOf(answer),
            (Texts{"1|pear|0.10000000149011612|new|1099511627776|0.1|true",
                   "2|fig|2.5|old|null|null|null", "3|apple|null|null|-5|1e+300|false",
                   "4|fig|1.5|new|null|null|null"}));
  EXPECT_TRUE((*answer.columns())[2].isFloat);
  EXPECT_FALSE((*answer.columns())[5].isFloat);
  EXPECT_EQ((*answer.columns())[4].declaredType, "long");
  EXPECT_EQ((*answer.columns())[4].type, AnswerType::integer);
  EXPECT_EQ(answer.second, 100);
}

TEST_F(QuerySelect, ordersByAnyColumnsNullsFirstAndEqualOnesAsTheyStand) {
  strict::Select select = selectFrom("t", {"id"});
  select.orderBy = {by("name")};
  EXPECT_EQ(rows(select), (Texts{"3", "2", "4", "1"}));
  select.orderBy = {by("name", true)};
  EXPECT_EQ(rows(select), (Texts{"1", "2", "4", "3"}));
  select.orderBy = {by("price")};
  EXPECT_EQ(rows(select), (Texts{"3", "1", "4", "2"}));
  select.orderBy = {by("price", true)};
  EXPECT_EQ(rows(select), (Texts{"2", "4", "1", "3"}));
  select.orderBy = {by("name"), by("price")};
  EXPECT_EQ(rows(select), (Texts{"3", "4", "2", "1"}));
}

TEST_F(QuerySelect, answersAsManyRowsAsTheLimitFromTheOffsetOn) {
  strict::Select select = selectFrom("t", {"id"});
  select.limit = whole(2);
  EXPECT_EQ(rows(select), (Texts{"1", "2"}));
  select.offset = whole(3);
  EXPECT_EQ(rows(select), (Texts{"4"}));
  select.orderBy = {by("price", true)};
  select.offset = whole(1);
  EXPECT_EQ(rows(select), (Texts{"4", "1"}));
  select.limit = whole(0);
  EXPECT_EQ(rows(select), Texts{});
  select.limit = std::nullopt;
  select.offset = whole(9);
  EXPECT_EQ(rows(select), Texts{});
  select.limit = parameter(0);
  select.offset = parameter(1);
  const std::vector<Value> values = {std::int64_t{1}, std::int64_t{2}};
  EXPECT_EQ(rowsOf(run(tables_, select, 0, values)), Texts{"1"});
}

TEST_F(QuerySelect, tellsOfATimedCellWhatComesNext) {
  strict::Select select = selectFrom("t", {"id", "state"});
  const Answer answer = run(tables_, select, 104);
  EXPECT_EQ(rowsOf(answer), (Texts{"1|new", "2|old", "3|null", "4|new"}));
  ASSERT_EQ(answer.timed.size(), 2U);
  EXPECT_EQ(answer.timed[0].row, 1U);
  EXPECT_EQ(answer.timed[0].column, 1U);
  EXPECT_EQ(answer.timed[0].changeSecond, 110);
  EXPECT_EQ(shown(answer, answer.timed[0].next), "sold");
  EXPECT_TRUE(answer.timed[0].cycles);
  EXPECT_EQ(answer.timed[1].row, 3U);
  EXPECT_EQ(answer.timed[1].changeSecond, 105);
  EXPECT_EQ(shown(answer, answer.timed[1].next), "gone");
  EXPECT_FALSE(answer.timed[1].cycles);
  EXPECT_NE(answer.timedAt(1, 1), nullptr);
  EXPECT_EQ(answer.timedAt(0, 1), nullptr);
  EXPECT_EQ(answer.nextChange, 105);
  const Answer later = run(tables_, select, 107);
  EXPECT_EQ(later.timed[1].changeSecond, Answer::never);
  EXPECT_EQ(later.timed[1].next.type, AnswerType::null);
  EXPECT_EQ(later.nextChange, 110);
}

TEST_F(QuerySelect, answersForTheSecondThatIsNamed) {
  strict::Select select = selectFrom("t", {"state"});
  select.at = whole(115);
  select.filter = {where("state", Operator::equal, textValue("sold"))};
  const Answer answer = run(tables_, select, 100);
  EXPECT_EQ(rowsOf(answer), Texts{"sold"});
  EXPECT_EQ(answer.second, 115);
  EXPECT_EQ(answer.nextChange, 130);
}

TEST_F(QuerySelect, changesWhenAColumnThatItDependsOnDoes) {
  strict::Select select = selectFrom("t", {"id"});
  EXPECT_EQ(run(tables_, select, 100).nextChange, Answer::never);
  select.filter = {where("state", Operator::equal, textValue("none"))};
  EXPECT_EQ(run(tables_, select, 100).nextChange, 105);
  EXPECT_EQ(run(tables_, select, 105).nextChange, 110);
  select.filter = {};
  select.orderBy = {by("state")};
  EXPECT_EQ(run(tables_, select, 100).nextChange, 105);
}

TEST_F(QuerySelect, foundByKeyDependsOnTheFoundRowAlone) {
  strict::Select select = selectFrom("t", {"id", "name"});
  const auto isKey = [](std::int64_t key) { return where("id", Operator::equal, key); };
  const auto isGone = andAlso(where("state", Operator::equal, textValue("gone")));
  select.filter = {isKey(2), isGone};
  EXPECT_EQ(run(tables_, select, 100).nextChange, 110);
  select.filter = {isKey(4), isGone};
  EXPECT_EQ(run(tables_, select, 100).nextChange, 105);
  EXPECT_EQ(rows(select, 105), Texts{"4|fig"});
  select.filter = {isKey(1), isGone, isKey(2), isGone};
  EXPECT_EQ(run(tables_, select, 100).nextChange, 110);
  select.filter = {isKey(1), isGone};
  EXPECT_EQ(run(tables_, select, 100).nextChange, Answer::never);
  select = selectFrom("t", {"state"});
  select.filter = {isKey(2)};
  EXPECT_EQ(run(tables_, select, 100).nextChange, 110);
  select.filter = {isKey(7)};
  EXPECT_EQ(rows(select), Texts{});
}

TEST_F(QuerySelect, refusesWhatDoesNotGoTogether) {
  strict::Select select = selectFrom("u", {});
  select.table.offset = 14;
  EXPECT_EQ(failure(select), "4 Unknown table 'u' at 14");
  select = selectFrom("t", {"id"});
  select.outputs[0].column = named("x", 7);
  EXPECT_EQ(failure(select), "4 Unknown column 'x' at 7");
  select = selectFrom("t", {"id"});
  select.limit = operandOf(std::int64_t{-1}, 30);
  EXPECT_EQ(failure(select), "10 LIMIT must not be below 0 at 30");
  select.limit = operandOf(1.5, 30);
  EXPECT_EQ(failure(select), "9 LIMIT takes a whole number at 30");
  select.limit = std::nullopt;
  select.offset = operandOf(Value(), 30);
  EXPECT_EQ(failure(select), "9 OFFSET takes a whole number at 30");
  select.offset = std::nullopt;
  select.at = operandOf(textValue("x"), 30);
  EXPECT_EQ(failure(select), "9 AT takes a whole number at 30");
}

}  // namespace
}  // namespace velmora
