// Failing file operations on the paths that the crash tests do not take: what a failed append
// leaves behind for the log that comes after it, an engine that writes its table files directly,
// listeners and scheduled changes that cannot be saved, and things in the directory that are not
// files.
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <functional>
#include <memory>

#include "database/database.h"
#include "fault_fixture.h"
#include "parser/parser.h"
#include "storage/files.h"

namespace velmora::faults {
namespace {

// The failure to come: at which call of which operation, on files with which name, counted from the
// arming. A file hook has no state of its own.
struct Plan {
  int number = 0;  // 0 counts only
  int result = 0;
  int count = 0;
  bool goesOn = false;  // all later operations fail as well
};
Plan plan;

int failAsPlanned(const FileEvent&) {
  ++plan.count;
  if (plan.number == 0) return 0;
  return plan.count == plan.number || (plan.goesOn && plan.count > plan.number) ? plan.result : 0;
}

// Lets every operation of a call fail, one after the other, in every way.
void forEveryFailure(const std::function<void()>& prepare, const std::function<void()>& call,
                     const std::function<void()>& check) {
  int points = 0;
  for (const int result : {EIO, ENOSPC, shortWrite}) {
    for (const bool goesOn : {false, true}) {
      for (int number = 1;; ++number) {
        SCOPED_TRACE("file operation " + std::to_string(number) + " result " +
                     std::to_string(result) + (goesOn ? " and all that follow" : ""));
        prepare();
        plan = {number, result, 0, goesOn};
        setFileHook(failAsPlanned);
        call();
        setFileHook(nullptr);
        const bool isReached = plan.count >= number;
        check();
        if (!isReached || testing::Test::HasFailure()) break;
        ++points;
      }
    }
  }
  std::printf("             %d file operations failed\n", points);
}

using FileFailureTest = FaultTest;

// An append to the log that fails half-way and cannot be taken back at once.
int tornLogAppend(const FileEvent& event) {
  if (std::strcmp(event.name, "velmora.wal") != 0) return 0;
  if (event.operation == FileOperation::write) return shortWrite;
  return event.operation == FileOperation::truncate ? EIO : 0;
}

class TornAppendTest : public FaultTest {
 protected:
  void tearAppend() {
    ASSERT_EQ(start(), "");
    runAll({"CREATE TABLE t a int", "INSERT INTO t a = 1"});
    setFileHook(tornLogAppend);
    runAll({"INSERT INTO t a = 2"});
    setFileHook(nullptr);
  }
};

TEST_F(TornAppendTest, isCutOffBeforeTheNextAppend) {
  ASSERT_NO_FATAL_FAILURE(tearAppend());
  runAll({"INSERT INTO t a = 3"});
  EXPECT_EQ(bytesOf("velmora.wal"),
            "CREATE TABLE t a int #TIME# 1700000000\n"
            "INSERT INTO t a = 1 #TIME# 1700000000\n"
            "INSERT INTO t a = 3 #TIME# 1700000000\n");
}

TEST_F(TornAppendTest, isForgottenWhenTheLogIsEmptied) {
  ASSERT_NO_FATAL_FAILURE(tearAppend());
  runAll({"CHECKPOINT", "INSERT INTO t a = 3"});
  EXPECT_EQ(bytesOf("velmora.wal"), "INSERT INTO t a = 3 #TIME# 1700000000\n");
}

TEST_F(TornAppendTest, isForgottenWhenTheEngineIsStartedAnew) {
  ASSERT_NO_FATAL_FAILURE(tearAppend());
  ASSERT_EQ(stop(), "");
  ASSERT_EQ(start(), "");
  runAll({"INSERT INTO t a = 3"});
  EXPECT_EQ(bytesOf("velmora.wal"), "INSERT INTO t a = 3 #TIME# 1700000000\n");
}

// Files that only grow: a record that could not be written whole leaves nothing behind.
TEST_F(FileFailureTest, aListenerOrTaskThatCannotBeSavedDoesNotHarmTheOthers) {
  ASSERT_EQ(start(), "");
  runAll({"CREATE TABLE t a int 2", "LISTEN t.INSERT --> 'first' WHERE a > 0",
          "INSERT INTO t a = 1 --> 2 @ 5 s"});
  ASSERT_EQ(stop(), "");
  const Files prepared = files();
  constexpr std::size_t listenerSize = 178;
  constexpr std::size_t taskSize = 85;
  ASSERT_EQ(prepared.at("listeners.bin").size(), listenerSize);
  ASSERT_EQ(prepared.at("webhooks.bin").size(), taskSize);
  forEveryFailure(
      [&] {
        replaceFiles(prepared);
        ASSERT_EQ(start(), "");
      },
      [&] {
        run("LISTEN t.INSERT --> 'second' WHERE a > 0");
        run("INSERT INTO t a = 3 --> 4 @ 5 s");
      },
      [&] {
        runAll({"LISTEN t.INSERT --> 'third' WHERE a > 0", "INSERT INTO t a = 5 --> 6 @ 5 s"});
        EXPECT_EQ(stop(), "");
        const std::string listeners = bytesOf("listeners.bin");
        const std::string tasks = bytesOf("webhooks.bin");
        EXPECT_EQ(start(), "");
        EXPECT_EQ(bytesOf("listeners.bin"), listeners) << "the start found a torn record";
        EXPECT_EQ(bytesOf("webhooks.bin"), tasks) << "the start found a torn record";
        EXPECT_EQ(listeners.size() % listenerSize, 0U);
        EXPECT_EQ(listeners.substr(0, listenerSize), prepared.at("listeners.bin"));
        EXPECT_NE(listeners.find("third"), std::string::npos);
        EXPECT_EQ(tasks.size() % taskSize, 0U);
        EXPECT_EQ(tasks.substr(0, taskSize), prepared.at("webhooks.bin"));
        EXPECT_EQ(stop(), "");
      });
}

// One failure, told apart by operation and file; a file hook has no state of its own.
struct Refusal {
  FileOperation operation = FileOperation::open;
  const char* fileName = "";
};
Refusal refusal;

int refuse(const FileEvent& event) {
  const bool isIt =
      event.operation == refusal.operation && std::strcmp(event.name, refusal.fileName) == 0;
  return isIt ? EIO : 0;
}

TEST_F(FileFailureTest, aStartThatCannotReadOrRepairAFileSaysWhichAndCanBeRepeated) {
  struct Case {
    Refusal refusal;
    const char* message;
  };
  ASSERT_EQ(start(), "");
  runAll({"CREATE TABLE t a int 2", "CREATE TABLE s b string ( 20 )", "INSERT INTO s b = 'x'",
          "INSERT INTO t a = 1 --> 2 @ 5 s", "LISTEN t.INSERT --> 'first'"});
  ASSERT_EQ(stop(), "");
  Files prepared = files();
  for (const char* const name : {"listeners.bin", "webhooks.bin", "velmora.wal"}) {
    prepared[name] += "torn";
  }
  using Operation = FileOperation;
  for (const Case& each :
       {Case{{Operation::truncate, "listeners.bin"}, "Failed to repair file: listeners.bin"},
        {{Operation::truncate, "webhooks.bin"}, "Failed to repair file: webhooks.bin"},
        {{Operation::truncate, "velmora.wal"}, "Failed to repair file: velmora.wal"},
        {{Operation::open, "t.bin"}, "Failed to open file: t.bin"},
        {{Operation::read, "t.bin"}, "Failed to read file: t.bin"},
        {{Operation::read, "t.del"}, "Failed to read file: t.del"},
        {{Operation::read, "t.tmp"}, "Failed to read file: t.tmp"},
        {{Operation::open, "s.row"}, "Failed to read file: s.row"},
        {{Operation::list, "."}, "Failed to list directory"}}) {
    SCOPED_TRACE(each.message);
    replaceFiles(prepared);
    refusal = each.refusal;
    setFileHook(refuse);
    EXPECT_EQ(start(), each.message);
    EXPECT_EQ(stop(), "");
    setFileHook(nullptr);
    EXPECT_EQ(start(), "");
    EXPECT_NE(shown({"s"}).find("{\"b\": \"x\"}"), std::string::npos);
    EXPECT_EQ(stop(), "");
  }
}

TEST_F(FileFailureTest, aTableOrMarkerThatCannotBeWrittenIsRefused) {
  const auto failure = [](const std::string& message) {
    return "{\n  \"success\": false,\n  \"message\": \"Error: " + message +
           "\",\n  \"rows_affected\": 0\n}";
  };
  ASSERT_EQ(start(), "");
  refusal = {FileOperation::write, "t.bin.unfinished"};
  setFileHook(refuse);
  EXPECT_EQ(run("CREATE TABLE t a int"), failure("Failed to write file: t.bin"));
  EXPECT_FALSE(files().contains("t.bin"));
  EXPECT_FALSE(files().contains("t.bin.unfinished"));
  setFileHook(nullptr);
  runAll({"DROP TABLE t", "CREATE TABLE t a int", "INSERT INTO t a = 1"});

  refusal = {FileOperation::write, "velmora.ckpt"};
  setFileHook(refuse);
  EXPECT_EQ(run("CHECKPOINT"), failure("Checkpoint failed: cannot write velmora.ckpt"));
  EXPECT_EQ(bytesOf("velmora.wal"),
            "CREATE TABLE t a int #TIME# 1700000000\nINSERT INTO t a = 1 #TIME# 1700000000\n");
  EXPECT_FALSE(files().contains("t.bin.checkpoint"));
  setFileHook(nullptr);
  runAll({"CHECKPOINT"});
}

// Waiting for the other end of a pipe would be for ever; the alarm ends the test then.
TEST_F(FileFailureTest, aPipeOrDirectoryWithTheNameOfAFileDoesNotHangTheStart) {
  constexpr unsigned patienceSeconds = 30;
  ASSERT_EQ(start(), "");
  runAll({"CREATE TABLE t a int 2 b string ( 20 )", "INSERT INTO t a = 1 --> 2 @ 5 s",
          "LISTEN t.INSERT --> 'first'"});
  ASSERT_EQ(stop(), "");
  const Files prepared = files();
  alarm(patienceSeconds);
  for (const char* const name : {"t.bin", "t.del", "t.tmp", "t.row", "listeners.bin",
                                 "webhooks.bin", "velmora.wal", "velmora.ckpt"}) {
    SCOPED_TRACE(name);
    for (const bool isPipe : {true, false}) {
      replaceFiles(prepared);
      unlink(name);
      ASSERT_EQ(isPipe ? mkfifo(name, 0600) : mkdir(name, 0700), 0);
      const std::string failure = start();
      if (failure.empty()) run("SELECT * FROM t");
      stop();
      std::remove(name);
      // A stop that failed on it is possible now.
      EXPECT_EQ(stop(), "");
    }
  }
  alarm(0);
}

// Only the system's administrator can make a device.
TEST_F(FileFailureTest, aDeviceWithTheNameOfAFileIsRefused) {
  ASSERT_EQ(start(), "");
  runAll({"CREATE TABLE t a int 2 b string ( 20 )", "INSERT INTO t a = 1 --> 2 @ 5 s b = 'x'",
          "LISTEN t.INSERT --> 'first'"});
  ASSERT_EQ(stop(), "");
  const Files prepared = files();
  for (const char* const name :
       {"t.bin", "t.del", "t.tmp", "t.row", "u.bin", "listeners.bin", "webhooks.bin", "velmora.wal",
        "velmora.ckpt", "t.bin.checkpoint", "a-b_c-d.rel"}) {
    SCOPED_TRACE(name);
    replaceFiles(prepared);
    unlink(name);
    if (mknod(name, S_IFCHR | 0600, makedev(1, 7)) != 0) GTEST_SKIP() << "no device can be made";
    EXPECT_EQ(start(), std::string("Not a regular file: ") + name);
    EXPECT_EQ(stop(), "");
    std::remove(name);
  }
}

}  // namespace
}  // namespace velmora::faults
