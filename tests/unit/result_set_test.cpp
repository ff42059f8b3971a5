// The JSON form of answers, byte for byte, and how the exported functions hand it out.

#include "result_set.h"

#include <gtest/gtest.h>
#include <stdlib.h>

#include <bit>
#include <cmath>
#include <filesystem>
#include <limits>
#include <memory>
#include <random>
#include <sstream>
#include <stdexcept>
#include <string>
#include <utility>
#include <variant>
#include <vector>

#include "text.h"
#include "velmora/velmora.h"

namespace velmora {
namespace {

namespace fs = std::filesystem;

std::string render(ResultSet&& result) { return std::string(renderJson(std::move(result)).view()); }

// The values row by row, as many to a row as there are columns.
using Value = std::variant<std::int32_t, float, bool, Text>;
using Values = std::vector<Value>;

void add(JsonRows& rows, const Value& value) {
  if (const auto* integer = std::get_if<std::int32_t>(&value)) rows.addInt(*integer);
  if (const auto* real = std::get_if<float>(&value)) rows.addFloat(*real);
  if (const auto* truth = std::get_if<bool>(&value)) rows.addBool(*truth);
  if (const auto* text = std::get_if<Text>(&value)) rows.addText(*text);
}

ResultSet rowsOf(const std::vector<std::string>& columns, const Values& values) {
  ResultSet result;
  result.rows.begin(columns);
  for (const Value& value : values) add(result.rows, value);
  return result;
}

// The one value of an answer with one row and the column "c".
std::string member(const Value& value) {
  const std::string text = render(rowsOf({"c"}, {value}));
  const std::string head =
      "{\n  \"success\": true,\n  \"message\": \"\",\n  \"rows_affected\": 0,\n"
      "  \"data\": [\n    {\"c\": ";
  const std::string tail = "}\n  ]\n}";
  EXPECT_TRUE(text.starts_with(head)) << text;
  EXPECT_TRUE(text.ends_with(tail)) << text;
  return text.substr(head.size(), text.size() - head.size() - tail.size());
}

TEST(Json, hasNoDataWithoutColumnsOrRows) {
  EXPECT_EQ(render({}), "{\n  \"success\": true,\n  \"message\": \"\",\n  \"rows_affected\": 0\n}");
  EXPECT_EQ(render(rowsOf({"a", "b"}, {})),
            "{\n  \"success\": true,\n  \"message\": \"\",\n  \"rows_affected\": 0\n}");
  EXPECT_EQ(render(successful("success!", 3)),
            "{\n  \"success\": true,\n  \"message\": \"success!\",\n  \"rows_affected\": 3\n}");
  ResultSet failed;
  failed.success = false;
  failed.message = "Error: x";
  failed.rowsAffected = -2147483647 - 1;
  EXPECT_EQ(render(std::move(failed)),
            "{\n  \"success\": false,\n  \"message\": \"Error: x\",\n"
            "  \"rows_affected\": -2147483648\n}");
}

TEST(Json, givesEachRowItsLine) {
  ResultSet result = rowsOf({"id", "name"}, {1, Text("a"), 2, Text("NULL")});
  result.message = "success!";
  result.rowsAffected = 2;
  EXPECT_EQ(render(std::move(result)),
            "{\n"
            "  \"success\": true,\n"
            "  \"message\": \"success!\",\n"
            "  \"rows_affected\": 2,\n"
            "  \"data\": [\n"
            "    {\"id\": 1, \"name\": \"a\"},\n"
            "    {\"id\": 2, \"name\": null}\n"
            "  ]\n"
            "}");
}

TEST(Json, ofARefusalNamesTheError) {
  EXPECT_EQ(render(refused("Expected value")),
            "{\n  \"success\": false,\n  \"message\": \"Error: Expected value\",\n"
            "  \"rows_affected\": 0\n}");
}

TEST(Json, rendersEachKindOfValue) {
  EXPECT_EQ(member(0), "0");
  EXPECT_EQ(member(-5), "-5");
  EXPECT_EQ(member(std::numeric_limits<std::int32_t>::min()), "-2147483648");
  EXPECT_EQ(member(true), "true");
  EXPECT_EQ(member(false), "false");
  EXPECT_EQ(member(3.5F), "3.5");
  EXPECT_EQ(member(10000000.0F), "1e+07");
  EXPECT_EQ(member(0.1F), "0.1");
  EXPECT_EQ(member(1234567.0F), "1.23457e+06");
  EXPECT_EQ(member(-0.0F), "-0");
  EXPECT_EQ(member(100.0F), "100");
  EXPECT_EQ(member(std::numeric_limits<float>::infinity()), "inf");
  EXPECT_EQ(member(Text("NULL")), "null");
  EXPECT_EQ(member(Text("null")), "\"null\"");
  EXPECT_EQ(member(Text("NULL ")), "\"NULL \"");
  EXPECT_EQ(member(Text("")), "\"\"");
  EXPECT_EQ(member(Text("5")), "\"5\"");
}

TEST(Json, escapesNothing) {
  EXPECT_EQ(member(Text("a\"b\\c\n\t\x01")), "\"a\"b\\c\n\t\x01\"");
  EXPECT_EQ(member(Text("\xc3\xa4\xff")), "\"\xc3\xa4\xff\"");
  EXPECT_EQ(member(Text(std::string("a\0b", 3))), std::string("\"a\0b\"", 5));
  ResultSet result = rowsOf({"c\"d\\"}, {1});
  result.message = "say \"hi\"\n";
  EXPECT_EQ(render(std::move(result)),
            "{\n  \"success\": true,\n  \"message\": \"say \"hi\"\n\",\n  \"rows_affected\": 0,\n"
            "  \"data\": [\n    {\"c\"d\\\": 1}\n  ]\n}");
}

void streamValue(std::ostream& out, const Value& value) {
  if (const auto* integer = std::get_if<std::int32_t>(&value)) out << *integer;
  if (const auto* real = std::get_if<float>(&value)) out << static_cast<double>(*real);
  if (const auto* truth = std::get_if<bool>(&value)) out << (*truth ? "true" : "false");
  if (const auto* text = std::get_if<Text>(&value)) {
    if (*text == Text("NULL")) {
      out << "null";
    } else {
      out << '"' << text->view() << '"';
    }
  }
}

// The text of an answer made with standard streams, value by value.
std::string streamed(const ResultSet& result, const std::vector<std::string>& columns,
                     const Values& values) {
  std::ostringstream out;
  out << "{\n  \"success\": " << (result.success ? "true" : "false") << ",\n  \"message\": \""
      << result.message << "\",\n  \"rows_affected\": " << result.rowsAffected;
  if (values.empty()) return out.str() + "\n}";
  out << ",\n  \"data\": [\n";
  const std::size_t width = columns.size();
  for (std::size_t i = 0; i < values.size(); ++i) {
    out << (i % width == 0 ? "    {\"" : ", \"") << columns[i % width] << "\": ";
    streamValue(out, values[i]);
    if (i % width + 1 == width) out << (i + 1 < values.size() ? "},\n" : "}\n");
  }
  return out.str() + "  ]\n}";
}

Value randomValue(std::mt19937& random) {
  switch (random() % 5) {
    case 0:
      return static_cast<std::int32_t>(random()) >> random() % 32;
    case 1: {
      const auto number = std::bit_cast<float>(static_cast<std::uint32_t>(random()));
      return std::isnan(number) ? 0.0F : number;
    }
    case 2:
      return random() % 2 == 0;
    case 3:
      return Text("NULL");
    default:
      return Text(std::string(random() % 40, static_cast<char>(random())));
  }
}

TEST(Json, agreesWithStreamsOnRandomAnswers) {
  std::mt19937 random(1);
  for (int round = 0; round < 3000; ++round) {
    std::vector<std::string> columns;
    for (std::size_t count = random() % 5; columns.size() < count;) {
      columns.push_back("column" + std::to_string(columns.size()));
    }
    Values values;
    for (std::size_t count = columns.size() * (random() % 6); values.size() < count;) {
      values.push_back(randomValue(random));
    }
    ResultSet result = rowsOf(columns, values);
    result.success = random() % 2 == 0;
    result.message = std::string(random() % 30, '"');
    result.rowsAffected = static_cast<std::int32_t>(random());
    ASSERT_EQ(render(std::move(result)), streamed(result, columns, values));
  }
}

TEST(Json, growsToManyRows) {
  Values values;
  while (values.size() < 200000) values.emplace_back(static_cast<std::int32_t>(values.size()));
  const std::vector<std::string> columns = {"a", "b"};
  ResultSet result = rowsOf(columns, values);
  EXPECT_EQ(render(std::move(result)), streamed(result, columns, values));
}

// Whatever the length of what is put in front of the rows, and of a value before there is memory.
TEST(Json, holdsMessagesAndValuesOfAnyLength) {
  for (std::size_t length = 0; length < 1500; ++length) {
    const std::string text(length, 'x');
    ASSERT_EQ(member(Text(text)), '"' + text + '"');
    ASSERT_EQ(render(refused(text)), "{\n  \"success\": false,\n  \"message\": \"Error: " + text +
                                         "\",\n  \"rows_affected\": 0\n}");
    ResultSet both = rowsOf({"a"}, {7, Text(text)});
    both.message = text;
    ASSERT_EQ(render(std::move(both)),
              "{\n  \"success\": true,\n  \"message\": \"" + text +
                  "\",\n  \"rows_affected\": 0,\n  \"data\": [\n    {\"a\": 7},\n    {\"a\": \"" +
                  text + "\"}\n  ]\n}");
  }
}

// The exported functions in a directory of their own.
class ExportedFunctions : public testing::Test {
 protected:
  ExportedFunctions() : previous_(fs::current_path()) {
    std::string name = (fs::temp_directory_path() / "velmora-result-XXXXXX").string();
    if (mkdtemp(name.data()) == nullptr) throw std::runtime_error("cannot make " + name);
    directory_ = name;
    fs::current_path(directory_);
  }
  ~ExportedFunctions() override {
    StopEngine();
    fs::current_path(previous_);
    std::error_code ignored;
    fs::remove_all(directory_, ignored);
  }

