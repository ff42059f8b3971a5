// The primary-key map: from a key's text to the index of the row that bears it, in key order.
//
// Integer keys are parsed once and kept as numbers, so "7" and "07" are one key and a search
// compares numbers; all other keys are kept as texts. Entries lie in sorted blocks: searching is
// two binary searches in contiguous arrays, adding moves at most one block, and keys that arrive in
// ascending order fill the blocks completely.
#pragma once

#include <algorithm>
#include <cstdint>
#include <iterator>
#include <string>
#include <string_view>
#include <type_traits>
#include <utility>
#include <vector>

#include "cell.h"

namespace velmora {

// The order of key texts in a column of a type: numeric for "int" and "ApexInt" (throwing what
// std::stoi throws), byte by byte for every other.
struct KeyComparator {
  std::string type = "string";
  bool operator()(std::string_view a, std::string_view b) const;
};

inline bool keyBefore(std::int32_t a, std::int32_t b) noexcept { return a < b; }
inline bool keyBefore(std::string_view a, std::string_view b) noexcept { return a < b; }

// Sorted unique keys, each with a row index. A function that throws (std::bad_alloc) has changed
// nothing that a caller can see.
template <typename Key>
class SortedBlocks {
 public:
  // A place among the entries; places compare in key order. The end is {block count, 0}.
  struct Place {
    std::size_t block = 0;
    std::size_t entry = 0;
    auto operator<=>(const Place&) const = default;
  };

  std::size_t size() const noexcept { return size_; }
  Place begin() const noexcept { return {}; }
  Place end() const noexcept { return {blocks_.size(), 0}; }

  // The first entry not less than the key, and the first greater than it.
  template <typename Probe>
  Place lowerBound(const Probe& key) const {
    return place([&](const Key& entry) { return keyBefore(entry, key); });
  }
  template <typename Probe>
  Place upperBound(const Probe& key) const {
    return place([&](const Key& entry) { return !keyBefore(key, entry); });
  }
  // The entry of the key, or the end.
  template <typename Probe>
  Place find(const Probe& key) const {
    if constexpr (std::is_integral_v<Key>) {
      const Place guess = denseGuess(key);
      if (guess != end() || isRun_) return guess;
    }
    const Place found = lowerBound(key);
    return found != end() && !keyBefore(key, keyAt(found)) ? found : end();
  }

  // The row of the key, or -1.
  template <typename Probe>
  std::int32_t rowOf(const Probe& key) const {
    if constexpr (std::is_integral_v<Key>) {
      if (isRun_) return isInRun(key) ? firstRow_ + static_cast<std::int32_t>(key - firstKey_) : -1;
    }
    const Place found = find(key);
    return found != end() ? rowAt(found) : -1;
  }

  const Key& keyAt(Place at) const { return blocks_[at.block].keys[at.entry]; }
  std::int32_t rowAt(Place at) const { return blocks_[at.block].rowAt(at.entry); }
  void setRowAt(Place at, std::int32_t row) {
    isRun_ = false;
    blocks_[at.block].isRun = false;
    blocks_[at.block].rows[at.entry] = row;
  }

  // Adds a key that is not there yet.
  void insert(Key key, std::int32_t row) {
    Place at = lowerBound(key);
    if (at == end()) {
      if (blocks_.empty() || blocks_.back().keys.size() == blockCapacity) {
        Key last = key;
        addBlock(blocks_.size(), std::move(last));
      } else {
        lasts_.back() = key;
      }
      at = {blocks_.size() - 1, blocks_.back().keys.size()};
    } else if (blocks_[at.block].keys.size() == blockCapacity) {
      split(at.block);
      at = lowerBound(key);
    }
    // A block has room for all its entries from the start, so nothing below can fail.
    Block& block = blocks_[at.block];
    noteInsertion(key, row);
    block.noteInsertion(key, row, at.entry);
    block.keys.insert(block.keys.begin() + offset(at.entry), std::move(key));
    block.rows.insert(block.rows.begin() + offset(at.entry), row);
    ++size_;
  }

