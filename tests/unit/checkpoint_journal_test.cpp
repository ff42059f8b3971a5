// A checkpoint's journal: what is read back of it, when it counts, and what a file with pending
// pieces reads as.
#include "storage/checkpoint_journal.h"

#include <algorithm>
#include <vector>

#include "storage_fixture.h"

namespace velmora {
namespace {

class CheckpointJournalTest : public StorageTest {
 protected:
  CheckpointJournalTest() { write("t.bin", "0123456789"); }

  // A piece over what there is, one over its end, and a file that is to take its place.
  void writeJournal() {
    CheckpointJournal journal(directory_);
    PatchWriter table(journal, directory_, "t.bin");
    table.put(2, "xy");
    table.put(4, "z");
    table.put(6, "67");  // what is there already
    table.put(8, "AB\n/end");
    table.finish(15);
    journal.awaited().replaced = {{"u.bin", true}, {"velmora.wal", false}};
    journal.finish();
  }
  const std::string text_ =
      "/piece 2 3 t.bin\nxyz/piece 8 7 t.bin\nAB\n/end/size 15 t.bin\n"
      "/spare u.bin\nvelmora.wal\n";
  const std::string patched_ = "01xyz567AB\n/end";

  void apply() { applyPatches(readJournal(directory_).value(), directory_); }
};

TEST_F(CheckpointJournalTest, saysWhatChangesAndWhatIsReplaced) {
  writeJournal();
  EXPECT_EQ(bytesOf("velmora.ckpt").substr(0, text_.size()), text_);
  EXPECT_EQ(bytesOf("velmora.ckpt").substr(text_.size()), "/end 90bc4d6b\n");
  const auto read = readJournal(directory_);
  ASSERT_TRUE(read.has_value());
  EXPECT_EQ(read->replaced,
            (std::map<std::string, bool, std::less<>>{{"u.bin", true}, {"velmora.wal", false}}));
  ASSERT_EQ(read->patched.size(), 1U);
  const Patch& patch = read->patched.at("t.bin");
  EXPECT_EQ(patch.fileSize, 15);
  ASSERT_EQ(patch.pieces.size(), 2U);
  EXPECT_EQ(patch.pieces[1].offset, 8);
  EXPECT_EQ(patch.pieces[1].size, 7);
  EXPECT_EQ(patch.pieces[1].source, 37);
}

TEST_F(CheckpointJournalTest, aFileOfWhichNothingChangesIsNotInIt) {
  CheckpointJournal journal(directory_);
  PatchWriter table(journal, directory_, "t.bin");
  table.put(0, "01234");
  table.finish(10);
  EXPECT_TRUE(journal.awaited().patched.empty());
}

TEST_F(CheckpointJournalTest, cutAnywhereItCountsAsNotWritten) {
  writeJournal();
  const std::string whole = bytesOf("velmora.ckpt");
  for (std::size_t size = 0; size < whole.size(); ++size) {
    write("velmora.ckpt", whole.substr(0, size));
    EXPECT_FALSE(readJournal(directory_).has_value()) << size;
    write("velmora.ckpt", whole.substr(0, size) + std::string(whole.size() - size, '\0'));
    EXPECT_FALSE(readJournal(directory_).has_value()) << size;
  }
}

TEST_F(CheckpointJournalTest, withOneOtherBitItCountsAsNotWritten) {
  writeJournal();
  const std::string whole = bytesOf("velmora.ckpt");
  for (std::size_t i = 0; i < whole.size(); ++i) {
    for (unsigned bit = 0; bit < 8; ++bit) {
      std::string other = whole;
      other[i] = static_cast<char>(static_cast<unsigned char>(other[i]) ^ 1U << bit);
      write("velmora.ckpt", other);
      EXPECT_FALSE(readJournal(directory_).has_value()) << i << " " << bit;
    }
  }
}

TEST_F(CheckpointJournalTest, namesAloneCountAsEarlierVersionsEndedThem) {
  write("velmora.ckpt", "t.bin\nvelmora.wal\nend\n");
  const auto read = readJournal(directory_);
  ASSERT_TRUE(read.has_value());
  EXPECT_EQ(read->replaced,
            (std::map<std::string, bool, std::less<>>{{"t.bin", false}, {"velmora.wal", false}}));
  for (const char* const other : {"t.bin\nend", "t.bin\nend\nx", "/size 1 t.bin\nend\n",
                                  "/spare t.bin\nend\n", "a/b\nend\n", "\n", ""}) {
    write("velmora.ckpt", other);
    EXPECT_FALSE(readJournal(directory_).has_value()) << other;
  }
}

TEST_F(CheckpointJournalTest, mayBeAppliedAgainAtAnyPoint) {
  writeJournal();
  for (const std::string& found :
       {std::string("0123456789"), std::string("01xy456789"), std::string("0123456789AB"),
        std::string("01xyz567AB\n/endand more"), patched_}) {
    write("t.bin", found);
    for (int i = 0; i < 2; ++i) {
      apply();
      EXPECT_EQ(bytesOf("t.bin"), patched_);
    }
  }
}

TEST_F(CheckpointJournalTest, aFileThatIsGoneIsNotMade) {
  writeJournal();
  std::filesystem::remove(path_ / "t.bin");
  apply();
  EXPECT_FALSE(exists("t.bin"));
}

TEST_F(CheckpointJournalTest, aFileWithASecondNameIsChangedUnderThisNameAlone) {
  std::filesystem::create_hard_link(path_ / "t.bin", path_ / "snapshot");
  writeJournal();
  apply();
  EXPECT_EQ(bytesOf("t.bin"), patched_);
  EXPECT_EQ(bytesOf("snapshot"), "0123456789");
}

TEST_F(CheckpointJournalTest, aFileIsMadeShorter) {
  CheckpointJournal journal(directory_);
  PatchWriter table(journal, directory_, "t.bin");
  table.put(0, "z");
  table.finish(4);
  journal.finish();
  apply();
  EXPECT_EQ(bytesOf("t.bin"), "z123");
}

// However far the file has come.
TEST_F(CheckpointJournalTest, beforeItIsAppliedAFileReadsAsIfItHadBeen) {
  writeJournal();
  const AwaitedFiles awaited = readJournal(directory_).value();
  Directory reading = directory_;
  reading.awaited = &awaited;
  for (const std::string& found : {std::string("0123456789"), std::string("0123456789AB"),
                                   std::string("01xyz567AB\n/endand more"), patched_}) {
    write("t.bin", found);
    File file(reading, "t.bin", File::Mode::read);
    EXPECT_EQ(file.size(), 15);
    for (std::size_t offset = 0; offset <= 16; ++offset) {
      for (std::size_t count = 0; count <= 17; ++count) {
        std::string read(count, '?');
        const auto size = file.readAt(static_cast<std::int64_t>(offset), read.data(), count);
        ASSERT_TRUE(size.has_value());
        EXPECT_EQ(read.substr(0, *size), patched_.substr(std::min(offset, std::size_t{15}), count));
      }
    }
    EXPECT_EQ(bytesOf("t.bin"), found);
  }
}

TEST_F(CheckpointJournalTest, whatIsToTakeAPlaceIsReadThere) {
  writeJournal();
  write("u.bin", "old");
  write("u.bin.checkpoint", "new");
  const AwaitedFiles awaited = readJournal(directory_).value();
  Directory reading = directory_;
  reading.awaited = &awaited;
  EXPECT_EQ(readFile(reading, "u.bin"), "new");
  EXPECT_EQ(readFile(directory_, "u.bin"), "old");
}

}  // namespace
}  // namespace velmora
