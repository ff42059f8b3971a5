// Keys that are consecutive numbers of consecutive rows, as an identity column gives them, in
// several blocks of the key map, and what breaks such runs: a key below a full block or between
// two, keys that go, at the end of a block or elsewhere, and keys that come to name another row.
// First the map alone, compared with a std::map; then the same by commands.

#include <algorithm>
#include <limits>
#include <map>
#include <type_traits>

#include "engine_fixture.h"
#include "key_map.h"

namespace velmora {
namespace {

using Bound = PrimaryKeyMap::Bound;
using RowIndices = std::vector<std::int32_t>;

constexpr int blockSize = 512;

// A key map and what it has to agree with.
class ComparedMap {
 public:
  void add(int key, std::int32_t row) {
    map_.assign(std::to_string(key), row);
    model_[key] = row;
  }
  void addRun(int firstKey, std::int32_t firstRow, int count) {
    for (int i = 0; i < count; ++i) add(firstKey + i, firstRow + i);
  }
  void erase(int key) {
    map_.eraseEntry(std::to_string(key), model_.at(key));
    model_.erase(key);
  }

  // Compares every key by itself, and the ranges that begin and end near each of the keys given.
  void expectEqual(const std::vector<int>& near) const {
    ASSERT_EQ(map_.size(), model_.size());
    std::vector<std::string> texts;
    for (const auto& [key, row] : model_) texts.push_back(std::to_string(key));
    ASSERT_EQ(map_.keys(), texts);
    for (int key = model_.begin()->first - 3; key <= model_.rbegin()->first + 3; ++key) {
      const auto found = model_.find(key);
      const std::int32_t row = found == model_.end() ? PrimaryKeyMap::noRow : found->second;
      ASSERT_EQ(map_.find(std::to_string(key)), row) << key;
      ASSERT_EQ(equalTo(key), found == model_.end() ? RowIndices() : RowIndices{row}) << key;
    }
    for (const int from : near) {
      for (const int to : near) ASSERT_EQ(between(from, to), expectedBetween(from, to)) << from;
    }
  }

 private:
  RowIndices equalTo(int key) const {
    PrimaryKeyMap::Range range(map_);
    RowIndices rows;
    if (!range.narrow(Bound::equal, std::to_string(key))) return rows;
    range.forEachRow([&](std::int32_t row, const auto&) { rows.push_back(row); });
    return rows;
  }
  // Each row and its key: the range from one key up to another and with it.
  std::vector<std::pair<int, std::int32_t>> between(int from, int to) const {
    PrimaryKeyMap::Range range(map_);
    range.narrow(Bound::greaterOrEqual, std::to_string(from));
    range.narrow(Bound::lessOrEqual, std::to_string(to));
    std::vector<std::pair<int, std::int32_t>> found;
    range.forEachRow([&](std::int32_t row, const auto& key) {
      if constexpr (std::is_integral_v<std::decay_t<decltype(key)>>) found.emplace_back(key, row);
    });
    return found;
  }
  std::vector<std::pair<int, std::int32_t>> expectedBetween(int from, int to) const {
    if (to < from) return {};
    return {model_.lower_bound(from), model_.upper_bound(to)};
  }

