// Transactions, and writing through: what is recorded for a rollback, and what reaches the table
// files when the engine writes them directly, which no command can make it do.
//
// What a host can see is pinned by the golden scripts.

#include <stdexcept>

#include "database_fixture.h"

namespace velmora {
namespace {

// The undo records as texts: "UPDATE t 1".
std::vector<std::string> logOf(const Database& database) {
  std::vector<std::string> texts;
  for (const TransactionAction& action : database.transactionLog) {
    texts.push_back(action.kind + " " + action.tableName + " " + std::to_string(action.rowIndex));
  }
  return texts;
}

class TransactionTest : public DatabaseTest {
 protected:
  TransactionTest() {
    database.createTable("t", {{"id", "ApexInt"}, {"a", "int"}});
    insert("t", {{"a", "1"}});
    insert("t", {{"a", "2"}});
  }
};

TEST_F(TransactionTest, NothingIsRecordedOutsideOfATransaction) {
  update("t", {{"a", "3"}});
  database.deleteRows("t", {}, second);
  EXPECT_TRUE(database.transactionLog.empty());
}

TEST_F(TransactionTest, EveryChangeIsRecordedInOrder) {
  database.beginTransaction();
  EXPECT_TRUE(database.inTransaction);
  insert("t", {{"a", "3"}});
  update("t", {{"a", "4"}}, where("a", "2"));
  database.deleteRows("t", {}, second);
  EXPECT_EQ(logOf(database),
            Texts({"INSERT t 2", "UPDATE t 1", "DELETE t 0", "DELETE t 1", "DELETE t 2"}));
  const std::vector<GivenValue>& before = database.transactionLog[1].cells;
  ASSERT_EQ(before.size(), 1U);
  EXPECT_EQ(before[0].column, 1U);
  EXPECT_EQ(before[0].cell.value.view(), "2");
  database.rollbackTransaction(second);
  EXPECT_FALSE(database.inTransaction);
  EXPECT_TRUE(database.transactionLog.empty());
  EXPECT_EQ(shown("t", "a"), Texts({"1", "2"}));
  EXPECT_EQ(matching("t"), Indices({0, 1}));
}

TEST_F(TransactionTest, CommitEmptiesTheLog) {
  database.beginTransaction();
  update("t", {{"a", "4"}});
  database.commitTransaction();
  EXPECT_FALSE(database.inTransaction);
  EXPECT_TRUE(database.transactionLog.empty());
  EXPECT_EQ(shown("t", "a"), Texts({"4", "4"}));
}

TEST_F(TransactionTest, WrongStatesAreRefusedAndChangeNothing) {
  EXPECT_EQ(failureOf([&] { database.commitTransaction(); }), "No active transaction to commit!");
  EXPECT_EQ(failureOf([&] { database.rollbackTransaction(second); }),
            "No active transaction to rollback!");
  database.beginTransaction();
  insert("t", {});
  EXPECT_EQ(failureOf([&] { database.beginTransaction(); }), "Transaction is already active!");
  EXPECT_EQ(logOf(database), Texts({"INSERT t 2"}));
}

TEST_F(TransactionTest, BeginEmptiesWhatWasLeftInTheLog) {
  database.transactionLog.push_back({"INSERT", "t", 0, {}});
  database.beginTransaction();
  EXPECT_TRUE(database.transactionLog.empty());
}

TEST_F(TransactionTest, AFailingUpdateHasRecordedItsRows) {
  database.beginTransaction();
  EXPECT_EQ(failureOf([&] {
              update("t", {{"a", "9"}, {"id", "9"}});
            }),
            "ApexInt is an immutable identity column and cannot be updated");
  EXPECT_EQ(logOf(database), Texts({"UPDATE t 0", "UPDATE t 1"}));
  database.rollbackTransaction(second);
  EXPECT_EQ(shown("t", "a"), Texts({"1", "2"}));
}

TEST_F(TransactionTest, AFailingDeleteOrInsertHasRecordedNothing) {
  database.createTable("kid", {{"pid", "int"}});
  database.link("kid", "pid", "t", "id", second);
  insert("kid", {{"pid", "2"}});
  database.beginTransaction();
  EXPECT_EQ(failureOf([&] { return database.deleteRows("t", {}, second); }),
            "Foreign key points at rows that were meant for deletion");
  EXPECT_EQ(failureOf([&] {
              insert("kid", {{"pid", "1"}});
            }),
            "Primary table is missing required future key: 1");
  EXPECT_TRUE(database.transactionLog.empty());
  EXPECT_EQ(matching("t"), Indices({1}));
}

TEST_F(TransactionTest, RollbackBringsDeletedRowsBack) {
  database.beginTransaction();
  database.deleteRows("t", {}, second);
  database.rollbackTransaction(second);
  const Table& table = database.getTable("t");
  EXPECT_TRUE(table.isLive(0));
  EXPECT_TRUE(table.isLive(1));
}

TEST_F(TransactionTest, RollbackOfAnInsertTakesTheKeyOutOfTheMap) {
  database.beginTransaction();
  insert("t", {});
  EXPECT_EQ(database.getTable("t").keys().find("3"), 2);
  database.rollbackTransaction(second);
  EXPECT_EQ(database.getTable("t").keys().find("3"), PrimaryKeyMap::noRow);
  EXPECT_EQ(database.getTable("t").keys().size(), 2U);
}

TEST_F(TransactionTest, RollbackRestoresTheTimedValueItself) {
  database.createTable("u", {{"v", "string", 3}});
  insertTimed("u", "v", timed({{"a", 10}, {"b", 20}}, true, 1000));
  database.beginTransaction();
  update("u", {{"v", "plain"}});
  database.rollbackTransaction(second);
  const TempRule* const rule = ruleOf("u", 0);
  ASSERT_NE(rule, nullptr);
  EXPECT_EQ(rule->startTime, 1000);
  EXPECT_EQ(rule->cycleLength, 30);
  EXPECT_TRUE(rule->repeat);
  ASSERT_EQ(rule->states.size(), 2U);
  EXPECT_EQ(rule->states[1].duration, 20);
}

TEST_F(TransactionTest, DroppingATableTakesItsRecordsOutOfTheLog) {
  database.createTable("u", {{"a", "int"}});
  database.beginTransaction();
  insert("t", {});
  insert("u", {});
  database.dropTable("t");
  EXPECT_NO_THROW(database.rollbackTransaction(second));
  EXPECT_FALSE(database.tables.contains("t"));
  EXPECT_EQ(database.getTable("u").rowCount(), 0U);
}

TEST_F(TransactionTest, CommitWritesNoTableFile) {
  const std::string before = bytesOf("t.bin");
  database.beginTransaction();
  insert("t", {{"a", "1"}});
  database.commitTransaction();
  EXPECT_EQ(bytesOf("t.bin"), before);
  EXPECT_EQ(bytesOf("t.del"), "");
}

}  // namespace
}  // namespace velmora