 private:
  fs::path previous_;
  fs::path directory_;
};

TEST_F(ExportedFunctions, answerFiftyTwoCharactersWhileStopped) {
  const std::string text = ExecuteQuery("SELECT * FROM t");
  EXPECT_EQ(text, "{\"success\": false, \"message\": \"Engine not started.\"}");
  EXPECT_EQ(text.size(), 52U);
  EXPECT_EQ(std::string(ExecuteQuery(nullptr)), text);
}

TEST_F(ExportedFunctions, keepOneBufferForAnswers) {
  StartEngine();
  const char* const first = ExecuteQuery("CREATE TABLE a x int");
  const std::string firstText = first;
  // A text of the same length, so that it must fit where the first one was.
  const char* const second = ExecuteQuery("CREATE TABLE b x int");
  EXPECT_EQ(first, second);
  EXPECT_EQ(std::string(second), firstText);
  const char* const third = ExecuteQuery("");
  EXPECT_EQ(
      std::string(third),
      "{\n  \"success\": false,\n  \"message\": \"Empty command\",\n  \"rows_affected\": 0\n}");
}

TEST_F(ExportedFunctions, keepTheLastAnswerOverAStop) {
  StartEngine();
  const char* const answer = ExecuteQuery("");
  const std::string text = answer;
  StopEngine();
  EXPECT_EQ(std::string(answer), text);
}

TEST_F(ExportedFunctions, letTheLogicErrorOfANullCommandOutAndGoOn) {
  StartEngine();
  EXPECT_THROW(ExecuteQuery(nullptr), std::logic_error);
  EXPECT_NE(std::string(ExecuteQuery("CREATE TABLE a x int")).find("success!"), std::string::npos);
}

TEST_F(ExportedFunctions, releaseTheLockWhenAConversionErrorLeaves) {
  StartEngine();
  ExecuteQuery("CREATE TABLE a x int");
  ExecuteQuery("INSERT INTO a x = 99999999999");
  EXPECT_THROW(ExecuteQuery("SELECT x FROM a"), std::out_of_range);
  EXPECT_THROW(ExecuteQuery("SELECT x FROM a"), std::out_of_range);
  const std::string answer = ExecuteQuery("UPDATE a SET x = 1");
  EXPECT_NE(answer.find("\"rows_affected\": 1"), std::string::npos);
}

}  // namespace
}  // namespace velmora
