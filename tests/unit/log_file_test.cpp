// The write-ahead log on its own: which file a line goes to, what becomes of a line that cannot be
// written, and how a log is taken apart.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>
#include <string>
#include <string_view>
#include <vector>

#include "storage_fixture.h"

namespace velmora {
namespace {

namespace fs = std::filesystem;

using LogFileTest = StorageTest;

TEST_F(LogFileTest, theLogGrowsLineByLineAndIsEmptiedWhole) {
  Storage::appendToWAL("INSERT INTO t a = 1", 1700000000, directory_);
  Storage::appendToWAL("DELETE FROM t", 1700000001, directory_);
  EXPECT_EQ(bytesOf("velmora.wal"),
            "INSERT INTO t a = 1 #TIME# 1700000000\nDELETE FROM t #TIME# 1700000001\n");
  Storage::clearWAL(directory_);
  EXPECT_TRUE(exists("velmora.wal"));
  EXPECT_EQ(bytesOf("velmora.wal"), "");
}

TEST_F(LogFileTest, aLineThatCannotBeWrittenWholeIsTakenBack) {
  Storage::appendToWAL("INSERT INTO t a = 1", 1700000000, directory_);
  const std::string before = bytesOf("velmora.wal");
  setFileHook([](FileOperation operation, const char*) {
    return operation == FileOperation::write ? shortWrite : 0;
  });
  EXPECT_NO_THROW(Storage::appendToWAL("INSERT INTO t a = 2", 1700000000, directory_));
  setFileHook(nullptr);
  EXPECT_EQ(bytesOf("velmora.wal"), before);
  Storage::closeLog();
  setFileHook([](FileOperation operation, const char*) {
    return operation == FileOperation::open ? EIO : 0;
  });
  EXPECT_NO_THROW(Storage::appendToWAL("INSERT INTO t a = 3", 1700000000, directory_));
  setFileHook(nullptr);
  EXPECT_EQ(bytesOf("velmora.wal"), before);
}

TEST_F(LogFileTest, theLogStaysOpenBetweenAppends) {
  static int opened;
  opened = 0;
  setFileHook([](FileOperation operation, const char*) {
    opened += operation == FileOperation::open ? 1 : 0;
    return 0;
  });
  for (int i = 0; i < 10; ++i) Storage::appendToWAL("DELETE FROM t", 1700000000, directory_);
  EXPECT_EQ(opened, 1);
  Storage::closeLog();
  Storage::appendToWAL("DELETE FROM t", 1700000000, directory_);
  EXPECT_EQ(opened, 2);
  // Whether it may still be written is for the system to say.
  fs::permissions(path_ / "velmora.wal", fs::perms::owner_all);
  Storage::appendToWAL("DELETE FROM t", 1700000000, directory_);
  EXPECT_EQ(opened, 3);
  setFileHook(nullptr);
}

TEST_F(LogFileTest, everyLineGoesToTheFileThatBearsTheNameThen) {
  const std::string mark = " #TIME# 1700000000\n";
  const auto append = [&](const char* command) {
    return Storage::appendToWAL(command, 1700000000, directory_);
  };
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
  const auto append = [&](const char* command) {
    return Storage::appendToWAL(command, 1700000000, directory_);
  };
  EXPECT_TRUE(append("DELETE FROM a"));
  fs::remove(path_ / "velmora.wal");
  fs::create_directory(path_ / "velmora.wal");
  EXPECT_FALSE(append("DELETE FROM b"));
  EXPECT_TRUE(fs::is_empty(path_ / "velmora.wal"));
  fs::remove(path_ / "velmora.wal");
  EXPECT_TRUE(append("DELETE FROM c"));
  EXPECT_EQ(bytesOf("velmora.wal"), "DELETE FROM c #TIME# 1700000000\n");
}

TEST_F(LogFileTest, everyDirectoryHasItsOwnLog) {
  fs::create_directory(path_ / "other");
  const std::string otherPath = path_ / "other";
  const Directory other{open(otherPath.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC)};
  Storage::appendToWAL("DELETE FROM a", 1700000000, directory_);
  Storage::appendToWAL("DELETE FROM b", 1700000000, other);
  Storage::appendToWAL("DELETE FROM c", 1700000000, directory_);
  close(other.descriptor);
  EXPECT_EQ(bytesOf("velmora.wal"),
            "DELETE FROM a #TIME# 1700000000\nDELETE FROM c #TIME# 1700000000\n");
  EXPECT_EQ(bytesOf("other/velmora.wal"), "DELETE FROM b #TIME# 1700000000\n");
}

struct LogCase {
  const char* meaning;
  std::string log;
  std::vector<std::string> commands;
  std::size_t completeSize;
  bool lacksLineFeed;
};

TEST(LogRecordsTest, recordsEndAtTheirMarkerOrBeforeTheNextCommand) {
  const std::string mark = " #TIME# 1700000000";
  const std::string a = "INSERT INTO t a = 1" + mark + "\n";
  const std::string text = "INSERT INTO t s = 'x\nDELETE FROM t\n'" + mark + "\n";
  const std::string cut = "INSERT INTO t s = 'x\nDELETE FROM t\n";
  const std::string plain = "INSERT INTO t a = 1\n";
  const std::vector<LogCase> cases = {
      {"nothing", "", {}, 0, false},
      {"one record", a, {a}, a.size(), false},
      {"a record without its line feed", a.substr(0, a.size() - 1), {a}, a.size() - 1, true},
      {"a record cut in its seconds", a + a.substr(0, a.size() - 2), {a}, a.size(), false},
      {"a record cut in its command", a + "INSERT INTO t", {a}, a.size(), false},
      {"a text with lines", text + a, {text, a}, text.size() + a.size(), false},
      {"an open text", a + cut, {a}, a.size(), false},
      {"lines without a marker", plain + plain, {plain, plain}, 2 * plain.size(), false},
      {"every kind of command",
       "CREATE TABLE t a int\nUPDATE t SET a = 1\nDELETE FROM t\nLINK a.b --> c.d\n",
       {"CREATE TABLE t a int", "UPDATE t SET a = 1", "DELETE FROM t", "LINK a.b --> c.d"},
       71,
       false},
      {"a command over lines",
       "INSERT INTO t\na = 1\n" + plain,
       {"INSERT INTO t\na = 1", plain},
       20 + plain.size(),
       false},
  };
  const auto trimmed = [](std::string_view command) {
    while (!command.empty() && command.back() == '\n') command.remove_suffix(1);
    return std::string(command);
  };
  for (const LogCase& expected : cases) {
    const LogRecords records = Storage::splitLog(expected.log);
    std::vector<std::string> commands;
    for (const std::string_view command : records.commands) commands.push_back(trimmed(command));
    std::vector<std::string> wanted;
    for (const std::string& command : expected.commands) wanted.push_back(trimmed(command));
    EXPECT_EQ(commands, wanted) << expected.meaning;
    EXPECT_EQ(records.completeSize, expected.completeSize) << expected.meaning;
    EXPECT_EQ(records.lacksLineFeed, expected.lacksLineFeed) << expected.meaning;
  }
}

}  // namespace
}  // namespace velmora
