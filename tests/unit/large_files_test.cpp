// Tables whose files are larger than what is read or written at a time: every row comes back from a
// stop and a start, wherever in it one piece of the file ends and the next begins.

#include <functional>

#include "engine_fixture.h"

namespace velmora {
namespace {

// The files are read in pieces of about this many bytes; the tests fill several.
constexpr std::size_t pieceSize = 256 * 1024;

class LargeFiles : public EngineTest {
 protected:
  // Inserts so many rows, then compares what is answered before and behind a stop and a start.
  void expectToComeBack(const std::string& columns, int count,
                        const std::function<std::string(int)>& valuesOf) {
    run("CREATE TABLE t " + columns);
    for (int i = 0; i < count; ++i) run("INSERT INTO t " + valuesOf(i));
    run("DELETE FROM t WHERE n = 1");
    before = answer("SELECT * FROM t");
    EXPECT_EQ(rows("SELECT n FROM t").size(), static_cast<std::size_t>(count - 1));
    restart();
    // Not by EXPECT_EQ, which would print megabytes.
    EXPECT_TRUE(answer("SELECT * FROM t") == before);
    EXPECT_EQ(rows("SELECT n FROM t").size(), static_cast<std::size_t>(count - 1));
  }

  std::string before;  // the answer
};

std::string number(int i) { return "n = " + std::to_string(i); }
std::string name(int i) { return " name = 'row number " + std::to_string(i) + "'"; }

TEST_F(LargeFiles, RowsOfOneNumberComeBack) {
  expectToComeBack("n int", 70'000, number);
  EXPECT_EQ(sizeOf("t.bin"), 75 + 70'000U * 4);
}

TEST_F(LargeFiles, RowsOfANumberAndATruthValueComeBack) {
  expectToComeBack("n int b bool", 60'000,
                   [](int i) { return number(i) + (i % 3 == 0 ? " b = true" : " b = false"); });
  EXPECT_EQ(sizeOf("t.bin"), 135 + 60'000U * 5);
}

TEST_F(LargeFiles, RowsWithATextComeBack) {
  expectToComeBack("n int name string", 9'000, [](int i) { return number(i) + name(i); });
  EXPECT_EQ(sizeOf("t.bin"), 135 + 9'000U * 64);
}

TEST_F(LargeFiles, RowsWithATextThatMayBeTimedComeBack) {
  expectToComeBack("n int name string 2", 9'000, [](int i) { return number(i) + name(i); });
  EXPECT_EQ(sizeOf("t.bin"), 135 + 9'000U * 65);
}

TEST_F(LargeFiles, WideRowsComeBack) {
  expectToComeBack("n int a string b string c string name string d float", 3'000, [](int i) {
    const std::string text = std::to_string(7 * i);
    return number(i) + " a = 'a" + text + "' c = 'c" + text + "'" + name(i) + " d = 0.5";
  });
  EXPECT_EQ(sizeOf("t.bin"), 375 + 3'000U * 248);
}

// Rows that are longer than what is written at a time.
TEST_F(LargeFiles, VeryWideRowsComeBack) {
  for (const char* const first : {"a string", "a string(70)"}) {
    std::string columns = std::string("n int ") + first;
    for (int i = 0; i < 1200; ++i) columns += " c" + std::to_string(i) + " string";
    expectToComeBack(columns, 12, [](int i) {
      const std::string text = std::to_string(i);
      return number(i) + " a = 'a" + text + "' c7 = 'b" + text + "' c1199 = 'c" + text + "'";
    });
    run("DROP TABLE t");
  }
}

TEST_F(LargeFiles, WholeRowsOfShorterTextsComeBack) {
  expectToComeBack("n int name string(30)", 9'000, [](int i) { return number(i) + name(i); });
  EXPECT_EQ(sizeOf("t.row"), 9'000U * 64);
  EXPECT_GT(sizeOf("t.bin"), pieceSize);
}

TEST_F(LargeFiles, WholeRowsOfTimedTruthValuesComeBack) {
  expectToComeBack("n int name string b bool 2", 9'000, [](int i) {
    return number(i) + name(i) + (i % 1000 == 0 ? " b = true --> false @ 10 s" : " b = true");
  });
  EXPECT_EQ(sizeOf("t.row"), 9'000U * 69);
}

// Without the whole-row file the rows are read from the table file, where each overlaps the next.
TEST_F(LargeFiles, OverlappingRowsAreReadOverSeveralPieces) {
  expectToComeBack("name string(70) n int", 9'000, [](int i) { return name(i) + ' ' + number(i); });
  const Texts names = rows("SELECT name FROM t");
  stop();
  std::filesystem::remove("t.row");
  start();
  // The last row's end is missing, and its name is not.
  EXPECT_EQ(sizeOf("t.bin"), 135 + 9'000U * 74 - 10);
  EXPECT_EQ(rows("SELECT name FROM t"), names);
}

TEST_F(LargeFiles, TimedValuesComeBack) {
  const auto valuesOf = [](int i) {
    const std::string text = std::to_string(i);
    return number(i) + " state = 'a" + text + "' --> 'b" + text + "' @ " +
           std::to_string(10 + i % 50) + " s";
  };
  expectToComeBack("n int state string 3", 5'000, valuesOf);
  EXPECT_EQ(sizeOf("t.tmp"), 5'000U * (29 + 3 * 68));
  second += 30;
  Texts states;
  for (int i = 0; i < 5'000; ++i) {
    if (i != 1) states.push_back((i % 50 <= 20 ? "\"b" : "\"a") + std::to_string(i) + '"');
  }
  EXPECT_EQ(rows("SELECT state FROM t"), states);
  // And once more by slots that the files give.
  restart();
  EXPECT_EQ(rows("SELECT state FROM t"), states);
  EXPECT_EQ(sizeOf("t.tmp"), 5'000U * (29 + 3 * 68));
}

TEST_F(LargeFiles, TheLogComesBack) {
  run("CREATE TABLE t n int name string");
  for (int i = 0; i < 9'000; ++i) run("INSERT INTO t " + number(i) + name(i));
  run("DELETE FROM t WHERE n = 8999");
  const std::string all = answer("SELECT * FROM t");
  EXPECT_GT(sizeOf("velmora.wal"), pieceSize);
  // What a kill would leave behind.
  std::filesystem::copy_file("velmora.wal", "kept");
  stop();
  for (const char* const file : {"t.bin", "t.del"}) std::filesystem::remove(file);
  std::filesystem::rename("kept", "velmora.wal");
  start();
  EXPECT_TRUE(answer("SELECT * FROM t") == all);
  EXPECT_EQ(rows("SELECT n FROM t").size(), 8'999U);
}

// As many rows as fit into a piece or two, and some less and more.
TEST_F(LargeFiles, FilesThatEndWithAPieceComeBack) {
  constexpr std::size_t rowSize = 65;
  int next = 0;
  run("CREATE TABLE t n int name string 1");
  for (const std::size_t pieces : {1U, 2U}) {
    const auto fitting = static_cast<int>(pieces * pieceSize / rowSize);
    for (int count = fitting - 4; count < fitting + 8; ++count) {
      for (; next < count; ++next) run("INSERT INTO t " + number(next));
      restart();
      const Texts numbers = rows("SELECT n FROM t");
      ASSERT_EQ(numbers.size(), static_cast<std::size_t>(count));
      ASSERT_EQ(numbers.back(), std::to_string(count - 1));
    }
  }
}

}  // namespace
}  // namespace velmora