  void erase(Place at) {
    isRun_ = isRun_ && at.block * blockCapacity + at.entry + 1 == size_;
    Block& block = blocks_[at.block];
    if (block.keys.size() == 1) {
      blocks_.erase(blocks_.begin() + offset(at.block));
      lasts_.erase(lasts_.begin() + offset(at.block));
    } else {
      const bool isLast = at.entry + 1 == block.keys.size();
      if (isLast) lasts_[at.block] = block.keys[at.entry - 1];
      block.isRun = block.isRun && isLast;
      block.keys.erase(block.keys.begin() + offset(at.entry));
      block.rows.erase(block.rows.begin() + offset(at.entry));
    }
    --size_;
  }

  // Calls use(row, key) for the entries from `from` up to but without `to`; nothing when to <=
  // from.
  template <typename Use>
  void forEachRow(Place from, Place to, Use use) const {
    for (std::size_t b = from.block; b < blocks_.size() && b <= to.block; ++b) {
      const Block& block = blocks_[b];
      const std::size_t first = b == from.block ? from.entry : 0;
      const std::size_t last = b == to.block ? to.entry : block.rows.size();
      for (std::size_t i = first; i < last; ++i) use(block.rowAt(i), block.keyAt(i));
    }
  }

 private:
  static constexpr std::size_t blockCapacity = 512;
  struct Block {
    Block() {
      keys.reserve(blockCapacity);
      rows.reserve(blockCapacity);
    }
    std::int32_t rowAt(std::size_t entry) const {
      return isRun ? firstRow + static_cast<std::int32_t>(entry) : rows[entry];
    }
    decltype(auto) keyAt(std::size_t entry) const {
      if constexpr (std::is_integral_v<Key>) {
        return isRun ? static_cast<Key>(firstKey + static_cast<std::int64_t>(entry)) : keys[entry];
      } else {
        return std::as_const(keys[entry]);
      }
    }
    bool holds(std::int64_t key, std::size_t entry) const {
      return entry < keys.size() && keyAt(entry) == key;
    }
    // To be called before the entry is put there.
    void noteInsertion(const Key& key, std::int32_t row, std::size_t entry) {
      if constexpr (std::is_integral_v<Key>) {
        if (keys.empty()) {
          isRun = true;
          firstKey = key;
          firstRow = row;
        }
        const auto step = static_cast<std::int64_t>(entry);
        isRun = isRun && entry == keys.size() && key == firstKey + step && row == firstRow + step;
      }
    }
    void noteFirstEntry() {
      if constexpr (std::is_integral_v<Key>) firstKey = keys.front();
      firstRow = rows.front();
    }

    std::vector<Key> keys;
    std::vector<std::int32_t> rows;
    // Whether consecutive numbers name consecutive rows, as those that an identity column gives do:
    // the first of them then tell all, without a look into the arrays.
    bool isRun = false;
    std::int64_t firstKey = 0;
    std::int32_t firstRow = 0;
  };

  // To be called before the entry is put there.
  void noteInsertion(const Key& key, std::int32_t row) {
    if constexpr (std::is_integral_v<Key>) {
      if (size_ == 0) {
        isRun_ = true;
        firstKey_ = key;
        firstRow_ = row;
      }
      const auto step = static_cast<std::int64_t>(size_);
      isRun_ = isRun_ && key == firstKey_ + step && row == firstRow_ + step;
    }
  }
  bool isInRun(std::int64_t key) const {
    return static_cast<std::uint64_t>(key - firstKey_) < size_;
  }

  // The entry of a number if it lies where it would with no number missing before it, as those
  // that an identity column gives do; else the end.
  Place denseGuess(std::int64_t key) const {
    if (blocks_.empty() || (isRun_ && !isInRun(key))) return end();
    const std::int64_t first = isRun_ ? firstKey_ : blocks_.front().keys.front();
    const auto distance = static_cast<std::uint64_t>(key - first);
    const Place guess{distance / blockCapacity, distance % blockCapacity};
    if (isRun_) return guess;
    const bool isThere =
        guess.block < blocks_.size() && blocks_[guess.block].holds(key, guess.entry);
    return isThere ? guess : end();
  }

  static std::ptrdiff_t offset(std::size_t index) { return static_cast<std::ptrdiff_t>(index); }

  template <typename BeforeKey>
  Place place(BeforeKey beforeKey) const {
    // Keys that arrive in ascending order are looked for behind the last one.
    if (lasts_.empty() || beforeKey(lasts_.back())) return end();
    const auto last = std::partition_point(lasts_.begin(), lasts_.end(), beforeKey);
    const auto block = static_cast<std::size_t>(last - lasts_.begin());
    const std::vector<Key>& keys = blocks_[block].keys;
    const auto entry = std::partition_point(keys.begin(), keys.end(), beforeKey);
    return {block, static_cast<std::size_t>(entry - keys.begin())};
  }

