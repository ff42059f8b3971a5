// Checkpoints and links that a single file operation stops: what the commands behind them go to,
// and what the next checkpoint and the next start make of it.
#include <cerrno>
#include <cstring>
#include <string>
#include <vector>

#include "fault_fixture.h"
#include "storage/files.h"

namespace velmora::faults {
namespace {

struct Refusal {
  FileOperation operation;
  const char* fileName;
};
// What is refused, and how many files have been opened; a file hook has no state of its own.
std::vector<Refusal> refused;
int opened = 0;

int refuse(const FileEvent& event) {
  if (event.operation == FileOperation::open) ++opened;
  for (const Refusal& each : refused) {
    if (event.operation == each.operation && std::strcmp(event.name, each.fileName) == 0)
      return EIO;
  }
  return 0;
}

class CheckpointFailureTest : public FaultTest {
 protected:
  static std::string runRefused(const std::string& command, const std::vector<Refusal>& refusals) {
    refused = refusals;
    opened = 0;
    setFileHook(refuse);
    const std::string answer = run(command);
    setFileHook(nullptr);
    return answer;
  }
  static std::string failure(const std::string& message) {
    return "{\n  \"success\": false,\n  \"message\": \"Error: " + message +
           "\",\n  \"rows_affected\": 0\n}";
  }
  // A checkpoint that stops between its marker and its end.
  void stopBehindMarker() {
    ASSERT_EQ(start(), "");
    runAll({"CREATE TABLE t a int", "INSERT INTO t a = 1"});
    EXPECT_EQ(runRefused("CHECKPOINT", {{FileOperation::rename, "t.bin.checkpoint"}}),
              failure("Checkpoint failed: cannot replace t.bin"));
    EXPECT_TRUE(files().contains("velmora.ckpt"));
  }
};

const char* const oneRow = "{\"a\": 1}";
const char* const twoRows = "{\"a\": 1},\n    {\"a\": 2}";

TEST_F(CheckpointFailureTest, behindTheMarkerCommandsGoToTheNewLog) {
  ASSERT_NO_FATAL_FAILURE(stopBehindMarker());
  const std::string before = bytesOf("velmora.wal");
  runAll({"INSERT INTO t a = 2"});
  EXPECT_EQ(bytesOf("velmora.wal"), before);
  EXPECT_EQ(bytesOf("velmora.wal.checkpoint"), "INSERT INTO t a = 2 #TIME# 1700000000\n");
  EXPECT_NE(shownAfterKill({"t"}).find(twoRows), std::string::npos);
}

TEST_F(CheckpointFailureTest, theNextCheckpointCompletesItFirst) {
  ASSERT_NO_FATAL_FAILURE(stopBehindMarker());
  runAll({"INSERT INTO t a = 2"});
  EXPECT_EQ(runRefused("CHECKPOINT", {{FileOperation::write, "t.bin.checkpoint"}}),
            failure("Checkpoint failed: cannot write t.bin.checkpoint"));
  EXPECT_FALSE(files().contains("velmora.ckpt"));
  EXPECT_EQ(bytesOf("velmora.wal"), "INSERT INTO t a = 2 #TIME# 1700000000\n");
  EXPECT_NE(shownAfterKill({"t"}).find(twoRows), std::string::npos);
}

TEST_F(CheckpointFailureTest, aMarkerThatCannotBeTakenBackStands) {
  ASSERT_EQ(start(), "");
  runAll({"CREATE TABLE t a int", "INSERT INTO t a = 1"});
  EXPECT_EQ(runRefused("CHECKPOINT", {{FileOperation::sync, "velmora.ckpt"},
                                      {FileOperation::truncate, "velmora.ckpt"}}),
            failure("Checkpoint failed: cannot write velmora.ckpt"));
  EXPECT_NE(shownAfterKill({"t"}).find(oneRow), std::string::npos);
  runAll({"INSERT INTO t a = 2"});
  EXPECT_NE(shownAfterKill({"t"}).find(twoRows), std::string::npos);
  runAll({"CHECKPOINT"});
  EXPECT_EQ(bytesOf("velmora.wal"), "");
  EXPECT_NE(shownAfterKill({"t"}).find(twoRows), std::string::npos);
}

TEST_F(CheckpointFailureTest, aMarkerThatCannotBeWrittenIsTakenBack) {
  ASSERT_EQ(start(), "");
  runAll({"CREATE TABLE t a int", "INSERT INTO t a = 1"});
  const Files before = files();
  EXPECT_EQ(runRefused("CHECKPOINT", {{FileOperation::write, "velmora.ckpt"}}),
            failure("Checkpoint failed: cannot write velmora.ckpt"));
  EXPECT_EQ(files(), before);
}

TEST_F(CheckpointFailureTest, theLogStaysOpenBehindACheckpoint) {
  ASSERT_NO_FATAL_FAILURE(stopBehindMarker());
  runAll({"CHECKPOINT", "INSERT INTO t a = 2"});
  runRefused("INSERT INTO t a = 3", {});
  EXPECT_EQ(opened, 0);
}

TEST_F(CheckpointFailureTest, whatCannotBeOpenedIsNotTakenForMissing) {
  ASSERT_EQ(start(), "");
  runAll({"CREATE TABLE t a string(70)", "INSERT INTO t a = 'x'", "LISTEN t.INSERT --> 'hook'",
          "CHECKPOINT"});
  const Files before = files();
  EXPECT_EQ(runRefused("CHECKPOINT", {{FileOperation::open, "t.bin"}}),
            failure("Failed to read file: t.bin"));
  EXPECT_EQ(runRefused("CHECKPOINT", {{FileOperation::open, "listeners.bin"}}),
            failure("Checkpoint failed: cannot sync listeners.bin"));
  EXPECT_EQ(files(), before);
}

TEST_F(CheckpointFailureTest, aRelationFileThatCannotBeWrittenLeavesNoBeginning) {
  ASSERT_EQ(start(), "");
  runAll({"CREATE TABLE p id ApexInt", "CREATE TABLE c a int"});
  EXPECT_TRUE(succeeded(
      runRefused("LINK c.a --> p.id", {{FileOperation::write, "c-a_p-id.rel.unfinished"}})));
  EXPECT_FALSE(files().contains("c-a_p-id.rel.unfinished"));
  EXPECT_FALSE(files().contains("c-a_p-id.rel"));
}

}  // namespace
}  // namespace velmora::faults
