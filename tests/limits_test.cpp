// How far the engine goes: long commands and texts, wide rows, many conditions and states, a long
// transaction, and the numbers that run out. Each test prints what it tried and how long it took;
// under sanitizers the sizes are a tenth.
#include <gtest/gtest.h>
#include <sys/mman.h>
#include <unistd.h>

#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <stdexcept>
#include <string>
#include <string_view>

#include "record_io.h"
#include "text.h"
#include "velmora/velmora.h"

namespace velmora {
namespace {

namespace fs = std::filesystem;

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr int scale = 10;
#elif defined(__has_feature)
#if __has_feature(address_sanitizer) || __has_feature(thread_sanitizer)
constexpr int scale = 10;
#else
constexpr int scale = 1;
#endif
#else
constexpr int scale = 1;
#endif

constexpr int manyRows = 1'000'000 / scale;
constexpr int manyChildren = 200'000 / scale;
constexpr std::size_t longText = (std::size_t{16} << 20U) / scale;
constexpr int manyColumns = 1000;
constexpr int manyConditions = 10'000;
constexpr int mostStates = 65'535;
constexpr int manyStates = mostStates / scale;

class LimitsTest : public testing::Test {
 protected:
  LimitsTest() : previous_(fs::current_path()) {
    const bool hasMemoryFiles = access("/dev/shm", W_OK) == 0;
    const fs::path parent = hasMemoryFiles ? "/dev/shm" : fs::temp_directory_path();
    std::string name = parent / "velmora-limits-XXXXXX";
    if (mkdtemp(name.data()) == nullptr) throw std::runtime_error("cannot make " + name);
    path_ = name;
    fs::current_path(path_);
    start();
  }
  ~LimitsTest() override {
    try {
      StopEngine();
    } catch (const std::exception& error) {
      ADD_FAILURE() << "the stop failed: " << error.what();
    }
    fs::current_path(previous_);
    std::error_code ignored;
    fs::remove_all(path_, ignored);
  }

  static void start() {
    std::streambuf* const output = std::cout.rdbuf(nullptr);
    StartEngine();
    std::cout.rdbuf(output);
  }
  static void restart() {
    StopEngine();
    start();
  }

  static std::string run(const std::string& command) { return ExecuteQuery(command.c_str()); }
  static void expectSuccess(const std::string& command) {
    const std::string answer = run(command);
    ASSERT_NE(answer.find("\"success\": true"), std::string::npos) << command.substr(0, 100) << "\n"
                                                                   << answer.substr(0, 500);
  }
  static std::string failure(const std::string& message) {
    return "{\n  \"success\": false,\n  \"message\": \"" + message +
           "\",\n  \"rows_affected\": 0\n}";
  }
  static std::string countOf(const std::string& answer) {
    const std::string label = "\"rows_affected\": ";
    const std::size_t start = answer.find(label) + label.size();
    return answer.substr(start, answer.find_first_of(",\n", start) - start);
  }

  // Runs a call and prints what was tried with the time it took.
  template <typename Call>
  static void timed(const std::string& what, Call call) {
    const auto before = std::chrono::steady_clock::now();
    call();
    const std::chrono::duration<double> taken = std::chrono::steady_clock::now() - before;
    std::printf("             %-60s %9.3f s\n", what.c_str(), taken.count());
  }

