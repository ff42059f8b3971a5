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
#include <typeinfo>
#include <vector>

#include "clock.h"
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

velmora_value real(double value) {
  velmora_value bound = {};
  bound.type = VELMORA_FLOAT;
  bound.real = value;
  return bound;
}

std::string answer(bool success, const std::string& message, int rows) {
  return std::string("{\n  \"success\": ") + (success ? "true" : "false") + ",\n  \"message\": \"" +
         message + "\",\n  \"rows_affected\": " + std::to_string(rows) + "\n}";
}

std::string refusal(const std::string& message) { return answer(false, message, 0); }

std::string unreadable(const std::string& what) {
  return refusal("Error: Text cannot be read as a number: " + what);
}

std::string outOfRange(const std::string& what) {
  return refusal("Error: Number is out of range: " + what);
}

std::string rowAnswer(const std::string& row) {
  return "{\n  \"success\": true,\n  \"message\": \"\",\n  \"rows_affected\": 1,\n"
         "  \"data\": [\n    " +
         row + "\n  ]\n}";
}

// The clock of a test that sets it.
struct TestClock {
  static void set(std::int64_t second) {
    now = second;
    clock::setSource([] { return now; });
  }
  static inline std::int64_t now = 0;
};

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
    clock::setSource(nullptr);
    fs::current_path(before_);
    std::error_code ignored;
    fs::remove_all(directory_, ignored);
  }

  static void start() { ASSERT_EQ(velmora_start(nullptr), 0); }

  // Has the engine stop over rows that no file can hold.
  static void stopWithout(const std::vector<std::string>& tables) {
    for (const std::string& table : tables) query("DELETE FROM " + table);
    EXPECT_EQ(velmora_stop(nullptr), 0);
  }

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
            unreadable("'many' for table 't', column 'a'"));
  EXPECT_EQ(query("SELECT a FROM t WHERE a > 99999999999"),
            outOfRange("'99999999999' for table 't', column 'a'"));
  EXPECT_EQ(query("SELECT a FROM t WHERE f < 1"),
            unreadable("null in table 't', column 'f', row 0"));
  EXPECT_EQ(query("INSERT INTO t v = 1 --> 2 @ 99999999999999999999 s"),
            outOfRange("'99999999999999999999' for table 't', column 'v'"));
  EXPECT_EQ(query("CREATE TABLE u s string(99999999999)"),
            outOfRange("'99999999999' for table 'u', column 's'"));
  EXPECT_EQ(query("SELECT a FROM t"), rowAnswer("{\"a\": 1}"));
}

TEST_F(GuardedTest, AStoredTextThatIsNoNumberIsNamed) {
  start();
  query("CREATE TABLE t a int f float");
  const std::string large(40, '9');
  for (const std::string& a : {std::string("1"), std::string("2"), std::string("99999999999")}) {
    query("INSERT INTO t a = " + a + " f = " + large);
  }
  query("DELETE FROM t WHERE a = 1");
  EXPECT_EQ(query("SELECT a FROM t"), outOfRange("'99999999999' in table 't', column 'a', row 2"));
  EXPECT_EQ(query("SELECT f FROM t"),
            outOfRange("'" + large + "' in table 't', column 'f', row 1"));
  const std::string inRow2 = outOfRange("'99999999999' in table 't', column 'a', row 2");
  for (const char* condition : {"a > 1", "a < 1", "a >= 1", "a <= 1", "a = 2 || a > many"}) {
    const std::string filter = std::string(" WHERE ") + condition;
    const std::string expected =
        filter.ends_with("many") ? unreadable("'many' for table 't', column 'a'") : inRow2;
    EXPECT_EQ(query("SELECT a FROM t" + filter), expected) << filter;
    EXPECT_EQ(query("UPDATE t SET f = 1" + filter), expected) << filter;
    EXPECT_EQ(query("DELETE FROM t" + filter), expected) << filter;
  }
  EXPECT_EQ(query("SELECT a FROM t WHERE f > 1"),
            outOfRange("'" + large + "' in table 't', column 'f', row 1"));
  stopWithout({"t"});
}

TEST_F(GuardedTest, AStoredTextThatIsNoNumberIsNamedInALargeTable) {
  start();
  query("CREATE TABLE t id ApexInt a int");
  for (int i = 0; i < 3000; ++i) query("INSERT INTO t a = " + std::to_string(i));
  query("UPDATE t SET a = 99999999999 WHERE id = 2001");
  const std::string named = outOfRange("'99999999999' in table 't', column 'a', row 2000");
  EXPECT_EQ(query("SELECT id FROM t WHERE a > 7"), named);
  EXPECT_EQ(query("SELECT id FROM t WHERE id > 7 && a > 7"), named);
  EXPECT_EQ(query("SELECT id FROM t WHERE a > many"),
            unreadable("'many' for table 't', column 'a'"));
  stopWithout({"t"});
}

