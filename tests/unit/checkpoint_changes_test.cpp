// Checkpoints that write what has changed: the files hold, byte for byte, what they hold when all
// of it is written, and only files that change are touched.
#include <iostream>
#include <map>
#include <memory>
#include <random>
#include <vector>

#include "database/database.h"
#include "parser/parser.h"
#include "storage_fixture.h"

namespace velmora {
namespace {

namespace fs = std::filesystem;

using Files = std::map<std::string, std::string>;

class CheckpointChangesTest : public StorageTest {
 protected:
  void start() {
    database_ = std::make_unique<Database>(directory_);
    std::cout.setstate(std::ios::failbit);  // what a start prints
    database_->loadFromDisk();
    std::cout.clear();
    parser_ = std::make_unique<Parser>(database_.get());
  }
  bool run(const std::string& command) { return parser_->handleCommand(command).success; }
  void runAll(const std::vector<std::string>& commands) {
    for (const std::string& command : commands) ASSERT_TRUE(run(command)) << command;
  }

  static Files filesIn(const fs::path& path) {
    Files files;
    for (const auto& entry : fs::directory_iterator(path)) {
      if (entry.path().extension() == ".spare") continue;
      std::ifstream file(entry.path(), std::ios::binary);
      files[entry.path().filename()] = {std::istreambuf_iterator<char>(file), {}};
    }
    return files;
  }
  std::uint64_t numberOf(const char* name) const {
    return identityOf(directory_, name).value().inode;
  }

  // What the checkpoint would leave of the directory if it wrote all tables anew.
  class Whole {
   public:
    explicit Whole(const fs::path& path) : path_(path.string() + "-whole") {
      fs::remove_all(path_);
      fs::copy(path, path_, fs::copy_options::recursive);
    }
    ~Whole() { fs::remove_all(path_); }
    Whole(const Whole&) = delete;
    Whole& operator=(const Whole&) = delete;
    Files files(Tables& tables) const {
      const int descriptor = open(path_.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
      const Directory directory{descriptor};
      Log log(directory);
      for (auto& [name, table] : tables) table.markAllDirty();
      Storage::saveCheckpoint(tables, 0, directory, log);
      close(descriptor);
      return filesIn(path_);
    }

   private:
    fs::path path_;
  };

  // Gives a checkpoint and compares what it leaves.
  void checkpoint() {
    const Whole whole(path_);
    runAll({"CHECKPOINT"});
    const Files written = filesIn(path_);
    const Files expected = whole.files(database_->tables);
    for (auto& [name, table] : database_->tables) table.markClean();
    for (const auto& [name, bytes] : expected) {
      ASSERT_TRUE(written.contains(name)) << name;
      ASSERT_TRUE(written.at(name) == bytes) << name;
    }
    ASSERT_EQ(written.size(), expected.size());
  }

