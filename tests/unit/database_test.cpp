// Database on its own: the catalogue, the row-changing operations, matching and reading, as the
// engine's class shows them. What a host can see through commands is pinned by the golden scripts;
// links and transactions have files of their own.

#include <stdexcept>

#include "database_fixture.h"

namespace velmora {
namespace {

// Catalogue.

TEST_F(DatabaseTest, BeginsEmpty) {
  EXPECT_TRUE(database.tables.empty());
  EXPECT_FALSE(database.inTransaction);
  EXPECT_TRUE(database.transactionLog.empty());
  EXPECT_FALSE(database.isReplaying);
  EXPECT_TRUE(database.listeners.empty());
  EXPECT_TRUE(database.pendingWebhooks.empty());
}

TEST_F(DatabaseTest, CheckTypesAcceptsTheFiveTypeNamesOnly) {
  for (const char* type : {"int", "string", "ApexInt", "float", "bool"}) {
    EXPECT_TRUE(Database::checkTypes({{"a", "int"}, {"b", type}})) << type;
  }
  for (const char* type : {"", "text", "Int", "apexint", "int "}) {
    EXPECT_FALSE(Database::checkTypes({{"a", "int"}, {"b", type}})) << type;
  }
  EXPECT_TRUE(Database::checkTypes({}));
}

TEST_F(DatabaseTest, GetTableNamesTheMissingTable) {
  const auto find = [&] { database.getTable("x"); };
  EXPECT_EQ(failureOf(find), "Syntax Error: Table 'x' does not exist.");
}

TEST_F(DatabaseTest, CreateTableWithAnUnknownTypeStoresNothing) {
  const auto create = [&] { database.createTable("t", {{"a", "int"}, {"b", "text"}}); };
  EXPECT_EQ(failureOf(create), "Unknown type");
  EXPECT_FALSE(database.tables.contains("t"));
  EXPECT_FALSE(exists("t.bin"));
}

TEST_F(DatabaseTest, CreateTableMakesTheIdentityColumnThePrimaryKey) {
  database.createTable("t", {{"a", "int"}, {"id", "ApexInt"}});
  const Table& table = database.getTable("t");
  EXPECT_EQ(table.tableName, "t");
  EXPECT_EQ(table.primaryKeyColumn, "id");
  EXPECT_EQ(table.primaryKeyIndex, 1);
  EXPECT_EQ(table.keys().comparator().type, "ApexInt");
  EXPECT_EQ(bytesOf("t.bin").size(), 135U);
  EXPECT_TRUE(exists("t.del"));
}

TEST_F(DatabaseTest, CreateTableWithTwoIdentityColumnsStaysWithoutKeyAndFile) {
  const auto create = [&] { database.createTable("t", {{"a", "ApexInt"}, {"b", "ApexInt"}}); };
  EXPECT_EQ(failureOf(create), "A table can only have one ApexInt column");
  EXPECT_EQ(database.getTable("t").columns.size(), 2U);
  EXPECT_FALSE(database.getTable("t").hasPrimaryKey());
  EXPECT_FALSE(exists("t.bin"));
}

// Only the dispatcher refuses a name that is in use; here the file is what stands in the way, when
// the table in memory has been replaced already.
TEST_F(DatabaseTest, CreateTableReplacesATableInMemoryButNotItsFile) {
  database.createTable("t", {{"a", "int"}});
  insert("t", {{"a", "1"}});
  const std::string before = bytesOf("t.bin");
  const auto create = [&] { database.createTable("t", {{"b", "string"}}); };
  EXPECT_EQ(failureOf(create), "Column size error");
  EXPECT_EQ(database.getTable("t").columns[0].name, "b");
  EXPECT_EQ(database.getTable("t").rowCount(), 0U);
  EXPECT_EQ(bytesOf("t.bin"), before);
}

TEST_F(DatabaseTest, DropTableForgetsListenersOfThatTableOnly) {
  database.createTable("t", {{"a", "int"}});
  database.addListener({"t", "INSERT", "hook", {}}, false);
  database.addListener({"u", "INSERT", "hook", {}}, false);
  database.dropTable("t");
  EXPECT_FALSE(database.listeners.contains("t"));
  EXPECT_EQ(database.listeners.at("u").size(), 1U);
  EXPECT_FALSE(exists("t.bin"));
  EXPECT_FALSE(exists("t.del"));
}

TEST_F(DatabaseTest, DestroyingWritesNothing) {
  {
    Database other(database.directory);
    other.createTable("t", {{"a", "int"}});
    std::vector<GivenValue> values;
    values.push_back({0, Cell(Text("5"))});
    other.insertInto("t", values, second);
  }
  EXPECT_EQ(bytesOf("t.bin").size(), 75U);
  EXPECT_EQ(bytesOf("t.del"), "");
  EXPECT_FALSE(exists("velmora.wal"));
}

// Creating accesses.

TEST_F(DatabaseTest, EveryRowOperationLeavesAMissingTableBehind) {
  std::vector<GivenValue> none;
  EXPECT_EQ(database.update("a", none, {}, second).rowsAffected, 0);
  EXPECT_EQ(database.deleteRows("b", {}, second).rowsAffected, 0);
  EXPECT_EQ(failureOf([&] { return database.select("c", {"x"}, {}, second); }),
            "Requested column not found");
  EXPECT_EQ(database.select("d", {}, {}, second).rowsAffected, 0);
  EXPECT_EQ(failureOf([&] {
              database.selectJoin("e", "f", {"", "x"}, {"", "y"}, {}, {}, second);
            }),
            "Column 'x' not found in either table.");
  for (const char* name : {"a", "b", "c", "d", "e", "f"}) {
    EXPECT_TRUE(database.getTable(name).columns.empty()) << name;
    EXPECT_FALSE(exists(std::string(name) + ".bin")) << name;
  }
}

// Insert, update, delete.

TEST_F(DatabaseTest, InsertAnswersOneRow) {
  database.createTable("t", {{"a", "int"}});
  const ResultSet result = insert("t", {{"a", "5"}});
  EXPECT_TRUE(result.success);
  EXPECT_EQ(result.message, "success!");
  EXPECT_EQ(result.rowsAffected, 1);
}

TEST_F(DatabaseTest, InsertStoresTheMarkerForWhatIsNotGiven) {
  database.createTable("t", {{"n", "int"}, {"s", "string"}, {"f", "float"}, {"b", "bool"}});
  insert("t", {});
  EXPECT_EQ(shown("t", "n"), Texts({"0"}));
  EXPECT_EQ(shown("t", "s"), Texts({"#/#?"}));
  EXPECT_EQ(shown("t", "f"), Texts({"#/#?"}));
  EXPECT_EQ(shown("t", "b"), Texts({"#/#?"}));
}

TEST_F(DatabaseTest, InsertRefusedByADuplicateKeyLeavesRowsAndKeysAlone) {
  database.createTable("p", {{"name", "string"}});
  database.createTable("kid", {{"pname", "string"}});
  database.link("kid", "pname", "p", "name", second);
  insert("p", {{"name", "a"}});
  EXPECT_EQ(failureOf([&] {
              insert("p", {{"name", "a"}});
            }),
            "Duplicate entry 'a' for primary key");
  EXPECT_EQ(database.getTable("p").rowCount(), 1U);
  EXPECT_EQ(database.getTable("p").keys().find("a"), 0);
}

TEST_F(DatabaseTest, InsertOfATimedValueWithoutStatesIsTakenBack) {
  database.createTable("t", {{"v", "string", 3}});
  EXPECT_THROW(insertTimed("t", "v", timed({})), std::out_of_range);
  EXPECT_EQ(database.getTable("t").rowCount(), 0U);
  EXPECT_TRUE(database.pendingWebhooks.empty());
}

TEST_F(DatabaseTest, InsertAfterADeletedKeyNamesTheNewRow) {
  database.createTable("p", {{"name", "string"}});
  database.createTable("kid", {{"pname", "string"}});
  database.link("kid", "pname", "p", "name", second);
  insert("p", {{"name", "a"}});
  database.deleteRows("p", {}, second);
  insert("p", {{"name", "a"}});
  EXPECT_EQ(database.getTable("p").keys().find("a"), 1);
  EXPECT_EQ(matching("p", where("name", "a")), Indices({1}));
}

TEST_F(DatabaseTest, UpdateCopiesTheTimedValueIntoEachRow) {
  database.createTable("t", {{"v", "string", 3}});
  insert("t", {{"v", "x"}});
  insert("t", {{"v", "y"}});
  updateTimed("t", "v", timed({{"a", 10}, {"b", 10}}));
  const TempRule* const first = ruleOf("t", 0);
  const TempRule* const other = ruleOf("t", 1);
  ASSERT_NE(first, nullptr);
  ASSERT_NE(other, nullptr);
  EXPECT_NE(first, other);
  update("t", {{"v", "plain"}}, where("v", "a"));
  EXPECT_EQ(ruleOf("t", 0), nullptr);
  EXPECT_EQ(shown("t", "v"), Texts({"plain", "plain"}));
}

TEST_F(DatabaseTest, DeleteMarksTheRowAndKeepsItsPlace) {
  database.createTable("t", {{"id", "ApexInt"}});
  insert("t", {});
  insert("t", {});
  EXPECT_EQ(database.deleteRows("t", where("id", "1"), second).rowsAffected, 1);
  const Table& table = database.getTable("t");
  EXPECT_EQ(table.rowCount(), 2U);
  EXPECT_FALSE(table.isLive(0));
  EXPECT_TRUE(table.isLive(1));
  EXPECT_EQ(matching("t"), Indices({1}));
}

// Matching and reading.

TEST_F(DatabaseTest, MatchedRowsComeAscendingAndOnce) {
  database.createTable("p", {{"code", "int"}, {"n", "int"}});
  database.createTable("kid", {{"code", "int"}});
  database.link("kid", "code", "p", "code", second);
  for (const char* code : {"30", "10", "20", "5"}) insert("p", {{"code", code}, {"n", "1"}});
  EXPECT_EQ(matching("p", {{"", "code", "6", ">", 'o'}}), Indices({0, 1, 2}));
  EXPECT_EQ(matching("p", {{"", "code", "5", "=", 'o'}, {"", "code", "30", "=", 'o'}}),
            Indices({0, 3}));
  EXPECT_EQ(matching("p", {{"", "code", "6", ">", 'o'}, {"", "n", "1", "=", 'o'}}),
            Indices({0, 1, 2, 3}));
}

TEST_F(DatabaseTest, TheFirstConditionsConnectiveDoesNotMatter) {
  database.createTable("t", {{"a", "int"}});
  for (const char* value : {"1", "2", "3"}) insert("t", {{"a", value}});
  EXPECT_EQ(matching("t", {{"", "a", "1", "=", 'a'}, {"", "a", "3", "=", 'o'}}), Indices({0, 2}));
  EXPECT_EQ(matching("t", {{"", "a", "1", ">", 'a'}, {"", "a", "3", "<", 'a'}}), Indices({1}));
}

TEST_F(DatabaseTest, MatchingChangesNothingInTheTable) {
  database.createTable("t", {{"a", "int"}});
  insert("t", {{"a", "1"}});
  EXPECT_EQ(matching("t", where("nosuch", "1")), Indices());
  EXPECT_EQ(database.getTable("t").columns.size(), 1U);
  EXPECT_EQ(database.getTable("t").columnPosition("nosuch"), noColumn);
}

// However many rows a scan has, conditions are tested in their order, row by row: one whose cell
// does not convert fails the scan, unless an earlier condition has rejected the row.
TEST_F(DatabaseTest, ScansOfAllSizesConvertWhereTheConditionsOrderSaysSo) {
  const Condition number = {"", "a", "0", ">", 'o'};
  const Condition real = {"", "f", "0", ">", 'o'};
  const Condition text = {"", "s", "x", "=", 'o'};
  const auto both = [](Condition first, Condition then) {
    then.logic = 'a';
    return std::vector<Condition>{std::move(first), std::move(then)};
  };
  for (const std::size_t size : {3U, 300U, 3000U}) {
    const std::string name = "t" + std::to_string(size);
    database.createTable(name, {{"a", "int"}, {"f", "float"}, {"s", "string"}});
    for (std::size_t i = 1; i < size; ++i) insert(name, {{"a", "1"}, {"f", "1"}, {"s", "x"}});
    insert(name, {{"a", "99999999999"}, {"s", "y"}});
    for (int round = 0; round < 2; ++round) {
      EXPECT_THROW(matching(name, {number}), std::out_of_range) << size;
      EXPECT_THROW(matching(name, {real}), std::invalid_argument) << size;
      EXPECT_THROW(matching(name, both(number, text)), std::out_of_range) << size;
      EXPECT_THROW(matching(name, both(real, text)), std::invalid_argument) << size;
      EXPECT_EQ(matching(name, both(text, number)).size(), size - 1);
      EXPECT_EQ(matching(name, both(text, real)).size(), size - 1);
      EXPECT_THROW(matching(name, {text, number}), std::out_of_range) << size;
    }
  }
}

TEST_F(DatabaseTest, SelectReadsBoolsByTwoWords) {
  database.createTable("t", {{"b", "bool"}});
  for (const char* text : {"true", "1", "yes", "TRUE", "0", "false", ""})
    insert("t", {{"b", text}});
  EXPECT_EQ(rowsOf(database.select("t", {"b"}, {}, second)),
            Texts({R"({"b": true})", R"({"b": true})", R"({"b": false})", R"({"b": false})",
                   R"({"b": false})", R"({"b": false})", R"({"b": false})"}));
}

TEST_F(DatabaseTest, SelectGivesTypedValues) {
  database.createTable("t", {{"n", "int"}, {"f", "float"}, {"s", "string"}});
  EXPECT_EQ(rowsOf(database.select("t", {"s", "n"}, {}, second)), Texts());
  insert("t", {{"n", "-7"}, {"f", "2.5"}, {"s", "x"}});
  insert("t", {});
  ResultSet result = database.select("t", {"n", "f", "s"}, {}, second);
  EXPECT_TRUE(result.success);
  EXPECT_EQ(result.message, "");
  EXPECT_EQ(result.rowsAffected, 2);
  EXPECT_EQ(rowsOf(std::move(result)),
            Texts({R"({"n": -7, "f": 2.5, "s": "x"})", R"({"n": 0, "f": null, "s": null})"}));
}

TEST_F(DatabaseTest, JoinCountsItsPairsWithoutColumns) {
  database.createTable("l", {{"k", "int"}});
  database.createTable("r", {{"k", "int"}});
  for (const char* key : {"1", "2", "2"}) insert("l", {{"k", key}});
  for (const char* key : {"2", "2", "3"}) insert("r", {{"k", key}});
  const ResultSet result = database.selectJoin("l", "r", {"", "k"}, {"", "k"}, {}, {}, second);
  EXPECT_EQ(result.message, "success!");
  EXPECT_EQ(result.rowsAffected, 4);
}

}  // namespace
}  // namespace velmora
