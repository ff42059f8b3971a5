// The primary-key map: from a key's text to the index of the row that bears it, in key order.
//
// Integer keys are parsed once and kept as numbers, so "7" and "07" are one key; all other keys are
// kept as texts. Numbers that come as an identity column gives them are a run and take no memory;
// all others, and all texts, lie in sorted blocks: searching is two binary searches in contiguous
// arrays, adding moves at most one block, and keys that arrive in ascending order fill the blocks
// completely.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <iterator>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "cell.h"
#include "key_run.h"

namespace velmora {

// The order of key texts in a column of a type: numeric for "int" and "ApexInt" (throwing what
// std::stoi throws), byte by byte for every other.
struct KeyComparator {
  std::string type = "string";
  bool operator()(std::string_view a, std::string_view b) const;
};

// Sorted unique keys, each with a row index; a View is what a key is looked for by. A function that
// throws (std::bad_alloc) has changed nothing that a caller can see.
template <typename Key, typename View>
class SortedBlocks {
 public:
  // A place among the entries. The end of a block is the beginning of the next.
  struct Place {
    std::size_t block = 0;
    std::size_t entry = 0;
  };
  Place end() const noexcept { return {blocks_.size(), 0}; }
  bool isEmpty() const noexcept { return blocks_.empty(); }
  // Without what keys have elsewhere.
  std::size_t memoryBytes() const noexcept {
    return blocks_.size() * (sizeof(Block) + blockCapacity * (sizeof(Key) + sizeof(std::int32_t)));
  }

  // Where the key is, or belongs: the first entry not less than it.
  Place placeOf(View key) const noexcept {
    if (blocks_.empty()) return end();
    // Keys that arrive in ascending order belong behind the last one.
    const Block& last = blocks_.back();
    if (last.keys.back() < key) return {blocks_.size() - 1, last.keys.size()};
    const auto next =
        std::upper_bound(blocks_.begin() + 1, blocks_.end(), key,
                         [](View wanted, const Block& block) { return wanted < block.least; });
    const std::vector<Key>& keys = std::prev(next)->keys;
    const auto entry = std::lower_bound(keys.begin(), keys.end(), key);
    return {static_cast<std::size_t>(next - blocks_.begin() - 1),
            static_cast<std::size_t>(entry - keys.begin())};
  }
  bool holds(Place at, View key) const noexcept {
    return at.block < blocks_.size() && at.entry < blocks_[at.block].keys.size() &&
           blocks_[at.block].keys[at.entry] == key;
  }
  // The row of the key; that of a key that is not here is the other one.
  std::int32_t rowOf(View key, std::int32_t otherwise = KeyRun::noRow) const noexcept {
    const Place at = placeOf(key);
    return holds(at, key) ? blocks_[at.block].rows[at.entry] : otherwise;
  }

  // Adds the key, or makes it name another row.
  void assign(View key, std::int32_t row) {
    const Place at = placeOf(key);
    if (holds(at, key)) {
      blocks_[at.block].rows[at.entry] = row;
    } else {
      insert(at, static_cast<Key>(key), row);
    }
  }

  // Forgets the key if it is there.
  void erase(View key) noexcept {
    const Place at = placeOf(key);
    if (!holds(at, key)) return;
    Block& block = blocks_[at.block];
    block.keys.erase(block.keys.begin() + offset(at.entry));
    block.rows.erase(block.rows.begin() + offset(at.entry));
    if (block.keys.empty()) blocks_.erase(blocks_.begin() + offset(at.block));
  }

  // Calls use(row, key) for the entries from `from` up to but without `to`; nothing when `to` is
  // not behind `from`.
  template <typename Use>
  void forEachRow(Place from, Place to, Use& use) const {
    for (std::size_t b = from.block; b < blocks_.size() && b <= to.block; ++b) {
      const Block& block = blocks_[b];
      const std::size_t first = b == from.block ? from.entry : 0;
      const std::size_t last = b == to.block ? to.entry : block.rows.size();
      for (std::size_t i = first; i < last; ++i) use(block.rows[i], block.keys[i]);
    }
  }

 private:
  static constexpr std::size_t blockCapacity = 512;
  struct Block {
    explicit Block(const Key& key) : least(key) { makeRoom(); }
    void makeRoom() {
      keys.reserve(blockCapacity);
      rows.reserve(blockCapacity);
    }
    // All keys in the blocks before are less, and none is here; of no account in the first block.
    Key least;
    std::vector<Key> keys;
    std::vector<std::int32_t> rows;
  };

  static std::ptrdiff_t offset(std::size_t index) { return static_cast<std::ptrdiff_t>(index); }

  void insert(Place at, Key key, std::int32_t row) {
    if (blocks_.empty() || (at.block + 1 == blocks_.size() && at.entry == blockCapacity)) {
      blocks_.emplace_back(key);
      at = {blocks_.size() - 1, 0};
    } else if (blocks_[at.block].keys.size() == blockCapacity) {
      split(at.block);
      at = placeOf(key);
    }
    Block& block = blocks_[at.block];
    block.makeRoom();  // it has, unless it is a copy; nothing below can fail then
    block.keys.insert(block.keys.begin() + offset(at.entry), std::move(key));
    block.rows.insert(block.rows.begin() + offset(at.entry), row);
  }

  // Moves the upper half of a full block into a new one.
  void split(std::size_t index) {
    constexpr std::ptrdiff_t half = blockCapacity / 2;
    blocks_.emplace(blocks_.begin() + offset(index + 1), blocks_[index].keys[half]);
    Block& lower = blocks_[index];
    Block& upper = blocks_[index + 1];
    upper.keys.assign(std::make_move_iterator(lower.keys.begin() + half),
                      std::make_move_iterator(lower.keys.end()));
    upper.rows.assign(lower.rows.begin() + half, lower.rows.end());
    lower.keys.resize(half);
    lower.rows.resize(half);
  }