  std::unique_ptr<Database> database_;
  std::unique_ptr<Parser> parser_;
};

TEST_F(CheckpointChangesTest, leaveCleanTablesAlone) {
  start();
  runAll({"CREATE TABLE t n int", "CREATE TABLE u n int", "INSERT INTO t n = 1", "CHECKPOINT"});
  write("u.bin", bytesOf("u.bin").replace(0, 1, "x"));
  runAll({"INSERT INTO t n = 2", "CHECKPOINT"});
  EXPECT_EQ(bytesOf("u.bin").front(), 'x');
  fs::remove(path_ / "u.del");
  runAll({"CHECKPOINT"});
  EXPECT_EQ(bytesOf("u.bin").front(), 'u');
}

TEST_F(CheckpointChangesTest, changeFilesInPlaceAsLongAsLittleHasChanged) {
  start();
  runAll({"CREATE TABLE t n int s string"});
  for (int i = 0; i < 3000; ++i) runAll({"INSERT INTO t n = " + std::to_string(i)});
  checkpoint();
  const std::uint64_t number = numberOf("t.bin");
  runAll({"UPDATE t SET n = -1 WHERE n = 7", "DELETE FROM t WHERE n = 2900"});
  checkpoint();
  EXPECT_EQ(numberOf("t.bin"), number);
  runAll({"UPDATE t SET n = -1 WHERE n < 2000"});
  checkpoint();
  EXPECT_NE(numberOf("t.bin"), number);
}

TEST_F(CheckpointChangesTest, leaveTheMarksOfTheSameDeletedRowsAlone) {
  start();
  runAll({"CREATE TABLE t n int s string"});
  for (int i = 0; i < 3000; ++i) runAll({"INSERT INTO t n = " + std::to_string(i)});
  runAll({"DELETE FROM t WHERE n = 9"});
  checkpoint();
  // Whether the marks are new behind a checkpoint of rows that all have changed.
  const auto areNewBehind = [&](const std::vector<std::string>& commands) {
    const std::uint64_t rows = numberOf("t.bin");
    const auto marks = identityOf(directory_, "t.del");
    runAll({"UPDATE t SET s = 'other' WHERE n >= 0"});
    runAll(commands);
    checkpoint();
    EXPECT_NE(numberOf("t.bin"), rows);
    return identityOf(directory_, "t.del") != marks;
  };
  EXPECT_FALSE(areNewBehind({}));
  EXPECT_TRUE(areNewBehind({"DELETE FROM t WHERE n = 2900"}));
  EXPECT_FALSE(areNewBehind({}));
  EXPECT_TRUE(areNewBehind({"INSERT INTO t n = 3000"}));
  runAll({"BEGIN", "DELETE FROM t WHERE n = 7", "ROLLBACK", "BEGIN", "INSERT INTO t n = 5",
          "ROLLBACK"});
  areNewBehind({});
  start();
  EXPECT_FALSE(areNewBehind({}));
  fs::resize_file(path_ / "t.del", 3000);
  EXPECT_TRUE(areNewBehind({}));
  fs::remove(path_ / "t.del");
  EXPECT_TRUE(areNewBehind({}));
}

TEST_F(CheckpointChangesTest, doNotChangeAFileWithASecondName) {
  start();
  runAll({"CREATE TABLE t n int", "INSERT INTO t n = 1", "CHECKPOINT"});
  fs::create_hard_link(path_ / "t.bin", path_ / "snapshot");
  const std::string before = bytesOf("snapshot");
  runAll({"UPDATE t SET n = 2"});
  checkpoint();
  EXPECT_EQ(bytesOf("snapshot"), before);
  EXPECT_NE(bytesOf("t.bin"), before);
}

// Rows whose bytes differ from what would be written of them again are written by the first
// checkpoint.
TEST_F(CheckpointChangesTest, leaveLoadedFilesAloneOnlyIfTheyAreAsWritten) {
  start();
  runAll({"CREATE TABLE t n int 2 s string f float b bool",
          "INSERT INTO t n = 1 --> 2 @ 5 s s = 'text' f = 1.5 b = true", "INSERT INTO t n = 3",
          "CHECKPOINT"});
  const auto isDirtyWith = [&](const std::string& file, std::size_t offset,
                               const std::string& bytes) {
    const std::string before = bytesOf(file);
    std::string changed = before;
    changed.resize(std::max(changed.size(), offset + bytes.size()));
    write(file, changed.replace(offset, bytes.size(), bytes));
    const bool isDirty = Storage::loadTable("t.bin", directory_)->isDirty();
    write(file, before);
    return isDirty;
  };
  constexpr std::size_t row = 15 + 60 * 4;
  constexpr std::size_t second = row + 5 + 60 + 4 + 1;
  EXPECT_FALSE(isDirtyWith("t.bin", 0, "t"));
  EXPECT_FALSE(isDirtyWith("t.bin", row + 5, "other"));
  EXPECT_FALSE(isDirtyWith("t.bin", row + 65, std::string("\0\0\x20\x40", 4)));  // 2.5
  EXPECT_FALSE(isDirtyWith("t.bin", row + 65, std::string("\0\0\x80\x7f", 4)));  // infinity
  EXPECT_FALSE(isDirtyWith("t.bin", second + 1, "\x7f"));
  EXPECT_FALSE(isDirtyWith("t.tmp", 9, "\x7f"));
  EXPECT_FALSE(isDirtyWith("t.del", 0, "\1"));

  EXPECT_TRUE(isDirtyWith("t.bin", 1, "x"));            // the name that it bears
  EXPECT_TRUE(isDirtyWith("t.bin", 15 + 4, "x"));       // behind a name
  EXPECT_TRUE(isDirtyWith("t.bin", second + 70, "x"));  // a torn row
  EXPECT_TRUE(isDirtyWith("t.bin", row, "\2"));         // a flag
  EXPECT_TRUE(isDirtyWith("t.bin", row + 1, "\1"));     // a slot that is not there
  EXPECT_TRUE(isDirtyWith("t.bin", row + 5 + 6, "x"));  // behind a text
  EXPECT_TRUE(isDirtyWith("t.bin", row + 69, "\2"));    // a truth value
  EXPECT_TRUE(isDirtyWith("t.bin", row + 65, std::string("\1\0\0\0", 4)));      // too small a float
  EXPECT_TRUE(isDirtyWith("t.bin", row + 65, std::string("\1\0\xc0\x3f", 4)));  // 1.5000001
  EXPECT_TRUE(isDirtyWith("t.bin", row + 65, std::string("\1\0\xc0\x7f", 4)));  // another NaN
  EXPECT_TRUE(isDirtyWith("t.del", 1, "\2"));
  EXPECT_TRUE(isDirtyWith("t.del", 2, "x"));
  EXPECT_TRUE(isDirtyWith("t.tmp", 0, "\7"));  // the labels
  EXPECT_TRUE(isDirtyWith("t.tmp", 4, "\7"));
  EXPECT_TRUE(isDirtyWith("t.tmp", 8, "\2"));   // whether it cycles
  EXPECT_TRUE(isDirtyWith("t.tmp", 25, "\1"));  // fewer states, and something behind
  EXPECT_TRUE(isDirtyWith("t.tmp", 25, "\3"));
  EXPECT_TRUE(isDirtyWith("t.tmp", 29 + 8 + 2, "x"));  // behind a state's text
  EXPECT_FALSE(Storage::loadTable("t.bin", directory_)->isDirty());
}

TEST_F(CheckpointChangesTest, keepSlotsAndAddNewOnesBehindThem) {
  start();
  runAll({"CREATE TABLE t n int 2 s string", "INSERT INTO t n = 1"});
  checkpoint();
  EXPECT_FALSE(exists("t.tmp"));
  runAll({"INSERT INTO t n = 2 --> 3 @ 5 s"});
  checkpoint();
  EXPECT_EQ(bytesOf("t.tmp").size(), 165U);
  const std::uint64_t number = numberOf("t.tmp");
  runAll({"UPDATE t SET n = 4 --> 5 @ 5 s", "INSERT INTO t n = 6 --> 7 @ 5 s"});
  checkpoint();
  EXPECT_EQ(bytesOf("t.tmp").size(), 3 * 165U);
  EXPECT_EQ(numberOf("t.tmp"), number);
  // A slot that was left stays, and its cell gets another one when it is timed again.
  runAll({"UPDATE t SET n = 1 WHERE n = 6"});
  checkpoint();
  runAll({"UPDATE t SET n = 8 --> 9 @ 5 s WHERE n = 1"});
  checkpoint();
  EXPECT_EQ(bytesOf("t.tmp").size(), 4 * 165U);
}

class RandomChanges {
 public:
  explicit RandomChanges(std::uint64_t seed) : random_(seed) {}
  int upTo(int most) { return std::uniform_int_distribution<int>(0, most)(random_); }
  std::string next() {
    const std::string table = upTo(5) == 0 ? "u" : "t";
    switch (upTo(9)) {
      case 0:
        return "DELETE FROM " + table + where();
      case 1:
      case 2:
      case 3:
        return "UPDATE " + table + " SET " + assignment() + where();
      case 4:
        return "BEGIN";
      case 5:
        return upTo(1) == 0 ? "COMMIT" : "ROLLBACK";
      default:
        return "INSERT INTO " + table + " " + assignment() + (upTo(1) == 0 ? " b = true" : "");
    }
  }