  PrimaryKeyMap map_ = PrimaryKeyMap("int");
  std::map<int, std::int32_t> model_;
};

// The keys about the ends and middles of four blocks that begin at these keys.
std::vector<int> keysNear(const std::vector<int>& firsts) {
  std::vector<int> keys;
  for (const int first : firsts) {
    for (const int middle : {first, first + blockSize / 2, first + blockSize}) {
      for (int key = middle - 2; key <= middle + 1; ++key) keys.push_back(key);
    }
  }
  return keys;
}

TEST(KeyRuns, AKeyBelowAFullRunSplitsIt) {
  for (const int blocks : {1, 2, 3}) {
    for (const int count : {blocks * blockSize, blocks * blockSize + 7}) {
      for (const std::int32_t firstRow : {0, 40}) {
        ComparedMap map;
        map.addRun(100, firstRow, count);
        map.add(98, 5000);
        map.expectEqual(keysNear({100, 100 + blockSize}));
        // The lower half is followed by what was below it, and goes on.
        map.add(97, 5001);
        map.add(100 + count, firstRow + count);
        map.add(99, 5002);
        map.expectEqual(keysNear({100, 100 + blockSize}));
      }
    }
  }
}

TEST(KeyRuns, AKeyInAGapSplitsTheRunBehindIt) {
  const std::vector<int> firsts = {0, 1000, 2000, 3000};
  for (std::size_t split = 1; split < firsts.size(); ++split) {
    // Right behind the block before, in the middle of the gap, right in front of the block.
    for (const int key : {firsts[split - 1] + blockSize, firsts[split] - 200, firsts[split] - 1}) {
      ComparedMap map;
      std::int32_t row = 0;
      for (const int first : firsts) {
        map.addRun(first, row, blockSize);
        row += blockSize;
      }
      map.add(key, row);
      map.expectEqual(keysNear(firsts));
      map.add(-1, row + 1);
      map.expectEqual(keysNear(firsts));
    }
  }
}

TEST(KeyRuns, AKeyPutBackIntoAFullBlockSplitsIt) {
  for (const int block : {0, 1, 2}) {
    for (const int place : {0, 1, 255, 256, 257, 510, 511}) {
      const int key = block * blockSize + place;
      for (const std::int32_t row : {key, 9000}) {
        ComparedMap map;
        map.addRun(0, 0, 3 * blockSize + 5);
        map.erase(key);
        map.expectEqual(keysNear({0, 512, 1024}));
        map.add(key, row);
        map.expectEqual(keysNear({0, 512, 1024}));
      }
    }
  }
}

TEST(KeyRuns, EntriesAtTheEndsOfBlocksGo) {
  for (const int block : {0, 1, 2}) {
    for (const bool fromTheEnd : {true, false}) {
      ComparedMap map;
      map.addRun(0, 0, 3 * blockSize);
      const int first = block * blockSize;
      for (int i = 0; i < 3; ++i) {
        map.erase(fromTheEnd ? first + blockSize - 1 - i : first + i);
        map.expectEqual(keysNear({0, 512, 1024}));
      }
      map.add(3 * blockSize, 3 * blockSize);
      map.add(-7, 7000);
      map.expectEqual(keysNear({0, 512, 1024}));
    }
  }
}

TEST(KeyRuns, AWholeBlockGoes) {
  for (const int block : {0, 1, 2}) {
    ComparedMap map;
    map.addRun(0, 0, 3 * blockSize);
    for (int i = 0; i < blockSize; ++i) map.erase(block * blockSize + i);
    map.expectEqual(keysNear({0, 512, 1024}));
    map.add(block * blockSize + 100, 8000);
    map.expectEqual(keysNear({0, 512, 1024}));
  }
}

TEST(KeyRuns, EntriesComeToNameAnotherRow) {
  for (const int key : {0, 1, 511, 512, 700, 1023, 1024, 1535, 1540}) {
    ComparedMap map;
    map.addRun(0, 0, 3 * blockSize + 5);
    map.add(key, 9000);
    map.expectEqual(keysNear({0, 512, 1024}));
    map.add(-1, 9001);
    map.expectEqual(keysNear({0, 512, 1024}));
  }
}

TEST(KeyRuns, EndAtTheLimitsOfNumbers) {
  constexpr int most = std::numeric_limits<int>::max();
  constexpr int least = std::numeric_limits<int>::min();
  PrimaryKeyMap map("int");
  for (int i = 0; i < 600; ++i) map.assign(std::to_string(most - 599 + i), i);
  EXPECT_EQ(map.find(std::to_string(most)), 599);
  EXPECT_EQ(map.find(std::to_string(most - 600)), PrimaryKeyMap::noRow);
  EXPECT_EQ(map.find(std::to_string(least)), PrimaryKeyMap::noRow);
  EXPECT_EQ(map.find(std::to_string(least + 1)), PrimaryKeyMap::noRow);
  map.assign(std::to_string(least), 600);
  EXPECT_EQ(map.find(std::to_string(least)), 600);
  EXPECT_EQ(map.find(std::to_string(most)), 599);
  EXPECT_EQ(map.find(std::to_string(most - 599)), 0);
  EXPECT_EQ(map.find("0"), PrimaryKeyMap::noRow);
}

// A parent table of which LINK made the numbers keys, and what it should hold: by number, its name.
class KeyRunCommands : public EngineTest {
 protected:
  KeyRunCommands() {
    run("CREATE TABLE parents id int name string");
    run("CREATE TABLE children parent int");
    run("LINK children . parent --> parents . id");
  }

