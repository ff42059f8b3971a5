// Tables of more rows than a chunk holds: scans and joins follow every change, those that are taken
// back among them.

#include "engine_fixture.h"
#include "rows.h"

namespace velmora {
namespace {

constexpr int count = static_cast<int>(Rows::chunkRows) + 200;

class LargeScans : public EngineTest {
 protected:
  // A table t of which no column is a key; row i has i in each column, as its type has it.
  LargeScans() {
    run("CREATE TABLE t v int s string w float n int");
    for (int i = 0; i < count; ++i) insert(i);
  }

  static void insert(int i) {
    const std::string number = std::to_string(i);
    run("INSERT INTO t v = " + number + " s = 's" + number + "' w = " + number +
        ".5 n = " + number);
  }
  static Texts numbersWhere(const std::string& filter) {
    return rows("SELECT n FROM t WHERE " + filter);
  }
  // Has every column scanned, so that whatever a scan may keep is there before the next change.
  static void scanAll() {
    EXPECT_EQ(numbersWhere("v = 7"), Texts{"7"});
    EXPECT_EQ(numbersWhere("s = 's7'"), Texts{"7"});
    EXPECT_EQ(numbersWhere("w = 7.5"), Texts{"7"});
    EXPECT_EQ(numbersWhere("n = 7"), Texts{"7"});
  }
};

TEST_F(LargeScans, FollowUpdatesOfEachColumn) {
  scanAll();
  run("UPDATE t SET v = -1 s = 'new' w = -2.5 WHERE n = 300");
  for (const char* const filter : {"v = -1", "v < 0", "s = 'new'", "w = -2.5", "w < 0"}) {
    EXPECT_EQ(numbersWhere(filter), Texts{"300"}) << filter;
  }
  for (const char* const filter : {"v = 300", "s = 's300'", "w = 300.5"}) {
    EXPECT_EQ(numbersWhere(filter), Texts()) << filter;
  }
}

TEST_F(LargeScans, FollowRolledBackUpdatesOfEachColumn) {
  scanAll();
  run("BEGIN");
  run("UPDATE t SET v = -1 s = 'new' w = -2.5 WHERE n = 300");
  run("UPDATE t SET n = -3 WHERE n = 300");
  EXPECT_EQ(numbersWhere("v = -1 && s = 'new' && w = -2.5"), Texts{"-3"});
  EXPECT_EQ(numbersWhere("n = -3"), Texts{"-3"});
  run("ROLLBACK");
  for (const char* const filter : {"v = -1", "v < 0", "s = 'new'", "w = -2.5", "w < 0", "n = -3"}) {
    EXPECT_EQ(numbersWhere(filter), Texts()) << filter;
  }
  for (const char* const filter : {"v = 300", "s = 's300'", "w = 300.5", "n = 300"}) {
    EXPECT_EQ(numbersWhere(filter), Texts{"300"}) << filter;
  }
}

TEST_F(LargeScans, FollowRolledBackInsertsAndDeletes) {
  scanAll();
  run("BEGIN");
  insert(count);
  insert(count + 1);
  run("DELETE FROM t WHERE v = 12");
  const std::string last = std::to_string(count + 1);
  EXPECT_EQ(numbersWhere("v > " + std::to_string(count)), Texts{last});
  EXPECT_EQ(numbersWhere("s = 's" + last + "'"), Texts{last});
  EXPECT_EQ(numbersWhere("v > 10 && v < 14"), (Texts{"11", "13"}));
  run("ROLLBACK");
  EXPECT_EQ(numbersWhere("v >= " + std::to_string(count)), Texts());
  EXPECT_EQ(numbersWhere("v > 10 && v < 14"), (Texts{"11", "12", "13"}));
  // Other rows come into their places.
  insert(5000);
  insert(5001);
  EXPECT_EQ(numbersWhere("v >= " + std::to_string(count)), (Texts{"5000", "5001"}));
  EXPECT_EQ(numbersWhere("s = 's" + last + "'"), Texts());
  EXPECT_EQ(numbersWhere("w > 5000"), (Texts{"5000", "5001"}));
}

TEST_F(LargeScans, FollowJoins) {
  run("CREATE TABLE u v int s string");
  for (int i = 0; i < count; ++i) {
    const std::string number = std::to_string(2 * i);
    run("INSERT INTO u v = " + number + " s = 's" + number + "'");
  }
  const std::string byNumber = "SELECT n FROM t JOIN u ON t.v = u.v WHERE t.n < 9";
  const std::string byText = "SELECT n FROM t JOIN u ON t.s = u.s WHERE t.n < 9";
  const Texts even = {"0", "2", "4", "6", "8"};
  EXPECT_EQ(rows(byNumber), even);
  EXPECT_EQ(rows(byText), even);
  run("BEGIN");
  run("UPDATE t SET v = 1 s = 's1' WHERE n = 4");
  run("UPDATE u SET v = 5 s = 's5' WHERE v = 8");
  EXPECT_EQ(rows(byNumber), (Texts{"0", "2", "5", "6"}));
  EXPECT_EQ(rows(byText), (Texts{"0", "2", "5", "6"}));
  run("ROLLBACK");
  EXPECT_EQ(rows(byNumber), even);
  EXPECT_EQ(rows(byText), even);
}

// A float with more digits than a float can be, and one nearer to zero.
TEST_F(LargeScans, FailAtNumbersOutOfRange) {
  const std::string zeros(50, '0');
  for (const std::string& number : {"1" + zeros, "-1" + zeros, "0." + zeros + "1"}) {
    run("UPDATE t SET w = " + number + " WHERE n = 300");
    for (const char* const filter : {"w > 1", "w < 1", "w >= 7.5", "w <= 7.5"}) {
      EXPECT_THROW(answer(std::string("SELECT n FROM t WHERE ") + filter), std::out_of_range)
          << number << filter;
    }
    EXPECT_EQ(numbersWhere("w = " + number), Texts{"300"});
    EXPECT_EQ(numbersWhere("w = 7.5"), Texts{"7"});
    // No row is compared behind a condition that does not hold.
    EXPECT_EQ(numbersWhere("n < 3 && w > 1"), (Texts{"1", "2"}));
  }
  run("UPDATE t SET w = 0 WHERE n = 300");  // what is no number cannot be saved
}

}  // namespace
}  // namespace velmora
