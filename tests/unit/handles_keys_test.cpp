// A prepared SELECT by key, run again and again: what it keeps of where rows lie is never told
// where it is no longer so.
#include "handle_fixture.h"

namespace handles {
namespace {

class HandleKeys : public HandleTest {
 protected:
  ~HandleKeys() override { velmora_statement_destroy(statement_); }

  void prepare(std::string_view text) {
    velmora_statement_destroy(statement_);
    ASSERT_EQ(velmora_prepare(db, text.data(), text.size(), &statement_, nullptr), VELMORA_OK);
  }
  void bind(const Bound& key) { ASSERT_EQ(velmora_bind(statement_, 1, &key, nullptr), VELMORA_OK); }
  std::string answer() {
    velmora_result* result = nullptr;
    velmora_error* error = nullptr;
    const int code = velmora_statement_run(statement_, &result, &error);
    if (code != VELMORA_OK) return shown(code, error);
    const std::string text = shown(result);
    velmora_result_destroy(result);
    return text;
  }
  std::string find(const Bound& key) {
    bind(key);
    return answer();
  }
  // Rows of every type, numbered from `first` on.
  void insert(int first, int last) {
    ASSERT_EQ(run("BEGIN"), "0 rows");
    for (int i = first; i <= last; ++i) {
      const std::string n = std::to_string(i);
      run("INSERT INTO t s = 's" + n + "' n = " + n + " f = 0.5 b = true l = 5" + n + " d = 0.25");
    }
    ASSERT_EQ(run("COMMIT"), "0 rows");
  }
  void makeTable(int rows) {
    run("CREATE TABLE t id ApexInt s string n int f float b bool l long d double");
    insert(1, rows);
  }
  static std::string rowOf(int i) {
    const std::string n = std::to_string(i);
    return n + " s" + n + " " + n + " 0.5 true 5" + n + " 0.25";
  }
  void expectRows(int first, int last) {
    for (int i = first; i <= last; ++i) ASSERT_EQ(find(i), rowOf(i));
  }

  velmora_statement* statement_ = nullptr;
};

TEST_F(HandleKeys, FindRowsOfATableThatGrows) {
  makeTable(3);
  prepare("SELECT * FROM t WHERE id = ?");
  int last = 3;
  for (const int more : {5, 70, 300, 1500, 2500, 5000}) {
    expectRows(1, last);
    bind(last);
    insert(last + 1, more);
    EXPECT_EQ(answer(), rowOf(last));
    EXPECT_EQ(find(more), rowOf(more));
    EXPECT_EQ(find(more + 1), "");
    EXPECT_EQ(find(-1), "");
    last = more;
  }
  expectRows(1, last);
}

TEST_F(HandleKeys, FindWhatRowsAreNow) {
  makeTable(3000);
  prepare("SELECT * FROM t WHERE id = ?");
  expectRows(1, 5);
  bind(3);
  run("UPDATE t SET s = 'a text that does not fit into a cell' n = NULL f = NULL b = NULL "
      "WHERE id = 3");
  EXPECT_EQ(answer(), "3 'a text that does not fit into a cell' NULL NULL NULL 53 0.25");
  run("UPDATE t SET s = 'NULL' WHERE id = 4");
  EXPECT_EQ(find(4), "4 NULL 4 0.5 true 54 0.25");
  bind(5);
  run("DELETE FROM t WHERE id = 5");
  EXPECT_EQ(answer(), "");
  EXPECT_EQ(find(6), rowOf(6));
  bind(7);
  run("VACUUM t");
  EXPECT_EQ(answer(), rowOf(7));
  expectRows(6, 3000);
  bind(8);
  run("DROP TABLE t");
  EXPECT_EQ(answer().substr(0, 4), "! 4 ");
  run("CREATE TABLE t id ApexInt s string");
  run("INSERT INTO t s = 'other'");
  EXPECT_EQ(find(1), "1 other");
  EXPECT_EQ(find(8), "");
}

TEST_F(HandleKeys, FindKeysInAnyOrderAndOfAnyType) {
  makeTable(100);
  prepare("SELECT s, id FROM t WHERE id = ?");
  EXPECT_EQ(find(1), "s1 1");
  EXPECT_EQ(find(2), "s2 2");
  EXPECT_EQ(find(3.0), "s3 3");
  EXPECT_EQ(find(3.5), "");
  EXPECT_EQ(find(Bound()), "");
  EXPECT_EQ(find("3").substr(0, 4), "! 9 ");
  EXPECT_EQ(find(INT64_MIN), "");
  EXPECT_EQ(find(INT64_MAX), "");
  EXPECT_EQ(find(100), "s100 100");
}

TEST_F(HandleKeys, FindKeysThatChange) {
  run("CREATE TABLE t k int n int");
  run("CREATE TABLE c id ApexInt t int");
  EXPECT_EQ(run("LINK c.t --> t.k"), "0 rows");
  const std::vector<int> keys = {10, 11, 12, 13, 70, 3, 71, 72, 4};
  for (const int key : keys) {
    EXPECT_EQ(run("INSERT INTO t k = ? n = ?", {key, 2 * key}), "1 row");
  }
  prepare("SELECT k, n FROM t WHERE k = ?");
  for (int round = 0; round < 3; ++round) {
    for (const int key : keys) {
      const std::string expected = std::to_string(key) + " " + std::to_string(2 * key);
      EXPECT_EQ(find(key), expected);
      EXPECT_EQ(find(key), expected);
    }
  }
  EXPECT_EQ(find(11), "11 22");
  EXPECT_EQ(find(12), "12 24");
  bind(13);
  EXPECT_EQ(run("UPDATE t SET k = 14 WHERE k = 13"), "1 row");
  EXPECT_EQ(answer(), "");
  EXPECT_EQ(find(14), "14 26");
  EXPECT_EQ(run("UPDATE t SET k = 13 WHERE k = 70"), "1 row");
  EXPECT_EQ(find(12), "12 24");
  EXPECT_EQ(find(13), "13 140");
}

TEST_F(HandleKeys, FindTimedValuesAtTheirSecond) {
  run("CREATE TABLE t id ApexInt s string 3 n int");
  for (int i = 1; i <= 4; ++i) run("INSERT INTO t s = 'a' n = 1");
  prepare("SELECT s, n FROM t WHERE id = ?");
  EXPECT_EQ(find(1), "a 1");
  EXPECT_EQ(find(2), "a 1");
  EXPECT_EQ(find(3), "a 1");
  run("UPDATE t SET s = 'b' --> 'c' @ 5 s WHERE id = 3");
  EXPECT_EQ(find(3), "b 1");
  EXPECT_EQ(find(2), "a 1");
  second += 5;
  EXPECT_EQ(find(3), "c 1");
  prepare("SELECT s FROM t WHERE id = ? LIMIT ?");
  const Bound none(0);
  velmora_bind(statement_, 2, &none, nullptr);
  for (int i = 1; i <= 4; ++i) EXPECT_EQ(find(i), "");
}

}  // namespace
}  // namespace handles