 private:
  fs::path previous_;
  fs::path path_;
};

TEST_F(LimitsTest, aTransactionOfManyRowsIsRolledBack) {
  expectSuccess("CREATE TABLE t id ApexInt name string age int");
  expectSuccess("INSERT INTO t name = 'before' age = 1");
  expectSuccess("BEGIN");
  const std::string count = std::to_string(manyRows);
  timed(count + " INSERT in one transaction", [] {
    for (int i = 0; i < manyRows; ++i) run("INSERT INTO t name = 'within' age = 2");
  });
  timed("UPDATE of all its rows", [] { expectSuccess("UPDATE t SET age = 3"); });
  EXPECT_EQ(countOf(run("SELECT id FROM t WHERE age = 3")), std::to_string(manyRows + 1));
  timed("ROLLBACK of both", [] { expectSuccess("ROLLBACK"); });
  EXPECT_EQ(run("SELECT * FROM t"),
            "{\n  \"success\": true,\n  \"message\": \"\",\n  \"rows_affected\": 1,\n"
            "  \"data\": [\n    {\"id\": 1, \"name\": \"before\", \"age\": 1}\n  ]\n}");
}

TEST_F(LimitsTest, aTransactionOfManyChildrenOfOneParentIsRolledBack) {
  expectSuccess("CREATE TABLE parents id ApexInt name string");
  expectSuccess("CREATE TABLE children parent int");
  expectSuccess("INSERT INTO parents name = 'one'");
  expectSuccess("LINK children.parent --> parents.id");
  expectSuccess("BEGIN");
  const std::string count = std::to_string(manyChildren);
  timed(count + " INSERT of children of one row", [] {
    for (int i = 0; i < manyChildren; ++i) run("INSERT INTO children parent = 1");
  });
  timed("ROLLBACK of them", [] { expectSuccess("ROLLBACK"); });
  EXPECT_EQ(countOf(run("SELECT parent FROM children")), "0");
  expectSuccess("DELETE FROM parents");
}

TEST_F(LimitsTest, aLongTextIsKeptWholeUntilACheckpoint) {
  const std::string text(longText, 'x');
  expectSuccess("CREATE TABLE t a string");
  timed("INSERT of a text of " + std::to_string(longText >> 10U) + " KiB",
        [&] { expectSuccess("INSERT INTO t a = '" + text + "'"); });
  timed("SELECT of it", [&] {
    EXPECT_EQ(run("SELECT a FROM t"),
              "{\n  \"success\": true,\n  \"message\": \"\",\n  \"rows_affected\": 1,\n"
              "  \"data\": [\n    {\"a\": \"" +
                  text + "\"}\n  ]\n}");
  });
  timed("stop and start", [] { restart(); });
  EXPECT_NE(run("SELECT a FROM t").find("\"" + std::string(60, 'x') + "\""), std::string::npos);
}

TEST_F(LimitsTest, aLongCommandOfAnyKindIsAnswered) {
  const auto tried = [](const std::string& what, const std::string& command,
                        const std::string& answer) {
    timed(what, [&] { EXPECT_EQ(run(command), answer); });
  };
  const std::string empty =
      "{\n  \"success\": true,\n  \"message\": \"success!\",\n  \"rows_affected\": 0\n}";
  const std::string mebibytes = std::to_string(longText >> 10U) + " KiB of ";
  expectSuccess("CREATE TABLE t a int");
  tried(mebibytes + "blanks", "DELETE FROM t" + std::string(longText, ' '), empty);
  tried(mebibytes + "parentheses", "DELETE FROM t " + std::string(longText, '('), empty);
  tried(mebibytes + "one word", std::string(longText, 'w'),
        failure("Error: Unknown command or missing parameters"));
  tried(mebibytes + "an open literal", "DELETE FROM t '" + std::string(longText, 'q'),
        failure("Lexer Error"));
  std::string hashes = "DELETE FROM t";
  while (hashes.size() < longText) hashes += " #TIME# ";
  tried(mebibytes + "markers without digits", hashes, failure("Lexer Error"));
}

TEST_F(LimitsTest, aWideRowIsStoredAndLoaded) {
  std::string create = "CREATE TABLE t";
  std::string insert = "INSERT INTO t";
  std::string row = "    {";
  for (int i = 0; i < manyColumns; ++i) {
    const std::string name = "c" + std::to_string(i);
    create += " " + name + " int";
    insert += " " + name + " = " + std::to_string(i);
    row += (i == 0 ? "\"" : ", \"") + name + "\": " + std::to_string(i);
  }
  const std::string expected =
      "{\n  \"success\": true,\n  \"message\": \"\",\n  \"rows_affected\": 1,\n"
      "  \"data\": [\n" +
      row + "}\n  ]\n}";
  timed("CREATE TABLE of " + std::to_string(manyColumns) + " columns",
        [&] { expectSuccess(create); });
  timed("INSERT into all of them", [&] { expectSuccess(insert); });
  timed("SELECT * of one row", [&] { EXPECT_EQ(run("SELECT * FROM t"), expected); });
  timed("stop and start", [] { restart(); });
  EXPECT_EQ(run("SELECT * FROM t"), expected);
}

TEST_F(LimitsTest, manyConditionsAreTested) {
  expectSuccess("CREATE TABLE t id ApexInt age int");
  for (int i = 0; i < manyConditions; ++i) run("INSERT INTO t age = 1");
  std::string ascending = "SELECT id FROM t WHERE id = 1";
  std::string descending = "SELECT id FROM t WHERE id = " + std::to_string(manyConditions);
  std::string conjunction = "SELECT id FROM t WHERE age = 1";
  std::string scans = "SELECT id FROM t WHERE age = 0";
  for (int i = 2; i <= manyConditions; ++i) {
    ascending += " || id = " + std::to_string(i);
    descending += " || id = " + std::to_string(manyConditions + 1 - i);
    conjunction += " && age != " + std::to_string(i);
    if (i <= manyConditions / 100) scans += " || age = " + std::to_string(-i);
  }
  const std::string count = std::to_string(manyConditions);
  const auto tried = [&](const std::string& what, const std::string& command,
                         const std::string& matched) {
    timed(what, [&] { EXPECT_EQ(countOf(run(command)), matched); });
  };
  tried(count + " keys joined by ||, ascending", ascending, count);
  tried(count + " keys joined by ||, descending", descending, count);
  tried(count + " conditions joined by &&, " + count + " rows", conjunction, count);
  tried(std::to_string(manyConditions / 100) + " scans joined by ||, " + count + " rows", scans,
        "0");
}

TEST_F(LimitsTest, aTimedValueHasAsManyStatesAsAllowed) {
  expectSuccess("CREATE TABLE t a int " + std::to_string(mostStates));
  EXPECT_EQ(run("CREATE TABLE u a int " + std::to_string(mostStates + 1)),
            failure("Error: Forbidden states limit"));
  std::string insert = "INSERT INTO t a = 0";
  for (int i = 1; i < manyStates; ++i) insert += " --> " + std::to_string(i) + " @ 1 mo";
  timed("INSERT of " + std::to_string(manyStates) + " states", [&] { expectSuccess(insert); });
  timed("stop and start", [] { restart(); });
  EXPECT_NE(run("SELECT a FROM t").find("{\"a\": 0}"), std::string::npos);
}

// One pair more than the answer's row count can say; no column is asked for, so that no memory ends
// it before.
TEST_F(LimitsTest, aJoinOfMoreRowsThanCanBeCountedIsRefused) {
#ifdef __OPTIMIZE__
  constexpr bool isQuick = scale == 1;
#else
  constexpr bool isQuick = false;
#endif
  if (!isQuick) GTEST_SKIP() << "two thousand million pairs take too long";
  constexpr int rows = 46'341;
  expectSuccess("CREATE TABLE t a int");
  for (int i = 0; i < rows; ++i) run("INSERT INTO t a = 1");
  const std::string command = "SELECT FROM t JOIN t ON a = a";
  timed("JOIN of " + std::to_string(rows) + " rows with each other",
        [&] { EXPECT_EQ(run(command), failure("Error: Result is too large")); });
  expectSuccess("DELETE FROM t");
  EXPECT_EQ(countOf(run(command)), "0");
}

// Address space that nobody can read: the size alone decides.
TEST_F(LimitsTest, aTextOfMoreThanFourGibibytesIsRefused) {
  constexpr std::size_t size = std::size_t{1} << 32U;
  void* const space =
      mmap(nullptr, size, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
  ASSERT_NE(space, MAP_FAILED);
  EXPECT_THROW(Text(std::string_view(static_cast<const char*>(space), size)), std::length_error);
  munmap(space, size);
}

TEST_F(LimitsTest, namesAndLengthsEndAtTheirFields) {
  const std::string longest(15, 'n');
  expectSuccess("CREATE TABLE " + longest + " " + longest + " string ( 65535 )");
  EXPECT_EQ(run("CREATE TABLE " + longest + "n a int"), failure("Error: Forbidden table name"));
  EXPECT_EQ(run("CREATE TABLE t " + longest + "n int"), failure("Error: Forbidden column name"));
  EXPECT_EQ(run("CREATE TABLE t a string ( 65536 )"), failure("Error: Forbidden string length"));
}

// A table file written by hand, since a table with so many rows would take too long.
TEST_F(LimitsTest, theIdentityColumnRefusesWhatItCannotCount) {
  StopEngine();
  RecordWriter file;
  file.text("t", nameWidth).text("ApexInt", nameWidth).text("id", nameWidth);
  file.text("0", nameWidth).text("60", nameWidth).int32(2'147'483'646);
  std::ofstream("t.bin", std::ios::binary) << file.bytes();
  std::ofstream("t.del", std::ios::binary) << '\0';
  start();
  expectSuccess("INSERT INTO t id = 0");
  EXPECT_EQ(run("INSERT INTO t id = 0"), failure("Error: ApexInt is exhausted"));
  EXPECT_EQ(countOf(run("SELECT id FROM t")), "2");
}

// The file is sparse; its size is what counts.
TEST_F(LimitsTest, scheduledChangesStopBeforeTheirPositionsRunOut) {
  expectSuccess("CREATE TABLE t a int 2");
  std::ofstream("webhooks.bin", std::ios::binary);
  fs::resize_file("webhooks.bin", 2'147'483'647);
  EXPECT_EQ(run("INSERT INTO t a = 1 --> 2 @ 5 s"), failure("Error: webhooks.bin is full"));
  expectSuccess("INSERT INTO t a = 1");
  EXPECT_EQ(fs::file_size("webhooks.bin"), 2'147'483'647U);
}

}  // namespace
}  // namespace velmora
