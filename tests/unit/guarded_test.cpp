// The guarded exported functions: no failure leaves them otherwise than as an answer or a status,
// answers are copies and valid JSON, and they share the one engine with the plain functions.

#include <gtest/gtest.h>
#include <stdlib.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <limits>
#include <regex>
#include <sstream>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "json_text.h"
#include "result_set.h"
#include "storage/storage.h"
#include "velmora/velmora.h"

namespace velmora {
namespace {

namespace fs = std::filesystem;

std::string taken(char* text) {
  const std::string copy = text == nullptr ? "(null)" : text;
  velmora_free(text);
  return copy;
}

std::string query(const std::string& command) { return taken(velmora_query(command.c_str())); }

std::string query(const std::string& command, const std::vector<velmora_value>& values) {
  return taken(velmora_query_bound(command.c_str(), values.data(), values.size()));
}

velmora_value text(const std::string& value) {
  velmora_value bound = {};
  bound.type = VELMORA_TEXT;
  bound.text = value.data();
  bound.text_size = value.size();
  return bound;
}

std::string answer(bool success, const std::string& message, int rows) {
  return std::string("{\n  \"success\": ") + (success ? "true" : "false") + ",\n  \"message\": \"" +
         message + "\",\n  \"rows_affected\": " + std::to_string(rows) + "\n}";
}

std::string refusal(const std::string& message) { return answer(false, message, 0); }

std::string rowAnswer(const std::string& row) {
  return "{\n  \"success\": true,\n  \"message\": \"\",\n  \"rows_affected\": 1,\n"
         "  \"data\": [\n    " +
         row + "\n  ]\n}";
}

// Each test runs in a directory of its own, with the engine stopped before and behind it.
class GuardedTest : public testing::Test {
 protected:
  GuardedTest() : before_(fs::current_path()) {
    std::string name = (fs::temp_directory_path() / "velmora-guarded-XXXXXX").string();
    if (mkdtemp(name.data()) == nullptr) throw std::runtime_error("cannot make " + name);
    directory_ = name;
    fs::current_path(directory_);
  }
  ~GuardedTest() override {
    velmora_stop(nullptr);
    fs::current_path(before_);
    std::error_code ignored;
    fs::remove_all(directory_, ignored);
  }

  static void start() { ASSERT_EQ(velmora_start(nullptr), 0); }

  // Leaves a stopped engine with a table file whose first states limit is this character.
  static void makeTableWithLimit(char limit) {
    start();
    query("CREATE TABLE t a int");
    query("CHECKPOINT");
    ASSERT_EQ(velmora_stop(nullptr), 0);
    setLimit(limit);
  }
  static void setLimit(char limit) {
    std::fstream file("t.bin", std::ios::in | std::ios::out | std::ios::binary);
    file.seekp(45);
    file.put(limit);
    ASSERT_TRUE(file.good());
  }

