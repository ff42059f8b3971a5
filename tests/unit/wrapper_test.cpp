// The C++ wrapper: a database is open as long as its object and its statements, rows come as typed
// values, transactions end with their scopes, failures are exceptions.

#include <gtest/gtest.h>
#include <stdlib.h>

#include <cstdint>
#include <filesystem>
#include <fstream>
#include <functional>
#include <optional>
#include <ranges>
#include <string>
#include <tuple>
#include <type_traits>
#include <variant>
#include <vector>

#include "velmora/velmora.hpp"

namespace {

namespace fs = std::filesystem;
using velmora::Database;
using velmora::Error;
using velmora::Result;
using velmora::Row;
using velmora::Statement;
using velmora::Transaction;

// Each test has a directory of its own.
class WrapperTest : public testing::Test {
 protected:
  WrapperTest() {
    std::string name = (fs::temp_directory_path() / "velmora-wrapper-XXXXXX").string();
    if (mkdtemp(name.data()) == nullptr) throw std::runtime_error("cannot make " + name);
    directory_ = name;
  }
  ~WrapperTest() override {
    std::error_code ignored;
    fs::remove_all(directory_, ignored);
  }
  std::string path(const std::string& name = "base") const { return (directory_ / name).string(); }

 private:
  fs::path directory_;
};

std::optional<Error> failureOf(const std::function<void()>& call) {
  try {
    call();
  } catch (const Error& error) {
    return error;
  }
  return std::nullopt;
}
std::string textOf(const std::function<void()>& call) {
  const auto failure = failureOf(call);
  return failure ? failure->what() : "";
}
int codeOf(const std::function<void()>& call) {
  const auto failure = failureOf(call);
  return failure ? failure->code() : VELMORA_OK;
}

static_assert(!std::is_copy_constructible_v<Database> && !std::is_move_constructible_v<Database>);
static_assert(velmora::Bindable<std::nullptr_t> && velmora::Bindable<std::optional<int>>);
static_assert(!velmora::Bindable<char> && !velmora::Bindable<void*>);

TEST_F(WrapperTest, GivesRowsAsTypedValues) {
  Database database(path());
  database.run("CREATE TABLE t id ApexInt a long f float b bool s string");
  const std::string text = "O'Brien \\ \n \x01 \xc3\xa4 \"";
  EXPECT_EQ(database.run("INSERT INTO t a = ? f = ? b = ? s = ?", -7, 2.5F, true, text).identity(),
            1);
  database.run("INSERT INTO t f = ? s = ? a = ?", 3.0, nullptr, std::optional<int>());
  const Result result = database.run("SELECT * FROM t");
  EXPECT_EQ(result.message(), "");
  EXPECT_EQ(result.rowsAffected(), 2);
  EXPECT_EQ(result.identity(), std::nullopt);
  EXPECT_EQ(result.nextChange(), std::nullopt);
  ASSERT_EQ(result.size(), 2U);
  EXPECT_EQ(result.columns(), 5U);
  EXPECT_EQ(result.columnName(4), "s");
  EXPECT_EQ(result.columnName(5), "");
  const Row first = result[0];
  EXPECT_EQ(first.get<std::uint8_t>("id"), 1);
  EXPECT_EQ(first.get<int>("a"), -7);
  EXPECT_EQ(first.get<double>("f"), 2.5);
  EXPECT_TRUE(first.get<bool>("b"));
  EXPECT_EQ(first.get<std::string>("s"), text);
  const Row second = result.at(1);
  EXPECT_EQ(second.get<float>("f"), 3.0F);
  EXPECT_EQ(second.get<std::optional<std::string>>("s"), std::nullopt);
  EXPECT_EQ(second.get<std::optional<int>>("id"), 2);
  EXPECT_TRUE(std::holds_alternative<std::monostate>(second["b"]));
  EXPECT_TRUE(std::holds_alternative<std::monostate>(second.at(9)));
}

TEST_F(WrapperTest, GivesRowsAsTuples) {
  Database database(path());
  database.run("CREATE TABLE lamps name string watts int lit bool");
  database.run("INSERT INTO lamps name = 'hall' watts = 40 lit = true");
  database.run("INSERT INTO lamps name = 'attic' lit = false");
  std::string seen;
  for (const auto& [name, watts, lit] :
       database.run("SELECT * FROM lamps").rows<std::string, std::optional<int>, bool>()) {
    seen += name + " " + (watts ? std::to_string(*watts) : "?") + (lit ? " lit; " : " dark; ");
  }
  EXPECT_EQ(seen, "hall 40 lit; attic ? dark; ");
  const auto names = database.run("SELECT name FROM lamps").rows<std::string>();
  static_assert(std::ranges::forward_range<decltype(names)>);
  static_assert(std::ranges::forward_range<Result>);
  EXPECT_EQ(std::get<0>(names[1]), "attic");
}

TEST_F(WrapperTest, RefusesRowsOfOtherTypes) {
  Database database(path());
  database.run("CREATE TABLE lamps name string watts int");
  database.run("INSERT INTO lamps name = 'hall'");
  const Result result = database.run("SELECT * FROM lamps");
  EXPECT_EQ(textOf([&] { result.rows<std::string>(); }), "Result has not as many columns");
  const auto rows = result.rows<int, int>();
  EXPECT_EQ(textOf([&] { *rows.begin(); }), "Value is of another type");
  EXPECT_EQ(textOf([&] { (void)result.rows<std::string, int>()[0]; }), "Value is null");
}

TEST_F(WrapperTest, GivesColumnsAsArrays) {
  Database database(path());
  database.run("CREATE TABLE lamps name string watts int");
  Statement insert = database.prepare("INSERT INTO lamps name = ? watts = ?");
  using Lamp = std::tuple<std::string, std::optional<int>>;
  EXPECT_EQ(insert.runMany(std::vector<Lamp>{{"hall", 40}, {"attic", {}}}).rowsAffected(), 2);
  const auto watts = database.run("SELECT watts FROM lamps").column<std::int64_t>(0);
  EXPECT_EQ(std::vector(watts.values.begin(), watts.values.end()),
            (std::vector<std::int64_t>{40, 0}));
  EXPECT_EQ(std::vector(watts.nulls.begin(), watts.nulls.end()), (std::vector<std::uint8_t>{0, 1}));
  const Result names = database.run("SELECT name FROM lamps");
  EXPECT_EQ(codeOf([&] { names.column<double>(0); }), VELMORA_WRONG_TYPE);
  EXPECT_EQ(codeOf([&] { names.column<double>(1); }), VELMORA_NOT_FOUND);
}

TEST_F(WrapperTest, RunsManyRowsWholeOrNotAtAll) {
  Database database(path());
  database.run("CREATE TABLE lamps name string");
  Statement insert = database.prepare("INSERT INTO lamps name = ?");
  const std::vector<std::tuple<std::string>> rows = {{"hall"}, {std::string(61, 'x')}};
  EXPECT_EQ(codeOf([&] { insert.runMany(rows); }), VELMORA_RANGE);
  EXPECT_EQ(database.run("SELECT * FROM lamps").size(), 0U);
  const std::vector<std::tuple<int, int>> wide = {{1, 2}};
  EXPECT_EQ(textOf([&] { insert.runMany(wide); }), "Command has not as many parameters");
}

TEST_F(WrapperTest, HasClassesForWhatAHostHandles) {
  Database database(path());
  database.run("CREATE TABLE owners name string");
  database.run("CREATE TABLE lamps owner string");
  database.run("LINK lamps.owner --> owners.name");
  EXPECT_THROW(database.run("INSERT INTO lamps owner = 'nobody'"), velmora::ConstraintError);
  EXPECT_THROW(Database second(path()), velmora::BusyError);
}

TEST_F(WrapperTest, KnowsTheTransactionOfItsThread) {
  Database database(path());
  EXPECT_FALSE(database.isInTransaction());
  const Transaction transaction(database);
  EXPECT_TRUE(database.isInTransaction());
}

TEST_F(WrapperTest, ChecksADatabase) {
  { Database(path()).run("CREATE TABLE lamps name string"); }
  EXPECT_TRUE(velmora::check(path()).empty());
  std::ofstream(path() + "/lamps.bin", std::ios::app) << "x";
  EXPECT_FALSE(velmora::check(path()).empty());
  EXPECT_EQ(codeOf([&] { velmora::check(path("nowhere")); }), VELMORA_NOT_FOUND);
}

TEST_F(WrapperTest, RefusesValuesOfAnotherType) {
  Database database(path());
  database.run("CREATE TABLE t a int b bool");
  database.run("INSERT INTO t a = -300");
  const Result result = database.run("SELECT * FROM t");
  const Row row = result.at(0);
  EXPECT_EQ(textOf([&] { row.get<std::string>("a"); }), "Value is of another type");
  EXPECT_EQ(textOf([&] { row.get<std::int8_t>("a"); }), "Value is of another type");
  EXPECT_EQ(textOf([&] { row.get<unsigned>("a"); }), "Value is of another type");
  EXPECT_EQ(textOf([&] { row.get<bool>("b"); }), "Value is null");
  EXPECT_EQ(textOf([&] { row.get<int>("c"); }), "No column 'c' in the result");
  EXPECT_EQ(textOf([&] { result.at(1); }), "No row 1");
  EXPECT_EQ(textOf([&] { database.run("INSERT INTO t a = ?", std::uint64_t{1} << 63U); }),
            "Integer outside 64 bits");
}

TEST_F(WrapperTest, TellsWhatFailedAndWhere) {
  Database database(path());
  database.run("CREATE TABLE t a int");
  const auto failure = failureOf([&] { database.run("SELECT q FROM t"); });
  ASSERT_TRUE(failure);
  EXPECT_EQ(failure->code(), VELMORA_NOT_FOUND);
  EXPECT_EQ(failure->offset(), 7);
  EXPECT_EQ(failure->table(), "t");
  EXPECT_EQ(failure->column(), "q");
  EXPECT_EQ(failure->systemError(), 0);
  EXPECT_EQ(failure->process(), 0);
  EXPECT_EQ(codeOf([&] { database.run("SELECT"); }), VELMORA_SYNTAX);
  EXPECT_EQ(codeOf([&] { database.prepare("SELECT"); }), VELMORA_SYNTAX);
  EXPECT_EQ(codeOf([&] { Database again(path()); }), VELMORA_BUSY);
  EXPECT_EQ(codeOf([&] { Database none(path("none"), velmora::options(VELMORA_READ_ONLY)); }),
            VELMORA_NOT_FOUND);
}

TEST_F(WrapperTest, WalksRowsOfAResultThatIsOnlyPassingBy) {
  Database database(path());
  database.run("CREATE TABLE t a int");
  Statement insert = database.prepare("INSERT INTO t a = ?");
  for (int i = 0; i < 3; ++i) EXPECT_EQ(insert.run(i).rowsAffected(), 1);
  EXPECT_EQ(textOf([&] { insert.run(); }), "Command has not as many parameters");
  int sum = 0;
  for (const Row& row : database.run("SELECT a FROM t")) sum += row.get<int>("a");
  EXPECT_EQ(sum, 3);
}

TEST_F(WrapperTest, IsOpenWhileAStatementLives) {
  std::optional<Statement> statement;
  {
    Database database(path());
    database.run("CREATE TABLE t a int");
    statement = database.prepare("INSERT INTO t a = 1");
  }
  EXPECT_EQ(statement->run().rowsAffected(), 1);
  EXPECT_EQ(codeOf([&] { Database again(path()); }), VELMORA_BUSY);
  statement.reset();
  Database database(path());
  EXPECT_EQ(database.run("SELECT a FROM t").size(), 1U);
}

TEST_F(WrapperTest, TransactionsEndWithTheirScopes) {
  Database database(path());
  database.run("CREATE TABLE t a int");
  {
    const Transaction transaction(database);
    database.run("INSERT INTO t a = 1");
  }
  EXPECT_EQ(database.run("SELECT a FROM t").size(), 0U);
  {
    Transaction transaction(database);
    database.run("INSERT INTO t a = 1");
    transaction.commit();
  }
  EXPECT_EQ(database.run("SELECT a FROM t").size(), 1U);
}

TEST_F(WrapperTest, KnowsWhatBecomesOfATimedValue) {
  velmora_options options = velmora::options();
  options.clock = [](void*) -> std::int64_t { return 1'700'000'000; };
  Database database(path(), options);
  database.run("CREATE TABLE t colour string 2 n int");
  database.run("INSERT INTO t colour = ? --> ? @ ? s c n = 1", "red", "green", 30);
  const Result result = database.run("SELECT * FROM t");
  EXPECT_EQ(result.nextChange(), 1'700'000'030);
  const auto timed = result[0].timed("colour");
  ASSERT_TRUE(timed);
  EXPECT_TRUE(timed->cycles);
  EXPECT_EQ(timed->changeSecond, 1'700'000'030);
  EXPECT_EQ(velmora::valueAs<std::string>(timed->next), "green");
  EXPECT_FALSE(result[0].timed("n"));
  EXPECT_EQ(result.json(),
            R"({"success": true, "message": "", "rows_affected": 1, "columns": ["colour", "n"], )"
            R"("data": [{"colour": "red", "n": 1}], "next_change": 1700000030})");
}

TEST_F(WrapperTest, CopiesADatabase) {
  Database database(path());
  database.run("CREATE TABLE t a int");
  database.run("INSERT INTO t a = 1");
  database.checkpoint();
  database.interrupt();
  database.backup(path("copy"));
  Database copy(path("copy"), velmora::options(VELMORA_READ_ONLY));
  EXPECT_EQ(copy.run("SELECT a FROM t")[0].get<int>("a"), 1);
  EXPECT_EQ(codeOf([&] { database.backup(path("copy")); }), VELMORA_BUSY);
  EXPECT_EQ(codeOf([&] { copy.run("INSERT INTO t a = 2"); }), VELMORA_IS_READ_ONLY);
}

}  // namespace
