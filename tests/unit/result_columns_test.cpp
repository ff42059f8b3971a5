// What hosts take many values at once with: blocks of rows, columns as arrays; and what is known of
// a command before it is run.
#include <gtest/gtest.h>

#include <array>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "handle_fixture.h"

namespace {

class ResultColumns : public handles::HandleTest {
 protected:
  ResultColumns() {
    check({{"CREATE TABLE t l long d double b bool s string", "0 rows"},
           {"INSERT INTO t l = 9007199254740993 d = 0.1 b = true s = 'one'", "1 row"},
           {"INSERT INTO t s = ''", "1 row"},
           {"INSERT INTO t l = -1 d = 2.5 b = false", "1 row"}});
    const std::string command = "SELECT * FROM t";
    EXPECT_EQ(velmora_run(db, command.data(), command.size(), nullptr, 0, &result, nullptr),
              VELMORA_OK);
  }
  ~ResultColumns() override { velmora_result_destroy(result); }

  velmora_column column(std::size_t index) const {
    velmora_column values = {};
    values.size = sizeof values;
    EXPECT_EQ(velmora_result_column(result, index, &values, nullptr), VELMORA_OK);
    return values;
  }

  velmora_result* result = nullptr;
};

template <typename T>
std::vector<T> three(const T* values) {
  return {values, values + 3};
}

TEST_F(ResultColumns, AreArraysOfTheirTypes) {
  EXPECT_EQ(three(column(0).integers), (std::vector<std::int64_t>{9007199254740993, 0, -1}));
  EXPECT_EQ(three(column(1).reals), (std::vector<double>{0.1, 0, 2.5}));
  EXPECT_EQ(three(column(2).booleans), (std::vector<std::uint8_t>{1, 0, 0}));
  const velmora_column texts = column(3);
  EXPECT_EQ(three(texts.ends), (std::vector<std::uint64_t>{3, 3, 3}));
  EXPECT_EQ(std::string(texts.texts, 3), "one");
}

TEST_F(ResultColumns, TellWhichValuesAreNull) {
  EXPECT_EQ(three(column(0).nulls), (std::vector<std::uint8_t>{0, 1, 0}));
  EXPECT_EQ(three(column(3).nulls), (std::vector<std::uint8_t>{0, 0, 1}));
  velmora_result_destroy(std::exchange(result, nullptr));
  velmora_run(db, "SELECT l FROM t WHERE l < 0", 27, nullptr, 0, &result, nullptr);
  EXPECT_EQ(column(0).nulls, nullptr) << "none is";
  EXPECT_EQ(column(0).rows, 1U);
}

TEST_F(ResultColumns, LeaveOutTheArraysOfOtherTypes) {
  const velmora_column values = column(0);
  EXPECT_EQ(values.type, VELMORA_INTEGER);
  EXPECT_EQ(values.rows, 3U);
  EXPECT_EQ(values.reals, nullptr);
  EXPECT_EQ(values.booleans, nullptr);
  EXPECT_EQ(values.texts, nullptr);
  EXPECT_EQ(values.ends, nullptr);
}

TEST_F(ResultColumns, StayWhereTheyAre) {
  EXPECT_EQ(column(0).integers, column(0).integers);
  std::array<const double*, 4> seen = {};
  std::vector<std::thread> threads;
  for (const double*& each : seen) {
    threads.emplace_back([&] { each = column(1).reals; });
  }
  for (std::thread& thread : threads) thread.join();
  for (const double* const each : seen) EXPECT_EQ(each, column(1).reals);
}

TEST_F(ResultColumns, OfAnOlderHeaderAreFilledAsFarAsItGoes) {
  velmora_column values = {};
  values.size = offsetof(velmora_column, reals);
  EXPECT_EQ(velmora_result_column(result, 1, &values, nullptr), VELMORA_OK);
  EXPECT_EQ(values.type, VELMORA_REAL);
  EXPECT_EQ(values.reals, nullptr);
}

TEST_F(ResultColumns, AreRefusedWhereThereIsNone) {
  velmora_column values = {};
  velmora_error* error = nullptr;
  int code = velmora_result_column(result, 0, &values, &error);
  EXPECT_EQ(handles::shown(code, error),
            "! 1: Result or place for the column is null, or has a wrong size");
  values.size = sizeof values;
  code = velmora_result_column(result, 4, &values, &error);
  EXPECT_EQ(handles::shown(code, error), "! 4: Result has no column 4");
}

TEST_F(ResultColumns, ComeAsBlocksOfRowsToo) {
  std::array<velmora_value, 12> values = {};
  EXPECT_EQ(velmora_result_values(result, 0, 2, values.data()), 2U);
  EXPECT_EQ(values[0].integer, 9007199254740993);
  EXPECT_EQ(values[1].real, 0.1);
  EXPECT_EQ(values[2].boolean, 1);
  EXPECT_EQ(std::string(values[3].text, values[3].text_size), "one");
  EXPECT_EQ(values[4].type, VELMORA_NULL);
  EXPECT_EQ(values[7].type, VELMORA_TEXT);
  EXPECT_EQ(values[8].type, VELMORA_NULL) << "behind what was asked for nothing is written";
  EXPECT_EQ(velmora_result_values(result, 2, 100, values.data()), 1U);
  EXPECT_EQ(values[0].integer, -1);
  EXPECT_EQ(velmora_result_values(result, 3, 1, values.data()), 0U);
  EXPECT_EQ(velmora_result_values(nullptr, 0, 1, values.data()), 0U);
}

TEST_F(ResultColumns, KindsOfCommandsAreKnownBeforeTheyRun) {
  const std::vector<std::pair<std::string, velmora_kind>> kinds = {
      {"SELECT * FROM nowhere", VELMORA_READS},
      {"SHOW TABLES", VELMORA_READS},
      {"INSERT INTO t l = 1", VELMORA_CHANGES},
      {"CREATE TABLE u n int", VELMORA_CHANGES},
      {"LINK a.b --> c.d", VELMORA_CHANGES},
      {"BEGIN", VELMORA_CONTROLS},
      {"COMMIT", VELMORA_CONTROLS},
      {"ROLLBACK", VELMORA_CONTROLS},
      {"CHECKPOINT", VELMORA_MAINTAINS},
      {"VACUUM", VELMORA_MAINTAINS}};
  for (const auto& [text, kind] : kinds) {
    velmora_statement* statement = nullptr;
    ASSERT_EQ(velmora_prepare(db, text.data(), text.size(), &statement, nullptr), VELMORA_OK);
    EXPECT_EQ(velmora_statement_kind(statement), kind) << text;
    velmora_statement_destroy(statement);
  }
  EXPECT_EQ(velmora_statement_kind(nullptr), VELMORA_READS);
}

TEST_F(ResultColumns, ATransactionIsKnownToItsThread) {
  EXPECT_EQ(velmora_in_transaction(db), 0);
  EXPECT_EQ(run("BEGIN"), "0 rows");
  EXPECT_EQ(velmora_in_transaction(db), 1);
  std::thread([&] { EXPECT_EQ(velmora_in_transaction(db), 0); }).join();
  EXPECT_EQ(run("ROLLBACK"), "0 rows");
  EXPECT_EQ(velmora_in_transaction(db), 0);
  EXPECT_EQ(velmora_in_transaction(nullptr), 0);
}

}  // namespace