 private:
  fs::path before_;
  fs::path directory_;
};

TEST_F(GuardedTest, AnswersAsThePlainFunctionsDo) {
  start();
  EXPECT_EQ(query("CREATE TABLE t id ApexInt a int f float b bool s string"),
            answer(true, "success!", 0));
  EXPECT_EQ(query("INSERT INTO t a = 1 f = 2.5 b = true s = 'x'"), answer(true, "success!", 1));
  EXPECT_EQ(query("INSERT INTO t s = 'NULL'"), answer(true, "success!", 1));
  for (const char* command :
       {"SELECT * FROM t", "SELECT s FROM t WHERE a = 9", "SELECT * FROM nowhere", "", "select ;",
        "SELECT t.s FROM t JOIN t ON id = id", "UPDATE t SET a = 2", "DELETE FROM t WHERE a = 3"}) {
    EXPECT_EQ(query(command), ExecuteQuery(command)) << command;
  }
}

TEST_F(GuardedTest, StopAndStartMayBeRepeated) {
  char* message = nullptr;
  EXPECT_EQ(velmora_stop(&message), 0);
  EXPECT_EQ(message, nullptr);
  EXPECT_EQ(velmora_start(&message), 0);
  EXPECT_EQ(velmora_start(&message), 0);
  EXPECT_EQ(message, nullptr);
  query("CREATE TABLE t a int");
  query("INSERT INTO t a = 5");
  EXPECT_EQ(velmora_stop(nullptr), 0);
  EXPECT_EQ(velmora_stop(nullptr), 0);
  EXPECT_EQ(velmora_start(nullptr), 0);
  EXPECT_EQ(query("SELECT a FROM t"), rowAnswer("{\"a\": 5}"));
}

TEST_F(GuardedTest, SharesTheEngineWithThePlainFunctions) {
  StartEngine();
  EXPECT_EQ(query("CREATE TABLE t a int"), answer(true, "success!", 0));
  const char* const plain = ExecuteQuery("INSERT INTO t a = 1");
  EXPECT_EQ(query("SELECT a FROM t"), rowAnswer("{\"a\": 1}"));
  EXPECT_EQ(plain, answer(true, "success!", 1)) << "a plain answer outlives a guarded call";
  EXPECT_EQ(velmora_stop(nullptr), 0);
  EXPECT_STREQ(ExecuteQuery("SELECT a FROM t"),
               "{\"success\": false, \"message\": \"Engine not started.\"}");
}

TEST_F(GuardedTest, AnswersWithoutAnEngine) {
  EXPECT_EQ(query("SELECT a FROM t"), refusal("Engine not started."));
  EXPECT_EQ(query("SELECT ? FROM t", {text("a")}), refusal("Engine not started."));
}

TEST_F(GuardedTest, AnswersToNullArguments) {
  start();
  EXPECT_EQ(taken(velmora_query(nullptr)), refusal("Error: Command is null"));
  EXPECT_EQ(taken(velmora_query_bound(nullptr, nullptr, 0)), refusal("Error: Command is null"));
  EXPECT_EQ(taken(velmora_query_bound("?", nullptr, 1)), refusal("Error: Values are null"));
  EXPECT_EQ(taken(velmora_query_bound("BEGIN", nullptr, 0)),
            answer(true, "Transaction Started. Sandbox active.", 0));
  velmora_free(nullptr);
}

TEST_F(GuardedTest, EscapingConversionsAreAnswers) {
  start();
  query("CREATE TABLE t a int f float v int 2");
  query("INSERT INTO t a = 1");
  EXPECT_EQ(query("SELECT a FROM t WHERE a > many"),
            refusal("Error: Text cannot be read as a number"));
  EXPECT_EQ(query("SELECT a FROM t WHERE a > 99999999999"),
            refusal("Error: Number is out of range"));
  EXPECT_EQ(query("SELECT a FROM t WHERE f < 1"),
            refusal("Error: Text cannot be read as a number"));
  EXPECT_EQ(query("INSERT INTO t v = 1 --> 2 @ 99999999999999999999 s"),
            refusal("Error: Number is out of range"));
  EXPECT_EQ(query("SELECT a FROM t"), rowAnswer("{\"a\": 1}"));
}

TEST_F(GuardedTest, AFailedStopIsAStatusAndTheEngineStays) {
  start();
  query("CREATE TABLE t a int");
  query("INSERT INTO t a = 99999999999");
  char* message = nullptr;
  EXPECT_NE(velmora_stop(&message), 0);
  EXPECT_EQ(taken(message), "Number is out of range");
  EXPECT_NE(velmora_stop(nullptr), 0);
  EXPECT_EQ(query("DELETE FROM t"), answer(true, "success!", 1));
  EXPECT_EQ(query("DROP TABLE t"), answer(true, "success! Table t dropped from disk.", 0));
  EXPECT_EQ(velmora_stop(nullptr), 0);
}

TEST_F(GuardedTest, AFailedStartIsAStatusAndCanBeRepeated) {
  makeTableWithLimit('x');
  char* message = nullptr;
  EXPECT_NE(velmora_start(&message), 0);
  EXPECT_EQ(taken(message), "Corrupt table file: t.bin");
  EXPECT_EQ(query("SELECT a FROM t"), refusal("Engine not started."));
  EXPECT_NE(velmora_start(nullptr), 0);
  setLimit('0');
  EXPECT_EQ(velmora_start(nullptr), 0);
  EXPECT_EQ(query("INSERT INTO t a = 1"), answer(true, "success!", 1));
}

TEST_F(GuardedTest, StartsBehindAPlainStartThatFailed) {
  makeTableWithLimit('x');
  EXPECT_THROW(StartEngine(), std::runtime_error);
  setLimit('0');
  StartEngine();
  EXPECT_EQ(query("INSERT INTO t a = 1"), refusal("Engine not started."));
  EXPECT_EQ(velmora_start(nullptr), 0);
  EXPECT_EQ(query("INSERT INTO t a = 1"), answer(true, "success!", 1));
}

TEST_F(GuardedTest, ADirectoryInUseIsAStatus) {
  const DirectoryLock other;
  char* message = nullptr;
  EXPECT_NE(velmora_start(&message), 0);
  EXPECT_EQ(taken(message), "Database directory is already in use");
}

TEST_F(GuardedTest, TextsAreEscaped) {
  start();
  query("CREATE TABLE t s string");
  query("INSERT INTO t s = '\"\\/\b\f\n\r\t\x01\x1f\x7f'");
  EXPECT_EQ(query("SELECT s FROM t"),
            rowAnswer("{\"s\": \"\\\"\\\\/\\b\\f\\n\\r\\t\\u0001\\u001f\x7f\"}"));
}

TEST_F(GuardedTest, ColumnNamesAndMessagesAreEscaped) {
  start();
  query("CREATE TABLE t 'a\"\\' string '\xff' int n int");
  query("INSERT INTO t n = 1");
  EXPECT_EQ(query("SELECT * FROM t"),
            rowAnswer("{\"a\\\"\\\\\": null, \"\xEF\xBF\xBD\": 0, \"n\": 1}"));
  EXPECT_EQ(query("SELECT * FROM 'no\"\n\xfe'"),
            refusal("Error: Syntax Error: Table 'no\\\"\\n\xEF\xBF\xBD' does not exist."));
}

TEST_F(GuardedTest, ValuesAreBound) {
  start();
  query("CREATE TABLE users id ApexInt name string admin bool score float 2");
  velmora_value score = {};
  score.type = VELMORA_FLOAT;
  score.real = 2.5;
  velmora_value no = {};
  no.type = VELMORA_BOOL;
  const std::string name = "x' admin = true y = '";
  EXPECT_EQ(query("INSERT INTO users name = ? admin = ? score = ?", {text(name), no, score}),
            answer(true, "success!", 1));
  EXPECT_EQ(query("SELECT * FROM users WHERE name = ?", {text(name)}),
            rowAnswer("{\"id\": 1, \"name\": \"x' admin = true y = '\", \"admin\": false, "
                      "\"score\": 2.5}"));
}

TEST_F(GuardedTest, RefusedValuesRunNothing) {
  start();
  query("CREATE TABLE t s string");
  EXPECT_EQ(query("INSERT INTO t s = ?", {text("'\"")}),
            refusal("Error: Parameter 1 is a text with both kinds of quotes"));
  EXPECT_EQ(query("INSERT INTO t s = ?"), refusal("Lexer Error"));
  EXPECT_EQ(query("INSERT INTO t s = ?", {}),
            refusal("Error: Command has 1 placeholder for 0 values"));
  EXPECT_EQ(query("SELECT s FROM t"), answer(true, "", 0));
}

TEST_F(GuardedTest, AClockMayBeBound) {
  start();
  query("CREATE TABLE t s string 2");
  velmora_value hour = {};
  hour.integer = 1;
  velmora_value clock = {};
  clock.integer = 1'600'000'000;
  EXPECT_EQ(query("INSERT INTO t s = ? --> ? @ ? h #TIME# ?",
                  {text("before"), text("after"), hour, clock}),
            answer(true, "success!", 1));
  EXPECT_EQ(query("SELECT s FROM t"), rowAnswer("{\"s\": \"after\"}"));
}

TEST_F(GuardedTest, BoundValuesSurviveARestart) {
  start();
  query("CREATE TABLE t s string");
  const std::string lines = "two\nlines: INSERT INTO t s = 'x' #TIME# ";
  query("INSERT INTO t s = ?", {text(lines)});
  ASSERT_EQ(velmora_stop(nullptr), 0);
  start();
  EXPECT_EQ(query("SELECT s FROM t"),
            rowAnswer("{\"s\": \"two\\nlines: INSERT INTO t s = 'x' #TIME# \"}"));
}

TEST_F(GuardedTest, ThreadsGetTheirOwnAnswers) {
  start();
  query("CREATE TABLE t a int");
  for (int i = 0; i < 4; ++i) query("INSERT INTO t a = " + std::to_string(i));
  std::vector<std::thread> threads;
  for (int i = 0; i < 4; ++i) {
    threads.emplace_back([i] {
      const std::string number = std::to_string(i);
      for (int round = 0; round < 100; ++round) {
        EXPECT_EQ(query("SELECT a FROM t WHERE a = " + number),
                  rowAnswer("{\"a\": " + number + "}"));
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
}

TEST(GuardedVersion, IsThatOfTheProject) {
  EXPECT_STREQ(velmora_version(), VELMORA_VERSION);
  std::ifstream file(VELMORA_SOURCE_DIR "/CMakeLists.txt");
  std::ostringstream project;
  project << file.rdbuf();
  std::smatch match;
  const std::string all = project.str();
  ASSERT_TRUE(std::regex_search(all, match, std::regex("project\\(velmora VERSION ([0-9.]+)")));
  EXPECT_EQ(match[1], VELMORA_VERSION);
}

std::string jsonText(std::string_view text) {
  std::string out;
  appendJsonText(out, text);
  return out;
}

TEST(JsonText, KeepsUtf8AndReplacesTheRest) {
  const std::string bad = "\xEF\xBF\xBD";
  EXPECT_EQ(jsonText("\xc3\xa4 \xe2\x82\xac \xf0\x9f\x98\x80"),
            "\xc3\xa4 \xe2\x82\xac \xf0\x9f\x98\x80");
  EXPECT_EQ(jsonText("\xed\x9f\xbf\xee\x80\x80\xf4\x8f\xbf\xbf\xc2\x80\xe0\xa0\x80"),
            "\xed\x9f\xbf\xee\x80\x80\xf4\x8f\xbf\xbf\xc2\x80\xe0\xa0\x80");
  EXPECT_EQ(jsonText("a\xff z"), "a" + bad + " z");
  EXPECT_EQ(jsonText("\x80\xbf"), bad + bad) << "continuation bytes alone";
  EXPECT_EQ(jsonText("\xc0\xaf"), bad + bad) << "an overlong form";
  EXPECT_EQ(jsonText("\xe0\x9f\xbf"), bad + bad + bad) << "an overlong form";
  EXPECT_EQ(jsonText("\xed\xa0\x80"), bad + bad + bad) << "a surrogate";
  EXPECT_EQ(jsonText("\xf4\x90\x80\x80"), bad + bad + bad + bad) << "past U+10FFFF";
  EXPECT_EQ(jsonText("\xf5x"), bad + "x");
  EXPECT_EQ(jsonText("\xf5\x80\x80\x80"), bad + bad + bad + bad) << "no UTF-8 begins so";
  EXPECT_EQ(jsonText("\xc1\x80"), bad + bad) << "an overlong form";
  EXPECT_EQ(jsonText("\xe2\x82"), bad) << "cut off by the end";
  EXPECT_EQ(jsonText("\xe2\x82z"), bad + "z") << "cut off by another character";
  EXPECT_EQ(jsonText("\xf0\x9f\x98\xc3\xa4"), bad + "\xc3\xa4");
  EXPECT_EQ(jsonText(std::string_view("a\0b", 3)), "a\\u0000b");
}

TEST(ValidJson, HasNoNumbersThatAreNotFinite) {
  ResultSet result;
  result.columns = {"c", "d\"", "e"};
  result.rows.begin(result.columns, {JsonStyle::valid});
  result.rows.add(std::numeric_limits<float>::infinity());
  result.rows.add(std::numeric_limits<float>::quiet_NaN());
  result.rows.add(2.5F);
  EXPECT_EQ(renderJson(std::move(result), JsonStyle::valid).view(),
            "{\n  \"success\": true,\n  \"message\": \"\",\n  \"rows_affected\": 0,\n"
            "  \"data\": [\n    {\"c\": null, \"d\\\"\": null, \"e\": 2.5}\n  ]\n}");
}

}  // namespace
}  // namespace velmora
