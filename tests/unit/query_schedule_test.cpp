// What SHOW answers: tables, columns, links, listeners, and the schedule of coming changes.

#include <gtest/gtest.h>

#include "query_fixture.h"

namespace velmora {
namespace {

using What = strict::Show::What;

class QueryShow : public testing::Test {
 protected:
  QueryShow() {
    Table& table = addTable(
        tables_, "signs",
        {{"id", "ApexInt"}, {"text", "string", 3, 20}, {"level", "int", 3}, {"wide", "/long"}},
        "id");
    for (std::int64_t id = 1; id <= 3; ++id) addRow(table, {Value(id), textValue("x")});
    table.set(0, 1, timedCell(ruleOf({{"open", 10}, {"shut", 20}}, true, 100)), 100);
    table.set(1, 2, timedCell(ruleOf({{"1", 10}, {"#/#?", 5}, {"3", 1}}, false, 100)), 100);
    table.set(2, 1, timedCell(ruleOf({{"a", 1}, {"b", 1}}, true, 100)), 100);
    table.setDeleted(2, true);
    table.links.push_back({"level", "areas", "n"});
    Table& areas = addTable(tables_, "areas", {{"n", "int", 2}});
    addRow(areas, {Value(std::int64_t{1})});
    areas.set(0, 0, timedCell(ruleOf({{"5", 10}, {"6", 1}}, false, 100)), 100);
    listeners_["signs"].insert({"signs",
                                "UPDATE",
                                "here",
                                {{"", "text", "it's", "=", 'o'}, {"", "level", "3", ">", 'a'}}});
    listeners_["signs"].insert({"signs", "DELETE", "there", {}});
  }

  Answer show(What what, const char* table = nullptr,
              std::optional<std::int64_t> until = std::nullopt, std::int64_t now = 100) {
    strict::Show command;
    command.what = what;
    if (table != nullptr) command.table = strict::Name{table, 19};
    if (until) command.until = operandOf(*until, 40);
    Answer answer;
    velmora::show(command, tables_, listeners_, {{}, now, {}}, answer);
    return answer;
  }

  Table& table(const char* name) { return tables_.at(name); }

  Tables tables_;
  Listeners listeners_;
};

TEST_F(QueryShow, tellsTablesAndHowManyRowsTheyHave) {
  const Answer answer = show(What::tables);
  EXPECT_EQ(headings(answer), (Texts{"table", "rows"}));
  EXPECT_EQ(rowsOf(answer), (Texts{"areas|1", "signs|2"}));
}

TEST_F(QueryShow, tellsColumns) {
  const Answer answer = show(What::columns, "signs");
  EXPECT_EQ(headings(answer), (Texts{"column", "type", "length", "states", "key", "next_number"}));
  EXPECT_EQ(rowsOf(answer), (Texts{"id|ApexInt|null|0|true|4", "text|string|20|3|false|null",
                                   "level|int|null|3|false|null", "wide|long|null|0|false|null"}));
  EXPECT_EQ(failureOf([&] { return show(What::columns, "x"); }), "4 Unknown table 'x' at 19");
}

TEST_F(QueryShow, tellsLinks) {
  const Answer answer = show(What::links);
  EXPECT_EQ(headings(answer),
            (Texts{"child_table", "child_column", "parent_table", "parent_column"}));
  EXPECT_EQ(rowsOf(answer), Texts{"signs|level|areas|n"});
}

TEST_F(QueryShow, tellsListenersWithTheirFilters) {
  const Answer answer = show(What::listeners);
  EXPECT_EQ(headings(answer), (Texts{"table", "event", "target", "filter"}));
  EXPECT_EQ(rowsOf(answer),
            (Texts{"signs|DELETE|there|", "signs|UPDATE|here|text = 'it''s' && level > 3"}));
}

TEST_F(QueryShow, tellsTheNextChangeOfEachTimedCell) {
  const Answer answer = show(What::schedule);
  EXPECT_EQ(headings(answer),
            (Texts{"second", "table", "row", "key", "column", "value", "cycles"}));
  EXPECT_EQ(rowsOf(answer), (Texts{"110|areas|0|null|n|6|false", "110|signs|0|1|text|shut|true",
                                   "110|signs|1|2|level|null|false"}));
  EXPECT_EQ(answer.nextChange, 110);
  EXPECT_EQ(rowsOf(show(What::schedule, "signs", std::nullopt, 112)),
            (Texts{"115|signs|1|2|level|3|false", "130|signs|0|1|text|open|true"}));
  EXPECT_EQ(rowsOf(show(What::schedule, "areas", std::nullopt, 110)), Texts{});
  EXPECT_EQ(show(What::schedule, "areas", std::nullopt, 110).nextChange, Answer::never);
}

TEST_F(QueryShow, tellsAllChangesUpToASecond) {
  EXPECT_EQ(rowsOf(show(What::schedule, "signs", 140)),
            (Texts{"110|signs|0|1|text|shut|true", "110|signs|1|2|level|null|false",
                   "115|signs|1|2|level|3|false", "130|signs|0|1|text|open|true",
                   "140|signs|0|1|text|shut|true"}));
  EXPECT_EQ(rowsOf(show(What::schedule, nullptr, 109)), Texts{});
  EXPECT_EQ(failureOf([&] { return show(What::schedule, nullptr, -1); }),
            "10 UNTIL must not be below 0 at 40");
}

TEST_F(QueryShow, tellsTheStatesOfLiveTimedCellsWhateverSecondItIs) {
  const Answer answer = show(What::states, "signs", std::nullopt, 100000);
  EXPECT_EQ(headings(answer),
            (Texts{"ordinal", "key", "column", "start", "number", "value", "seconds", "cycles"}));
  EXPECT_EQ(rowsOf(answer), (Texts{"0|1|text|100|1|open|10|true", "0|1|text|100|2|shut|20|true",
                                   "1|2|level|100|1|1|10|false", "1|2|level|100|2|null|5|false",
                                   "1|2|level|100|3|3|1|false"}));
  EXPECT_EQ(answer.nextChange, Answer::never);
  EXPECT_EQ(rowsOf(show(What::states, "areas")),
            (Texts{"0|null|n|100|1|5|10|false", "0|null|n|100|2|6|1|false"}));
}

TEST_F(QueryShow, countsTheRowsOfStatesAsTheyAreSelected) {
  table("signs").setDeleted(0, true);
  EXPECT_EQ(rowsOf(show(What::states, "signs")),
            (Texts{"0|2|level|100|1|1|10|false", "0|2|level|100|2|null|5|false",
                   "0|2|level|100|3|3|1|false"}));
}

TEST_F(QueryShow, refusesAScheduleWithoutEnd) {
  EXPECT_EQ(failureOf([&] { return show(What::schedule, nullptr, 1LL << 39); }),
            "12 More than 1000000 changes at -1");
}

}  // namespace
}  // namespace velmora
