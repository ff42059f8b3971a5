// The primary-key map: order and equality of keys by type, ranges, and its sorted blocks compared
// with a std::map under random changes.

#include "key_map.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <map>
#include <random>
#include <stdexcept>
#include <string>
#include <vector>

namespace velmora {
namespace {

using Bound = PrimaryKeyMap::Bound;
using Keys = std::vector<std::string>;
using RowIndices = std::vector<std::int32_t>;

PrimaryKeyMap mapOf(const std::string& type, const Keys& keys) {
  PrimaryKeyMap map(type);
  for (std::size_t i = 0; i < keys.size(); ++i) map.assign(keys[i], static_cast<std::int32_t>(i));
  return map;
}

TEST(KeyComparator, ordersIntegersByNumberAndTextsByBytes) {
  for (const char* const type : {"int", "ApexInt"}) {
    const KeyComparator before{type};
    EXPECT_TRUE(before("9", "10")) << type;
    EXPECT_FALSE(before("10", "9")) << type;
    EXPECT_TRUE(before("-1", "0")) << type;
    EXPECT_FALSE(before("7", "07")) << type;
    EXPECT_FALSE(before("07", "7")) << type;
    EXPECT_THROW(before("abc", "1"), std::invalid_argument) << type;
    EXPECT_THROW(before("1", "2147483648"), std::out_of_range) << type;
  }
  for (const char* const type : {"string", "float", "bool", "anything"}) {
    const KeyComparator before{type};
    EXPECT_TRUE(before("10", "9")) << type;
    EXPECT_TRUE(before("07", "7")) << type;
    EXPECT_TRUE(before("a", "ab")) << type;
    EXPECT_TRUE(before("Z", "a")) << type;
    EXPECT_TRUE(before("a", "\xff")) << type;
    EXPECT_FALSE(before("a", "a")) << type;
  }
  EXPECT_EQ(KeyComparator().type, "string");
}

TEST(PrimaryKeyMap, holdsKeysInTheOrderOfTheirType) {
  EXPECT_EQ(mapOf("ApexInt", {"2", "10", "1"}).keys(), (Keys{"1", "2", "10"}));
  EXPECT_EQ(mapOf("int", {"2", "10", "-3", "0"}).keys(), (Keys{"-3", "0", "2", "10"}));
  EXPECT_EQ(mapOf("string", {"2", "10", "1"}).keys(), (Keys{"1", "10", "2"}));
  EXPECT_EQ(mapOf("string", {"b", "", "ab", "a"}).keys(), (Keys{"", "a", "ab", "b"}));
  EXPECT_EQ(PrimaryKeyMap().comparator().type, "string");
  EXPECT_EQ(PrimaryKeyMap("int").comparator().type, "int");
}

TEST(PrimaryKeyMap, takesTextsOfOneNumberForOneKey) {
  PrimaryKeyMap integers("int");
  integers.assign("7", 1);
  EXPECT_EQ(integers.find("07"), 1);
  EXPECT_EQ(integers.find(" +7x"), 1);
  integers.assign("007", 2);
  EXPECT_EQ(integers.size(), 1U);
  EXPECT_EQ(integers.find("7"), 2);
  PrimaryKeyMap texts("string");
  texts.assign("7", 1);
  texts.assign("07", 2);
  EXPECT_EQ(texts.size(), 2U);
  EXPECT_EQ(texts.find("7"), 1);
  EXPECT_EQ(texts.find("007"), PrimaryKeyMap::noRow);
}

TEST(PrimaryKeyMap, forgetsAKeyOnlyForTheRowItNames) {
  PrimaryKeyMap map("int");
  map.assign("5", 1);
  map.eraseEntry("5", 2);
  EXPECT_EQ(map.find("5"), 1);
  map.eraseEntry("6", 1);
  EXPECT_EQ(map.size(), 1U);
  map.eraseEntry("05", 1);
  EXPECT_EQ(map.find("5"), PrimaryKeyMap::noRow);
  EXPECT_EQ(map.size(), 0U);
}

template <typename Error>
std::string failureOf(PrimaryKeyMap& map, const std::string& key) {
  std::string texts;
  const auto note = [&](const auto& call) {
    try {
      call();
      texts += "none ";
    } catch (const Error& error) {
      texts += std::string(error.what()) + ' ';
    }
  };
  note([&] { static_cast<void>(map.find(key)); });
  note([&] { map.assign(key, 9); });
  note([&] { map.eraseEntry(key, 1); });
  note([&] { PrimaryKeyMap::Range(map).narrow(Bound::less, key); });
  return texts;
}

TEST(PrimaryKeyMap, refusesIntegerKeysThatDoNotConvertAndStaysAsItWas) {
  PrimaryKeyMap map = mapOf("int", {"1", "2"});
  EXPECT_EQ(failureOf<std::invalid_argument>(map, "abc"), "stoi stoi stoi stoi ");
  EXPECT_EQ(failureOf<std::invalid_argument>(map, ""), "stoi stoi stoi stoi ");
  EXPECT_EQ(failureOf<std::out_of_range>(map, "2147483648"), "stoi stoi stoi stoi ");
  EXPECT_EQ(map.keys(), (Keys{"1", "2"}));
  PrimaryKeyMap texts("string");
  EXPECT_EQ(failureOf<std::exception>(texts, "abc"), "none none none none ");
}

TEST(PrimaryKeyMap, copiesAreIndependent) {
  PrimaryKeyMap original = mapOf("string", {"a", "b"});
  const PrimaryKeyMap copy = original;
  original.assign("c", 3);
  original.eraseEntry("a", 0);
  EXPECT_EQ(copy.keys(), (Keys{"a", "b"}));
}

RowIndices rowsOf(const PrimaryKeyMap::Range& range) {
  RowIndices rows;
  range.forEachRow([&](std::int32_t row, const auto& /*key*/) { rows.push_back(row); });
  return rows;
}

struct Narrowing {
  Bound bound;
  std::string key;
};

// The rows left by narrowing the range of the keys 10, 20, 30, 40 (rows 0 to 3); row -1 when a
// narrowing said that nothing can match.
RowIndices narrowed(const std::vector<Narrowing>& steps) {
  const PrimaryKeyMap map = mapOf("int", {"10", "20", "30", "40"});
  PrimaryKeyMap::Range range(map);
  for (const Narrowing& step : steps) {
    if (!range.narrow(step.bound, step.key)) return {-1};
  }
  return rowsOf(range);
}

TEST(PrimaryKeyRange, narrowsToTheKeysCompared) {
  EXPECT_EQ(narrowed({}), (RowIndices{0, 1, 2, 3}));
  EXPECT_EQ(narrowed({{Bound::equal, "20"}}), RowIndices{1});
  EXPECT_EQ(narrowed({{Bound::equal, "020"}}), RowIndices{1});
  EXPECT_EQ(narrowed({{Bound::equal, "25"}}), RowIndices{-1});
  EXPECT_EQ(narrowed({{Bound::equal, "50"}}), RowIndices{-1});
  EXPECT_EQ(narrowed({{Bound::greater, "20"}}), (RowIndices{2, 3}));
  EXPECT_EQ(narrowed({{Bound::greater, "25"}}), (RowIndices{2, 3}));
  EXPECT_EQ(narrowed({{Bound::greater, "40"}}), RowIndices{});
  EXPECT_EQ(narrowed({{Bound::greaterOrEqual, "20"}}), (RowIndices{1, 2, 3}));
  EXPECT_EQ(narrowed({{Bound::less, "20"}}), RowIndices{0});
  EXPECT_EQ(narrowed({{Bound::less, "10"}}), RowIndices{});
  EXPECT_EQ(narrowed({{Bound::less, "99"}}), (RowIndices{0, 1, 2, 3}));
  EXPECT_EQ(narrowed({{Bound::lessOrEqual, "20"}}), (RowIndices{0, 1}));
  EXPECT_EQ(narrowed({{Bound::greater, "10"}, {Bound::less, "40"}}), (RowIndices{1, 2}));
  EXPECT_EQ(narrowed({{Bound::greaterOrEqual, "40"}, {Bound::lessOrEqual, "10"}}), RowIndices{});
  EXPECT_EQ(narrowed({{Bound::greater, "40"}, {Bound::less, "10"}}), RowIndices{});
}

TEST(PrimaryKeyRange, laterComparisonReplacesEarlierAtItsEnd) {
  EXPECT_EQ(narrowed({{Bound::greater, "30"}, {Bound::greater, "10"}}), (RowIndices{1, 2, 3}));
  EXPECT_EQ(narrowed({{Bound::less, "20"}, {Bound::lessOrEqual, "30"}}), (RowIndices{0, 1, 2}));
  EXPECT_EQ(narrowed({{Bound::equal, "20"}, {Bound::greater, "20"}}), RowIndices{});
}

TEST(PrimaryKeyRange, ofAnEmptyMapIsEmpty) {
  for (const char* const type : {"int", "string"}) {
    const PrimaryKeyMap map(type);
    PrimaryKeyMap::Range range(map);
    EXPECT_EQ(rowsOf(range), RowIndices{});
    EXPECT_TRUE(range.narrow(Bound::greater, "5"));
    EXPECT_TRUE(range.narrow(Bound::lessOrEqual, "5"));
    EXPECT_FALSE(range.narrow(Bound::equal, "5"));
    EXPECT_EQ(map.find("5"), PrimaryKeyMap::noRow);
  }
}

// A map of the standard library that says what the rows of a range are.
template <typename Key>
RowIndices expectedRows(const std::map<Key, std::int32_t>& model, const Key& from, const Key& to) {
  RowIndices rows;
  for (const auto& [key, row] : model) {
    if (!(key < from) && key < to) rows.push_back(row);
  }
  return rows;
}

RowIndices rowsBetween(const PrimaryKeyMap& map, const std::string& from, const std::string& to) {
  PrimaryKeyMap::Range range(map);
  range.narrow(Bound::greaterOrEqual, from);
  range.narrow(Bound::less, to);
  return rowsOf(range);
}

// Keys that come ascending, descending and in any order, in blocks full and half empty.
TEST(PrimaryKeyMap, agreesWithAStandardMapOfNumbers) {
  std::mt19937 random(1);
  for (const int spread : {1, 3000, 1'000'000}) {
    PrimaryKeyMap map("int");
    std::map<int, std::int32_t> model;
    int next = 0;
    for (int step = 0; step < 12000; ++step) {
      const auto any = static_cast<int>(random() % static_cast<unsigned>(spread));
      const int key = spread == 1 ? next++ : any - spread / 2;
      const std::string text = std::to_string(key);
      if (random() % 4 != 0) {
        map.assign(text, step);
        model[key] = step;
      } else if (!model.empty()) {
        const auto victim = model.lower_bound(key) != model.end() && spread > 1
                                ? model.lower_bound(key)
                                : model.begin();
        map.eraseEntry(std::to_string(victim->first), victim->second);
        model.erase(victim);
      }
      const auto found = model.find(key);
      ASSERT_EQ(map.find(text), found == model.end() ? PrimaryKeyMap::noRow : found->second);
      if (step % 500 == 0) {
        ASSERT_EQ(map.size(), model.size());
        ASSERT_EQ(rowsBetween(map, text, std::to_string(key + spread / 3)),
                  expectedRows(model, key, key + spread / 3));
      }
    }
    Keys keys;
    for (const auto& [key, row] : model) keys.push_back(std::to_string(key));
    ASSERT_EQ(map.keys(), keys);
    while (!model.empty()) {
      const auto last = std::prev(model.end());
      map.eraseEntry(std::to_string(last->first), last->second);
      model.erase(last);
    }
    ASSERT_EQ(map.keys(), Keys{});
  }
}

// Consecutive keys of consecutive rows, as an identity column gives them, and what breaks such
// runs: a key that names another row, one taken out, one put in between.
TEST(PrimaryKeyMap, agreesWithAStandardMapAfterRunsAreBroken) {
  std::mt19937 random(3);
  for (int round = 0; round < 20; ++round) {
    PrimaryKeyMap map("ApexInt");
    std::map<int, std::int32_t> model;
    const auto assign = [&](int key, std::int32_t row) {
      map.assign(std::to_string(key), row);
      model[key] = row;
    };
    constexpr int rows = 2000;
    const int gap = round % 2;
    for (int row = 0; row < rows; ++row) assign(2 * round + row + (row > 700 ? gap : 0), row);
    for (int change = 0; change < 1 + round; ++change) {
      const int key = static_cast<int>(random() % (rows + 50));
      const auto found = model.find(key);
      if (random() % 2 == 0 || found == model.end()) {
        assign(key, static_cast<std::int32_t>(random() % rows));
      } else {
        map.eraseEntry(std::to_string(key), found->second);
        model.erase(found);
      }
    }
    for (int key = 0; key < rows + 100; ++key) {
      const auto found = model.find(key);
      ASSERT_EQ(map.find(std::to_string(key)),
                found == model.end() ? PrimaryKeyMap::noRow : found->second)
          << "round " << round << ", key " << key;
    }
    ASSERT_EQ(rowsBetween(map, "300", "1700"), expectedRows(model, 300, 1700));
  }
}

TEST(PrimaryKeyMap, aRunIsFollowedWhenItsEndComesAndGoes) {
  PrimaryKeyMap map("ApexInt");
  const auto add = [&](int key, std::int32_t row) { map.assign(std::to_string(key), row); };
  const auto find = [&](int key) { return map.find(std::to_string(key)); };
  for (int key = 10; key < 1034; ++key) add(key, key - 10);
  map.eraseEntry("1033", 1023);
  map.eraseEntry("1032", 1022);
  EXPECT_EQ(find(1032), PrimaryKeyMap::noRow);
  EXPECT_EQ(find(1031), 1021);
  add(1032, 1022);
  EXPECT_EQ(find(1032), 1022);
  EXPECT_EQ(find(9), PrimaryKeyMap::noRow);
  EXPECT_EQ(find(-2147483647 - 1), PrimaryKeyMap::noRow);
  EXPECT_EQ(find(2147483647), PrimaryKeyMap::noRow);
  add(1033, 5000);  // its row does not follow
  EXPECT_EQ(find(1032), 1022);
  EXPECT_EQ(find(1033), 5000);
  map.eraseEntry("10", 0);
  EXPECT_EQ(find(10), PrimaryKeyMap::noRow);
  EXPECT_EQ(find(11), 1);
  EXPECT_EQ(find(1033), 5000);
  EXPECT_EQ(map.size(), 1023U);
}

TEST(PrimaryKeyMap, agreesWithAStandardMapOfTexts) {
  std::mt19937 random(2);
  PrimaryKeyMap map("string");
  std::map<std::string, std::int32_t> model;
  for (int step = 0; step < 20000; ++step) {
    std::string key(random() % 20, 'x');
    for (char& c : key) c = static_cast<char>(random() % 3 == 0 ? random() % 256 : 'a');
    if (random() % 4 != 0) {
      map.assign(key, step);
      model[key] = step;
    } else if (const auto victim = model.lower_bound(key); victim != model.end()) {
      map.eraseEntry(victim->first, victim->second);
      model.erase(victim);
    }
    const auto found = model.find(key);
    ASSERT_EQ(map.find(key), found == model.end() ? PrimaryKeyMap::noRow : found->second);
    if (step % 500 == 0) {
      ASSERT_EQ(rowsBetween(map, key, "b"), expectedRows(model, key, std::string("b")));
    }
  }
  Keys keys;
  for (const auto& [key, row] : model) keys.push_back(key);
  ASSERT_EQ(map.keys(), keys);
}

TEST(PrimaryKeyMap, takesDescendingKeysAndTheLimits) {
  PrimaryKeyMap map("int");
  for (int key = 5000; key > 0; --key) map.assign(std::to_string(key), key);
  map.assign("2147483647", 1);
  map.assign("-2147483648", 2);
  EXPECT_EQ(map.size(), 5002U);
  const Keys keys = map.keys();
  EXPECT_EQ(keys.front(), "-2147483648");
  EXPECT_EQ(keys[1], "1");
  EXPECT_EQ(keys[5000], "5000");
  EXPECT_EQ(keys.back(), "2147483647");
  for (int key = 1; key <= 5000; ++key) ASSERT_EQ(map.find(std::to_string(key)), key);
}

}  // namespace
}  // namespace velmora