 private:
  std::string where() { return " WHERE id = " + std::to_string(upTo(400)); }
  std::string assignment() {
    const std::string value = std::to_string(upTo(99));
    switch (upTo(4)) {
      case 0:
        return "n = " + value + " --> 7 @ " + value + " s c";
      case 1:
        return "f = " + value + ".25 --> 1.5 @ 9 d";
      case 2:
        return "f = " + value + "." + value;
      case 3:
        return "s = 'text " + value + "'";
      default:
        return "n = " + value;
    }
  }

  std::mt19937_64 random_;
};

TEST_F(CheckpointChangesTest, leaveTheBytesThatWholeTablesWouldHave) {
  RandomChanges changes(20240517);
  start();
  runAll({"CREATE TABLE t id ApexInt n int 3 s string f float 2 b bool",
          "CREATE TABLE u id ApexInt n int 3 s string(8) f float 2 b bool"});
  for (int i = 0; i < 300; ++i) runAll({"INSERT INTO t s = 'a' n = 1"});
  std::map<bool, int> ways;
  for (int round = 0; round < 60 && !HasFatalFailure(); ++round) {
    SCOPED_TRACE(round);
    const auto number = identityOf(directory_, "t.bin");
    const int count = changes.upTo(changes.upTo(9) == 0 ? 300 : 12);
    for (int i = 0; i < count; ++i) run(changes.next());
    checkpoint();
    ++ways[number == identityOf(directory_, "t.bin")];
    if (round % 7 == 0) start();
  }
  EXPECT_GT(ways[true], 30);
}

}  // namespace
}  // namespace velmora
