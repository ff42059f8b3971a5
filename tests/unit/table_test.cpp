// Tables and rows: appending and taking back, the key map built from rows, and deleted marks.

#include "table.h"

#include <gtest/gtest.h>

#include <iostream>
#include <memory>
#include <random>
#include <set>
#include <sstream>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

namespace velmora {
namespace {

Table keyedTable(const std::string& keyType) {
  return {"t", {{"key", keyType}, {"text", "string"}}};
}

std::size_t add(Table& table, const std::vector<std::string>& values) {
  const std::size_t row = table.appendRow();
  for (std::size_t i = 0; i < values.size(); ++i) table.set(row, i, Cell(Text(values[i])), 0);
  return row;
}

// A row whose first cell is timed, ten seconds a state.
void addTimed(Table& table, const std::vector<std::string>& states) {
  Cell key;
  key.tempRule = std::make_unique<TempRule>();
  for (const std::string& state : states) key.tempRule->states.push_back({Text(state), 10});
  key.tempRule->cycleLength = 20;
  table.set(table.appendRow(), 0, key, 0);
}

std::string textOf(const Table& table, std::size_t row, std::size_t column) {
  TextRoom room;
  return std::string(table.text(row, column, 0, room));
}

std::string failureOf(Table& table, const std::string& keyColumn,
                      KeyRule rule = KeyRule::noDuplicates) {
  try {
    table.setUpPrimaryKeyMap(keyColumn, 0, rule);
  } catch (const std::runtime_error& error) {
    return error.what();
  }
  return "no failure";
}

TEST(Column, isEqualByNameAlone) {
  EXPECT_EQ((Column{"a", "int", 3, 5}), (Column{"a", "string"}));
  EXPECT_FALSE((Column{"a", "int"} == Column{"A", "int"}));
  EXPECT_EQ(Column().maxStates, 0);
  EXPECT_EQ(Column().stringSize, 60);
}

TEST(Table, findsColumnsByExactName) {
  const Table table("t", {{"a", "int"}, {"b", "bool"}, {"", "string"}});
  EXPECT_EQ(table.columnPosition("a"), 0U);
  EXPECT_EQ(table.columnPosition("b"), 1U);
  EXPECT_EQ(table.columnPosition(""), 2U);
  EXPECT_EQ(table.columnPosition("b", 1), 1U);
  EXPECT_EQ(table.columnPosition("b", 0), 1U);
  EXPECT_EQ(table.columnPosition("b", 99), 1U);
  EXPECT_EQ(table.columnPosition("A"), noColumn);
  EXPECT_EQ(table.columnPosition("c", 1), noColumn);
  EXPECT_EQ(table.kind(1), ValueKind::boolean);
  EXPECT_FALSE(table.hasPrimaryKey());
}

TEST(Table, takesTheFirstOfTwoColumnsCalledAlike) {
  const Table table("t", {{"a", "int"}, {"a", "bool"}});
  EXPECT_EQ(table.columnPosition("a"), 0U);
  EXPECT_EQ(table.columnPosition("a", 1), 0U);
}

TEST(Table, appendsRowsWithoutValues) {
  Table table = keyedTable("int");
  EXPECT_EQ(table.appendRow(), 0U);
  EXPECT_EQ(table.appendRow(), 1U);
  EXPECT_EQ(table.rowCount(), 2U);
  EXPECT_EQ(textOf(table, 1, 0), "0");
  EXPECT_EQ(textOf(table, 1, 1), "#/#?");
  EXPECT_EQ(table.dependents(1), nullptr);
  EXPECT_TRUE(table.isLive(1));
  EXPECT_EQ(table.keys().size(), 0U);
}

TEST(Table, marksDeletedRows) {
  Table table = keyedTable("int");
  add(table, {"1", "a"});
  add(table, {"2", "b"});
  table.setDeleted(0, true);
  EXPECT_FALSE(table.isLive(0));
  EXPECT_TRUE(table.isLive(1));
  table.setDeleted(0, false);
  EXPECT_TRUE(table.isLive(0));
  table.setDeleted(1, true);
  table.removeLastRow();
  EXPECT_EQ(table.rowCount(), 1U);
  add(table, {"3", "c"});
  EXPECT_TRUE(table.isLive(1));
}

TEST(Table, buildsItsKeyMapInKeyOrder) {
  Table numbers = keyedTable("ApexInt");
  for (const char* const key : {"2", "10", "1"}) add(numbers, {key, ""});
  numbers.setUpPrimaryKeyMap("key", 0);
  EXPECT_EQ(numbers.keys().keys(), (std::vector<std::string>{"1", "2", "10"}));
  EXPECT_EQ(numbers.keys().find("10"), 1);
  EXPECT_EQ(numbers.primaryKeyColumn, "key");
  EXPECT_EQ(numbers.primaryKeyIndex, 0);
  EXPECT_TRUE(numbers.hasPrimaryKey());
  EXPECT_EQ(numbers.keys().comparator().type, "ApexInt");

  Table texts = keyedTable("string");
  for (const char* const key : {"2", "10", "1"}) add(texts, {key, key});
  texts.setUpPrimaryKeyMap("text", 0);
  EXPECT_EQ(texts.keys().keys(), (std::vector<std::string>{"1", "10", "2"}));
  EXPECT_EQ(texts.primaryKeyIndex, 1);
}

TEST(Table, refusesAKeyColumnItDoesNotHave) {
  Table table = keyedTable("int");
  EXPECT_EQ(failureOf(table, "nobody"), "Primary key not found");
  EXPECT_FALSE(table.hasPrimaryKey());
  EXPECT_EQ(table.primaryKeyColumn, "");
}

TEST(Table, refusesEqualKeysAndQuotesTheLaterOne) {
  Table numbers = keyedTable("int");
  add(numbers, {"5", ""});
  add(numbers, {"05", ""});
  EXPECT_EQ(failureOf(numbers, "key"),
            "Cannot create Primary Key: Duplicate value '05' already exists in column");
  Table texts = keyedTable("string");
  add(texts, {"5", ""});
  add(texts, {"05", ""});
  EXPECT_EQ(failureOf(texts, "key"), "no failure");
  add(texts, {"5", ""});
  EXPECT_EQ(failureOf(texts, "key"),
            "Cannot create Primary Key: Duplicate value '5' already exists in column");
}

TEST(Table, countsDeletedRowsAmongEqualKeys) {
  Table table = keyedTable("int");
  add(table, {"5", ""});
  add(table, {"5", ""});
  table.setDeleted(0, true);
  EXPECT_EQ(failureOf(table, "key"),
            "Cannot create Primary Key: Duplicate value '5' already exists in column");
  EXPECT_EQ(failureOf(table, "key", KeyRule::liveFirst), "no failure");
  EXPECT_EQ(table.keys().find("5"), 1);
  table.setDeleted(0, false);
  table.setDeleted(1, true);
  EXPECT_EQ(failureOf(table, "key", KeyRule::liveFirst), "no failure");
  EXPECT_EQ(table.keys().find("5"), 0);
  table.setDeleted(1, false);
  EXPECT_EQ(failureOf(table, "key", KeyRule::liveFirst),
            "Cannot create Primary Key: Duplicate value '5' already exists in column");
}

TEST(Table, refusesKeysThatAreNoNumbers) {
  Table table = keyedTable("int");
  add(table, {"abc", ""});
  EXPECT_THROW(table.setUpPrimaryKeyMap("key", 0), std::invalid_argument);
  table.set(0, 0, Cell(Text("99999999999")), 0);
  EXPECT_THROW(table.setUpPrimaryKeyMap("key", 0), std::out_of_range);
}

TEST(Table, keysATimedCellByItsCurrentState) {
  Table table = keyedTable("int");
  addTimed(table, {"7", "8"});
  table.setUpPrimaryKeyMap("key", 10);
  EXPECT_EQ(table.keys().keys(), std::vector<std::string>{"8"});
}

// What the clock makes of a timed key must not end a start.
TEST(Table, keysARowThatIsLoadedByItsOwnKeyBeforeATimedOne) {
  Table table = keyedTable("ApexInt");
  table.columns[0].maxStates = 2;
  addTimed(table, {"1", "2"});
  add(table, {"2", ""});
  addTimed(table, {"1", "2"});
  addTimed(table, {"3", "99999999999"});
  add(table, {"5", ""});
  table.setDeleted(4, true);
  addTimed(table, {"1", "5"});
  table.setUpPrimaryKeyMap("key", 10, KeyRule::liveFirstTimedLast);
  EXPECT_EQ(table.keys().keys(), (std::vector<std::string>{"2", "5"}));
  EXPECT_EQ(table.keys().find("2"), 1);
  EXPECT_EQ(table.keys().find("5"), 5);
  EXPECT_EQ(table.findLive("2", 10), 1);
  EXPECT_THROW(table.setUpPrimaryKeyMap("key", 10), std::runtime_error);
  // Of two timed ones the first is found.
  table.setUpPrimaryKeyMap("key", 0, KeyRule::liveFirstTimedLast);
  EXPECT_EQ(table.keys().find("1"), 0);
  EXPECT_EQ(table.keys().find("3"), 3);
  table.columns[0].maxStates = 1;
  table.setUpPrimaryKeyMap("key", 0, KeyRule::liveFirstTimedLast);
  EXPECT_EQ(table.keys().find("3"), 3);
}

TEST(Table, stillRefusesTwoLoadedRowsWithOneKeyOfTheirOwn) {
  Table table = keyedTable("int");
  add(table, {"1", ""});
  add(table, {"1", ""});
  EXPECT_THROW(table.setUpPrimaryKeyMap("key", 0, KeyRule::liveFirstTimedLast), std::runtime_error);
}

TEST(Table, setsItsKeyMapUpAnew) {
  Table table = keyedTable("int");
  add(table, {"1", "x"});
  table.setUpPrimaryKeyMap("key", 0);
  table.setUpPrimaryKeyMap("text", 0);
  EXPECT_EQ(table.keys().keys(), std::vector<std::string>{"x"});
  EXPECT_EQ(table.primaryKeyColumn, "text");
}

TEST(Rows, keepTheirValuesWhileOthersComeAndGo) {
  Table table("t", std::vector<Column>(3, {"c", "string"}));
  constexpr std::size_t count = 5000;
  const std::string longText = "a text longer than fifteen bytes";
  for (std::size_t i = 0; i < count; ++i) {
    ASSERT_EQ(add(table, {std::to_string(i), longText, ""}), i);
  }
  for (std::size_t i = 0; i < count; ++i) {
    ASSERT_EQ(textOf(table, i, 0), std::to_string(i));
    ASSERT_EQ(textOf(table, i, 1), longText);
  }
  while (table.rowCount() > 10) table.removeLastRow();
  add(table, {"again"});
  EXPECT_EQ(textOf(table, 9, 0), "9");
  EXPECT_EQ(textOf(table, 10, 0), "again");
  EXPECT_EQ(textOf(table, 10, 1), "#/#?");
}

TEST(Rows, keepTheirDependentsUntilTheyAreTakenBack) {
  Table table = keyedTable("int");
  for (std::size_t i = 0; i < Rows::chunkRows + 1; ++i) table.appendRow();
  const ForeignRelation relation{Text("kid"), Text("pid")};
  const std::size_t last = Rows::chunkRows;
  for (const std::size_t row : {std::size_t{0}, last}) {
    addDependent(table.dependentsPlace(row), relation, 7);
    ASSERT_NE(table.dependents(row), nullptr);
    EXPECT_EQ(table.dependents(row)->relation, relation);
  }
  EXPECT_EQ(table.dependents(1), nullptr);
  table.removeLastRow();
  table.appendRow();
  EXPECT_EQ(table.dependents(last), nullptr);
  EXPECT_NE(table.dependents(0), nullptr);
}

// Only a loader makes many rows at once, and never beyond the end of a chunk.
TEST(Rows, areAppendedTogetherUpToTheEndOfTheirChunk) {
  Table table = keyedTable("int");
  table.appendRow();
  EXPECT_EQ(table.appendRows(1000), 1000U);
  EXPECT_EQ(table.appendRows(5000), Rows::chunkRows - 1001);
  EXPECT_EQ(table.appendRows(5000), Rows::chunkRows);
  EXPECT_EQ(table.rowCount(), 2 * Rows::chunkRows);
  EXPECT_EQ(table.rows().chunkCount(), 2U);
  for (std::size_t i = 0; i < table.rowCount(); ++i) {
    ASSERT_TRUE(table.isLive(i));
    ASSERT_EQ(textOf(table, i, 0), "0");
    ASSERT_EQ(textOf(table, i, 1), "#/#?");
  }
}

TEST(Rows, moveAsAWhole) {
  Table table = keyedTable("int");
  add(table, {"1", "a text longer than fifteen bytes"});
  Table moved = std::move(table);
  EXPECT_EQ(textOf(moved, 0, 0), "1");
  Table assigned = keyedTable("string");
  add(assigned, {"x", "another text longer than fifteen bytes"});
  assigned = std::move(moved);
  EXPECT_EQ(assigned.rowCount(), 1U);
  EXPECT_EQ(assigned.kind(0), ValueKind::integer);
  EXPECT_EQ(textOf(assigned, 0, 0), "1");
  EXPECT_EQ(textOf(assigned, 0, 1), "a text longer than fifteen bytes");
}

TEST(Rows, holdAThousandCells) {
  std::vector<Column> columns;
  for (int i = 0; i < 1000; ++i) columns.push_back({"c" + std::to_string(i), "int"});
  Table table("wide", columns);
  for (int row = 0; row < 100; ++row) {
    add(table, std::vector<std::string>(1000, std::to_string(row)));
  }
  EXPECT_EQ(textOf(table, 99, 999), "99");
  EXPECT_EQ(textOf(table, 0, 0), "0");
}

TEST(RowIndicesTest, agreeWithAStandardSet) {
  std::mt19937 random(5);
  for (int round = 0; round < 50; ++round) {
    RowIndices rows;
    std::set<std::int32_t> model;
    for (int step = 0; step < 200; ++step) {
      const auto row = static_cast<std::int32_t>(random() % 40);
      if (random() % 5 < 2) {
        rows.remove(row);
        model.erase(row);
      } else {
        rows.add(row);
        model.insert(row);
      }
      ASSERT_EQ(rows.size(), model.size());
      std::size_t place = 0;
      for (const std::int32_t expected : model) ASSERT_EQ(rows[place++], expected);
    }
  }
}

}  // namespace
}  // namespace velmora
