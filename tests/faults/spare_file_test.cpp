// The spare file of a large table: written over by the next new file of the table, never read, and
// never in the way.
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <string>
#include <vector>

#include "fault_fixture.h"
#include "storage/files.h"

namespace velmora::faults {
namespace {

namespace fs = std::filesystem;

// What kills before some steps would leave, and how many writes there were; a file hook has no
// state of its own.
std::vector<Files> left;
int writes = 0;

class SpareFileTest : public FaultTest {
 protected:
  static ino_t numberOf(const char* name) {
    struct stat status = {};
    EXPECT_EQ(stat(name, &status), 0) << name;
    return status.st_ino;
  }

  // A table of over 256 KiB, and another one, that have been checkpointed.
  static void makeTables() {
    ASSERT_EQ(start(), "");
    runAll({"CREATE TABLE t n int s string", "CREATE TABLE u n int", "INSERT INTO u n = 1"});
    for (int i = 0; i < 4200; ++i) runAll({"INSERT INTO t s = 'text'"});
    changeAll(1);
  }
  // Gives a checkpoint behind a change of all rows.
  static void changeAll(int number) {
    runAll({"UPDATE t SET n = " + std::to_string(number), "CHECKPOINT"});
  }

  static int keepWhatIsLeft(const FileEvent& event) {
    const bool isWrite = event.operation == FileOperation::write;
    const bool isReading = event.operation == FileOperation::open ||
                           event.operation == FileOperation::read ||
                           event.operation == FileOperation::list;
    if (isWrite ? ++writes % 8 == 0 : !isReading) left.push_back(files());
    return 0;
  }
};

TEST_F(SpareFileTest, isWhatTheNextNewFileIsWrittenOver) {
  ASSERT_NO_FATAL_FAILURE(makeTables());
  const ino_t first = numberOf("t.bin");
  changeAll(2);
  EXPECT_EQ(numberOf("t.bin.spare"), first);
  const std::string rows = shown({"t"});
  const std::string bytes = bytesOf("t.bin");
  changeAll(3);
  EXPECT_EQ(numberOf("t.bin"), first);
  EXPECT_EQ(bytesOf("t.bin.spare"), bytes);
  changeAll(2);
  EXPECT_EQ(bytesOf("t.bin"), bytes);
  EXPECT_EQ(shownAfterKill({"t"}), rows);
}

TEST_F(SpareFileTest, isCutToWhatIsWrittenOverIt) {
  ASSERT_NO_FATAL_FAILURE(makeTables());
  changeAll(2);
  write("t.bin.spare", std::string(1'000'000, 'x'));
  changeAll(1);
  EXPECT_EQ(bytesOf("t.bin").size(), 135 + 4200 * 64U);
  EXPECT_EQ(bytesOf("t.bin").find("xx"), std::string::npos);
}

TEST_F(SpareFileTest, isKeptOfLargeFilesAlone) {
  ASSERT_NO_FATAL_FAILURE(makeTables());
  EXPECT_TRUE(files().contains("t.bin.spare"));
  EXPECT_FALSE(files().contains("u.bin.spare"));
  EXPECT_FALSE(files().contains("t.del.spare"));
  EXPECT_FALSE(files().contains("velmora.wal.spare"));
}

TEST_F(SpareFileTest, isLeftAloneUnderASecondName) {
  ASSERT_NO_FATAL_FAILURE(makeTables());
  changeAll(2);
  fs::create_hard_link("t.bin.spare", "snapshot");
  const std::string snapshot = bytesOf("snapshot");
  changeAll(3);
  changeAll(4);
  EXPECT_EQ(bytesOf("snapshot"), snapshot);
}

TEST_F(SpareFileTest, goesWithItsTable) {
  ASSERT_NO_FATAL_FAILURE(makeTables());
  runAll({"DROP TABLE t"});
  EXPECT_FALSE(files().contains("t.bin.spare"));
}

TEST_F(SpareFileTest, isKeptByAStartAsLongAsThereIsItsTable) {
  ASSERT_NO_FATAL_FAILURE(makeTables());
  ASSERT_EQ(stop(), "");
  write("gone.bin.spare", "x");
  write("notes.spare", "x");
  ASSERT_EQ(start(), "");
  EXPECT_TRUE(files().contains("t.bin.spare"));
  EXPECT_TRUE(files().contains("notes.spare"));
  EXPECT_FALSE(files().contains("gone.bin.spare"));
}

TEST_F(SpareFileTest, isRefusedIfItIsALink) {
  ASSERT_NO_FATAL_FAILURE(makeTables());
  fs::remove("t.bin.spare");
  fs::create_symlink("elsewhere", "t.bin.spare");
  runAll({"UPDATE t SET n = 5"});
  EXPECT_NE(run("CHECKPOINT").find("Error: Not a regular file: t.bin.spare\""), std::string::npos);
  EXPECT_EQ(stop(), "Not a regular file: t.bin.spare");
  fs::remove("t.bin.spare");
  EXPECT_EQ(stop(), "");
  fs::remove("t.bin.spare");
  fs::create_symlink("elsewhere", "t.bin.spare");
  EXPECT_EQ(start(), "Not a regular file: t.bin.spare");
}

TEST_F(SpareFileTest, atEveryStepEverythingIsOldOrNew) {
  ASSERT_NO_FATAL_FAILURE(makeTables());
  changeAll(2);
  const std::string before = shown({"t", "u"});
  runAll({"BEGIN", "UPDATE t SET n = 3", "UPDATE u SET n = 3"});
  const std::string behind = shown({"t", "u"});
  // Its log says no more than its files.
  write("velmora.wal", "");
  left.clear();
  setFileHook(keepWhatIsLeft);
  runAll({"CHECKPOINT"});
  setFileHook(nullptr);
  runAll({"COMMIT"});
  ASSERT_EQ(stop(), "");
  EXPECT_GT(left.size(), 20U);
  bool isNew = false;
  for (const Files& each : left) {
    replaceFiles(each);
    ASSERT_EQ(start(), "");
    const std::string found = shown({"t", "u"});
    EXPECT_TRUE(found == behind || (found == before && !isNew));
    isNew = found == behind;
    ASSERT_EQ(stop(), "");
  }
  EXPECT_TRUE(isNew);
}

}  // namespace
}  // namespace velmora::faults
