// The ways to lose data that docs/losing-data.md lists, through a handle, line by line: each of
// the eighteen is tried, and closed.
#include <algorithm>
#include <cerrno>

#include "handle_fixture.h"
#include "storage/files.h"

namespace handles {
namespace {

namespace fs = std::filesystem;
using velmora::FileEvent;
using velmora::FileOperation;

int syncs = 0;

class LosingData : public HandleTest {
 protected:
  ~LosingData() override { velmora::setFileHook(nullptr); }

  static void countSyncs() {
    syncs = 0;
    velmora::setFileHook([](const FileEvent& event) {
      syncs += event.operation == FileOperation::sync ? 1 : 0;
      return 0;
    });
  }
  std::string checkFiles() const {
    const std::string name = path().string();
    velmora_error* error = nullptr;
    const int code = velmora_check(name.data(), name.size(), nullptr, nullptr, nullptr, &error);
    return code == VELMORA_OK ? "" : shown(code, error);
  }
};

TEST_F(LosingData, line1APowerCutLosesNothingThatIsOnTheDiskBeforeItsAnswer) {
  close();
  options.durability = VELMORA_DURABILITY_ALWAYS;
  ASSERT_EQ(open(), "");
  run("CREATE TABLE t n int");
  countSyncs();
  run("INSERT INTO t n = 1");
  EXPECT_EQ(syncs, 1);
  run("BEGIN");
  run("INSERT INTO t n = 2");
  EXPECT_EQ(syncs, 1);
  run("COMMIT");
  EXPECT_EQ(syncs, 2);
  EXPECT_EQ(crash(), "");
  EXPECT_EQ(run("SELECT n FROM t"), "1; 2");
}

TEST_F(LosingData, line2ARollbackIsOneAfterACrash) {
  check({{"CREATE TABLE t id ApexInt n int", "0 rows"},
         {"INSERT INTO t n = 1", "1 row, number 1"},
         {"BEGIN", "0 rows"},
         {"INSERT INTO t n = 2", "1 row, number 2"},
         {"UPDATE t SET n = 5", "2 rows"},
         {"ROLLBACK", "0 rows"},
         {"INSERT INTO t n = 3", "1 row, number 2"}});
  checkLasting({{"SELECT * FROM t", "1 1; 2 3"}});
}

TEST_F(LosingData, line3HalfATransactionIsNone) {
  check({{"CREATE TABLE t n int", "0 rows"},
         {"BEGIN", "0 rows"},
         {"INSERT INTO t n = 1", "1 row"},
         {"CREATE TABLE u n int", "0 rows"}});
  EXPECT_EQ(crash(), "");
  checkLasting({{"SELECT * FROM t", ""}, {"SHOW TABLES", "t 0"}});
}

TEST_F(LosingData, line4ADropIsOneAfterACrash) {
  check({{"CREATE TABLE t n int", "0 rows"},
         {"INSERT INTO t n = 1", "1 row"},
         {"CHECKPOINT", "0 rows"},
         {"DROP TABLE t", "0 rows"},
         {"CREATE TABLE t s string", "0 rows"},
         {"INSERT INTO t s = 'new'", "1 row"},
         {"CREATE TABLE gone n int", "0 rows"},
         {"DROP TABLE gone", "0 rows"}});
  checkLasting({{"SELECT * FROM t", "new"}, {"SHOW TABLES", "t 1"}});
}

TEST_F(LosingData, line5AFailedChangeHasChangedNothing) {
  check({{"CREATE TABLE rooms id ApexInt name string", "0 rows"},
         {"INSERT INTO rooms name = 'red'", "1 row, number 1"},
         {"INSERT INTO rooms name = 'blue'", "1 row, number 2"},
         {"CREATE TABLE talks title string room int", "0 rows"},
         {"LINK talks.room --> rooms.id", "0 rows"},
         {"INSERT INTO talks title = 'Opening' room = 2", "1 row"},
         {"DELETE FROM rooms", "! 8 rooms.id: Rows are linked to the key '2' of table 'rooms'"},
         {"UPDATE talks SET title = 'x' room = 9",
          "! 7 talks.room: Table 'rooms' has no row with the key '9', which column 'room' of table "
          "'talks' is linked to"}});
  checkLasting({{"SELECT * FROM rooms", "1 red; 2 blue"}, {"SELECT * FROM talks", "Opening 2"}});
}

TEST_F(LosingData, line6AFloatIsFoundByItsValueAfterARestart) {
  check({{"CREATE TABLE t n int x float", "0 rows"},
         {"INSERT INTO t n = 1 x = 2.5", "1 row"},
         {"INSERT INTO t n = 3 x = 0.1", "1 row"},
         {"CHECKPOINT", "0 rows"},
         {"UPDATE t SET n = 2 WHERE x = 2.5", "1 row"},
         {"UPDATE t SET n = 4 WHERE x = 0.1", "1 row"}});
  checkLasting({{"SELECT n FROM t WHERE x = 2.5", "2"},
                {"SELECT * FROM t", "2 2.5; 4 0.10000000149011612"}});
}

TEST_F(LosingData, line7AWholeTextComesBack) {
  const std::string longText(200, 'x');
  run("CREATE TABLE t s string(200)");
  EXPECT_EQ(run("INSERT INTO t s = ?", {longText}), "1 row");
  EXPECT_EQ(run("INSERT INTO t s = ?", {longText + "x"}),
            "! 10 18 t.s: A text of 201 bytes is longer than 200 for column 's' of table 't', "
            "which is string");
  checkLasting({{"SELECT * FROM t", longText.c_str()}});
}

TEST_F(LosingData, line8NullStaysNull) {
  check({{"CREATE TABLE t id ApexInt i int l long f float d double b bool s string", "0 rows"},
         {"INSERT INTO t i = NULL", "1 row, number 1"},
         {"INSERT INTO t i = 0 l = 0 f = 0 d = 0 b = false s = ''", "1 row, number 2"},
         {"UPDATE t SET i = NULL b = NULL s = NULL WHERE id = 2", "1 row"}});
  checkLasting({{"SELECT * FROM t", "1 NULL NULL NULL NULL NULL NULL; 2 NULL 0 0 0 NULL NULL"},
                {"SELECT id FROM t WHERE b = false", ""},
                {"SELECT id FROM t WHERE b IS NULL && l IS NOT NULL", "2"}});
}

TEST_F(LosingData, line9AChangeThatCannotBeLoggedIsAnErrorAndUndone) {
  check({{"CREATE TABLE t n int", "0 rows"}, {"INSERT INTO t n = 1", "1 row"}});
  velmora::setFileHook(
      [](const FileEvent& event) { return event.operation == FileOperation::write ? ENOSPC : 0; });
  check({{"INSERT INTO t n = 2", "! 12: cannot write velmora.wal"},
         {"UPDATE t SET n = 3", "! 12: cannot write velmora.wal"},
         {"DROP TABLE t", "! 12: cannot write velmora.wal"},
         {"BEGIN", "0 rows"},
         {"DELETE FROM t", "1 row"},
         {"COMMIT", "! 12: cannot write velmora.wal"},
         {"SELECT * FROM t", "1"}});
  velmora::setFileHook(nullptr);
  check({{"INSERT INTO t n = 4", "1 row"}});
  checkLasting({{"SELECT * FROM t", "1; 4"}});
}

TEST_F(LosingData, line10WhatIsNotUnderstoodIsRefused) {
  check({{"CREATE TABLE t n int", "0 rows"},
         {"INSERT INTO t n = 1", "1 row"},
         {"DELETE FROM t WHERE", "! 11 19: Expected a column name, found the end of the command"},
         {"DELETE FROM t WEHRE n = 2", "! 11 14: Unexpected 'WEHRE' after the command"},
         {"DELETE FROM t LIMIT 1 WHERE n = 2", "! 11 14: Unexpected 'LIMIT' after the command"},
         {"DELETE FROM t WHERE m = 1", "! 4 20 t.m: Unknown column 'm'"},
         {"DELETE FROM typo WHERE n = 1", "! 4 12 typo: Unknown table 'typo'"},
         {"SHOW TABLES", "t 1"}});
}

TEST_F(LosingData, line11TextsAreNeverReadAsCommands) {
  run("CREATE TABLE t name string active bool");
  for (const char* const text :
       {"x' active = true name = 'y", "a #TIME# 5", "\" \\ ' ''", "NULL", "?", "line\nbreak"}) {
    EXPECT_EQ(run("INSERT INTO t name = ?", {text}), "1 row");
    EXPECT_EQ(run("SELECT COUNT(*) FROM t WHERE name = ?", {text}), "1") << text;
  }
  check({{"INSERT INTO t name = 'it''s \"here\" #TIME# 7'", "1 row"}});
  checkLasting(
      {{"SELECT COUNT(*) FROM t WHERE active IS NULL", "7"},
       {"SELECT name FROM t WHERE name = 'it''s \"here\" #TIME# 7'", "'it's \"here\" #TIME# 7'"}});
}

TEST_F(LosingData, line12NumbersThatAreNoneAreRefused) {
  check({{"CREATE TABLE t n int", "0 rows"},
         {"INSERT INTO t n = 99999999999",
          "! 10 18 t.n: 99999999999 is out of range for column 'n' of table 't', which is int"},
         {"INSERT INTO t n = 1x", "! 11 18: Malformed number '1x'"},
         {"CHECKPOINT", "0 rows"},
         {"SELECT * FROM t", ""}});
}

TEST_F(LosingData, line13ALinkIsNotLostSilently) {
  check({{"CREATE TABLE p k string", "0 rows"},
         {"CREATE TABLE c k string", "0 rows"},
         {"INSERT INTO p k = 'one'", "1 row"},
         {"INSERT INTO c k = 'one'", "1 row"},
         {"LINK c.k --> p.k", "0 rows"},
         {"DROP TABLE p", "! 8 11 p: Tables are linked to table 'p'"}});
  close();
  EXPECT_EQ(checkFiles(), "");
  std::string bytes = bytesOf("p.bin");
  bytes.replace(bytes.find("one"), 3, "two");
  write("p.bin", bytes);
  EXPECT_EQ(checkFiles().substr(0, 4), "! 13");
  EXPECT_EQ(open().substr(0, 4), "! 13");
  EXPECT_EQ(bytesOf("p.bin"), bytes);
  options.flags = VELMORA_REPAIR;
  lines.clear();
  EXPECT_EQ(open(), "");
  EXPECT_FALSE(lines.empty());
  EXPECT_TRUE(fs::exists(path() / "damaged-1" / "p.bin"));
  EXPECT_EQ(run("SELECT * FROM c"), "one");
}

TEST_F(LosingData, line13WhatARepairHasOpenedOpensAgainAndTakesRows) {
  check({{"CREATE TABLE t id ApexInt n int", "0 rows"},
         {"INSERT INTO t n = 10", "1 row, number 1"},
         {"INSERT INTO t n = 20", "1 row, number 2"},
         {"INSERT INTO t n = 30", "1 row, number 3"}});
  close();
  std::string bytes = bytesOf("t.bin");
  bytes[bytes.size() - 8] = 1;  // the third row's number
  write("t.bin", bytes);
  options.flags = VELMORA_REPAIR;
  lines.clear();
  EXPECT_EQ(open(), "");
  EXPECT_NE(std::find(lines.begin(), lines.end(),
                      "'t.bin': Rows with the key of an earlier one, which a repair leaves out: 1"),
            lines.end());
  check({{"SELECT * FROM t", "1 10; 2 20"}, {"INSERT INTO t n = 40", "1 row, number 3"}});
  close();
  EXPECT_EQ(checkFiles(), "");
  options.flags = 0;
  EXPECT_EQ(open(), "");
  EXPECT_EQ(run("SELECT * FROM t"), "1 10; 2 20; 3 40");
}

TEST_F(LosingData, line13WhatIsToldOfDamageIsTextWhateverTheBytesAre) {
  run("CREATE TABLE people n int");
  close();
  std::string bytes = bytesOf("velmora.manifest");
  bytes[bytes.find("people.bin")] = '\xf0';
  write("velmora.manifest", bytes);
  EXPECT_EQ(open().substr(0, 4), "! 13");
  EXPECT_NE(std::find(lines.begin(), lines.end(), "'\\xf0eople.bin': the file is missing"),
            lines.end());
}

TEST_F(LosingData, line14ACopyIsMadeWhileOthersWork) {
  check({{"CREATE TABLE t n int", "0 rows"},
         {"INSERT INTO t n = 1", "1 row"},
         {"CHECKPOINT", "0 rows"},
         {"INSERT INTO t n = 2", "1 row"},
         {"BEGIN", "0 rows"},
         {"INSERT INTO t n = 3", "1 row"}});
  const std::string copy = (directory / "copied").string();
  EXPECT_EQ(velmora_backup(db, copy.data(), copy.size(), nullptr), VELMORA_OK);
  check({{"COMMIT", "0 rows"}, {"SELECT * FROM t", "1; 2; 3"}});
  EXPECT_EQ(velmora_backup(db, copy.data(), copy.size(), nullptr), VELMORA_EXISTS);
  velmora_db* other = nullptr;
  ASSERT_EQ(velmora_open(copy.data(), copy.size(), &options, &other, nullptr), VELMORA_OK);
  EXPECT_EQ(handles::run(other, "SELECT * FROM t"), "1; 2");
  EXPECT_EQ(velmora_close(other, nullptr), VELMORA_OK);
}

TEST_F(LosingData, line15AClockThatGoesBackIsToldAndBreaksNoLink) {
  check({{"CREATE TABLE p k string", "0 rows"},
         {"CREATE TABLE c k string 2", "0 rows"},
         {"INSERT INTO p k = 'gone'", "1 row"},
         {"INSERT INTO p k = 'a'", "1 row"},
         {"INSERT INTO p k = 'b'", "1 row"},
         {"LINK c.k --> p.k", "0 rows"},
         {"INSERT INTO c k = 'a' --> 'b' @ 10 s", "1 row"},
         {"DELETE FROM p WHERE k = 'gone'", "1 row"}});
  second += 20;
  check({{"DELETE FROM p WHERE k = 'a'", "1 row"}});
  second -= 20;
  check({{"SELECT * FROM c", "a"}, {"VACUUM", "2 rows"}});
  ASSERT_FALSE(lines.empty());
  EXPECT_EQ(lines.back(),
            "The clock went back from second 1700000020 to 1700000000: timed values go back, too");
  checkLasting({{"SELECT * FROM c", "a"},
                {"DELETE FROM p", "! 8 p.k: Rows are linked to the key 'b' of table 'p'"}});
}

TEST_F(LosingData, line16TheScheduleHasOnlyWhatIsToCome) {
  check({{"CREATE TABLE t id ApexInt s string 2", "0 rows"},
         {"INSERT INTO t s = 'a' --> 'b' @ 10 s", "1 row, number 1"},
         {"INSERT INTO t s = 'c' --> 'd' @ 20 s", "1 row, number 2"},
         {"INSERT INTO t s = 'e' --> 'f' @ 30 s", "1 row, number 3"},
         {"UPDATE t SET s = 'x' WHERE id = 1", "1 row"},
         {"DELETE FROM t WHERE id = 2", "1 row"}});
  checkLasting({{"SHOW SCHEDULE UNTIL 1800000000", "1700000030 t 2 3 s f false"}});
}

TEST_F(LosingData, line17NoStoredValueEndsTheHost) {
  check({{"CREATE TABLE u n int x float", "0 rows"},
         {"INSERT INTO u n = 1", "1 row"},
         {"SELECT n FROM u WHERE x > 1", ""},
         {"SELECT n FROM u WHERE x = '#/#?'",
          "! 9 26 u.x: Column 'x' of type float cannot be compared with a text"}});
}

TEST_F(LosingData, line18ATableWhoseCreationFailedIsNotThere) {
  check({{"CREATE TABLE twins a ApexInt b ApexInt",
          "! 11 31 twins.b: A table can only have one ApexInt column"},
         {"INSERT INTO twins a = 0", "! 4 12 twins: Unknown table 'twins'"}});
  checkLasting({{"SHOW TABLES", ""}});
}

}  // namespace
}  // namespace handles
