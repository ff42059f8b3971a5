// Tables so large that two threads write and read their rows, each a half: what comes of it is what
// one thread makes, which does all of it where a hook looks on.

#include <sched.h>

#include <atomic>
#include <limits>
#include <thread>

#include "sealed_fixture.h"
#include "storage/block_io.h"
#include "storage/halves.h"

namespace velmora {
namespace {

constexpr std::size_t rowCount = leastRowsOfHalves + 4567;
// Where the second half begins, or before.
constexpr std::size_t middle = rowCount / 2 / Rows::chunkRows * Rows::chunkRows;
constexpr std::size_t headerSize = 15 + 60 * 6;
constexpr std::size_t rowSize = 4 + 8 + 60 + 1 + 61 + 5;

class HalfByHalf : public SealedTest {
 protected:
  ~HalfByHalf() override { setFileHook(nullptr); }

  static Tables manyRows() {
    Tables tables;
    Table& table = addTable(tables, "many",
                            {{"n", "int"},
                             {"d", std::string(doubleType)},
                             {"s", "string"},
                             {"b", "bool"},
                             {"w", "string", 2},
                             {"f", "float", 3}});
    for (std::size_t i = 0; i < rowCount; ++i) {
      const auto number = static_cast<std::int64_t>(i);
      const std::string text = "text number " + std::to_string(i * i);
      addRow(table, {number - 5, 0.1 * static_cast<double>(i), text, i % 3 == 0,
                     text.substr(0, i % 20), 0.5 * static_cast<double>(i)});
    }
    for (const std::size_t row : {std::size_t{0}, middle - 1, middle, rowCount - 1}) {
      table.setDeleted(row, true);
    }
    return tables;
  }
  // A directory with them, made once; and what the tables hold.
  static inline Files savedFiles;
  static inline std::string savedContent;
  void putSaved() {
    if (savedFiles.empty()) {
      Tables tables = manyRows();
      save(tables);
      savedFiles = files();
      savedContent = contentOf(tables);
    } else {
      putFiles(savedFiles);
    }
  }
  static int lookOn(const FileEvent&) { return 0; }
  // Whether they are equal; EXPECT_EQ would print megabytes.
  static bool areEqual(const std::string& a, const std::string& b) { return a == b; }
  // Changes bytes of the table file, which no seal tells of any more.
  void patch(std::size_t row, std::size_t offset, const std::string& bytes) const {
    std::fstream file(path_ / "many.bin", std::ios::binary | std::ios::in | std::ios::out);
    file.seekp(static_cast<std::streamoff>(headerSize + row * rowSize + offset));
    file << bytes;
  }
};

TEST_F(HalfByHalf, WritesTheFilesThatOneThreadWrites) {
  putSaved();
  EXPECT_EQ(bytesOf("many.bin").size(), headerSize + rowCount * rowSize);
  Tables tables = load().tables;
  tables.at("many").markAllDirty();
  putFiles({});
  setFileHook(lookOn);
  save(tables);
  setFileHook(nullptr);
  EXPECT_TRUE(files() == savedFiles);
}

TEST_F(HalfByHalf, WritesOverTheSpareFileOfMoreRows) {
  putSaved();
  Tables tables = load().tables;
  tables.at("many").markAllDirty();
  save(tables);
  ASSERT_TRUE(exists("many.bin.spare"));
  Table& table = tables.at("many");
  for (int i = 0; i < 1000; ++i) table.removeLastRow();
  table.markAllDirty();
  save(tables);
  EXPECT_EQ(bytesOf("many.bin").size(), headerSize + (rowCount - 1000) * rowSize);
  EXPECT_TRUE(areEqual(contentOf(load().tables), contentOf(tables)));
}

TEST_F(HalfByHalf, ReadsWhatWasWritten) {
  putSaved();
  const SealedState state = load();
  EXPECT_TRUE(areEqual(contentOf(state.tables), savedContent));
  EXPECT_FALSE(state.tables.at("many").isDirty());
}

TEST_F(HalfByHalf, ReadsTimedValuesOfAnyRow) {
  putSaved();
  Tables tables = load().tables;
  tables.at("many").set(middle + 7, 4, timed({"red", "green"}), 0);
  save(tables);
  EXPECT_TRUE(areEqual(contentOf(load().tables), contentOf(tables)));
}

// Their cells are marked as timed, and there is no file of timed values.
TEST_F(HalfByHalf, TimedCellsWithoutTheirFileAreReadByOneThread) {
  putSaved();
  for (const std::size_t row : {std::size_t{5}, rowCount - 1}) {
    patch(row, 4 + 8 + 60 + 1, std::string("\1\0\0\0\0", 5));
    const auto table = Storage::loadTable("many.bin", directory_, FloatTexts::shortest);
    ASSERT_TRUE(table);
    EXPECT_EQ(table->rowCount(), rowCount);
    EXPECT_TRUE(table->isDirty());
    TextRoom room;
    EXPECT_EQ(table->text(row, 4, 0, room), missingValue);
    EXPECT_EQ(table->text(row, 0, 0, room), std::to_string(static_cast<int>(row) - 5));
  }
}

TEST_F(HalfByHalf, InfiniteFloatsAreReadByOneThread) {
  putSaved();
  const std::string infinity("\0\0\x80\x7f", 4);
  for (const std::size_t row : {middle - 1, middle, rowCount - 1}) {
    patch(row, rowSize - 4, infinity);
    const auto table = Storage::loadTable("many.bin", directory_, FloatTexts::shortest);
    ASSERT_TRUE(table);
    EXPECT_EQ(table->rowCount(), rowCount);
    TextRoom room;
    EXPECT_EQ(table->text(row, 5, 0, room), "inf");
    EXPECT_EQ(table->text(rowCount - 2, 0, 0, room), std::to_string(rowCount - 2 - 5));
  }
}

// What a checkpoint would not write is noticed in either half.
TEST_F(HalfByHalf, BytesThatNobodyWroteMakeTheTableDirty) {
  putSaved();
  for (const std::size_t row : {std::size_t{1}, rowCount - 1}) {
    patch(row, 4 + 8 + 59, "x");
    const auto table = Storage::loadTable("many.bin", directory_, FloatTexts::shortest);
    ASSERT_TRUE(table);
    EXPECT_TRUE(table->isDirty());
    patch(row, 4 + 8 + 59, std::string(1, '\0'));
  }
  EXPECT_FALSE(Storage::loadTable("many.bin", directory_, FloatTexts::shortest)->isDirty());
}

TEST_F(HalfByHalf, RowsThatAreNotWholeAreLeftOut) {
  putSaved();
  const std::string all = bytesOf("many.bin");
  for (const std::size_t cut : {std::size_t{1}, rowSize, rowSize + 1, 700 * rowSize}) {
    write("many.bin", all.substr(0, all.size() - cut));
    const auto table = Storage::loadTable("many.bin", directory_, FloatTexts::shortest);
    ASSERT_TRUE(table);
    EXPECT_EQ(table->rowCount(), rowCount - (cut + rowSize - 1) / rowSize);
  }
}

TEST_F(HalfByHalf, AFlippedBitOfEitherHalfIsReported) {
  putSaved();
  const std::string all = bytesOf("many.bin");
  for (const std::size_t place :
       {std::size_t{3}, headerSize, headerSize + middle * rowSize - 1,
        headerSize + middle * rowSize, headerSize + (middle + 900) * rowSize, all.size() - 1}) {
    std::string flipped = all;
    flipped[place] = static_cast<char>(flipped[place] ^ 4);
    write("many.bin", flipped);
    const Loaded loaded = tryToLoad();
    ASSERT_FALSE(loaded.faults.empty()) << place;
    EXPECT_EQ(loaded.faults.front(), "many.bin -1: the file's checksum is wrong") << place;
  }
  write("many.bin", all + "x");
  EXPECT_EQ(tryToLoad().faults.front(), "many.bin " + std::to_string(all.size()) +
                                            ": the file has " + std::to_string(all.size() + 1) +
                                            " bytes instead of " + std::to_string(all.size()));
}

TEST_F(HalfByHalf, ProgressGrowsToTheEndAndCanStopTheLoadAnywhere) {
  putSaved();
  std::uint64_t last = 0;
  std::uint64_t all = 0;
  int calls = 0;
  const auto noFault = [](const std::string&, std::int64_t, const std::string&) { FAIL(); };
  loadSealed(directory_, noFault, [&](std::uint64_t done, std::uint64_t total) {
    EXPECT_GE(done, last);
    last = done;
    all = total;
    ++calls;
    return true;
  });
  EXPECT_EQ(last, all);
  EXPECT_GT(calls, 10);
  for (const int stop : {1, 2, 5, 10}) {
    int left = stop;
    try {
      loadSealed(directory_, noFault, [&](std::uint64_t, std::uint64_t) { return --left > 0; });
      ADD_FAILURE() << stop;
    } catch (const Failure& failure) {
      EXPECT_STREQ(failure.what(), "Interrupted");
    }
  }
}

std::atomic<int> operationsLeft = 0;  // until one fails

template <FileOperation operation>
int failLater(const FileEvent& event) {
  const bool isCounted = event.operation == operation && std::string_view(event.name) != ".";
  return isCounted && --operationsLeft == 0 ? EIO : 0;
}

// A half that fails, or that never began because the other has, leaves nothing that could not be
// thrown away.
TEST_F(HalfByHalf, AReadThatFailsInEitherHalfIsToldOf) {
  putSaved();
  for (const int reads : {10, 60}) {
    operationsLeft = reads;
    setFileHook(failLater<FileOperation::read>);
    try {
      Storage::loadTable("many.bin", directory_, FloatTexts::shortest);
      ADD_FAILURE() << reads;
    } catch (const Unreadable& failure) {
      EXPECT_STREQ(failure.what(), "Failed to read file: many.bin");
      EXPECT_EQ(errno, EIO);
    }
    setFileHook(nullptr);
    EXPECT_LE(operationsLeft, 0);
  }
}

TEST_F(HalfByHalf, AWriteThatFailsInEitherHalfLeavesTheOldFiles) {
  putSaved();
  Tables tables = load().tables;
  tables.at("many").setValue(1, 0, TypedValue::ofInteger(77));
  for (const int writes : {100, 2200}) {
    tables.at("many").markAllDirty();
    operationsLeft = writes;
    setFileHook(failLater<FileOperation::write>);
    EXPECT_THROW(save(tables), std::exception) << writes;
    setFileHook(nullptr);
    EXPECT_LE(operationsLeft, 0);
    EXPECT_TRUE(bytesOf("many.bin") == savedFiles.at("many.bin"));
    EXPECT_TRUE(areEqual(contentOf(load().tables), savedContent));
  }
}

// Two threads at work without a hook: what one throws arrives here, with its errno, when both have
// ended.
TEST(RunBeside, TellsWhatEitherThrows) {
  std::atomic<bool> hasEnded = false;
  EXPECT_THROW(runBeside([] { throw std::runtime_error("first"); }, [&] { hasEnded = true; }),
               std::runtime_error);
  EXPECT_TRUE(hasEnded);
  hasEnded = false;
  try {
    runBeside([&] { hasEnded = true; },
              [] {
                errno = ENOSPC;
                throw WriteFailure("second");
              });
    FAIL();
  } catch (const WriteFailure& failure) {
    EXPECT_EQ(errno, ENOSPC);
    EXPECT_STREQ(failure.what(), "second");
  }
  EXPECT_TRUE(hasEnded);
}

// Which processors a thread may use.
cpu_set_t processors() {
  cpu_set_t allowed;
  CPU_ZERO(&allowed);
  EXPECT_EQ(sched_getaffinity(0, sizeof allowed, &allowed), 0);
  return allowed;
}

// The second thread is moved off the processor of the first, and may use all of them afterwards.
TEST(RunBeside, LeavesTheSecondThreadAllProcessors) {
  const cpu_set_t before = processors();
  const auto expectAll = [&](const cpu_set_t& allowed) {
    cpu_set_t found;
    std::atomic<bool> isStarted = false;
    runBeside([&] { isStarted = true; },
              [&] {
                while (!isStarted) std::this_thread::yield();
                found = processors();
              });
    EXPECT_TRUE(CPU_EQUAL(&found, &allowed));
    const cpu_set_t here = processors();
    EXPECT_TRUE(CPU_EQUAL(&here, &allowed));
  };
  expectAll(before);
  cpu_set_t one;
  CPU_ZERO(&one);
  CPU_SET(static_cast<std::size_t>(sched_getcpu()), &one);
  ASSERT_EQ(sched_setaffinity(0, sizeof one, &one), 0);
  expectAll(one);
  ASSERT_EQ(sched_setaffinity(0, sizeof before, &before), 0);
}

}  // namespace
}  // namespace velmora
