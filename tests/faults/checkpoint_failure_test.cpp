// Checkpoints and links that a single file operation stops: what the commands behind them go to,
// and what the next checkpoint, the next start and the next table make of it.
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
  void stopBehindMarker(const std::string& columns, const Refusal& refusal,
                        const std::string& message) {
    ASSERT_EQ(start(), "");
    runAll({"CREATE TABLE t " + columns, "INSERT INTO t a = 1"});
    EXPECT_EQ(runRefused("CHECKPOINT", {refusal}), failure("Checkpoint failed: " + message));
    EXPECT_TRUE(files().contains("velmora.ckpt"));
  }
};

const Refusal noPatch = {FileOperation::write, "t.bin"};

// Of a table whose file is changed, and of one whose files are written anew.
struct Way {
  const char* columns;
  Refusal refusal;
  const char* message;
};
class StoppedCheckpointTest : public CheckpointFailureTest,
                              public testing::WithParamInterface<Way> {
 protected:
  void stopBehindMarker() {
    const auto& [columns, refusal, message] = GetParam();
    CheckpointFailureTest::stopBehindMarker(columns, refusal, message);
  }
  static std::string rows(const std::string& answer) {
    std::string found;
    for (std::size_t at = 0; (at = answer.find("\"a\": ", at)) != std::string::npos; at += 5) {
      found += answer.at(at + 5);
    }
    return found;
  }
};

INSTANTIATE_TEST_SUITE_P(Ways, StoppedCheckpointTest,
                         testing::Values(Way{"a int", noPatch, "cannot write t.bin"},
                                         Way{"a int s string(8)",
                                             {FileOperation::rename, "t.bin.checkpoint"},
                                             "cannot replace t.bin"}),
                         [](const auto& way) { return way.index == 0 ? "changed" : "written"; });

TEST_P(StoppedCheckpointTest, behindTheMarkerCommandsGoToTheNewLog) {
  ASSERT_NO_FATAL_FAILURE(stopBehindMarker());
  const std::string before = bytesOf("velmora.wal");
  runAll({"INSERT INTO t a = 2"});
  EXPECT_EQ(bytesOf("velmora.wal"), before);
  EXPECT_EQ(bytesOf("velmora.wal.checkpoint"), "INSERT INTO t a = 2 #TIME# 1700000000\n");
  EXPECT_EQ(rows(shownAfterKill({"t"})), "12");
}

TEST_P(StoppedCheckpointTest, theNextCheckpointCompletesItFirst) {
  ASSERT_NO_FATAL_FAILURE(stopBehindMarker());
  runAll({"INSERT INTO t a = 2"});
  EXPECT_EQ(runRefused("CHECKPOINT", {{FileOperation::sync, "velmora.wal.checkpoint"}}),
            failure("Checkpoint failed: cannot sync velmora.wal.checkpoint"));
  EXPECT_FALSE(files().contains("velmora.ckpt"));
  EXPECT_EQ(bytesOf("velmora.wal"), "INSERT INTO t a = 2 #TIME# 1700000000\n");
  EXPECT_EQ(rows(shownAfterKill({"t"})), "12");
}

// What is still to be put in place is this table's, not that of another one of its name.
TEST_P(StoppedCheckpointTest, aNewTableOfTheNameIsMadeBehindItsEnd) {
  ASSERT_NO_FATAL_FAILURE(stopBehindMarker());
  runAll({"DROP TABLE t"});
  EXPECT_TRUE(files().contains("velmora.ckpt"));
  runAll({"CREATE TABLE t a int"});
  EXPECT_FALSE(files().contains("velmora.ckpt"));
  runAll({"INSERT INTO t a = 3"});
  EXPECT_EQ(rows(shownAfterKill({"t"})), "3");
  runAll({"CHECKPOINT"});
  EXPECT_EQ(rows(shownAfterKill({"t"})), "3");
}

TEST_P(StoppedCheckpointTest, noTableIsMadeAsLongAsItCannotEnd) {
  ASSERT_NO_FATAL_FAILURE(stopBehindMarker());
  const Files before = files();
  const std::string message = std::string("Checkpoint failed: ") + GetParam().message;
  EXPECT_EQ(runRefused("CREATE TABLE u a int", {GetParam().refusal}), failure(message));
  EXPECT_EQ(files(), before);
  EXPECT_EQ(rows(shown({"t"})), "1");
}

const char* const oneRow = "{\"a\": 1}";
const char* const twoRows = "{\"a\": 1},\n    {\"a\": 2}";

TEST_F(CheckpointFailureTest, aMarkerThatCannotBeTakenBackStands) {
  ASSERT_EQ(start(), "");
  runAll({"CREATE TABLE t a int", "INSERT INTO t a = 1"});
  EXPECT_EQ(runRefused("CHECKPOINT", {{FileOperation::sync, "velmora.ckpt"},
                                      {FileOperation::truncate, "velmora.ckpt"}}),
            failure("Checkpoint failed: cannot sync velmora.ckpt"));
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

TEST_P(StoppedCheckpointTest, theLogStaysOpenBehindACheckpoint) {
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
