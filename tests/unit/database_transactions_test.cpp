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
  database.deleteRows("t", {});
  EXPECT_TRUE(database.transactionLog.empty());
}

TEST_F(TransactionTest, EveryChangeIsRecordedInOrder) {
  database.beginTransaction();
  EXPECT_TRUE(database.inTransaction);
  insert("t", {{"a", "3"}});
  update("t", {{"a", "4"}}, where("a", "2"));
  database.deleteRows("t", {});
  EXPECT_EQ(logOf(database),
            Texts({"INSERT t 2", "UPDATE t 1", "DELETE t 0", "DELETE t 1", "DELETE t 2"}));
  const RowCopy& before = database.transactionLog[1].row;
  ASSERT_EQ(before.cells.size(), 2U);
  EXPECT_EQ(before.cells[1].getVal(), "2");
  database.rollbackTransaction();
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
  EXPECT_EQ(failureOf([&] { database.rollbackTransaction(); }),
            "No active transaction to rollback!");
  database.beginTransaction();
  insert("t", {});
  EXPECT_EQ(failureOf([&] { database.beginTransaction(); }), "Transaction is already active!");
  EXPECT_EQ(logOf(database), Texts({"INSERT t 2"}));
}

TEST_F(TransactionTest, BeginEmptiesWhatWasLeftInTheLog) {
  database.transactionLog.push_back({"INSERT", "t", 0, {}, PrimaryKeyMap::noRow});
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
  database.rollbackTransaction();
  EXPECT_EQ(shown("t", "a"), Texts({"1", "2"}));
}

TEST_F(TransactionTest, AFailingDeleteOrInsertHasRecordedNothing) {
  database.createTable("kid", {{"pid", "int"}});
  database.link("kid", "pid", "t", "id");
  insert("kid", {{"pid", "2"}});
  database.beginTransaction();
  EXPECT_EQ(failureOf([&] { return database.deleteRows("t", {}); }),
            "Foreign key points at rows that were meant for deletion");
  EXPECT_EQ(failureOf([&] {
              insert("kid", {{"pid", "1"}});
            }),
            "Primary table is missing required future key: 1");
  EXPECT_TRUE(database.transactionLog.empty());
  EXPECT_EQ(matching("t"), Indices({1}));
}

TEST_F(TransactionTest, RollbackClearsTheDeletedSetAndTheMark) {
  database.beginTransaction();
  database.deleteRows("t", {});
  database.rollbackTransaction();
  const Table& table = database.getTable("t");
  EXPECT_FALSE(table.rows[0].isDeleted);
  EXPECT_FALSE(table.rows[1].isDeleted);
  EXPECT_TRUE(table.isLive(0));
  EXPECT_TRUE(table.isLive(1));
}

TEST_F(TransactionTest, RollbackOfAnInsertTakesTheKeyOutOfTheMap) {
  database.beginTransaction();
  insert("t", {});
  EXPECT_EQ(database.getTable("t").primaryKeyMap.find("3"), 2);
  database.rollbackTransaction();
  EXPECT_EQ(database.getTable("t").primaryKeyMap.find("3"), PrimaryKeyMap::noRow);
  EXPECT_EQ(database.getTable("t").primaryKeyMap.size(), 2U);
}

TEST_F(TransactionTest, RollbackRestoresTheTimedValueItself) {
  database.createTable("u", {{"v", "string", 3}});
  insertTimed("u", "v", timed({{"a", 10}, {"b", 20}}, true, 1000));
  database.beginTransaction();
  update("u", {{"v", "plain"}});
  database.rollbackTransaction();
  const TempRule* const rule = rowOf("u", 0).cells()[0].tempRule.get();
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
  EXPECT_NO_THROW(database.rollbackTransaction());
  EXPECT_FALSE(database.tables.contains("t"));
  EXPECT_TRUE(database.getTable("u").rows.empty());
}

// Writing through: with walMode false, changes go to the table files at once. The table has the
// columns (a int, s string): header 135 bytes, rows of 64.

class WriteThroughTest : public DatabaseTest {
 protected:
  static constexpr std::size_t header = 135;
  static constexpr std::size_t rowSize = 64;

  WriteThroughTest() {
    database.createTable("t", {{"a", "int"}, {"s", "string"}});
    database.walMode = false;
  }

  std::size_t rowCount() const { return (bytesOf("t.bin").size() - header) / rowSize; }
  // The int that the row file holds in column a of a row; the numbers used here fit into a byte.
  int storedNumber(std::size_t row) const {
    return static_cast<unsigned char>(bytesOf("t.bin").at(header + row * rowSize));
  }
  std::string marks() const { return bytesOf("t.del"); }
};

