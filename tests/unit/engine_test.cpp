// Commands of the strict language through an Engine: that they are whole or not at all, in memory
// and in the log, and what an open brings back.
#include "strict_fixture.h"

namespace velmora {
namespace {

class EngineCommands : public StrictTest {};

TEST_F(EngineCommands, rowsComeBackAfterACrashAndAfterAClose) {
  EXPECT_EQ(run("CREATE TABLE t id ApexInt n int l long f float d double b bool s string"),
            "0 rows");
  EXPECT_EQ(run("INSERT INTO t n = 5 l = 9007199254740993 f = 0.1 d = 0.1 b = true s = 'a b'"),
            "1 row, number 1");
  EXPECT_EQ(run("INSERT INTO t s = 'it''s \"here\"'"), "1 row, number 2");
  const std::string rows =
      "1 5 9007199254740993 0.10000000149011612 0.1 true 'a b'; "
      "2 NULL NULL NULL NULL NULL 'it's \"here\"'";
  EXPECT_EQ(run("SELECT * FROM t"), rows);
  crash();
  EXPECT_EQ(run("SELECT * FROM t"), rows);
  reopen();
  EXPECT_EQ(run("SELECT * FROM t"), rows);
  EXPECT_EQ(run("INSERT INTO t n = 1"), "1 row, number 3");
}

TEST_F(EngineCommands, boundValuesAreLoggedAsTheyWereGiven) {
  run("CREATE TABLE t n int s string(200)");
  const std::string text = "x' active = true \n name = 'y #TIME# 5\n #TIME# 7";
  EXPECT_EQ(run("INSERT INTO t n = ? s = ?", {std::int64_t{7}, text}), "1 row");
  EXPECT_EQ(run("SELECT n FROM t WHERE s = ?", {text}), "7");
  crash();
  EXPECT_EQ(run("SELECT n FROM t WHERE s = ?", {text}), "7");
}

// The log names such a command once, and must not name one that is not there.
TEST_F(EngineCommands, commandsThatAreRunAgainAreTheSameAfterACrash) {
  const std::string create = "CREATE TABLE t n int s string 2";
  const std::string insert = "INSERT INTO t n = ? s = ?";
  const auto insertRow = [&](std::int64_t n) {
    EXPECT_EQ(run(insert, {n, "it's " + std::to_string(n)}), "1 row");
  };
  const auto crashAndCompare = [&](const std::string& read) {
    const std::string rows = run(read);
    crash();
    EXPECT_EQ(run(read), rows);
    return rows;
  };
  run(create);
  insertRow(1);
  insertRow(2);
  run("BEGIN");
  insertRow(3);
  run("ROLLBACK");
  insertRow(4);
  EXPECT_EQ(run(insert, {true, "x"}).substr(0, 3), "! 9");
  insertRow(5);
  run("BEGIN");
  insertRow(6);
  EXPECT_EQ(run("DELETE FROM t WHERE n = ?", {std::int64_t{1}}), "1 row");
  EXPECT_EQ(run(insert, {std::int64_t{7}, std::int64_t{7}}).substr(0, 3), "! 9");
  EXPECT_EQ(run("DELETE FROM t WHERE n = ?", {std::int64_t{2}}), "1 row");
  insertRow(8);
  run("COMMIT");
  EXPECT_EQ(crashAndCompare("SELECT n FROM t"), "4; 5; 6; 8");
  insertRow(9);
  run("CHECKPOINT");
  insertRow(9);
  for (const std::int64_t clock : {5, 6}) {
    EXPECT_EQ(run("INSERT INTO t n = ? s = ? --> 'b' @ ? s #TIME# ?", {clock, "a", clock, clock}),
              "1 row");
  }
  EXPECT_NE(crashAndCompare("SHOW STATES FROM t"), "");
  crashAndCompare("SELECT * FROM t AT 5");
  insertRow(10);
  run("DROP TABLE t");
  run("CREATE TABLE t s string x int n long");
  insertRow(11);
  EXPECT_EQ(crashAndCompare("SELECT n, s FROM t"), "11 'it's 11'");
}

TEST_F(EngineCommands, aFailedChangeLeavesNothing) {
  run("CREATE TABLE rooms id ApexInt name string");
  run("INSERT INTO rooms name = 'red'");
  run("INSERT INTO rooms name = 'blue'");
  run("CREATE TABLE talks title string room int");
  EXPECT_EQ(run("LINK talks.room --> rooms.id"), "0 rows");
  run("INSERT INTO talks title = 'Opening' room = 2");
  EXPECT_EQ(run("DELETE FROM rooms"), "! 8 -1: Rows are linked to the key '2' of table 'rooms'");
  EXPECT_EQ(run("SELECT name FROM rooms"), "red; blue");
  EXPECT_EQ(run("UPDATE talks SET title = 'x' room = 9"),
            "! 7 -1: Table 'rooms' has no row with the key '9', which column 'room' of table "
            "'talks' is linked to");
  EXPECT_EQ(run("SELECT * FROM talks"), "Opening 2");
  EXPECT_EQ(run("DROP TABLE rooms"), "! 8 11: Tables are linked to table 'rooms'");
}

TEST_F(EngineCommands, aTransactionIsWholeOrNotAtAll) {
  run("CREATE TABLE t id ApexInt n int");
  run("BEGIN");
  EXPECT_EQ(run("INSERT INTO t n = 1"), "1 row, number 1");
  EXPECT_EQ(run("CREATE TABLE u n int"), "0 rows");
  run("ROLLBACK");
  EXPECT_EQ(run("SELECT COUNT(*) FROM t"), "0");
  EXPECT_EQ(run("SELECT n FROM u"), "! 4 14: Unknown table 'u'");
  run("BEGIN");
  run("INSERT INTO t n = 1");
  run("INSERT INTO t n = 2");
  run("UPDATE t SET n = 3 WHERE n = 1");
  run("COMMIT");
  run("BEGIN");
  run("DELETE FROM t");
  run("DROP TABLE t");
  crash();
  EXPECT_EQ(run("SELECT * FROM t"), "1 3; 2 2");
  EXPECT_EQ(run("COMMIT"), "! 17 -1: No transaction is open");
}

TEST_F(EngineCommands, aDroppedTableComesBackWithItsLinksAtARollback) {
  run("CREATE TABLE p id ApexInt name string");
  run("INSERT INTO p name = 'a'");
  run("CREATE TABLE c p int");
  run("INSERT INTO c p = 1");
  run("LINK c.p --> p.id");
  run("LISTEN c.change --> 'there'");
  run("BEGIN");
  EXPECT_EQ(run("DROP TABLE c"), "0 rows");
  EXPECT_EQ(run("CREATE TABLE c other string"), "0 rows");
  EXPECT_EQ(run("DELETE FROM p"), "1 row");
  run("ROLLBACK");
  EXPECT_EQ(run("SELECT * FROM c"), "1");
  EXPECT_EQ(run("DELETE FROM p"), "! 8 -1: Rows are linked to the key '1' of table 'p'");
  EXPECT_EQ(run("SHOW LISTENERS").substr(0, 8), "c change");
}

TEST_F(EngineCommands, aKeyThatALinkHasMadeGoesWithTheDroppedTable) {
  run("CREATE TABLE p code string");
  run("INSERT INTO p code = 'a'");
  run("CREATE TABLE c p string");
  run("INSERT INTO c p = 'a'");
  run("LINK c.p --> p.code");
  run("BEGIN");
  run("DROP TABLE c");
  run("ROLLBACK");
  EXPECT_EQ(run("SHOW COLUMNS FROM p"), "code string 60 0 true NULL");
  EXPECT_EQ(run("DELETE FROM p"), "! 8 -1: Rows are linked to the key 'a' of table 'p'");
  run("DROP TABLE c");
  EXPECT_EQ(run("SHOW COLUMNS FROM p"), "code string 60 0 false NULL");
  EXPECT_EQ(run("INSERT INTO p code = 'a'"), "1 row");
  crash();
  EXPECT_EQ(run("SHOW COLUMNS FROM p"), "code string 60 0 false NULL");
  EXPECT_EQ(run("SELECT * FROM p"), "a; a");
}

TEST_F(EngineCommands, listenersOfADroppedTableComeBackAtARollback) {
  run("CREATE TABLE t n int");
  run("LISTEN t.change --> 'there'");
  run("BEGIN");
  run("DROP TABLE t");
  run("CREATE TABLE t n int");
  run("LISTEN t.change --> 'here'");
  run("ROLLBACK");
  EXPECT_EQ(run("SHOW LISTENERS"), "t change there ''");
}

TEST_F(EngineCommands, orphansAreCountedAndNamed) {
  run("CREATE TABLE p id ApexInt");
  run("CREATE TABLE c p int");
  for (int i = 0; i < 12; ++i) run("INSERT INTO c p = ?", {std::int64_t{i + 7}});
  run("INSERT INTO c p = NULL");
  EXPECT_EQ(run("LINK c.p --> p.id"),
            "! 7 7: 12 rows have no parent in table 'p': '7', '8', '9', '10', '11', '12', '13', "
            "'14', '15', '16'");
  EXPECT_EQ(run("SHOW LINKS"), "");
  run("DELETE FROM c WHERE p > 0");
  EXPECT_EQ(run("LINK c.p --> p.id"), "0 rows");
  EXPECT_EQ(run("SHOW LINKS"), "c p p id");
  EXPECT_EQ(run("UNLINK c.p --> p.id"), "0 rows");
  EXPECT_EQ(run("SHOW LINKS"), "");
}

TEST_F(EngineCommands, vacuumKeepsOrderNumbersAndLinks) {
  run("CREATE TABLE p id ApexInt name string");
  run("CREATE TABLE c p int");
  run("LINK c.p --> p.id");
  for (const char* const name : {"a", "b", "c", "d", "e"}) run("INSERT INTO p name = ?", {name});
  run("INSERT INTO c p = 1");
  run("INSERT INTO c p = 4");
  run("DELETE FROM c WHERE p = 1");
  run("DELETE FROM p WHERE name = 'b'");
  run("DELETE FROM p WHERE name = 'e'");
  EXPECT_EQ(run("VACUUM"), "2 rows");
  EXPECT_EQ(run("SELECT * FROM p"), "1 a; 3 c; 4 d");
  EXPECT_EQ(run("DELETE FROM p WHERE id = 4"),
            "! 8 -1: Rows are linked to the key '4' of table 'p'");
  EXPECT_EQ(run("DELETE FROM p WHERE id = 1"), "1 row");
  crash();
  EXPECT_EQ(run("INSERT INTO p name = 'f'"), "1 row, number 6");
  EXPECT_EQ(run("SELECT * FROM p"), "3 c; 4 d; 6 f");
}

TEST_F(EngineCommands, timedValuesChangeByTheClockAndAreTheSameAfterACrash) {
  run("CREATE TABLE t place string colour string 3");
  run("INSERT INTO t place = 'north' colour = 'red' --> 'green' @ 10 s --> 'amber' @ 5 s c");
  EXPECT_EQ(run("SELECT colour FROM t"), "red");
  second += 10;
  Answer answer;
  EXPECT_EQ(run("SELECT colour FROM t", {}, answer), "green");
  EXPECT_EQ(answer.nextChange, second + 5);
  EXPECT_EQ(run("SELECT colour FROM t AT ?", {second + 5}), "amber");
  crash();
  EXPECT_EQ(run("SELECT colour FROM t"), "green");
  reopen();
  EXPECT_EQ(run("SELECT colour FROM t WHERE colour = 'green'"), "green");
  second -= 3;
  EXPECT_EQ(run("SELECT colour FROM t"), "red");
  ASSERT_FALSE(lines.empty());
  EXPECT_EQ(lines.back(),
            "The clock went back from second 1700000010 to 1700000007: timed values go back, too");
}

TEST_F(EngineCommands, aDirectoryInUseIsBusyAndNamesItsHolder) {
  try {
    const Engine other(path_.string(), options());
    FAIL();
  } catch (const Failure& failure) {
    EXPECT_EQ(failure.code, Code::busy);
    EXPECT_EQ(failure.process, getpid());
  }
}

TEST_F(EngineCommands, aBackupIsTheDatabaseAsItWas) {
  run("CREATE TABLE t n int");
  run("INSERT INTO t n = 1");
  run("CHECKPOINT");
  run("INSERT INTO t n = 2");
  const std::string copy = path_.string() + "-copy";
  engine_->backup(copy);
  run("INSERT INTO t n = 3");
  engine_ = std::make_unique<Engine>(copy, options());
  EXPECT_EQ(run("SELECT n FROM t"), "1; 2");
  engine_.reset();
  std::filesystem::remove_all(copy);
}

}  // namespace
}  // namespace velmora