  std::vector<Block> blocks_;  // none is empty
};

// Integer keys: a run, and in blocks beside it every key that the run did not take. What the blocks
// say of a key goes before what the run says, so one in the middle of the run changes or goes at
// the cost of one entry, and the run stays. Failures are as in the blocks.
class NumberKeys {
 public:
  std::int32_t rowOf(std::int64_t key) const noexcept {
    return others_.rowOf(key, run_.rowOf(key));
  }

  // Adds the key, or makes it name another row. An entry in the blocks stays there, so taking back
  // what was done to a key of the run needs no memory.
  void assign(std::int64_t key, std::int32_t row) {
    const bool isOther = others_.holds(others_.placeOf(key), key);
    if (isOther || !run_.take(key, row)) others_.assign(key, row);
  }

  // Adds the key and returns noRow, or returns the row that it names already.
  std::int32_t findOrAdd(std::int64_t key, std::int32_t row) {
    if (others_.isEmpty() && run_.extend(key, row)) return KeyRun::noRow;
    const std::int32_t holder = rowOf(key);
    if (holder == KeyRun::noRow) assign(key, row);
    return holder;
  }

  std::size_t memoryBytes() const noexcept { return others_.memoryBytes(); }

  // Forgets the key. Only in the middle of the run can that fail.
  void erase(std::int64_t key) {
    run_.dropIfLast(key);
    if (run_.holds(key)) {
      others_.assign(key, KeyRun::noRow);
    } else {
      others_.erase(key);
    }
  }

  // Calls use(row, key) for the keys from `from` up to but without `to`.
  template <typename Use>
  void forEachRow(std::int64_t from, std::int64_t to, Use& use) const {
    const auto useOther = [&](std::int32_t row, std::int32_t key) {
      run_.forEachRow(from, key, use);
      if (row != KeyRun::noRow) use(row, key);
      from = std::int64_t{key} + 1;
    };
    others_.forEachRow(others_.placeOf(from), others_.placeOf(to), useOther);
    run_.forEachRow(from, to, use);
  }

 private:
  KeyRun run_;
  SortedBlocks<std::int32_t, std::int64_t> others_;  // a key of the run that has gone: noRow
};

// Every function that takes a key text throws std::invalid_argument or std::out_of_range ("stoi")
// when the keys are integers and the text does not convert; the map is then as it was.
class PrimaryKeyMap {
 public:
  static constexpr std::int32_t noRow = KeyRun::noRow;

  explicit PrimaryKeyMap(std::string keyType = "string");

  const KeyComparator& comparator() const noexcept { return comparator_; }

  // The row that the key names, or noRow.
  std::int32_t find(std::string_view key) const;
  // The same for an integer that converts; noRow for every other key.
  std::int32_t findNumber(std::string_view key) const noexcept;
  // The same in a map of integers.
  std::int32_t findNumber(std::int64_t key) const noexcept { return numbers_.rowOf(key); }
  // Adds the key and returns noRow, or returns the row that it names already.
  std::int32_t findOrAdd(std::string_view key, std::int32_t row);
  // The same for a map of integers.
  std::int32_t findOrAddNumber(std::int32_t key, std::int32_t row) {
    return numbers_.findOrAdd(key, row);
  }
  // Adds the key, or makes it name another row.
  void assign(std::string_view key, std::int32_t row);
  // The same in a map of integers.
  void assignNumber(std::int64_t key, std::int32_t row) { numbers_.assign(key, row); }
  // Forgets the key if it names that row.
  void eraseEntry(std::string_view key, std::int32_t row);

  // Which end of a range a comparison with a key narrows.
  enum class Bound : std::uint8_t { equal, greater, greaterOrEqual, less, lessOrEqual };

  // A range of keys, narrowed by comparisons; a later one replaces what an earlier one set on the
  // same end. Good until the map changes.
  class Range {
   public:
    explicit Range(const PrimaryKeyMap& map) : map_(&map), textTo_(map.texts_.end()) {}
    // False when no key can equal the one asked for.
    bool narrow(Bound bound, std::string_view key);
    // Calls use(row, key) for the rows named in the range, in key order; the key is an int or a
    // text by the map's type.
    template <typename Use>
    void forEachRow(Use use) const {
      if (map_->isInteger()) {
        map_->numbers_.forEachRow(numberFrom_, numberTo_, use);
      } else {
        map_->texts_.forEachRow(textFrom_, textTo_, use);
      }
    }

   private:
    using TextPlace = SortedBlocks<Text, std::string_view>::Place;

    const PrimaryKeyMap* map_;
    std::int64_t numberFrom_ = INT32_MIN, numberTo_ = std::int64_t{INT32_MAX} + 1;
    TextPlace textFrom_, textTo_;
  };

  std::size_t memoryBytes() const;

  // For tests: the number of keys, and their texts in order.
  std::size_t size() const { return keys().size(); }
  std::vector<std::string> keys() const;

 private:
  bool isInteger() const noexcept { return kind_ == ValueKind::integer; }
  // Calls use(keys, key) with the keys in use, and the key as they have it.
  template <typename Map, typename Use>
  static auto inKeys(Map& map, std::string_view key, Use use);

  KeyComparator comparator_;
  ValueKind kind_;
  NumberKeys numbers_;                          // the ones in use if isInteger()
  SortedBlocks<Text, std::string_view> texts_;  // the ones in use otherwise
};

}  // namespace velmora