TEST_F(WriteThroughTest, InsertAppendsARowAndItsMark) {
  insert("t", {{"a", "5"}, {"s", "x"}});
  insert("t", {{"a", "6"}});
  ASSERT_EQ(rowCount(), 2U);
  EXPECT_EQ(storedNumber(0), 5);
  EXPECT_EQ(storedNumber(1), 6);
  EXPECT_EQ(marks(), std::string(2, '\0'));
  EXPECT_FALSE(exists("velmora.wal"));
}

TEST_F(WriteThroughTest, UpdateRewritesTheMatchedRowsInPlace) {
  for (const char* value : {"1", "2", "3"}) insert("t", {{"a", value}});
  update("t", {{"a", "9"}}, where("a", "2"));
  ASSERT_EQ(rowCount(), 3U);
  EXPECT_EQ(storedNumber(0), 1);
  EXPECT_EQ(storedNumber(1), 9);
  EXPECT_EQ(storedNumber(2), 3);
}

TEST_F(WriteThroughTest, DeleteMarksRowsInTheDeletionFileOnly) {
  for (const char* value : {"1", "2", "3"}) insert("t", {{"a", value}});
  const std::string rows = bytesOf("t.bin");
  database.deleteRows("t", where("a", "2"));
  EXPECT_EQ(marks(), std::string("\0\1\0", 3));
  EXPECT_EQ(bytesOf("t.bin"), rows);
}

TEST_F(WriteThroughTest, AFailedCommandWritesNothing) {
  database.createTable("p", {{"id", "ApexInt"}});
  database.link("t", "a", "p", "id");
  insert("p", {});
  insert("t", {{"a", "1"}});
  const std::string rows = bytesOf("t.bin");
  EXPECT_NE(failureOf([&] { return insert("t", {{"a", "9"}}); }), "");
  EXPECT_NE(failureOf([&] { return database.deleteRows("p", {}); }), "");
  EXPECT_NE(failureOf([&] { return update("t", {{"a", "9"}}); }), "");
  EXPECT_EQ(bytesOf("t.bin"), rows);
  EXPECT_EQ(marks(), std::string(1, '\0'));
  EXPECT_EQ(bytesOf("p.del"), std::string(1, '\0'));
}

TEST_F(WriteThroughTest, ATransactionHoldsItsWritesBackUntilCommit) {
  insert("t", {{"a", "1"}});
  insert("t", {{"a", "2"}});
  const std::string before = bytesOf("t.bin");
  database.beginTransaction();
  insert("t", {{"a", "3"}});
  update("t", {{"a", "4"}}, where("a", "1"));
  update("t", {{"a", "5"}}, where("a", "3"));
  database.deleteRows("t", where("a", "2"));
  EXPECT_EQ(bytesOf("t.bin"), before);
  EXPECT_EQ(marks(), std::string(2, '\0'));
  database.commitTransaction();
  ASSERT_EQ(rowCount(), 3U);
  EXPECT_EQ(storedNumber(0), 4);
  EXPECT_EQ(storedNumber(1), 2);
  EXPECT_EQ(storedNumber(2), 5);
  EXPECT_EQ(marks(), std::string("\0\1\0", 3));
}

TEST_F(WriteThroughTest, RollbackWritesNothing) {
  insert("t", {{"a", "1"}});
  const std::string before = bytesOf("t.bin");
  database.beginTransaction();
  insert("t", {{"a", "3"}});
  update("t", {{"a", "4"}});
  database.deleteRows("t", {});
  database.rollbackTransaction();
  EXPECT_EQ(bytesOf("t.bin"), before);
  EXPECT_EQ(marks(), std::string(1, '\0'));
}

TEST_F(WriteThroughTest, CommitPassesOverRecordsOfAnUnknownKind) {
  insert("t", {{"a", "1"}});
  const std::string before = bytesOf("t.bin");
  database.beginTransaction();
  database.transactionLog.push_back({"OTHER", "t", 0, {}, PrimaryKeyMap::noRow});
  database.commitTransaction();
  EXPECT_EQ(bytesOf("t.bin"), before);
  EXPECT_FALSE(database.inTransaction);
}

TEST_F(WriteThroughTest, InWriteAheadLogModeCommitWritesNoTableFile) {
  database.walMode = true;
  const std::string before = bytesOf("t.bin");
  database.beginTransaction();
  insert("t", {{"a", "1"}});
  database.commitTransaction();
  insert("t", {{"a", "2"}});
  update("t", {{"a", "3"}});
  database.deleteRows("t", {});
  EXPECT_EQ(bytesOf("t.bin"), before);
  EXPECT_EQ(marks(), "");
}

}  // namespace
}  // namespace velmora
