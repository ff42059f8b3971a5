// A file that only grows, whose last record could be neither written whole nor cut off again: the
// next append cuts it off, and nothing else.
#include "storage/append_file.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <filesystem>
#include <string>
#include <vector>

#include "storage/storage.h"
#include "storage_fixture.h"

namespace velmora {
namespace {

namespace fs = std::filesystem;

class AppendFileTest : public StorageTest {
 protected:
  bool append(const std::string& bytes) {
    file_.check();
    return file_.append(bytes);
  }
  void tear(const std::string& bytes) {
    setFileHook([](const FileEvent& event) {
      if (event.operation == FileOperation::write) return shortWrite;
      return event.operation == FileOperation::truncate ? EIO : 0;
    });
    EXPECT_FALSE(append(bytes));
    setFileHook(nullptr);
  }

  AppendFile file_{directory_, "webhooks.bin"};
};

TEST_F(AppendFileTest, aTearIsCutOffBeforeTheNextRecord) {
  EXPECT_TRUE(append("one,"));
  tear("twotwo,");
  EXPECT_EQ(bytesOf("webhooks.bin"), "one,two");
  EXPECT_TRUE(append("three,"));
  EXPECT_EQ(bytesOf("webhooks.bin"), "one,three,");
}

TEST_F(AppendFileTest, theNextRecordBeginsWhereTheTearDoes) {
  EXPECT_TRUE(append("one,"));
  EXPECT_EQ(file_.end(), 4);
  tear("twotwo,");
  EXPECT_EQ(file_.end(), 4);
  std::vector<WebhookTask> tasks(2);
  file_.check();
  Storage::appendWebhooks(tasks, file_);
  EXPECT_EQ(tasks[0].filePosition, 4);
  EXPECT_EQ(tasks[1].filePosition, 4 + 85);
  EXPECT_EQ(fs::file_size(path_ / "webhooks.bin"), 4 + 2 * 85U);
}

TEST_F(AppendFileTest, anotherFileOfTheNameHasNoTear) {
  EXPECT_TRUE(append("one,"));
  tear("twotwo,");
  fs::rename(path_ / "webhooks.bin", path_ / "torn");
  write("webhooks.bin", "much longer,");
  EXPECT_TRUE(append("three,"));
  EXPECT_EQ(bytesOf("webhooks.bin"), "much longer,three,");
  EXPECT_EQ(bytesOf("torn"), "one,two");
}

TEST_F(AppendFileTest, aFileThatGrewShorterIsNotMadeLonger) {
  EXPECT_TRUE(append("one,"));
  tear("twotwo,");
  fs::resize_file(path_ / "webhooks.bin", 1);
  EXPECT_TRUE(append("three,"));
  EXPECT_EQ(bytesOf("webhooks.bin"), "othree,");
}

// Longer than what is copied at a time.
TEST_F(AppendFileTest, aLargeFileWithASecondNameGoesOnInAWholeCopy) {
  std::string before;
  while (before.size() < 200'000) before += std::to_string(before.size()) + ',';
  write("webhooks.bin", before);
  fs::create_hard_link(path_ / "webhooks.bin", path_ / "snapshot");
  EXPECT_TRUE(append("next,"));
  // Not by EXPECT_EQ, which would print it all.
  EXPECT_TRUE(bytesOf("webhooks.bin") == before + "next,");
  EXPECT_TRUE(bytesOf("snapshot") == before);
}

}  // namespace
}  // namespace velmora