  void insert(int id) {
    const std::string name = "p" + std::to_string(model_.size()) + "of" + std::to_string(id);
    run("INSERT INTO parents id = " + std::to_string(id) + " name = '" + name + "'");
    model_[id] = '"' + name + '"';
    order_.push_back(id);
  }
  void insertRun(int first, int count) {
    for (int i = 0; i < count; ++i) insert(first + i);
  }
  void remove(int id) {
    run("DELETE FROM parents WHERE id = " + std::to_string(id));
    model_.erase(id);
  }
  void move(int from, int to) {
    run("UPDATE parents SET id = " + std::to_string(to) + " WHERE id = " + std::to_string(from));
    model_[to] = model_.at(from);
    model_.erase(from);
    *std::find(order_.begin(), order_.end(), from) = to;
  }

  // Reads the names by each number, by ranges and by a join, and compares them.
  void expectEqual() {
    const int first = model_.begin()->first;
    const int last = model_.rbegin()->first;
    for (int id = first - 2; id <= last + 2; ++id) {
      const std::string text = std::to_string(id);
      const auto found = model_.find(id);
      const Texts names = found == model_.end() ? Texts() : Texts{found->second};
      ASSERT_EQ(rows("SELECT name FROM parents WHERE id = " + text), names) << id;
      ASSERT_EQ(rows("SELECT name FROM parents WHERE id >= " + text + " && id <= " + text), names);
    }
    for (int from = first - 1; from < last; from += 101) {
      const int to = from + 300;
      ASSERT_EQ(rows("SELECT name FROM parents WHERE id > " + std::to_string(from) + " && id < " +
                     std::to_string(to)),
                namesBetween(from, to));
    }
    ASSERT_EQ(rows("SELECT name FROM parents WHERE id > " + std::to_string(first)),
              namesBetween(first, last + 1));
    // Every second one has a child, which only a key that is found lets in.
    Texts pairs;
    for (const auto& [id, name] : model_) {
      if (id % 2 != 0) continue;
      run("INSERT INTO children parent = " + std::to_string(id));
      pairs.push_back(std::to_string(id) + ' ' + name);
    }
    ASSERT_EQ(rows("SELECT children.parent, parents.name FROM children JOIN parents "
                   "ON children.parent = parents.id"),
              pairs);
    EXPECT_EQ(messageOf("INSERT INTO children parent = " + std::to_string(last + 1)),
              "Error: Primary table is missing required future key: " + std::to_string(last + 1));
    run("DELETE FROM children");
  }

 private:
  // In the order of the rows.
  Texts namesBetween(int from, int to) const {
    Texts names;
    for (const int id : order_) {
      const auto found = model_.find(id);
      if (from < id && id < to && found != model_.end()) names.push_back(found->second);
    }
    return names;
  }

  std::map<int, std::string> model_;
  std::vector<int> order_;  // of the rows, by their numbers
};

TEST_F(KeyRunCommands, FindRowsBehindAKeyBelowARun) {
  insertRun(10, 3 * blockSize + 3);
  insert(8);
  expectEqual();
  insert(9);
  insert(2000);
  expectEqual();
}

TEST_F(KeyRunCommands, FindRowsBehindAKeyBetweenRuns) {
  insertRun(0, blockSize);
  insertRun(600, blockSize);
  insertRun(1200, blockSize);
  insert(1199);
  expectEqual();
  insert(550);
  expectEqual();
}

TEST_F(KeyRunCommands, FindRowsWhoseKeysMoveBetweenBlocks) {
  insertRun(0, 2 * blockSize + 3);
  move(blockSize - 1, 3000);
  move(blockSize, -1);
  move(2 * blockSize - 1, -2);
  expectEqual();
  move(300, blockSize);
  move(0, blockSize - 1);
  expectEqual();
}

TEST_F(KeyRunCommands, FindWhatIsLeftOfARun) {
  insertRun(1, 2 * blockSize + 3);
  for (const int id : {1, 256, 257, blockSize, blockSize + 1, 2 * blockSize, 2 * blockSize + 3}) {
    remove(id);
  }
  expectEqual();
  insert(0);
  remove(2);
  expectEqual();
}

TEST_F(KeyRunCommands, FindRowsOfARolledBackInsert) {
  insertRun(10, 2 * blockSize);
  run("BEGIN");
  run("INSERT INTO parents id = 9 name = 'below'");
  run("UPDATE parents SET id = 8 WHERE id = " + std::to_string(9 + blockSize));
  run("ROLLBACK");
  expectEqual();
}

}  // namespace
}  // namespace velmora
