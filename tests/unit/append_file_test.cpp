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
  // Asks after the open file until it is watched.
  bool watched() {
    for (int i = 0; i < FileWatch::questionsBefore; ++i) file_.check();
    return true;
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

TEST_F(AppendFileTest, aTouchedFileThatIsWatchedIsLookedAtAgain) {
  const fs::path file = path_ / "webhooks.bin";
  const auto appendTwice = [&] { return append("1") && watched() && append("2"); };
  EXPECT_TRUE(appendTwice());
  fs::rename(file, path_ / "renamed");
  EXPECT_TRUE(appendTwice());
  fs::remove(file);
  EXPECT_TRUE(appendTwice());
  write("other", "other,");
  fs::rename(path_ / "other", file);
  EXPECT_TRUE(appendTwice());
  fs::create_hard_link(file, path_ / "second");
  EXPECT_TRUE(appendTwice());
  EXPECT_EQ(bytesOf("renamed"), "12");
  EXPECT_EQ(bytesOf("second"), "other,12");
  EXPECT_EQ(bytesOf("webhooks.bin"), "other,1212");
  fs::remove(file);
  fs::create_symlink("renamed", file);
  EXPECT_THROW(file_.check(), NotRegularFile);
  fs::remove(file);
  EXPECT_TRUE(appendTwice());
  EXPECT_EQ(bytesOf("webhooks.bin"), "12");
  EXPECT_EQ(bytesOf("renamed"), "12");
}

TEST_F(AppendFileTest, aWatchedFileThatIsTouchedOtherwiseGoesOn) {
  EXPECT_TRUE(append("1") && watched() && append("2"));
  fs::last_write_time(path_ / "webhooks.bin", fs::file_time_type());
  EXPECT_TRUE(append("3") && append("4"));
  fs::permissions(path_ / "webhooks.bin", fs::perms::owner_all);
  EXPECT_TRUE(append("5") && append("6"));
  EXPECT_EQ(bytesOf("webhooks.bin"), "123456");
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
