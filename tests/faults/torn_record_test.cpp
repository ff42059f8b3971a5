// What a record that could not be written whole leaves behind in the files that only grow, when it
// cannot be cut off at once either: the next record must stand where a reader looks for it.
#include <cerrno>
#include <cstring>
#include <string>

#include "fault_fixture.h"
#include "storage/files.h"

namespace velmora::faults {
namespace {

const char* tornFile = "";

int tear(const FileEvent& event) {
  if (std::strcmp(event.name, tornFile) != 0) return 0;
  if (event.operation == FileOperation::write) return shortWrite;
  return event.operation == FileOperation::truncate ? EIO : 0;
}

class TornRecordTest : public FaultTest {
 protected:
  void runTorn(const char* file, const std::string& command) {
    tornFile = file;
    setFileHook(tear);
    EXPECT_TRUE(succeeded(run(command)));
    setFileHook(nullptr);
  }
};

TEST_F(TornRecordTest, ofAScheduledChangeIsCutOffBeforeTheNext) {
  ASSERT_EQ(start(), "");
  runAll({"CREATE TABLE t a int 2", "INSERT INTO t a = 1 --> 2 @ 5 s"});
  runTorn("webhooks.bin", "INSERT INTO t a = 3 --> 4 @ 5 s");
  EXPECT_EQ(bytesOf("webhooks.bin").size(), 85U + 42U);
  runAll({"INSERT INTO t a = 5 --> 6 @ 5 s"});
  const std::string tasks = bytesOf("webhooks.bin");
  ASSERT_EQ(tasks.size(), 2 * 85U);
  EXPECT_EQ(tasks.substr(85 + 60, 2), std::string("6\0", 2));
}

TEST_F(TornRecordTest, ofAListenerIsCutOffBeforeTheNext) {
  ASSERT_EQ(start(), "");
  runAll({"LISTEN t.INSERT --> 'first'"});
  runTorn("listeners.bin", "LISTEN t.INSERT --> 'second'");
  EXPECT_EQ(bytesOf("listeners.bin").size(), 134U + 67U);
  runAll({"LISTEN t.INSERT --> 'third'"});
  const std::string listeners = bytesOf("listeners.bin");
  ASSERT_EQ(listeners.size(), 2 * 134U);
  EXPECT_EQ(listeners.substr(134 + 30, 6), std::string("third\0", 6));
}

TEST_F(TornRecordTest, isCutOffByTheNextStart) {
  ASSERT_EQ(start(), "");
  runAll(
      {"CREATE TABLE t a int 2", "INSERT INTO t a = 1 --> 2 @ 5 s", "LISTEN t.INSERT --> 'one'"});
  runTorn("webhooks.bin", "INSERT INTO t a = 3 --> 4 @ 5 s");
  runTorn("listeners.bin", "LISTEN t.INSERT --> 'two'");
  ASSERT_EQ(stop(), "");
  ASSERT_EQ(start(), "");
  EXPECT_EQ(bytesOf("webhooks.bin").size(), 85U);
  EXPECT_EQ(bytesOf("listeners.bin").size(), 134U);
}

}  // namespace
}  // namespace velmora::faults