TEST_F(GuardedTest, AKeyThatIsNoNumberIsNamed) {
  start();
  query("CREATE TABLE t id ApexInt a int");
  for (const char* filter : {"id = many", "id > many", "a = 1 || id <= many", "id = 1 && id = many",
                             "a = 1 && id = many"}) {
    const bool neverAsked = std::string(filter) == "id = 1 && id = many";
    EXPECT_EQ(query(std::string("SELECT a FROM t WHERE ") + filter),
              neverAsked ? answer(true, "", 0) : unreadable("'many' for table 't', column 'id'"))
        << filter;
  }
  query("INSERT INTO t a = 1");
  EXPECT_EQ(query("DELETE FROM t WHERE id = 99999999999"),
            outOfRange("'99999999999' for table 't', column 'id'"));
}

TEST_F(GuardedTest, AKeyToBeStoredThatIsNoNumberIsNamed) {
  start();
  query("CREATE TABLE parents k int 2");
  query("CREATE TABLE children p int");
  query("LINK children.p --> parents.k");
  query("INSERT INTO parents k = 1");
  query("INSERT INTO children p = 1");
  EXPECT_EQ(query("INSERT INTO parents k = 99999999999"),
            outOfRange("'99999999999' in table 'parents', column 'k', row 1"));
  query("INSERT INTO parents k = 2");
  EXPECT_EQ(query("UPDATE parents SET k = 99999999999 WHERE k = 2"),
            outOfRange("'99999999999' in table 'parents', column 'k', row 1"));
  EXPECT_EQ(query("INSERT INTO children p = 99999999999"),
            outOfRange("'99999999999' in table 'children', column 'p', row 1"));
  EXPECT_EQ(query("UPDATE children SET p = 99999999999"),
            outOfRange("'99999999999' in table 'children', column 'p', row 0"));
  stopWithout({"children"});
}

TEST_F(GuardedTest, ALinkOverTextsThatAreNoNumbersNamesThem) {
  start();
  query("CREATE TABLE parents k int");
  query("CREATE TABLE children p int");
  query("INSERT INTO parents k = 1");
  query("INSERT INTO parents k = 99999999999");
  query("INSERT INTO children p = 1");
  query("INSERT INTO children p = 1");
  query("INSERT INTO children p = 99999999999");
  EXPECT_EQ(query("LINK children.p --> parents.k"),
            outOfRange("'99999999999' in table 'parents', column 'k', row 1"));
  query("UPDATE parents SET k = 2 WHERE k != 1");
  EXPECT_EQ(query("LINK children.p --> parents.k"),
            outOfRange("'99999999999' in table 'children', column 'p', row 2"));
  stopWithout({"children"});
}

TEST_F(GuardedTest, AJoinNamesTheTableOfAText) {
  start();
  query("CREATE TABLE l a int x int");
  query("CREATE TABLE r b int y int");
  query("INSERT INTO l a = 1 x = 1");
  query("INSERT INTO r b = 2 y = 1");
  query("INSERT INTO r b = 1 y = 99999999999");
  const std::string join = " FROM l JOIN r ON l.a = r.b";
  const std::string named = outOfRange("'99999999999' in table 'r', column 'y', row 1");
  EXPECT_EQ(query("SELECT x, y" + join), named);
  EXPECT_EQ(query("SELECT x" + join + " WHERE y < 5"), named);
  EXPECT_EQ(query("SELECT x" + join + " WHERE x < few"),
            unreadable("'few' for table 'l', column 'x'"));
  stopWithout({"r"});
}

TEST_F(GuardedTest, ACheckpointNamesWhatItCannotWrite) {
  start();
  query("CREATE TABLE fitting s string 2 a int f float");
  query("INSERT INTO fitting a = 1 f = 99999999999");
  query("INSERT INTO fitting a = 2 f = 99999999999");
  query("UPDATE fitting SET a = 99999999999 WHERE a = 2");
  EXPECT_EQ(query("CHECKPOINT"), outOfRange("'99999999999' in table 'fitting', column 'a', row 1"));
  query("DROP TABLE fitting");
  query("CREATE TABLE shifted s string(10) f float");
  query("INSERT INTO shifted f = " + std::string(100, '9'));
  const std::string named =
      "'" + std::string(60, '9') + "...' in table 'shifted', column 'f', row 0";
  EXPECT_EQ(query("CHECKPOINT"), outOfRange(named));
  char* message = nullptr;
  EXPECT_NE(velmora_stop(&message), 0);
  EXPECT_EQ(taken(message), "Number is out of range: " + named);
  query("DELETE FROM shifted");
  EXPECT_EQ(velmora_stop(nullptr), 0) << "nobody reads a deleted row";
}

