// Answers of the strict language: their JSON, to the byte and valid for any text, and how the
// changes of timed values are found in them.

#include "answer.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>

namespace velmora {
namespace {

std::shared_ptr<const std::vector<AnswerColumn>> columns(std::vector<AnswerColumn> all) {
  return std::make_shared<const std::vector<AnswerColumn>>(std::move(all));
}

// What a value of one column is written as.
std::string written(const Answer& answer) {
  const std::string json = renderJson(answer);
  constexpr std::string_view begin = "\"data\": [{\"c\": ";
  const std::size_t at = json.find(begin) + begin.size();
  return json.substr(at, json.rfind("}]") - at);
}

std::string writtenReal(double value, bool isFloat) {
  Answer answer;
  answer.setColumns(columns({{"c", "", AnswerType::real, isFloat}}));
  answer.addReal(value);
  return written(answer);
}

std::string writtenText(std::string_view text) {
  Answer answer;
  answer.setColumns(columns({{"c", "string", AnswerType::text, false}}));
  answer.addText(text);
  return written(answer);
}

TEST(AnswerJson, HasNoMembersThatDoNotApply) {
  Answer answer;
  EXPECT_EQ(renderJson(answer), R"({"success": true, "message": "", "rows_affected": 0})");
  answer.message = "3 \"rows\"";
  answer.rowsAffected = 3;
  answer.identity = 7;
  answer.nextChange = 1'800'000'000;
  EXPECT_EQ(renderJson(answer),
            R"({"success": true, "message": "3 \"rows\"", "rows_affected": 3, "identity": 7})");
}

TEST(AnswerJson, HoldsTheRowsColumnByColumn) {
  Answer answer;
  answer.setColumns(columns({{"id", "long", AnswerType::integer, false},
                             {"say \"a\"", "string(9)", AnswerType::text, false},
                             {"b", "bool", AnswerType::boolean, false}}));
  answer.addInteger(std::numeric_limits<std::int64_t>::min());
  answer.addText("north");
  answer.addBoolean(true);
  answer.addInteger(5);
  answer.addNull();
  answer.addBoolean(false);
  answer.rowsAffected = 2;
  answer.nextChange = 1'800'000'000;
  EXPECT_EQ(renderJson(answer),
            R"({"success": true, "message": "", "rows_affected": 2, )"
            R"("columns": ["id", "say \"a\"", "b"], )"
            R"("data": [{"id": -9223372036854775808, "say \"a\"": "north", "b": true}, )"
            R"({"id": 5, "say \"a\"": null, "b": false}], "next_change": 1800000000})");
}

TEST(AnswerJson, OfNoRowsHasTheColumns) {
  Answer answer;
  answer.setColumns(columns({{"c", "int", AnswerType::integer, false}}));
  EXPECT_EQ(renderJson(answer),
            R"({"success": true, "message": "", "rows_affected": 0, "columns": ["c"], "data": [], )"
            R"("next_change": null})");
}

TEST(AnswerJson, WritesFloatsInTheShortestFormOfTheirWidth) {
  EXPECT_EQ(writtenReal(static_cast<double>(0.1F), true), "0.1");
  EXPECT_EQ(writtenReal(static_cast<double>(0.1F), false), "0.10000000149011612");
  EXPECT_EQ(writtenReal(16777216.0, true), "16777216");
  EXPECT_EQ(writtenReal(static_cast<double>(1e10F), true), "1e+10");
  EXPECT_EQ(writtenReal(1.0 / 3, false), "0.3333333333333333");
  EXPECT_EQ(writtenReal(-0.0, false), "-0");
  EXPECT_EQ(writtenReal(std::numeric_limits<double>::denorm_min(), false), "5e-324");
  EXPECT_EQ(writtenReal(-std::numeric_limits<double>::max(), false), "-1.7976931348623157e+308");
  EXPECT_EQ(writtenReal(std::numeric_limits<double>::infinity(), false), "null");
  EXPECT_EQ(writtenReal(std::numeric_limits<double>::quiet_NaN(), true), "null");
}

TEST(AnswerJson, IsValidForAnyText) {
  EXPECT_EQ(writtenText("it's"), "\"it's\"");
  EXPECT_EQ(writtenText("\"}, {\\"), R"("\"}, {\\")");
  EXPECT_EQ(writtenText("\b\f\n\r\t\x01\x1f\x7f"), "\"\\b\\f\\n\\r\\t\\u0001\\u001f\x7f\"");
  EXPECT_EQ(writtenText(std::string_view("a\0b", 3)), R"("a\u0000b")");
  EXPECT_EQ(writtenText("\xC3\xA4 \xF0\x9F\x98\x80"), "\"\xC3\xA4 \xF0\x9F\x98\x80\"");
  EXPECT_EQ(writtenText("\xC3"), "\"\xEF\xBF\xBD\"");
  EXPECT_EQ(writtenText("\xED\xA0\x80"), "\"\xEF\xBF\xBD\xEF\xBF\xBD\xEF\xBF\xBD\"");
  EXPECT_EQ(writtenText("NULL"), "\"NULL\"");
  EXPECT_EQ(writtenText(""), "\"\"");
}

TEST(AnswerTimed, IsFoundByRowAndColumn) {
  Answer answer;
  for (const auto& [row, column] : {std::pair(0U, 1U), std::pair(2U, 0U), std::pair(2U, 3U)}) {
    TimedAnswer timed;
    timed.row = row;
    timed.column = column;
    answer.timed.push_back(timed);
  }
  EXPECT_EQ(answer.timedAt(0, 1), answer.timed.data());
  EXPECT_EQ(answer.timedAt(2, 0), &answer.timed[1]);
  EXPECT_EQ(answer.timedAt(2, 3), &answer.timed[2]);
  EXPECT_EQ(answer.timedAt(0, 0), nullptr);
  EXPECT_EQ(answer.timedAt(1, 1), nullptr);
  EXPECT_EQ(answer.timedAt(2, 4), nullptr);
  EXPECT_EQ(Answer().timedAt(0, 0), nullptr);
}

TEST(Answer, IsAsNewOnceCleared) {
  Answer answer;
  answer.setColumns(columns({{"c", "string", AnswerType::text, false}}));
  answer.addText("text");
  answer.timed.emplace_back();
  answer.message = "message";
  answer.rowsAffected = 1;
  answer.identity = 1;
  answer.second = 5;
  answer.nextChange = 6;
  answer.clear();
  EXPECT_EQ(renderJson(answer), renderJson(Answer()));
  EXPECT_EQ(answer.rowCount(), 0U);
  EXPECT_EQ(answer.texts, "");
  EXPECT_TRUE(answer.timed.empty());
  EXPECT_EQ(answer.second, 0);
  EXPECT_EQ(answer.nextChange, Answer::never);
}

}  // namespace
}  // namespace velmora
