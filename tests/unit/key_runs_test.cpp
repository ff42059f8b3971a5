// Keys that are consecutive numbers of consecutive rows, as an identity column gives them, and what
// comes beside such a run: a key below it or behind a gap, keys that go, at its end or elsewhere,
// and keys that come to name another row. First the run alone, then the map, compared with a
// std::map, in sizes at which the keys beside the run fill several blocks; then the same by
// commands.

#include <algorithm>
#include <limits>
#include <map>
#include <random>
#include <type_traits>

#include "engine_fixture.h"
#include "key_map.h"
#include "key_run.h"

namespace velmora {
namespace {

using Bound = PrimaryKeyMap::Bound;
using RowIndices = std::vector<std::int32_t>;

constexpr int blockSize = 512;
constexpr int most = std::numeric_limits<int>::max();
constexpr int least = std::numeric_limits<int>::min();

using Entries = std::vector<std::pair<std::int32_t, std::int32_t>>;  // of key and row

Entries entriesOf(const KeyRun& run, std::int64_t from, std::int64_t to) {
  Entries entries;
  const auto note = [&](std::int32_t row, std::int32_t key) { entries.emplace_back(key, row); };
  run.forEachRow(from, to, note);
  return entries;
}

TEST(KeyRun, TakesTheNextKeyOfTheNextRow) {
  KeyRun run;
  EXPECT_EQ(run.rowOf(0), KeyRun::noRow);
  EXPECT_TRUE(run.take(7, 3));
  EXPECT_TRUE(run.take(8, 4));
  EXPECT_TRUE(run.take(7, 3)) << "known already";
  EXPECT_FALSE(run.take(9, 4));
  EXPECT_FALSE(run.take(10, 6));
  EXPECT_FALSE(run.take(6, 2));
  EXPECT_FALSE(run.take(8, 5));
  EXPECT_EQ(entriesOf(run, least, most), (Entries{{7, 3}, {8, 4}}));
  EXPECT_EQ(run.rowOf(8), 4);
  EXPECT_EQ(run.rowOf(9), KeyRun::noRow);
  EXPECT_EQ(run.rowOf(6), KeyRun::noRow);
}

TEST(KeyRun, DropsItsLastKeyAloneAndBeginsAnewWhenItIsEmpty) {
  KeyRun run;
  run.dropIfLast(-1);
  run.take(7, 3);
  run.take(8, 4);
  run.dropIfLast(7);
  run.dropIfLast(9);
  EXPECT_EQ(entriesOf(run, least, most), (Entries{{7, 3}, {8, 4}}));
  run.dropIfLast(8);
  run.dropIfLast(7);
  EXPECT_FALSE(run.holds(7));
  EXPECT_TRUE(run.take(-5, 0));
  EXPECT_EQ(entriesOf(run, least, most), (Entries{{-5, 0}}));
}

TEST(KeyRun, VisitsWhatLiesWithinARange) {
  KeyRun run;
  for (int i = 0; i < 4; ++i) run.take(10 + i, i);
  EXPECT_EQ(entriesOf(run, 11, 13), (Entries{{11, 1}, {12, 2}}));
  EXPECT_EQ(entriesOf(run, 0, 11), (Entries{{10, 0}}));
  EXPECT_EQ(entriesOf(run, 13, 99), (Entries{{13, 3}}));
  EXPECT_EQ(entriesOf(run, 14, 99), Entries{});
  EXPECT_EQ(entriesOf(run, 12, 12), Entries{});
  EXPECT_EQ(entriesOf(run, 13, 11), Entries{});
}

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
  void findOrAdd(int key, std::int32_t row) {
    const auto [entry, isNew] = model_.try_emplace(key, row);
    const std::int32_t holder = isNew ? PrimaryKeyMap::noRow : entry->second;
    ASSERT_EQ(map_.findOrAdd(std::to_string(key), row), holder) << key;
  }
  void erase(int key) {
    map_.eraseEntry(std::to_string(key), model_.at(key));
    model_.erase(key);
  }
  // Asks to forget a key that names another row than this, or none.
  void eraseOfAnotherRow(int key) { map_.eraseEntry(std::to_string(key), 999'999); }

  const std::map<int, std::int32_t>& model() const { return model_; }

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

// The keys about the ends and middles of stretches, as long as a block, that begin at these keys.
std::vector<int> keysNear(const std::vector<int>& firsts) {
  std::vector<int> keys;
  for (const int first : firsts) {
    for (const int middle : {first, first + blockSize / 2, first + blockSize}) {
      for (int key = middle - 2; key <= middle + 1; ++key) keys.push_back(key);
    }
  }
  return keys;
}

TEST(KeyRuns, AKeyBelowARunIsFoundBesideIt) {
  for (const int blocks : {1, 2, 3}) {
    for (const int count : {blocks * blockSize, blocks * blockSize + 7}) {
      for (const std::int32_t firstRow : {0, 40}) {
        ComparedMap map;
        map.addRun(100, firstRow, count);
        map.add(98, 5000);
        map.expectEqual(keysNear({100, 100 + blockSize}));
        map.add(97, 5001);
        map.add(100 + count, firstRow + count);
        map.add(99, 5002);
        map.expectEqual(keysNear({100, 100 + blockSize}));
      }
    }
  }
}

TEST(KeyRuns, AKeyInAGapIsFoundBetweenItsNeighbours) {
  const std::vector<int> firsts = {0, 1000, 2000, 3000};
  for (std::size_t split = 1; split < firsts.size(); ++split) {
    // Right behind the keys before, in the middle of the gap, right in front of the next keys.
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

TEST(KeyRuns, AKeyPutBackNamesTheRowItCameWith) {
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

TEST(KeyRuns, NeighboursGoOneByOne) {
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

TEST(KeyRuns, AStretchGoes) {
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

TEST(KeyRuns, BeginAtTheLimitsOfNumbers) {
  PrimaryKeyMap map("int");
  map.assign(std::to_string(least), 0);
  map.assign(std::to_string(least + 1), 1);
  map.assign(std::to_string(most), 2);
  PrimaryKeyMap::Range range(map);
  const auto expectRows = [&](const RowIndices& expected) {
    RowIndices rows;
    range.forEachRow([&](std::int32_t row, const auto&) { rows.push_back(row); });
    EXPECT_EQ(rows, expected);
  };
  expectRows({0, 1, 2});
  range.narrow(Bound::greater, std::to_string(least));
  expectRows({1, 2});
  range.narrow(Bound::less, std::to_string(most));
  expectRows({1});
  range.narrow(Bound::lessOrEqual, std::to_string(most));
  expectRows({1, 2});
  range.narrow(Bound::greater, std::to_string(most));
  expectRows({});
}

TEST(KeyRuns, EndBelowAKeyThatHasGone) {
  ComparedMap map;
  map.addRun(10, 0, 6);
  for (const int key : {13, 14, 15, 12}) map.erase(key);
  map.expectEqual({9, 10, 12, 15, 17});
  map.add(15, 5);
  map.add(16, 6);
  map.add(14, 4);
  map.expectEqual({9, 10, 12, 15, 17});
  map.add(13, 70);
  map.add(12, 2);
  map.expectEqual({9, 10, 12, 15, 17});
}

TEST(KeyRuns, BeginAnewInFrontOfKeysThatAreThereAlready) {
  ComparedMap map;
  map.add(50, 0);
  map.add(12, 8);
  map.add(13, 3);
  map.erase(50);
  map.addRun(10, 0, 2);
  map.expectEqual({9, 10, 11, 12, 13, 50});
  map.addRun(12, 2, 4);
  map.expectEqual({9, 10, 11, 12, 13, 50});
  for (const int key : {15, 12, 10}) map.erase(key);
  map.addRun(15, 5, 2);
  map.expectEqual({9, 10, 11, 12, 13, 16, 50});
}

constexpr int firstOfRun = 1000;  // names row 0

// One random change of what the map holds, at the end of the run or anywhere.
void changeAtRandom(ComparedMap& map, int& endOfRun, std::mt19937& random) {
  const auto below = [&](int limit) {
    return static_cast<int>(random() % static_cast<unsigned>(limit));
  };
  const int key = below(endOfRun + 1000);
  const auto present = map.model().lower_bound(key);
  const bool isAny = present != map.model().end();
  switch (below(8)) {
    case 0:
      return map.add(key, below(9000));
    case 1:
      return map.findOrAdd(key, below(9000));
    case 2:
      return map.add(std::max(key, firstOfRun), std::max(key, firstOfRun) - firstOfRun);
    case 3:
      for (int i = below(20); i > 0; --i, ++endOfRun) map.add(endOfRun, endOfRun - firstOfRun);
      return;
    case 4:
      for (int i = below(20); i > 0 && endOfRun > firstOfRun; --i) {
        if (map.model().contains(--endOfRun)) map.erase(endOfRun);
      }
      return;
    case 5:
      return map.eraseOfAnotherRow(key);
    default:
      if (isAny) map.erase(present->first);
  }
}

TEST(KeyRuns, AgreeWithAStandardMapThroughRandomChanges) {
  for (unsigned seed = 1; seed <= 12; ++seed) {
    SCOPED_TRACE("seed " + std::to_string(seed));
    std::mt19937 random(seed);
    ComparedMap map;
    int endOfRun = firstOfRun + static_cast<int>(random() % 4000) + 1;
    map.addRun(firstOfRun, 0, endOfRun - firstOfRun);
    for (int round = 0; round < 8; ++round) {
      for (int change = 0; change < 500; ++change) changeAtRandom(map, endOfRun, random);
      map.add(6500, 6500);  // so that none is compared empty
      std::vector<int> near;
      for (int i = 0; i < 12; ++i) near.push_back(static_cast<int>(random() % 7000));
      ASSERT_NO_FATAL_FAILURE(map.expectEqual(near));
    }
  }
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