// An identity can be a timed value, and come to show a text that is no number.
TEST_F(GuardedTest, AnIdentityThatIsNoNumberIsNamed) {
  TestClock::set(1'700'000'000);
  start();
  query("CREATE TABLE t id ApexInt 2 a int");
  query("INSERT INTO t a = 1");
  query("INSERT INTO t id = 2 --> 99999999999 @ 1 h");
  TestClock::set(1'700'003'600);
  const std::string named = "'99999999999' in table 't', column 'id', row 1";
  EXPECT_EQ(query("INSERT INTO t a = 2"), outOfRange(named));
  EXPECT_EQ(query("SELECT id FROM t"), outOfRange(named));
  ASSERT_EQ(velmora_stop(nullptr), 0);
  ASSERT_EQ(velmora_start(nullptr), 0);
  EXPECT_EQ(query("SELECT id FROM t"), outOfRange(named));
}

TEST_F(GuardedTest, TextsInMessagesAreShortAndPrintable) {
  start();
  query("CREATE TABLE 'a\tb' 'c\nd' int");
  query("INSERT INTO 'a\tb' 'c\nd' = 1");
  query("CREATE TABLE t n int");
  query("INSERT INTO t n = 1");
  EXPECT_EQ(query("SELECT n FROM t WHERE n > 'x\ny\x01\x7f\"'"),
            unreadable("'x\\\\x0ay\\\\x01\\\\x7f\\\"' for table 't', column 'n'"));
  const std::string long59(59, 'x');
  EXPECT_EQ(query("SELECT n FROM t WHERE n > '" + long59 + "y'"),
            unreadable("'" + long59 + "y' for table 't', column 'n'"));
  EXPECT_EQ(query("SELECT n FROM t WHERE n > '" + long59 + "yz'"),
            unreadable("'" + long59 + "y...' for table 't', column 'n'"));
  EXPECT_EQ(query("SELECT n FROM t WHERE n > '" + long59 + "\xc3\xa4z'"),
            unreadable("'" + long59 + "...' for table 't', column 'n'"))
      << "not cut within a character";
}

// The runtime names the type of an exception that nobody catches.
TEST_F(GuardedTest, ThePlainFunctionsLetOutTheStandardTypesThemselves) {
  const auto typeOf = [](auto run) {
    try {
      run();
    } catch (const std::exception& error) {
      return std::string(error.what()) +
             (typeid(error) == typeid(std::out_of_range)       ? " out_of_range"
              : typeid(error) == typeid(std::invalid_argument) ? " invalid_argument"
                                                               : " another");
    }
    return std::string("none");
  };
  start();
  query("CREATE TABLE t a int f float");
  query("INSERT INTO t a = 99999999999");
  EXPECT_EQ(typeOf([] { ExecuteQuery("SELECT a FROM t"); }), "stoi out_of_range");
  EXPECT_EQ(typeOf([] { ExecuteQuery("SELECT a FROM t WHERE f < 1"); }), "stof invalid_argument");
  EXPECT_EQ(typeOf([] { ExecuteQuery("CHECKPOINT"); }), "stoi out_of_range");
  EXPECT_EQ(typeOf([] { StopEngine(); }), "stoi out_of_range");
  query("DELETE FROM t");
}

TEST_F(GuardedTest, AFailedStopIsAStatusAndTheEngineStays) {
  start();
  query("CREATE TABLE t a int");
  query("INSERT INTO t a = 99999999999");
  char* message = nullptr;
  EXPECT_NE(velmora_stop(&message), 0);
  EXPECT_EQ(taken(message),
            "Number is out of range: '99999999999' in table 't', column 'a', row 0");
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
  velmora_value no = {};
  no.type = VELMORA_BOOL;
  const std::string name = "x' admin = true y = '";
  EXPECT_EQ(query("INSERT INTO users name = ? admin = ? score = ?", {text(name), no, real(2.5)}),
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

TEST_F(GuardedTest, AnIntColumnTakesWholeFloatsOnly) {
  start();
  query("CREATE TABLE t id ApexInt s string n int f float");
  for (const double value : {5.0, -0.0, -2147483648.0, 2147483520.0, 2.0000000001}) {
    EXPECT_EQ(query("INSERT INTO t n = ?", {real(value)}), answer(true, "success!", 1)) << value;
  }
  EXPECT_EQ(query("SELECT n FROM t WHERE id = 1"), rowAnswer("{\"n\": 5}"));
  EXPECT_EQ(query("SELECT n FROM t WHERE id = 3"), rowAnswer("{\"n\": -2147483648}"));
  const std::string refused =
      refusal("Error: Parameter 2 is a float that int column 'n' cannot hold");
  // The last is below 2147483648, but no longer as a float of 32 bits.
  for (const double value : {2.5, -0.5, 2767891499.0, -2147483904.0, 1e30, 2147483647.0}) {
    EXPECT_EQ(query("INSERT INTO t s = ? n = ?", {text("x"), real(value)}), refused) << value;
    EXPECT_EQ(query("UPDATE t SET s = ? n = ?", {text("x"), real(value)}), refused) << value;
  }
  EXPECT_EQ(query("INSERT INTO t id = ?", {real(2.5)}),
            refusal("Error: Parameter 1 is a float that ApexInt column 'id' cannot hold"));
  EXPECT_EQ(query("SELECT id FROM t WHERE s = 'x'"), answer(true, "", 0));
  EXPECT_EQ(query("INSERT INTO t f = ?", {real(2767891499.0)}), answer(true, "success!", 1));
  EXPECT_EQ(velmora_stop(nullptr), 0);
}

TEST_F(GuardedTest, StatesOfAnIntColumnAreWholeFloatsOnly) {
  start();
  query("CREATE TABLE t n int 3");
  const std::string command = "INSERT INTO t n = (? --> ? @ ? h --> ? @ 1 h)";
  const std::string message = " is a float that int column 'n' cannot hold";
  EXPECT_EQ(query(command, {real(0.5), real(2), real(1), real(3)}),
            refusal("Error: Parameter 1" + message));
  EXPECT_EQ(query(command, {real(1), real(2.5), real(1), real(3)}),
            refusal("Error: Parameter 2" + message));
  EXPECT_EQ(query(command, {real(1), real(2), real(1), real(3e9)}),
            refusal("Error: Parameter 4" + message));
  EXPECT_EQ(query("SELECT n FROM t"), answer(true, "", 0));
  EXPECT_EQ(query(command, {real(1), real(2), real(1.5), real(3)}), answer(true, "success!", 1))
      << "a duration is no value of the column";
  EXPECT_EQ(query("SELECT n FROM t"), rowAnswer("{\"n\": 1}"));
}

// What is typed is stored as it is, and a float may be compared with any number.
TEST_F(GuardedTest, OnlyBoundFloatsAreHeldToTheColumn) {
  start();
  query("CREATE TABLE t n int");
  EXPECT_EQ(query("INSERT INTO t n = 2.5"), answer(true, "success!", 1));
  EXPECT_EQ(query("INSERT INTO t n = 2.5", {}), answer(true, "success!", 1));
  EXPECT_EQ(query("UPDATE t SET n = 7.5 WHERE n = ?", {real(2.5)}), answer(true, "success!", 2));
  EXPECT_EQ(query("SELECT n FROM t WHERE n > ? && n < ?", {real(6.5), real(8.5)}).substr(0, 19),
            "{\n  \"success\": true");
  EXPECT_EQ(query("UPDATE t SET n = ?", {real(2.5)}),
            refusal("Error: Parameter 1 is a float that int column 'n' cannot hold"));
  EXPECT_EQ(query("UPDATE t SET n = 2.5"), answer(true, "success!", 2))
      << "values of an earlier command are forgotten";
  EXPECT_STREQ(ExecuteQuery("UPDATE t SET n = 3.5"), answer(true, "success!", 2).c_str());
}

// The log has the digits; what they were bound from is not asked in a replay.
TEST_F(GuardedTest, BoundFloatsAreLoggedAsDigits) {
  start();
  query("CREATE TABLE t n int f float");
  query("INSERT INTO t n = ? f = ?", {real(5), real(2767891499.0)});
  query("INSERT INTO t n = ? f = ?", {real(2.5), real(1)});
  std::ifstream log("velmora.wal");
  std::ostringstream lines;
  lines << log.rdbuf();
  EXPECT_NE(lines.str().find("INSERT INTO t n = 5 f = 2767891456 #TIME# "), std::string::npos);
  EXPECT_EQ(lines.str().find("2.5"), std::string::npos);
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
  result.rows.addFloat(std::numeric_limits<float>::infinity());
  result.rows.addFloat(std::numeric_limits<float>::quiet_NaN());
  result.rows.addFloat(2.5F);
  EXPECT_EQ(renderJson(std::move(result), JsonStyle::valid).view(),
            "{\n  \"success\": true,\n  \"message\": \"\",\n  \"rows_affected\": 0,\n"
            "  \"data\": [\n    {\"c\": null, \"d\\\"\": null, \"e\": 2.5}\n  ]\n}");
}

}  // namespace
}  // namespace velmora