  // Puts an empty block before the index; the caller fills it at once.
  void addBlock(std::size_t index, Key last) {
    lasts_.insert(lasts_.begin() + offset(index), std::move(last));
    try {
      blocks_.emplace(blocks_.begin() + offset(index));
    } catch (...) {
      lasts_.erase(lasts_.begin() + offset(index));
      throw;
    }
  }

  void split(std::size_t index) {
    constexpr std::size_t half = blockCapacity / 2;
    addBlock(index, blocks_[index].keys[half - 1]);
    Block& lower = blocks_[index];
    Block& upper = blocks_[index + 1];
    const auto middle = upper.keys.begin() + offset(half);
    lower.keys.assign(std::make_move_iterator(upper.keys.begin()), std::make_move_iterator(middle));
    lower.rows.assign(upper.rows.begin(), upper.rows.begin() + offset(half));
    lower.isRun = upper.isRun;
    lower.noteFirstEntry();
    upper.keys.erase(upper.keys.begin(), middle);
    upper.rows.erase(upper.rows.begin(), upper.rows.begin() + offset(half));
    upper.noteFirstEntry();
  }

  std::vector<Block> blocks_;  // none is empty
  std::vector<Key> lasts_;     // the greatest key of each block
  std::size_t size_ = 0;
  // Whether all entries together are such a run as a block can be, put there in their order: what
  // an identity column makes of a table. Asking for a key takes no look into a block then.
  bool isRun_ = false;
  std::int64_t firstKey_ = 0;
  std::int32_t firstRow_ = 0;
};

// Every function that takes a key text throws std::invalid_argument or std::out_of_range ("stoi")
// when the keys are integers and the text does not convert; the map is then as it was.
class PrimaryKeyMap {
 public:
  static constexpr std::int32_t noRow = -1;

  explicit PrimaryKeyMap(std::string keyType = "string");

  std::size_t size() const noexcept { return integers_.size() + texts_.size(); }
  const KeyComparator& comparator() const noexcept { return comparator_; }

  // The row that the key names, or noRow.
  std::int32_t find(std::string_view key) const;
  // The same for an integer that converts; noRow for every other key.
  std::int32_t findNumber(std::string_view key) const noexcept;
  // Adds the key and returns noRow, or returns the row that it names already.
  std::int32_t findOrAdd(std::string_view key, std::int32_t row);
  // The same for a map of integers.
  std::int32_t findOrAddNumber(std::int32_t key, std::int32_t row);
  // Adds the key, or makes it name another row.
  void assign(std::string_view key, std::int32_t row);
  // Forgets the key if it names that row.
  void eraseEntry(std::string_view key, std::int32_t row);

  // Which end of a range a comparison with a key narrows.
  enum class Bound : std::uint8_t { equal, greater, greaterOrEqual, less, lessOrEqual };

  // A range of keys, narrowed by comparisons; a later one replaces what an earlier one set on the
  // same end.
  class Range {
   public:
    explicit Range(const PrimaryKeyMap& map);
    // False when no key can equal the one asked for.
    bool narrow(Bound bound, std::string_view key);
    // Calls use(row, key) for the rows named in the range, in key order; the key is an int or a
    // text by the map's type.
    template <typename Use>
    void forEachRow(Use use) const {
      if (map_->isInteger()) {
        map_->integers_.forEachRow(integerFrom_, integerTo_, use);
      } else {
        map_->texts_.forEachRow(textFrom_, textTo_, use);
      }
    }

   private:
    const PrimaryKeyMap* map_;
    SortedBlocks<std::int32_t>::Place integerFrom_, integerTo_;
    SortedBlocks<Text>::Place textFrom_, textTo_;
  };

  // The key texts in order, for tests.
  std::vector<std::string> keys() const;

 private:
  bool isInteger() const noexcept { return kind_ == ValueKind::integer; }

  KeyComparator comparator_;
  ValueKind kind_;
  SortedBlocks<std::int32_t> integers_;  // the one in use if isInteger()
  SortedBlocks<Text> texts_;             // the one in use otherwise
};

}  // namespace velmora
