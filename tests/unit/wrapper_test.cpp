// The C++ wrapper: the engine lives as long as its object, answers come as typed values, failures
// as exceptions.

#include <gtest/gtest.h>
#include <stdlib.h>

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <type_traits>
#include <variant>
#include <vector>

#include "velmora/velmora.hpp"

namespace {

namespace fs = std::filesystem;
using velmora::Answer;
using velmora::Engine;
using velmora::Error;
using velmora::Row;

// Each test runs in a directory of its own.
class WrapperTest : public testing::Test {
 protected:
  WrapperTest() : before_(fs::current_path()) {
    std::string name = (fs::temp_directory_path() / "velmora-wrapper-XXXXXX").string();
    if (mkdtemp(name.data()) == nullptr) throw std::runtime_error("cannot make " + name);
    directory_ = name;
    fs::current_path(directory_);
  }
  ~WrapperTest() override {
    fs::current_path(before_);
    std::error_code ignored;
    fs::remove_all(directory_, ignored);
  }

 private:
  fs::path before_;
  fs::path directory_;
};

template <typename Call>
std::string failureOf(Call call) {
  try {
    call();
  } catch (const Error& error) {
    return error.what();
  }
  return "";
}

static_assert(!std::is_copy_constructible_v<Engine> && !std::is_move_constructible_v<Engine>);

TEST_F(WrapperTest, GivesRowsAsTypedValues) {
  Engine engine;
  engine.run("CREATE TABLE t id ApexInt a int f float b bool s string");
  const std::string text = "O'Brien \\ \n \x01 \xc3\xa4";
  engine.run("INSERT INTO t a = ? f = ? b = ? s = ?", -7, 2.5F, true, text);
  engine.run("INSERT INTO t f = ? s = ?", 3.0, "\"");
  engine.run("INSERT INTO t f = ?", 1e7);
  const Answer answer = engine.run("SELECT * FROM t");
  EXPECT_TRUE(answer.succeeded());
  EXPECT_EQ(answer.message(), "");
  EXPECT_EQ(answer.rowsAffected(), 3);
  ASSERT_EQ(answer.rows().size(), 3U);
  const Row& first = answer.rows()[0];
  EXPECT_EQ(first.columns(), (std::vector<std::string>{"id", "a", "f", "b", "s"}));
  EXPECT_EQ(first.get<std::uint8_t>("id"), 1);
  EXPECT_EQ(first.get<int>("a"), -7);
  EXPECT_EQ(first.get<double>("f"), 2.5);
  EXPECT_TRUE(first.get<bool>("b"));
  EXPECT_EQ(first.get<std::string>("s"), text);
  const Row& second = answer.rows()[1];
  EXPECT_EQ(second.get<float>("f"), 3.0F);
  EXPECT_EQ(second.get<std::string>("s"), "\"");
  EXPECT_EQ(second.get<std::optional<bool>>("b"), std::nullopt);
  EXPECT_EQ(second.get<std::optional<int>>("id"), 2);
  EXPECT_TRUE(std::holds_alternative<std::monostate>(second["b"]));
  EXPECT_EQ(answer.rows()[2].get<double>("f"), 1e7);
}

TEST_F(WrapperTest, RefusesValuesOfAnotherType) {
  Engine engine;
  engine.run("CREATE TABLE t a int b bool");
  engine.run("INSERT INTO t a = -300");
  const Row row = engine.run("SELECT * FROM t").rows().at(0);
  EXPECT_EQ(failureOf([&] { row.get<std::string>("a"); }), "Value is of another type");
  EXPECT_EQ(failureOf([&] { row.get<std::int8_t>("a"); }), "Value is of another type");
  EXPECT_EQ(failureOf([&] { row.get<unsigned>("a"); }), "Value is of another type");
  EXPECT_EQ(failureOf([&] { row.get<bool>("b"); }), "Value is null");
  EXPECT_EQ(failureOf([&] { row.get<int>("c"); }), "No column 'c' in the answer");
}

TEST_F(WrapperTest, FailedCommandsAreExceptionsOrAnswers) {
  Engine engine;
  constexpr const char* message = "Error: Syntax Error: Table 't' does not exist.";
  EXPECT_EQ(failureOf([&] { engine.run("DROP TABLE t"); }), message);
  const Answer answer = engine.tryRun("DROP TABLE t");
  EXPECT_FALSE(answer.succeeded());
  EXPECT_EQ(answer.message(), message);
  EXPECT_EQ(failureOf([&] { engine.run("SELECT ? FROM t"); }),
            "Error: Command has 1 placeholder for 0 values");
  EXPECT_EQ(failureOf([&] { engine.run("SELECT a FROM t WHERE a = ?", std::uint64_t{1} << 63U); }),
            "Error: Parameter 1 is an integer outside 32 bits");
  EXPECT_EQ(failureOf([&] { engine.run(std::string_view("BEGIN\0", 6)); }), "Command has a NUL");
}

TEST_F(WrapperTest, LivesAsLongAsItsObject) {
  {
    Engine engine;
    engine.run("CREATE TABLE t a int");
    engine.run("INSERT INTO t a = 1");
    EXPECT_EQ(failureOf([] { const Engine second; }), "There is an Engine already");
    EXPECT_EQ(engine.run("SELECT a FROM t").rowsAffected(), 1);
  }
  Engine engine;
  for (const Row& row : engine.run("SELECT a FROM t").rows()) EXPECT_EQ(row.get<int>("a"), 1);
  engine.stop();
  EXPECT_EQ(failureOf([&] { engine.run("SELECT a FROM t"); }), "Engine not started.");
}

TEST_F(WrapperTest, FailuresToStopAreTold) {
  Engine engine;
  engine.run("CREATE TABLE t a int");
  engine.run("INSERT INTO t a = 99999999999");
  EXPECT_EQ(failureOf([&] { engine.stop(); }),
            "Number is out of range: '99999999999' in table 't', column 'a', row 0");
  engine.run("DELETE FROM t");
  engine.run("DROP TABLE t");
  engine.stop();
}

}  // namespace
