// The exported functions over handles: what each gives and refuses, with its code, and how long
// what it hands out lives. What commands do is for other tests.

#include <gtest/gtest.h>
#include <stdlib.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <limits>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include "velmora/velmora.h"

namespace {

namespace fs = std::filesystem;

velmora_value integer(std::int64_t number) {
  velmora_value value = {};
  value.type = VELMORA_INTEGER;
  value.integer = number;
  return value;
}
velmora_value real(double number) {
  velmora_value value = {};
  value.type = VELMORA_REAL;
  value.real = number;
  return value;
}
velmora_value boolean(int truth) {
  velmora_value value = {};
  value.type = VELMORA_BOOLEAN;
  value.boolean = truth;
  return value;
}
velmora_value text(std::string_view bytes) {
  velmora_value value = {};
  value.type = VELMORA_TEXT;
  value.text = bytes.data();
  value.text_size = bytes.size();
  return value;
}

// The code, where in the command, of which table and column, and why; "ok" for success. Destroys
// the error, which is given by reference so that it is read after the call.
std::string told(int code, velmora_error*& error) {
  if (code == VELMORA_OK) return error == nullptr ? "ok" : "ok, with an error";
  if (error == nullptr) return std::to_string(code);
  EXPECT_EQ(velmora_error_code(error), code);
  std::string all = std::to_string(code) + " at " + std::to_string(velmora_error_offset(error));
  const std::string table = velmora_error_table(error);
  const std::string column = velmora_error_column(error);
  if (!table.empty()) all += " of " + table + (column.empty() ? "" : "." + column);
  all += std::string(": ") + velmora_error_text(error);
  velmora_error_destroy(error);
  return all;
}

using Values = std::vector<velmora_value>;

// A directory of its own for each test, with a database open in it whose clock stands still.
class Handles : public testing::Test {
 protected:
  Handles() {
    std::string name = (fs::temp_directory_path() / "velmora-handles-XXXXXX").string();
    if (mkdtemp(name.data()) == nullptr) throw std::runtime_error("cannot make " + name);
    directory_ = name;
    options_.size = sizeof options_;
    options_.flags = VELMORA_CREATE;
    options_.durability = VELMORA_DURABILITY_OFF;
    options_.context = this;
    options_.clock = [](void* context) { return static_cast<Handles*>(context)->second_; };
    EXPECT_EQ(open(), "ok");
  }
  ~Handles() override {
    velmora_close(db_, nullptr);
    std::error_code ignored;
    fs::remove_all(directory_, ignored);
  }

  std::string path(const std::string& name = "base") const { return (directory_ / name).string(); }
  static std::string open(const std::string& path, const velmora_options* options,
                          velmora_db** db) {
    velmora_error* error = nullptr;
    const int code = velmora_open(path.data(), path.size(), options, db, &error);
    return told(code, error);
  }
  std::string open() { return open(path(), &options_, &db_); }
  // Opens a database of another directory, only to see whether that can be done.
  std::string tryOpen(const velmora_options& options, const std::string& name = "other") const {
    velmora_db* db = nullptr;
    const std::string outcome = open(path(name), &options, &db);
    EXPECT_EQ(db != nullptr, outcome == "ok");
    velmora_close(db, nullptr);
    return outcome;
  }
  void close() {
    EXPECT_EQ(velmora_close(db_, nullptr), VELMORA_OK);
    db_ = nullptr;
  }

  std::string run(std::string_view command, const Values& values = {},
                  velmora_result** result = nullptr) const {
    velmora_error* error = nullptr;
    const int code = velmora_run(db_, command.data(), command.size(), values.data(), values.size(),
                                 result, &error);
    return told(code, error);
  }
  // The result of a command that has to succeed.
  velmora_result* resultOf(std::string_view command, const Values& values = {}) const {
    velmora_result* result = nullptr;
    EXPECT_EQ(run(command, values, &result), "ok") << command;
    return result;
  }
  std::string json(std::string_view command, const Values& values = {}) const {
    velmora_result* const result = resultOf(command, values);
    std::size_t length = 0;
    const char* const text = velmora_result_json(result, &length);
    std::string copy(text == nullptr ? "" : text, length);
    velmora_result_destroy(result);
    return copy;
  }
  // The one integer that a query answers.
  std::int64_t number(std::string_view command, const Values& values = {}) const {
    velmora_result* const result = resultOf(command, values);
    EXPECT_EQ(velmora_result_rows(result), 1U);
    const std::int64_t found = velmora_result_integer(result, 0, 0);
    velmora_result_destroy(result);
    return found;
  }
  velmora_statement* prepare(std::string_view command) const {
    velmora_statement* statement = nullptr;
    velmora_error* error = nullptr;
    const int code = velmora_prepare(db_, command.data(), command.size(), &statement, &error);
    EXPECT_EQ(told(code, error), "ok");
    return statement;
  }

