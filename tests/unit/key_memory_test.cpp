// What the key map asks of memory: nothing for a run of keys nor for taking back what was done to
// one, and what fails for lack of it leaves the map as it was. This program's operator new is
// replaced by one that counts, and fails on request.

#include <gtest/gtest.h>

#include <cstdlib>
#include <map>
#include <new>
#include <random>
#include <string>
#include <vector>

#include "key_map.h"

namespace {

int allocations = 0;
int failingAllocation = 0;  // its number; 0 for none

void* allocate(std::size_t size) {
  if (++allocations == failingAllocation) throw std::bad_alloc();
  void* const memory = std::malloc(size == 0 ? 1 : size);
  if (memory == nullptr) throw std::bad_alloc();
  return memory;
}

}  // namespace

void* operator new(std::size_t size) { return allocate(size); }
void* operator new[](std::size_t size) { return allocate(size); }
void operator delete(void* memory) noexcept { std::free(memory); }
void operator delete[](void* memory) noexcept { std::free(memory); }
void operator delete(void* memory, std::size_t) noexcept { std::free(memory); }
void operator delete[](void* memory, std::size_t) noexcept { std::free(memory); }

namespace velmora {
namespace {

using Entries = std::map<std::string, std::int32_t>;

Entries entriesOf(const PrimaryKeyMap& map) {
  Entries entries;
  for (const std::string& key : map.keys()) entries[key] = map.find(key);
  return entries;
}

// How many allocations a change of the map makes.
template <typename Change>
int allocationsOf(Change change) {
  allocations = 0;
  change();
  return allocations;
}

// The change with its first allocation failing, then the second, and so on until none is left to
// fail; the map is as it was after each failure. Returns how many failed.
template <typename Change>
int failuresOf(const PrimaryKeyMap& map, const Entries& before, Change change) {
  for (int failures = 0;; ++failures) {
    allocations = 0;
    failingAllocation = failures + 1;
    try {
      change();
      failingAllocation = 0;
      return failures;
    } catch (const std::bad_alloc&) {
      failingAllocation = 0;
    }
    EXPECT_EQ(entriesOf(map), before);
  }
}

TEST(KeyMemory, ARunTakesNone) {
  PrimaryKeyMap map("ApexInt");
  std::vector<std::string> keys;
  for (int key = 1; key <= 2000; ++key) keys.push_back(std::to_string(key));
  EXPECT_EQ(allocationsOf([&] {
              for (int row = 0; row < 1000; ++row) map.assign(keys.at(row), row);
              for (int row = 1000; row < 2000; ++row) map.findOrAdd(keys.at(row), row);
              for (int row = 1999; row >= 1500; --row) map.eraseEntry(keys.at(row), row);
            }),
            0);
  EXPECT_EQ(map.size(), 1500U);
}

TEST(KeyMemory, AChangeInARunTakesNoneToBeTakenBack) {
  PrimaryKeyMap map("int");
  for (int row = 0; row < 2000; ++row) map.assign(std::to_string(row), row);
  const Entries before = entriesOf(map);
  for (const char* const key : {"5", "1000", "1999"}) {
    const std::int32_t row = map.find(key);
    map.assign("7777", row);
    map.eraseEntry(key, row);
    EXPECT_EQ(allocationsOf([&] {
                map.eraseEntry("7777", row);
                map.assign(key, row);
              }),
              0);
    EXPECT_EQ(entriesOf(map), before) << key;
  }
  // Nor does the same again.
  EXPECT_EQ(allocationsOf([&] { map.eraseEntry("1000", 1000); }), 0);
  EXPECT_EQ(map.find("1000"), PrimaryKeyMap::noRow);
}

TEST(KeyMemory, AKeyOfARunThatCannotGoStays) {
  PrimaryKeyMap map("int");
  for (int row = 0; row < 10; ++row) map.assign(std::to_string(row), row);
  EXPECT_GT(failuresOf(map, entriesOf(map), [&] { map.eraseEntry("5", 5); }), 0);
  EXPECT_EQ(map.find("5"), PrimaryKeyMap::noRow);
  EXPECT_EQ(map.size(), 9U);
}

// Changes at random, and in ascending and descending order, through blocks that fill and split.
void changeUnderFailures(const std::string& type, const std::string& prefix) {
  std::mt19937 random(7);
  PrimaryKeyMap map(type);
  Entries model;
  int failures = 0;
  for (int step = 0; step < 2400; ++step) {
    const int number = step < 800    ? static_cast<int>(random() % 2000)
                       : step < 1600 ? 3000 + 2 * step
                                     : 9000 - 2 * step;
    const std::string key = prefix + std::to_string(number);
    const auto found = model.find(key);
    if (found != model.end() && step % 2 == 0) {
      failures += failuresOf(map, model, [&] { map.eraseEntry(key, found->second); });
      model.erase(found);
    } else {
      failures += failuresOf(map, model, [&] { map.assign(key, step); });
      model[key] = step;
    }
  }
  EXPECT_EQ(entriesOf(map), model);
  EXPECT_GT(failures, 10);
}

TEST(KeyMemory, FailedChangesOfNumbersLeaveTheMapAsItWas) { changeUnderFailures("int", ""); }

TEST(KeyMemory, FailedChangesOfTextsLeaveTheMapAsItWas) { changeUnderFailures("string", "t"); }

TEST(KeyMemory, FailedChangesOfLongTextsLeaveTheMapAsItWas) {
  changeUnderFailures("string", "a key of more than fifteen bytes ");
}

}  // namespace
}  // namespace velmora
