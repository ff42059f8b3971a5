// The write-ahead log on its own: which file a line goes to, what becomes of a line that cannot be
// written, and how a log is taken apart.
#include "storage/log.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "storage_fixture.h"

namespace velmora {
namespace {

namespace fs = std::filesystem;

class LogFileTest : public StorageTest {
 protected:
  bool append(const std::string& command, std::int64_t second = 1700000000) {
    log_.check();
    return log_.append(command, second);
  }

  Log log_{directory_};
};

TEST_F(LogFileTest, theLogGrowsLineByLine) {
  append("INSERT INTO t a = 1");
  append("DELETE FROM t", 1700000001);
  EXPECT_EQ(bytesOf("velmora.wal"),
            "INSERT INTO t a = 1 #TIME# 1700000000\nDELETE FROM t #TIME# 1700000001\n");
}

TEST_F(LogFileTest, aCommandThatIsNotLoggedLeavesNoLog) {
  log_.check();
  EXPECT_FALSE(exists("velmora.wal"));
}

TEST_F(LogFileTest, aLineThatCannotBeWrittenWholeIsTakenBack) {
  append("INSERT INTO t a = 1");
  const std::string before = bytesOf("velmora.wal");
  setFileHook([](const FileEvent& event) {
    return event.operation == FileOperation::write ? shortWrite : 0;
  });
  EXPECT_FALSE(append("INSERT INTO t a = 2"));
  setFileHook(nullptr);
  EXPECT_EQ(bytesOf("velmora.wal"), before);
  Log another(directory_);
  setFileHook(
      [](const FileEvent& event) { return event.operation == FileOperation::open ? EIO : 0; });
  another.check();
  EXPECT_FALSE(another.append("INSERT INTO t a = 3", 1700000000));
  setFileHook(nullptr);
  EXPECT_EQ(bytesOf("velmora.wal"), before);
}

TEST_F(LogFileTest, theLogStaysOpenBetweenAppends) {
  static int opened;
  opened = 0;
  setFileHook([](const FileEvent& event) {
    opened += event.operation == FileOperation::open ? 1 : 0;
    return 0;
  });
  for (int i = 0; i < 10; ++i) append("DELETE FROM t");
  EXPECT_EQ(opened, 1);
  // Whether it may still be written is for the system to say.
  fs::permissions(path_ / "velmora.wal", fs::perms::owner_all);
  append("DELETE FROM t");
  EXPECT_EQ(opened, 2);
  setFileHook(nullptr);
}

TEST_F(LogFileTest, everyLineGoesToTheFileThatBearsTheNameThen) {
  const std::string mark = " #TIME# 1700000000\n";
  EXPECT_TRUE(append("DELETE FROM a"));
  fs::remove(path_ / "velmora.wal");
  EXPECT_TRUE(append("DELETE FROM b"));
  EXPECT_EQ(bytesOf("velmora.wal"), "DELETE FROM b" + mark);

  fs::rename(path_ / "velmora.wal", path_ / "moved");
  EXPECT_TRUE(append("DELETE FROM c"));
  EXPECT_EQ(bytesOf("moved"), "DELETE FROM b" + mark);
  EXPECT_EQ(bytesOf("velmora.wal"), "DELETE FROM c" + mark);

  fs::rename(path_ / "moved", path_ / "velmora.wal");
  EXPECT_TRUE(append("DELETE FROM d"));
  EXPECT_EQ(bytesOf("velmora.wal"), "DELETE FROM b" + mark + "DELETE FROM d" + mark);

  fs::resize_file(path_ / "velmora.wal", 0);
  EXPECT_TRUE(append("DELETE FROM e"));
  EXPECT_EQ(bytesOf("velmora.wal"), "DELETE FROM e" + mark);
}

TEST_F(LogFileTest, aLineForALogThatCannotBeOpenedIsLostAndTheNextIsNot) {
  EXPECT_TRUE(append("DELETE FROM a"));
  fs::remove(path_ / "velmora.wal");
  fs::create_directory(path_ / "velmora.wal");
  EXPECT_FALSE(append("DELETE FROM b"));
  EXPECT_TRUE(fs::is_empty(path_ / "velmora.wal"));
  fs::remove(path_ / "velmora.wal");
  EXPECT_TRUE(append("DELETE FROM c"));
  EXPECT_EQ(bytesOf("velmora.wal"), "DELETE FROM c #TIME# 1700000000\n");
}

// A snapshot made of second names is left as it was.
TEST_F(LogFileTest, aLogThatGetsASecondNameGoesOnInACopy) {
  EXPECT_TRUE(append("DELETE FROM a"));
  fs::permissions(path_ / "velmora.wal", fs::perms::owner_read | fs::perms::owner_write);
  fs::create_hard_link(path_ / "velmora.wal", path_ / "snapshot");
  EXPECT_TRUE(append("DELETE FROM b"));
  EXPECT_EQ(fs::status(path_ / "velmora.wal").permissions(),
            fs::perms::owner_read | fs::perms::owner_write);
  EXPECT_EQ(bytesOf("snapshot"), "DELETE FROM a #TIME# 1700000000\n");
  EXPECT_EQ(bytesOf("velmora.wal"),
            "DELETE FROM a #TIME# 1700000000\nDELETE FROM b #TIME# 1700000000\n");
  EXPECT_FALSE(exists("velmora.wal.unfinished"));
}

TEST_F(LogFileTest, halfALineIsCutOffThoughTheLogGoesOnInACopy) {
  EXPECT_TRUE(append("DELETE FROM a"));
  setFileHook([](const FileEvent& event) {
    if (event.operation == FileOperation::write) return shortWrite;
    return event.operation == FileOperation::truncate ? EIO : 0;
  });
  EXPECT_FALSE(append("DELETE FROM b"));
  setFileHook(nullptr);
  fs::create_hard_link(path_ / "velmora.wal", path_ / "snapshot");
  EXPECT_TRUE(append("DELETE FROM c"));
  EXPECT_EQ(bytesOf("velmora.wal"),
            "DELETE FROM a #TIME# 1700000000\nDELETE FROM c #TIME# 1700000000\n");
}

TEST_F(LogFileTest, whatIsNoRegularFileIsRefusedAtOnce) {
  for (const bool isPipe : {true, false}) {
    fs::remove(path_ / "velmora.wal");
    const std::string name = path_ / "velmora.wal";
    write("target", "kept");
    ASSERT_EQ(isPipe ? mkfifo(name.c_str(), 0600) : symlink("target", name.c_str()), 0);
    try {
      log_.check();
      ADD_FAILURE() << "no exception";
    } catch (const NotRegularFile& error) {
      EXPECT_STREQ(error.what(), "Not a regular file: velmora.wal");
    }
    EXPECT_EQ(bytesOf("target"), "kept");
  }
}

// Cut behind a line feed, the only record of a log would be read as one written by hand, and half a
// command may be another one: it is never there in half.
TEST_F(LogFileTest, theFirstRecordOverLinesIsThereWholeOrNotAtAll) {
  static bool isTorn;
  isTorn = false;
  setFileHook([](const FileEvent& event) {
    isTorn = isTorn || (event.operation == FileOperation::write &&
                        std::string_view(event.name) == "velmora.wal");
    return 0;
  });
  const std::string mark = " #TIME# 1700000000\n";
  const std::string update = "UPDATE t SET\ns = 'two\nlines'\nWHERE a = 1";
  EXPECT_TRUE(append(update));
  EXPECT_FALSE(isTorn);
  EXPECT_TRUE(append(update));
  EXPECT_TRUE(isTorn);
  EXPECT_EQ(bytesOf("velmora.wal"), update + mark + update + mark);

  write("velmora.wal", "DELETE FROM t\n");
  Log byHand(directory_);
  File file(directory_, "velmora.wal", File::Mode::read);
  LogReader reader(file);
  while (reader.next()) {
  }
  byHand.repair(reader);
  isTorn = false;
  byHand.check();
  EXPECT_TRUE(byHand.append(update, 1700000000));
  EXPECT_FALSE(isTorn);
  setFileHook(nullptr);
  EXPECT_EQ(bytesOf("velmora.wal"), "DELETE FROM t\n" + update + mark);
}

TEST_F(LogFileTest, theFirstRecordOverLinesIsLostWhenItCannotBeWritten) {
  setFileHook(
      [](const FileEvent& event) { return event.operation == FileOperation::rename ? EIO : 0; });
  EXPECT_FALSE(append("DELETE FROM t\nWHERE a = 1"));
  setFileHook(nullptr);
  EXPECT_EQ(bytesOf("velmora.wal"), "");
  EXPECT_FALSE(exists("velmora.wal.unfinished"));
}

TEST_F(LogFileTest, everyDirectoryHasItsOwnLog) {
  fs::create_directory(path_ / "other");
  const std::string otherPath = path_ / "other";
  const Directory other{open(otherPath.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC)};
  Log otherLog(other);
  append("DELETE FROM a");
  otherLog.check();
  otherLog.append("DELETE FROM b", 1700000000);
  append("DELETE FROM c");
  close(other.descriptor);
  EXPECT_EQ(bytesOf("velmora.wal"),
            "DELETE FROM a #TIME# 1700000000\nDELETE FROM c #TIME# 1700000000\n");
  EXPECT_EQ(bytesOf("other/velmora.wal"), "DELETE FROM b #TIME# 1700000000\n");
}

struct LogCase {
  const char* meaning;
  std::string log;
  std::vector<std::string> commands;
  std::int64_t completeSize;
  bool lacksLineFeed;
};

std::string trimmed(std::string_view command) {
  while (!command.empty() && command.back() == '\n') command.remove_suffix(1);
  return std::string(command);
}

TEST_F(LogFileTest, recordsEndAtTheirMarkerOrBeforeTheNextCommand) {
  const std::string mark = " #TIME# 1700000000";
  const std::string a = "INSERT INTO t a = 1" + mark + "\n";
  const std::string text = "INSERT INTO t s = 'x\nDELETE FROM t\n'" + mark + "\n";
  const std::string cut = "INSERT INTO t s = 'x\nDELETE FROM t\n";
  const std::string plain = "INSERT INTO t a = 1\n";
  const std::string doubleQuoted = "INSERT INTO t s = \"x\nDELETE FROM t\n\"" + mark + "\n";
  const auto size = [](const std::string& record) {
    return static_cast<std::int64_t>(record.size());
  };
  const std::vector<LogCase> cases = {
      {"nothing", "", {}, 0, false},
      {"one record", a, {a}, size(a), false},
      {"a record without its line feed", a.substr(0, a.size() - 1), {a}, size(a) - 1, true},
      {"a record cut in its seconds", a + a.substr(0, a.size() - 2), {a}, size(a), false},
      {"a record cut in its command", a + "INSERT INTO t", {a}, size(a), false},
      {"a text with lines", text + a, {text, a}, size(text) + size(a), false},
      {"an open text", a + cut, {a}, size(a), false},
      {"a command cut behind a line feed", a + "UPDATE t SET a = 9\n", {a}, size(a), false},
      {"a line without a marker before one that has it",
       plain + a,
       {plain, a},
       size(plain + a),
       false},
      {"lines without a marker", plain + plain, {plain, plain}, 2 * size(plain), false},
      {"every kind of command",
       "CREATE TABLE t a int\nUPDATE t SET a = 1\nDELETE FROM t\nLINK a.b --> c.d\n",
       {"CREATE TABLE t a int", "UPDATE t SET a = 1", "DELETE FROM t", "LINK a.b --> c.d"},
       71,
       false},
      {"a command over lines",
       "INSERT INTO t\na = 1\n" + plain,
       {"INSERT INTO t\na = 1", plain},
       20 + size(plain),
       false},
      {"lines that begin like commands and are none",
       "DELETE FROM t\nUPDATE t TO a\nLINK a b c\nCREATE t\n" + plain,
       {"DELETE FROM t\nUPDATE t TO a\nLINK a b c\nCREATE t", plain},
       48 + size(plain),
       false},
      {"a text between double quotes",
       doubleQuoted + a,
       {doubleQuoted, a},
       size(doubleQuoted + a),
       false},
      {"an open text behind lines without a marker",
       plain + "INSERT INTO t s = 'x\n",
       {plain},
       size(plain),
       false},
      {"empty lines", "\n\n" + a + "\n\n", {a}, size(a) + 4, false},
  };
  for (const LogCase& expected : cases) {
    write("velmora.wal", expected.log);
    File file(directory_, "velmora.wal", File::Mode::read);
    LogReader reader(file);
    std::vector<std::string> commands;
    while (const auto command = reader.next()) commands.push_back(trimmed(*command));
    std::vector<std::string> wanted;
    for (const std::string& command : expected.commands) wanted.push_back(trimmed(command));
    EXPECT_EQ(commands, wanted) << expected.meaning;
    EXPECT_EQ(reader.completeSize(), expected.completeSize) << expected.meaning;
    EXPECT_EQ(reader.lacksLineFeed(), expected.lacksLineFeed) << expected.meaning;
  }
}

// Records that begin and end anywhere in the pieces that are read.
TEST_F(LogFileTest, aLongLogIsReadRecordByRecord) {
  std::vector<std::string> written;
  std::size_t size = 0;
  for (std::size_t i = 0; size < 900'000; ++i) {
    const std::string filling(i % 97 + (i % 500 == 0 ? 300'000 : 0), i % 7 == 0 ? '\n' : 'x');
    written.push_back("INSERT INTO t s = '" + filling + "' n = " + std::to_string(i));
    append(written.back());
    size += written.back().size();
  }
  write("velmora.wal", bytesOf("velmora.wal") + "INSERT INTO t s = 'torn");
  File file(directory_, "velmora.wal", File::Mode::read);
  LogReader reader(file);
  for (const std::string& command : written) {
    const auto record = reader.next();
    ASSERT_TRUE(record.has_value());
    ASSERT_EQ(*record, command + " #TIME# 1700000000");
  }
  EXPECT_FALSE(reader.next().has_value());
  EXPECT_TRUE(reader.hasTornTail());
  log_.repair(reader);
  EXPECT_EQ(fs::file_size(path_ / "velmora.wal"),
            static_cast<std::uintmax_t>(reader.completeSize()));
}

TEST_F(LogFileTest, aLineFeedThatIsLackingGoesToTheEndOfTheRecordOnly) {
  const std::string record = "INSERT INTO t a = 1 #TIME# 1700000000";
  write("velmora.wal", record);
  File file(directory_, "velmora.wal", File::Mode::read);
  LogReader reader(file);
  while (reader.next()) {
  }
  write("velmora.wal", record + "0");
  EXPECT_THROW(log_.repair(reader), std::runtime_error);
  EXPECT_EQ(bytesOf("velmora.wal"), record + "0");
  write("velmora.wal", record);
  log_.repair(reader);
  EXPECT_EQ(bytesOf("velmora.wal"), record + "\n");
}

TEST_F(LogFileTest, aRepairNeverMakesTheLogLonger) {
  write("velmora.wal", "INSERT INTO t a = 1 #TIME# 1700000000\nINSERT INTO");
  File file(directory_, "velmora.wal", File::Mode::read);
  LogReader reader(file);
  while (reader.next()) {
  }
  fs::resize_file(path_ / "velmora.wal", 10);
  log_.repair(reader);
  EXPECT_EQ(fs::file_size(path_ / "velmora.wal"), 10U);
}

}  // namespace
}  // namespace velmora