  fs::path directory_;
  velmora_options options_ = {};
  std::int64_t second_ = 1'700'000'000;
  velmora_db* db_ = nullptr;
};

TEST(HandleCodes, KeepTheirNumbers) {
  const std::array<int, 20> codes = {
      VELMORA_OK,          VELMORA_MISUSE,      VELMORA_BUSY,      VELMORA_IS_READ_ONLY,
      VELMORA_NOT_FOUND,   VELMORA_EXISTS,      VELMORA_DUPLICATE, VELMORA_MISSING_PARENT,
      VELMORA_RESTRICTED,  VELMORA_WRONG_TYPE,  VELMORA_RANGE,     VELMORA_SYNTAX,
      VELMORA_FULL,        VELMORA_CORRUPT,     VELMORA_IO,        VELMORA_NO_MEMORY,
      VELMORA_INTERRUPTED, VELMORA_TRANSACTION, VELMORA_IN_USE,    VELMORA_INTERNAL};
  for (std::size_t i = 0; i < codes.size(); ++i) EXPECT_EQ(codes[i], static_cast<int>(i));
}

TEST(HandleVersions, AreThoseOfTheHeader) {
  int major = -1;
  int minor = -1;
  int patch = -1;
  velmora_version_numbers(&major, &minor, &patch);
  velmora_version_numbers(nullptr, nullptr, nullptr);
  const std::string numbers =
      std::to_string(major) + "." + std::to_string(minor) + "." + std::to_string(patch);
  EXPECT_EQ(numbers, VELMORA_VERSION);
  EXPECT_STREQ(velmora_version(), VELMORA_VERSION);
  EXPECT_EQ(major, VELMORA_VERSION_MAJOR);
  EXPECT_EQ(minor, VELMORA_VERSION_MINOR);
  EXPECT_EQ(patch, VELMORA_VERSION_PATCH);
}

TEST(HandleNulls, AreRefusedOrGiveNothing) {
  velmora_error* error = nullptr;
  velmora_db* db = nullptr;
  velmora_statement* statement = nullptr;
  velmora_result* result = nullptr;
  const std::string noDatabase = "1 at -1: Database is null";
  const std::string noStatement = "1 at -1: Statement is null";
  EXPECT_EQ(told(velmora_open("x", 1, nullptr, nullptr, &error), error),
            "1 at -1: Place for the database is null");
  EXPECT_EQ(told(velmora_open(nullptr, 1, nullptr, &db, &error), error), "1 at -1: Path is null");
  EXPECT_EQ(told(velmora_run(nullptr, "BEGIN", 5, nullptr, 0, &result, &error), error), noDatabase);
  EXPECT_EQ(told(velmora_run_batch(nullptr, nullptr, 0, &result, &error), error), noDatabase);
  EXPECT_EQ(told(velmora_prepare(nullptr, "BEGIN", 5, &statement, &error), error), noDatabase);
  EXPECT_EQ(told(velmora_checkpoint(nullptr, &error), error), noDatabase);
  EXPECT_EQ(told(velmora_backup(nullptr, "x", 1, &error), error), noDatabase);
  EXPECT_EQ(told(velmora_stat("x", 1, 0, nullptr, nullptr, nullptr, &error), error),
            "1 at -1: Place for the answer is null");
  EXPECT_EQ(told(velmora_check(nullptr, 0, nullptr, nullptr, nullptr, &error), error),
            "1 at -1: Path is empty");
  EXPECT_EQ(told(velmora_statement_run(nullptr, &result, &error), error), noStatement);
  EXPECT_EQ(told(velmora_statement_run_many(nullptr, nullptr, 0, &result, &error), error),
            noStatement);
  EXPECT_EQ(told(velmora_bind(nullptr, 1, nullptr, &error), error), noStatement);
  EXPECT_EQ(velmora_close(nullptr, &error), VELMORA_OK);
  EXPECT_EQ(velmora_run(nullptr, nullptr, 0, nullptr, 0, nullptr, nullptr), VELMORA_MISUSE);
  EXPECT_EQ(velmora_statement_parameters(nullptr), 0U);
  velmora_interrupt(nullptr);
  velmora_clear_bindings(nullptr);
  velmora_statement_destroy(nullptr);
  velmora_result_destroy(nullptr);
  velmora_error_destroy(nullptr);
}

TEST(HandleNulls, AreErrorsAndResultsWithoutAnything) {
  std::size_t length = 7;
  EXPECT_EQ(velmora_error_code(nullptr), VELMORA_OK);
  EXPECT_EQ(velmora_error_text(nullptr), nullptr);
  EXPECT_EQ(velmora_error_offset(nullptr), -1);
  EXPECT_EQ(velmora_error_table(nullptr), nullptr);
  EXPECT_EQ(velmora_error_column(nullptr), nullptr);
  EXPECT_EQ(velmora_error_system(nullptr), 0);
  EXPECT_EQ(velmora_error_process(nullptr), 0);
  EXPECT_EQ(velmora_result_columns(nullptr), 0U);
  EXPECT_EQ(velmora_result_rows(nullptr), 0U);
  EXPECT_EQ(velmora_result_column_name(nullptr, 0, &length), nullptr);
  EXPECT_EQ(length, 0U);
  EXPECT_EQ(velmora_result_column_declared_type(nullptr, 0, nullptr), nullptr);
  EXPECT_EQ(velmora_result_column_type(nullptr, 0), VELMORA_NULL);
  EXPECT_EQ(velmora_result_type(nullptr, 0, 0), VELMORA_NULL);
  EXPECT_EQ(velmora_result_is_null(nullptr, 0, 0), 1);
  EXPECT_EQ(velmora_result_integer(nullptr, 0, 0), 0);
  EXPECT_EQ(velmora_result_real(nullptr, 0, 0), 0);
  EXPECT_EQ(velmora_result_boolean(nullptr, 0, 0), 0);
  EXPECT_EQ(velmora_result_text(nullptr, 0, 0, &length), nullptr);
  EXPECT_EQ(velmora_result_rows_affected(nullptr), 0);
  EXPECT_EQ(velmora_result_message(nullptr, &length), nullptr);
  EXPECT_EQ(velmora_result_identity(nullptr, nullptr), 0);
  EXPECT_EQ(velmora_result_next_change(nullptr, nullptr), 0);
  EXPECT_EQ(velmora_result_timed(nullptr, 0, 0, nullptr), 0);
  EXPECT_EQ(velmora_result_json(nullptr, &length), nullptr);
}

TEST_F(Handles, OpenWhatTheFlagsAllow) {
  velmora_options options = options_;
  options.flags = 0;
  EXPECT_EQ(tryOpen(options).substr(0, 2), "4 ");
  options.flags = VELMORA_READ_ONLY;
  EXPECT_EQ(tryOpen(options).substr(0, 2), "4 ");
  options.flags = VELMORA_CREATE | VELMORA_EXCLUSIVE;
  EXPECT_EQ(tryOpen(options), "ok");
  EXPECT_EQ(tryOpen(options), "5 at -1: There is a database in the directory");
  options.flags = 0;
  EXPECT_EQ(tryOpen(options), "ok");
  options.flags = VELMORA_CREATE | VELMORA_REPAIR;
  EXPECT_EQ(tryOpen(options), "ok");
  options.flags = VELMORA_READ_ONLY;
  EXPECT_EQ(tryOpen(options), "ok");
}

TEST_F(Handles, RefuseOptionsThatMakeNoSense) {
  const auto with = [&](std::uint32_t flags, std::uint32_t durability) {
    velmora_options options = options_;
    options.flags = flags;
    options.durability = durability;
    return tryOpen(options);
  };
  EXPECT_EQ(with(16, 0), "1 at -1: Options have an unknown flag");
  EXPECT_EQ(with(VELMORA_EXCLUSIVE, 0), "1 at -1: VELMORA_EXCLUSIVE needs VELMORA_CREATE");
  EXPECT_EQ(with(VELMORA_READ_ONLY | VELMORA_CREATE, 0),
            "1 at -1: VELMORA_READ_ONLY goes with no other flag");
  EXPECT_EQ(with(VELMORA_READ_ONLY | VELMORA_REPAIR, 0),
            "1 at -1: VELMORA_READ_ONLY goes with no other flag");
  EXPECT_EQ(with(VELMORA_CREATE, 3), "1 at -1: Options have no durability");
  EXPECT_FALSE(fs::exists(path("other")));
}

TEST_F(Handles, RefusePathsThatAreNone) {
  velmora_db* db = db_;
  EXPECT_EQ(open("", &options_, &db), "1 at -1: Path is empty");
  EXPECT_EQ(db, nullptr);
  EXPECT_EQ(open(std::string("a\0b", 3), &options_, &db), "1 at -1: Path has a zero byte");
}

TEST_F(Handles, TakeOptionsOfOtherSizes) {
  struct Longer {
    velmora_options known;
    std::uint64_t unknown;
  };
  velmora_db* db = nullptr;
  const auto tryLonger = [&](Longer longer) {
    longer.known.size = sizeof longer;
    const std::string outcome = open(path("other"), &longer.known, &db);
    velmora_close(db, nullptr);
    return outcome;
  };
  EXPECT_EQ(tryLonger({options_, 0}), "ok");
  EXPECT_EQ(tryLonger({options_, 1}), "1 at -1: Options ask for what this version does not know");
  const auto trySize = [&](std::uint32_t size) {
    velmora_options options = options_;
    options.size = size;
    return tryOpen(options);
  };
  EXPECT_EQ(trySize(8), "ok");
  EXPECT_EQ(trySize(sizeof options_ - sizeof options_.clock), "ok");
  EXPECT_EQ(trySize(0), "1 at -1: Options have a wrong size");
  EXPECT_EQ(trySize(12), "1 at -1: Options have a wrong size");
  EXPECT_EQ(open(path("other"), nullptr, &db), "ok");
  velmora_close(db, nullptr);
}

TEST_F(Handles, TellWhoHoldsADirectory) {
  velmora_db* db = nullptr;
  velmora_error* error = nullptr;
  const std::string directory = path();
  EXPECT_EQ(velmora_open(directory.data(), directory.size(), nullptr, &db, &error), VELMORA_BUSY);
  EXPECT_EQ(db, nullptr);
  EXPECT_EQ(velmora_error_process(error), getpid());
  velmora_error_destroy(error);
  close();
  EXPECT_EQ(open(), "ok");
}

TEST_F(Handles, HoldDatabasesApart) {
  velmora_db* other = nullptr;
  ASSERT_EQ(open(path("other"), &options_, &other), "ok");
  EXPECT_EQ(run("CREATE TABLE t n int"), "ok");
  EXPECT_EQ(run("INSERT INTO t n = 1"), "ok");
  EXPECT_EQ(velmora_run(other, "SELECT * FROM t", 15, nullptr, 0, nullptr, nullptr),
            VELMORA_NOT_FOUND);
  EXPECT_EQ(velmora_close(other, nullptr), VELMORA_OK);
  EXPECT_EQ(number("SELECT n FROM t"), 1);
}

TEST_F(Handles, StayOpenWhileTheyHaveStatements) {
  velmora_statement* const one = prepare("SHOW TABLES");
  velmora_statement* const two = prepare("SHOW LINKS");
  velmora_error* error = nullptr;
  EXPECT_EQ(told(velmora_close(db_, &error), error), "18 at -1: Database has 2 statements");
  velmora_statement_destroy(one);
  EXPECT_EQ(told(velmora_close(db_, &error), error), "18 at -1: Database has 1 statement");
  EXPECT_EQ(velmora_statement_run(two, nullptr, nullptr), VELMORA_OK);
  velmora_statement_destroy(two);
  close();
}

TEST_F(Handles, KeepWhatWasAnsweredOverACloseAndAnOpen) {
  EXPECT_EQ(run("CREATE TABLE t id ApexInt s string(200)"), "ok");
  const std::string hostile = "it's \"here\" \\ \n #TIME# 5 ? -->";
  EXPECT_EQ(run("INSERT INTO t s = ?", {text(hostile)}), "ok");
  close();
  ASSERT_EQ(open(), "ok");
  EXPECT_EQ(number("SELECT id FROM t WHERE s = ?", {text(hostile)}), 1);
}

TEST_F(Handles, GiveValuesByTheirTypes) {
  EXPECT_EQ(run("CREATE TABLE t l long d double f float b bool s string"), "ok");
  constexpr std::int64_t large = 9'007'199'254'740'993;
  EXPECT_EQ(run("INSERT INTO t l = ? d = ? f = ? b = ? s = ?",
                {integer(large), real(0.1), real(0.1), boolean(5), text("")}),
            "ok");
  EXPECT_EQ(run("INSERT INTO t l = ?", {velmora_value{}}), "ok");
  velmora_result* const result = resultOf("SELECT * FROM t");
  EXPECT_EQ(velmora_result_rows(result), 2U);
  EXPECT_EQ(velmora_result_columns(result), 5U);
  EXPECT_EQ(velmora_result_integer(result, 0, 0), large);
  EXPECT_EQ(velmora_result_real(result, 0, 0), static_cast<double>(large));
  EXPECT_EQ(velmora_result_real(result, 0, 1), 0.1);
  EXPECT_EQ(velmora_result_real(result, 0, 2), static_cast<double>(0.1F));
  EXPECT_EQ(velmora_result_boolean(result, 0, 3), 1);
  std::size_t length = 7;
  EXPECT_NE(velmora_result_text(result, 0, 4, &length), nullptr);
  EXPECT_EQ(length, 0U);
  const std::array<velmora_type, 5> types = {VELMORA_INTEGER, VELMORA_REAL, VELMORA_REAL,
                                             VELMORA_BOOLEAN, VELMORA_TEXT};
  for (std::size_t column = 0; column < types.size(); ++column) {
    EXPECT_EQ(velmora_result_column_type(result, column), types[column]);
    EXPECT_EQ(velmora_result_type(result, 0, column), types[column]);
    EXPECT_EQ(velmora_result_is_null(result, 0, column), 0);
    EXPECT_EQ(velmora_result_type(result, 1, column), VELMORA_NULL);
    EXPECT_EQ(velmora_result_is_null(result, 1, column), 1);
  }
  EXPECT_STREQ(velmora_result_column_name(result, 1, &length), "d");
  EXPECT_EQ(length, 1U);
  EXPECT_STREQ(velmora_result_column_declared_type(result, 1, &length), "double");
  EXPECT_EQ(length, 6U);
  EXPECT_EQ(velmora_result_rows_affected(result), 2);
  EXPECT_STREQ(velmora_result_message(result, &length), "");
  velmora_result_destroy(result);
}

TEST_F(Handles, GiveNothingWhereNothingIsOrOfAnotherType) {
  EXPECT_EQ(run("CREATE TABLE t n int s string"), "ok");
  EXPECT_EQ(run("INSERT INTO t n = 5 s = 'text'"), "ok");
  velmora_result* const result = resultOf("SELECT * FROM t");
  constexpr std::size_t most = std::numeric_limits<std::size_t>::max();
  using Place = std::pair<std::size_t, std::size_t>;
  for (const auto& [row, column] : {Place{0, 2}, Place{1, 0}, Place{most, 1}, Place{0, most}}) {
    EXPECT_EQ(velmora_result_type(result, row, column), VELMORA_NULL);
    EXPECT_EQ(velmora_result_is_null(result, row, column), 1);
    EXPECT_EQ(velmora_result_integer(result, row, column), 0);
    EXPECT_EQ(velmora_result_text(result, row, column, nullptr), nullptr);
    EXPECT_EQ(velmora_result_timed(result, row, column, nullptr), 0);
  }
  EXPECT_EQ(velmora_result_column_name(result, 2, nullptr), nullptr);
  EXPECT_EQ(velmora_result_column_type(result, most), VELMORA_NULL);
  EXPECT_EQ(velmora_result_integer(result, 0, 1), 0);
  EXPECT_EQ(velmora_result_real(result, 0, 1), 0);
  EXPECT_EQ(velmora_result_boolean(result, 0, 0), 0);
  std::size_t length = 7;
  EXPECT_EQ(velmora_result_text(result, 0, 0, &length), nullptr);
  EXPECT_EQ(length, 0U);
  velmora_result_destroy(result);
}

TEST_F(Handles, RefuseValuesThatAreNone) {
  EXPECT_EQ(run("CREATE TABLE t x float s string"), "ok");
  const std::string command = "INSERT INTO t x = ? s = ?";
  velmora_value odd = {};
  odd.type = 99;
  const velmora_value none = {};
  velmora_result* result = nullptr;
  EXPECT_EQ(run(command, {none, odd}, &result), "1 at -1: Value 2 has no type that there is");
  EXPECT_EQ(result, nullptr);
  EXPECT_EQ(run(command, {real(std::nan("")), none}), "10 at -1: Value 1 is not finite");
  EXPECT_EQ(run(command, {real(-HUGE_VAL), none}), "10 at -1: Value 1 is not finite");
  EXPECT_EQ(run(command, {none, text(std::string_view("a\0b", 3))}),
            "10 at -1: Value 2 has a zero byte");
  EXPECT_EQ(run(command, {none, text("\xC3(")}), "10 at -1: Value 2 is not UTF-8");
  velmora_value noText = text("");
  noText.text = nullptr;
  EXPECT_EQ(run(command, {none, noText}), "ok");
  noText.text_size = 1;
  EXPECT_EQ(run(command, {none, noText}), "1 at -1: Value 2 is null");
  EXPECT_EQ(run(command, {none}).substr(0, 2), "1 ");
  EXPECT_EQ(run(command, {none, none, none}).substr(0, 2), "1 ");
  velmora_error* error = nullptr;
  const int code = velmora_run(db_, command.data(), command.size(), nullptr, 2, nullptr, &error);
  EXPECT_EQ(told(code, error), "1 at -1: Values are null");
  EXPECT_EQ(number("SELECT COUNT(*) FROM t"), 1);
}

TEST_F(Handles, SayWhatIsWrongWithACommandAndWhere) {
  EXPECT_EQ(run("CREATE TABLE t n int"), "ok");
  velmora_result* result = nullptr;
  EXPECT_EQ(run("SELECT q FROM t", {}, &result).substr(0, 14), "4 at 7 of t.q:");
  EXPECT_EQ(result, nullptr);
  EXPECT_EQ(run("SELECT n FROM u").substr(0, 13), "4 at 14 of u:");
  EXPECT_EQ(run("INSERT INTO t n = 'x'").substr(0, 15), "9 at 18 of t.n:");
  EXPECT_EQ(run("INSERT INTO t n = ?", {integer(1LL << 40)}).substr(0, 3), "10 ");
  EXPECT_EQ(run("CREATE TABLE t n int").substr(0, 2), "5 ");
  EXPECT_EQ(run("SELECT n FROM t nonsense").substr(0, 6), "11 at ");
  EXPECT_EQ(run(std::string_view("SHOW\0TABLES", 11)).substr(0, 8), "11 at 4:");
  EXPECT_EQ(run("SHOW \xFF").substr(0, 8), "10 at 5:");
  EXPECT_EQ(run("").substr(0, 3), "11 ");
  EXPECT_EQ(velmora_run(db_, nullptr, 3, nullptr, 0, nullptr, nullptr), VELMORA_MISUSE);
  EXPECT_EQ(velmora_run(db_, "SHOW", 4, nullptr, 0, nullptr, nullptr), VELMORA_SYNTAX);
}

TEST_F(Handles, HaveACodeForEachConstraint) {
  EXPECT_EQ(run("CREATE TABLE p id ApexInt s string"), "ok");
  EXPECT_EQ(run("CREATE TABLE c p int"), "ok");
  EXPECT_EQ(run("LINK c.p --> p.id"), "ok");
  EXPECT_EQ(run("INSERT INTO p s = 'a'"), "ok");
  EXPECT_EQ(run("INSERT INTO c p = 1"), "ok");
  EXPECT_EQ(run("CREATE TABLE q code string"), "ok");
  EXPECT_EQ(run("CREATE TABLE d code string"), "ok");
  EXPECT_EQ(run("LINK d.code --> q.code"), "ok");
  EXPECT_EQ(run("INSERT INTO q code = 'a'"), "ok");
  EXPECT_EQ(run("INSERT INTO q code = 'a'").substr(0, 2), "6 ");
  EXPECT_EQ(run("INSERT INTO c p = 2").substr(0, 2), "7 ");
  EXPECT_EQ(run("DELETE FROM p").substr(0, 2), "8 ");
  EXPECT_EQ(run("COMMIT").substr(0, 3), "17 ");
  EXPECT_EQ(run("ROLLBACK").substr(0, 3), "17 ");
  close();
  options_.flags = VELMORA_READ_ONLY;
  ASSERT_EQ(open(), "ok");
  EXPECT_EQ(run("INSERT INTO p s = 'c'").substr(0, 2), "3 ");
  EXPECT_EQ(number("SELECT COUNT(*) FROM p"), 1);
}

TEST_F(Handles, RunStatementsAgainAndAgain) {
  EXPECT_EQ(run("CREATE TABLE t n int s string"), "ok");
  velmora_statement* const insert = prepare("INSERT INTO t n = ? s = ?");
  EXPECT_EQ(velmora_statement_parameters(insert), 2U);
  EXPECT_EQ(velmora_statement_run(insert, nullptr, nullptr), VELMORA_OK);
  {
    std::string name = "a text that goes away";
    const velmora_value bound = text(name);
    EXPECT_EQ(velmora_bind(insert, 2, &bound, nullptr), VELMORA_OK);
    name.assign(name.size(), 'x');
  }
  for (std::int64_t i = 1; i <= 2; ++i) {
    const velmora_value bound = integer(i);
    EXPECT_EQ(velmora_bind(insert, 1, &bound, nullptr), VELMORA_OK);
    EXPECT_EQ(velmora_statement_run(insert, nullptr, nullptr), VELMORA_OK);
  }
  velmora_clear_bindings(insert);
  EXPECT_EQ(velmora_statement_run(insert, nullptr, nullptr), VELMORA_OK);
  velmora_statement_destroy(insert);
  EXPECT_EQ(number("SELECT COUNT(*) FROM t WHERE s = 'a text that goes away'"), 2);
  EXPECT_EQ(number("SELECT COUNT(*) FROM t WHERE s IS NULL"), 2);
}

// What an INSERT has looked up is looked up anew when tables have come and gone.
TEST_F(Handles, RunAPreparedInsertInWhateverTableThereIs) {
  velmora_statement* const insert = prepare("INSERT INTO t n = ? s = ?");
  velmora_error* error = nullptr;
  const auto runIt = [&] { return told(velmora_statement_run(insert, nullptr, &error), error); };
  const std::string unknown = "4 at 12 of t: Unknown table 't'";
  EXPECT_EQ(runIt(), unknown);
  EXPECT_EQ(run("CREATE TABLE t n int s string"), "ok");
  EXPECT_EQ(runIt(), "ok");
  EXPECT_EQ(run("DROP TABLE t"), "ok");
  EXPECT_EQ(runIt(), unknown);
  EXPECT_EQ(run("BEGIN"), "ok");
  EXPECT_EQ(run("CREATE TABLE t s string more long n int"), "ok");
  EXPECT_EQ(runIt(), "ok");
  EXPECT_EQ(run("ROLLBACK"), "ok");
  EXPECT_EQ(runIt(), unknown);
  EXPECT_EQ(run("CREATE TABLE t n int"), "ok");
  EXPECT_EQ(runIt(), "4 at 20 of t.s: Unknown column 's'");
  EXPECT_EQ(run("DROP TABLE t"), "ok");
  EXPECT_EQ(run("CREATE TABLE t id ApexInt s string n int"), "ok");
  EXPECT_EQ(runIt(), "ok");
  EXPECT_EQ(run("DELETE FROM t"), "ok");
  EXPECT_EQ(run("VACUUM"), "ok");
  EXPECT_EQ(runIt(), "ok");
  EXPECT_EQ(number("SELECT id FROM t"), 2);
  velmora_statement_destroy(insert);
}

TEST_F(Handles, RefuseTheFirstAssignmentThatIsWrong) {
  EXPECT_EQ(run("CREATE TABLE t id ApexInt n int"), "ok");
  velmora_statement* const insert = prepare("INSERT INTO t n = ? q = ? n = 1");
  velmora_error* error = nullptr;
  const auto runWith = [&](const velmora_value& value) {
    EXPECT_EQ(velmora_bind(insert, 1, &value, nullptr), VELMORA_OK);
    return told(velmora_statement_run(insert, nullptr, &error), error);
  };
  const std::string wrong =
      "9 at 18 of t.n: 'x' is no value for column 'n' of table 't', which is int";
  EXPECT_EQ(runWith(text("x")), wrong);
  EXPECT_EQ(runWith(integer(1)), "4 at 20 of t.q: Unknown column 'q'");
  EXPECT_EQ(runWith(text("x")), wrong);
  velmora_statement_destroy(insert);
  EXPECT_EQ(run("INSERT INTO t n = 1 n = 'x'"), "11 at 20 of t.n: Column 'n' is given twice");
  EXPECT_EQ(run("INSERT INTO t id = 'x' n = 'x'"),
            "9 at 14 of t.id: Column 'id' of table 't' is numbered by the engine");
  EXPECT_EQ(number("SELECT COUNT(*) FROM t"), 0);
}

TEST_F(Handles, BindOnlyWhatThereIsAPlaceFor) {
  velmora_statement* const statement = prepare("SHOW TABLES");
  const velmora_value value = integer(1);
  velmora_error* error = nullptr;
  EXPECT_EQ(told(velmora_bind(statement, 1, &value, &error), error),
            "1 at -1: Command has 0 parameters, and no parameter 1");
  velmora_statement_destroy(statement);
  EXPECT_EQ(run("CREATE TABLE t n int"), "ok");
  velmora_statement* const insert = prepare("INSERT INTO t n = ?");
  EXPECT_EQ(told(velmora_bind(insert, 0, &value, &error), error),
            "1 at -1: Command has 1 parameter, and no parameter 0");
  EXPECT_EQ(told(velmora_bind(insert, 1, nullptr, &error), error), "1 at -1: Value is null");
  EXPECT_EQ(velmora_bind(insert, 1, &value, &error), VELMORA_OK);
  const velmora_value broken = text("\xFF");
  EXPECT_EQ(told(velmora_bind(insert, 1, &broken, &error), error),
            "10 at -1: Value 1 is not UTF-8");
  EXPECT_EQ(velmora_statement_run(insert, nullptr, &error), VELMORA_OK);
  EXPECT_EQ(number("SELECT n FROM t"), 1) << "a refused value leaves the one before";
  velmora_statement_destroy(insert);
}

TEST_F(Handles, FailToPrepareWithoutALeftOver) {
  velmora_statement* statement = nullptr;
  velmora_error* error = nullptr;
  EXPECT_EQ(velmora_prepare(db_, "SELECT", 6, &statement, &error), VELMORA_SYNTAX);
  EXPECT_EQ(velmora_error_offset(error), 6);
  velmora_error_destroy(error);
  EXPECT_EQ(statement, nullptr);
  EXPECT_EQ(told(velmora_prepare(db_, "SHOW TABLES", 11, nullptr, &error), error),
            "1 at -1: Place for the statement is null");
  close();
}

TEST_F(Handles, RunAStatementOverManyRowsOrNone) {
  EXPECT_EQ(run("CREATE TABLE t n int s string"), "ok");
  velmora_statement* const insert = prepare("INSERT INTO t n = ? s = ?");
  const Values rows = {integer(1), text("a"), integer(2), text("b")};
  velmora_result* result = nullptr;
  velmora_error* error = nullptr;
  EXPECT_EQ(velmora_statement_run_many(insert, rows.data(), 2, &result, &error), VELMORA_OK);
  EXPECT_EQ(velmora_result_rows_affected(result), 2);
  velmora_result_destroy(result);
  const Values wrong = {integer(3), text("c"), text("no number"), text("d")};
  EXPECT_EQ(told(velmora_statement_run_many(insert, wrong.data(), 2, &result, &error), error)
                .substr(0, 2),
            "9 ");
  EXPECT_EQ(result, nullptr);
  EXPECT_EQ(told(velmora_statement_run_many(
                     insert, rows.data(), std::numeric_limits<std::size_t>::max(), &result, &error),
                 error),
            "1 at -1: Too many rows");
  EXPECT_EQ(told(velmora_statement_run_many(insert, nullptr, 1, &result, &error), error),
            "1 at -1: Values are null");
  velmora_statement_destroy(insert);
  EXPECT_EQ(number("SELECT COUNT(*) FROM t"), 2);
}

TEST_F(Handles, RunABatchWholeOrNotAtAll) {
  const Values values = {integer(7)};
  const auto command = [](std::string_view text, const Values& given) {
    return velmora_command{text.data(), text.size(), given.data(), given.size()};
  };
  const std::array<velmora_command, 3> commands = {command("CREATE TABLE t n int", {}),
                                                   command("INSERT INTO t n = ?", values),
                                                   command("SELECT n FROM t", {})};
  velmora_result* result = nullptr;
  velmora_error* error = nullptr;
  EXPECT_EQ(told(velmora_run_batch(db_, commands.data(), 3, &result, &error), error), "ok");
  EXPECT_EQ(velmora_result_integer(result, 0, 0), 7);
  velmora_result_destroy(result);
  const std::array<velmora_command, 2> failing = {command("INSERT INTO t n = ?", values),
                                                  command("INSERT INTO t m = 1", {})};
  EXPECT_EQ(told(velmora_run_batch(db_, failing.data(), 2, &result, &error), error).substr(0, 5),
            "4 at ");
  EXPECT_EQ(result, nullptr);
  const std::array<velmora_command, 1> begin = {command("BEGIN", {})};
  EXPECT_EQ(velmora_run_batch(db_, begin.data(), 1, nullptr, nullptr), VELMORA_TRANSACTION);
  EXPECT_EQ(told(velmora_run_batch(db_, nullptr, 1, nullptr, &error), error),
            "1 at -1: Commands is null");
  EXPECT_EQ(number("SELECT COUNT(*) FROM t"), 1);
}

TEST_F(Handles, KnowWhatBecomesOfATimedValue) {
  EXPECT_EQ(run("CREATE TABLE t plain int colour string 3"), "ok");
  EXPECT_EQ(run("INSERT INTO t plain = 1 colour = 'red' --> 'green' @ 30 s c"), "ok");
  EXPECT_EQ(run("INSERT INTO t plain = 2 colour = 'red' --> 'green' @ 10 s"), "ok");
  velmora_result* result = resultOf("SELECT * FROM t");
  velmora_timed timed = {};
  timed.size = sizeof timed;
  EXPECT_EQ(velmora_result_timed(result, 0, 0, &timed), 0);
  ASSERT_EQ(velmora_result_timed(result, 0, 1, &timed), 1);
  EXPECT_EQ(timed.size, sizeof timed);
  EXPECT_EQ(timed.cycles, 1);
  EXPECT_EQ(timed.has_next, 1);
  EXPECT_EQ(timed.change_second, second_ + 30);
  EXPECT_EQ(std::string_view(timed.next.text, timed.next.text_size), "green");
  std::int64_t second = 0;
  EXPECT_EQ(velmora_result_next_change(result, &second), 1);
  EXPECT_EQ(second, second_ + 10);
  EXPECT_EQ(velmora_result_timed(result, 1, 1, nullptr), 1);
  velmora_result_destroy(result);

  second_ += 10;
  result = resultOf("SELECT colour FROM t WHERE plain = 2");
  EXPECT_EQ(velmora_result_next_change(result, &second), 0);
  if (velmora_result_timed(result, 0, 0, &timed) == 1) {
    EXPECT_EQ(timed.has_next, 0);
    EXPECT_EQ(timed.change_second, 0);
    EXPECT_EQ(timed.next.type, VELMORA_NULL);
  }
  velmora_result_destroy(result);
}

TEST_F(Handles, FillTimedValuesOfOtherSizes) {
  EXPECT_EQ(run("CREATE TABLE t colour string 2"), "ok");
  EXPECT_EQ(run("INSERT INTO t colour = 'red' --> 'green' @ 30 s"), "ok");
  velmora_result* const result = resultOf("SELECT * FROM t");
  struct Longer {
    velmora_timed known;
    std::uint64_t unknown;
  };
  Longer longer = {{}, 7};
  longer.known.size = sizeof longer;
  EXPECT_EQ(velmora_result_timed(result, 0, 0, &longer.known), 1);
  EXPECT_EQ(longer.known.size, sizeof longer);
  EXPECT_EQ(longer.known.change_second, second_ + 30);
  EXPECT_EQ(longer.unknown, 0U);
  velmora_timed shorter = {};
  shorter.size = offsetof(velmora_timed, change_second);
  shorter.change_second = 7;
  EXPECT_EQ(velmora_result_timed(result, 0, 0, &shorter), 1);
  EXPECT_EQ(shorter.has_next, 1);
  EXPECT_EQ(shorter.change_second, 7);
  velmora_result_destroy(result);
}

TEST_F(Handles, GiveTheNumberThatAnInsertHasGiven) {
  EXPECT_EQ(run("CREATE TABLE t id ApexInt n int"), "ok");
  velmora_result* result = resultOf("INSERT INTO t n = 5");
  std::int64_t number = 0;
  EXPECT_EQ(velmora_result_identity(result, &number), 1);
  EXPECT_EQ(number, 1);
  EXPECT_EQ(velmora_result_rows_affected(result), 1);
  velmora_result_destroy(result);
  result = resultOf("UPDATE t SET n = 6");
  EXPECT_EQ(velmora_result_identity(result, &number), 0);
  velmora_result_destroy(result);
}

TEST_F(Handles, MakeJsonOnceAndValidForAnyText) {
  EXPECT_EQ(run("CREATE TABLE t id ApexInt f float s string(100)"), "ok");
  const std::string hostile = "\"}]\\\n\t\x01 \xC3\xA4 '";
  EXPECT_EQ(run("INSERT INTO t f = 0.1 s = ?", {text(hostile)}), "ok");
  EXPECT_EQ(json("INSERT INTO t f = 3"),
            R"({"success": true, "message": "", "rows_affected": 1, "identity": 2})");
  velmora_result* const result = resultOf("SELECT * FROM t");
  std::size_t length = 0;
  const char* const json = velmora_result_json(result, &length);
  EXPECT_EQ(std::string_view(json, length),
            R"({"success": true, "message": "", "rows_affected": 2, )"
            R"("columns": ["id", "f", "s"], "data": [)"
            R"({"id": 1, "f": 0.1, "s": "\"}]\\\n\t\u0001 )"
            "\xC3\xA4 '\"}, "
            R"({"id": 2, "f": 3, "s": null}], "next_change": null})");
  EXPECT_EQ(std::strlen(json), length);
  EXPECT_EQ(velmora_result_json(result, nullptr), json);
  velmora_result_destroy(result);
}

TEST_F(Handles, LeaveResultsAndErrorsBehindThem) {
  EXPECT_EQ(run("CREATE TABLE t s string"), "ok");
  EXPECT_EQ(run("INSERT INTO t s = 'kept'"), "ok");
  velmora_result* const result = resultOf("SELECT s FROM t");
  velmora_error* error = nullptr;
  EXPECT_EQ(velmora_run(db_, "SELECT q FROM t", 15, nullptr, 0, nullptr, &error),
            VELMORA_NOT_FOUND);
  EXPECT_EQ(run("DROP TABLE t"), "ok");
  close();
  std::size_t length = 0;
  const char* const kept = velmora_result_text(result, 0, 0, &length);
  EXPECT_EQ(std::string_view(kept, length), "kept");
  EXPECT_STREQ(velmora_result_column_name(result, 0, nullptr), "s");
  EXPECT_STREQ(velmora_error_column(error), "q");
  velmora_error_destroy(error);
  velmora_result_destroy(result);
}

TEST_F(Handles, MakeResultsInTheMemoryOfTheLastOne) {
  velmora_result* const first = resultOf("SHOW TABLES");
  velmora_result* const beside = resultOf("SHOW TABLES");
  EXPECT_NE(first, beside);
  velmora_result_destroy(first);
  velmora_result* const next = resultOf("SHOW TABLES");
  EXPECT_EQ(next, first);
  velmora_result_destroy(next);
  velmora_result_destroy(beside);
}

TEST_F(Handles, TellTheLogAndPrintNothing) {
  struct Told {
    std::vector<std::string> lines;
  } told;
  close();
  velmora_options options = options_;
  options.context = &told;
  options.clock = nullptr;
  options.log = [](void* context, int level, const char* line, std::size_t length) {
    static_cast<Told*>(context)->lines.push_back(std::to_string(level) + " " +
                                                 std::string(line, length));
  };
  std::ofstream(path() + "/velmora.wal", std::ios::app) << "torn";
  testing::internal::CaptureStdout();
  testing::internal::CaptureStderr();
  ASSERT_EQ(open(path(), &options, &db_), "ok");
  close();
  EXPECT_EQ(testing::internal::GetCapturedStdout(), "");
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
  ASSERT_FALSE(told.lines.empty());
  EXPECT_EQ(told.lines.front(),
            "1 The log ended within a record: 4 bytes, of which nobody was told, were cut off");
}

TEST_F(Handles, RefuseCallsFromTheirOwnCallbacks) {
  struct Host {
    velmora_db* db = nullptr;
    std::vector<int> codes;
  } host;
  close();
  velmora_options options = options_;
  options.context = &host;
  options.clock = [](void* context) -> std::int64_t {
    auto& asked = *static_cast<Host*>(context);
    if (asked.db != nullptr) {
      velmora_interrupt(nullptr);
      asked.codes.push_back(velmora_run(asked.db, "SHOW TABLES", 11, nullptr, 0, nullptr, nullptr));
      asked.codes.push_back(velmora_checkpoint(asked.db, nullptr));
      asked.codes.push_back(velmora_close(asked.db, nullptr));
    }
    return 1'700'000'000;
  };
  ASSERT_EQ(open(path(), &options, &db_), "ok");
  host.db = db_;
  EXPECT_EQ(run("CREATE TABLE t n int"), "ok");
  host.db = nullptr;
  ASSERT_GE(host.codes.size(), 3U);
  for (const int code : host.codes) EXPECT_EQ(code, VELMORA_MISUSE);
  EXPECT_EQ(run("SHOW TABLES"), "ok");
  close();  // which asks for the second, too
}

TEST_F(Handles, StopWhatTheProgressCallbackRefuses) {
  close();
  velmora_options options = options_;
  static std::atomic<bool> mustStop;
  mustStop = false;
  options.progress = [](void*, const char*, std::size_t, std::uint64_t, std::uint64_t) {
    return mustStop ? 1 : 0;
  };
  ASSERT_EQ(open(path(), &options, &db_), "ok");
  EXPECT_EQ(run("CREATE TABLE t n int"), "ok");
  mustStop = true;
  velmora_error* error = nullptr;
  const std::string copy = path("copy");
  EXPECT_EQ(told(velmora_backup(db_, copy.data(), copy.size(), &error), error),
            "16 at -1: Interrupted");
  mustStop = false;
  const std::string again = path("again");
  EXPECT_EQ(told(velmora_backup(db_, again.data(), again.size(), &error), error), "ok");
}

TEST_F(Handles, TellHowFarACheckIs) {
  EXPECT_EQ(run("CREATE TABLE t n int"), "ok");
  EXPECT_EQ(run("CREATE TABLE u n int"), "ok");
  EXPECT_EQ(velmora_close(db_, nullptr), VELMORA_OK);
  db_ = nullptr;
  struct Host {
    std::vector<std::string> told;
    int answer = 0;
  } host;
  velmora_options options = {};
  options.size = sizeof options;
  options.context = &host;
  options.progress = [](void* context, const char* what, std::size_t length, std::uint64_t done,
                        std::uint64_t total) {
    Host& here = *static_cast<Host*>(context);
    here.told.push_back(std::string(what, length) + " " + std::to_string(done) + "/" +
                        std::to_string(total));
    return here.answer;
  };
  velmora_error* error = nullptr;
  const std::string name = path();
  EXPECT_EQ(
      told(velmora_check(name.data(), name.size(), &options, nullptr, nullptr, &error), error),
      "ok");
  EXPECT_EQ(host.told, (std::vector<std::string>{"check 75/300", "check 150/300", "check 225/300",
                                                 "check 300/300"}));
  host.answer = 1;
  EXPECT_EQ(
      told(velmora_check(name.data(), name.size(), &options, nullptr, nullptr, &error), error),
      "16 at -1: Interrupted");
}

TEST_F(Handles, CopyAndCheckADatabase) {
  EXPECT_EQ(run("CREATE TABLE t n int"), "ok");
  EXPECT_EQ(run("INSERT INTO t n = 5"), "ok");
  velmora_error* error = nullptr;
  const std::string copy = path("copy");
  EXPECT_EQ(told(velmora_checkpoint(db_, &error), error), "ok");
  EXPECT_EQ(told(velmora_backup(db_, copy.data(), copy.size(), &error), error), "ok");
  EXPECT_EQ(told(velmora_backup(db_, copy.data(), copy.size(), &error), error),
            "5 at -1: The directory of the copy is not empty");
  EXPECT_EQ(velmora_check(path().data(), path().size(), nullptr, nullptr, nullptr, nullptr),
            VELMORA_BUSY);
  EXPECT_EQ(told(velmora_check(copy.data(), copy.size(), nullptr, nullptr, nullptr, &error), error),
            "ok");
  const std::string nowhere = path("nowhere");
  EXPECT_EQ(velmora_check(nowhere.data(), nowhere.size(), nullptr, nullptr, nullptr, nullptr),
            VELMORA_NOT_FOUND);

  std::ofstream(copy + "/t.bin", std::ios::app) << "x";
  std::vector<std::string> faults;
  const auto report = [](void* context, const char* file, std::int64_t, const char* meaning) {
    EXPECT_NE(std::strlen(meaning), 0U);
    static_cast<std::vector<std::string>*>(context)->emplace_back(file);
  };
  EXPECT_EQ(told(velmora_check(copy.data(), copy.size(), nullptr, report, &faults, &error), error),
            "13 at -1: Database has 1 fault");
  EXPECT_EQ(faults, std::vector<std::string>{"t.bin"});
  EXPECT_EQ(tryOpen(options_, "copy").substr(0, 3), "13 ");
}

TEST_F(Handles, TellWhatIsOnTheDiskBesideWhoHasItOpen) {
  EXPECT_EQ(run("CREATE TABLE t n int"), "ok");
  EXPECT_EQ(velmora_checkpoint(db_, nullptr), VELMORA_OK);
  second_ = 1'700'002'000;
  EXPECT_EQ(run("INSERT INTO t n = 5"), "ok");
  second_ = 1'700'003'000;
  for (const char* command : {"BEGIN", "INSERT INTO t n = 6", "INSERT INTO t n = 7", "COMMIT"}) {
    EXPECT_EQ(run(command), "ok");
  }
  std::map<std::string, std::uint64_t> tables;
  const auto report = [](void* context, const char*, const char* table, std::uint64_t bytes) {
    (*static_cast<std::map<std::string, std::uint64_t>*>(context))[table] += bytes;
  };
  velmora_disk disk = {};
  velmora_error* error = nullptr;
  EXPECT_EQ(
      told(velmora_stat(path().data(), path().size(), 0, &disk, nullptr, nullptr, &error), error),
      "1 at -1: Answer has a wrong size");
  disk.size = sizeof disk;
  EXPECT_EQ(told(velmora_stat(path().data(), path().size(), 1'700'002'500, &disk, report, &tables,
                              &error),
                 error),
            "ok");
  EXPECT_EQ(disk.process, getpid());
  EXPECT_EQ(disk.log_bytes, std::filesystem::file_size(path() + "/velmora.wal"));
  EXPECT_EQ(disk.log_records, 2U);
  EXPECT_EQ(disk.recent_records, 1U);
  EXPECT_EQ(disk.records, 3U);
  EXPECT_EQ(disk.last_second, 1'700'003'000);
  EXPECT_EQ(disk.file_bytes, tables[""] + tables["t"]);
  EXPECT_GE(tables["t"], std::filesystem::file_size(path() + "/t.bin"));
  const std::string nowhere = path("nowhere");
  EXPECT_EQ(velmora_stat(nowhere.data(), nowhere.size(), 0, &disk, nullptr, nullptr, nullptr),
            VELMORA_NOT_FOUND);
}

TEST_F(Handles, MakeOtherThreadsWaitForATransactionAsLongAsTheOptionsSay) {
  close();
  options_.transaction_wait_milliseconds = 1;
  ASSERT_EQ(open(), "ok");
  EXPECT_EQ(run("CREATE TABLE t n int"), "ok");
  EXPECT_EQ(run("BEGIN"), "ok");
  EXPECT_EQ(run("INSERT INTO t n = 1"), "ok");
  std::thread([&] {
    EXPECT_EQ(run("INSERT INTO t n = 2"), "2 at -1: Another thread's transaction is open");
  }).join();
  EXPECT_EQ(run("ROLLBACK"), "ok");
  EXPECT_EQ(number("SELECT COUNT(*) FROM t"), 0);
}

TEST_F(Handles, InterruptWhatWaits) {
  close();
  options_.transaction_wait_milliseconds = VELMORA_NO_LIMIT;
  ASSERT_EQ(open(), "ok");
  EXPECT_EQ(run("CREATE TABLE t n int"), "ok");
  EXPECT_EQ(run("BEGIN"), "ok");
  std::atomic<bool> isDone = false;
  std::thread waiting([&] {
    EXPECT_EQ(run("INSERT INTO t n = 2"), "16 at -1: Interrupted");
    isDone = true;
  });
  while (!isDone) {
    velmora_interrupt(db_);
    std::this_thread::yield();
  }
  waiting.join();
  EXPECT_EQ(run("COMMIT"), "ok") << "commands that begin later are not concerned";
}

}  // namespace
