// Reading two tables joined on equal texts.
//
// The right table's matching rows are hashed by their join column; the left table's matching rows
// look their partners up. Pairs come in the order of the left rows, the partners of
// one left row in the order of the right rows. Two threads take half of many left rows each.
#include <algorithm>
#include <bit>
#include <limits>
#include <span>
#include <stdexcept>

#include "../column_reader.h"
#include "../storage/halves.h"
#include "database.h"

namespace velmora {
namespace {

// A column of one of the two tables.
struct Side {
  bool isRight = false;
  std::size_t column = 0;
};

class Resolver {
 public:
  Resolver(const Table& left, const Table& right) : left_(left), right_(right) {}

  // The column that a reference means; a bare name is looked for in the left table first. `where`
  // names the place of the reference in the message about an unknown prefix.
  Side resolve(const ColumnReference& reference, const char* where) const {
    const std::string& prefix = reference.table;
    if (prefix == left_.tableName) return inTable(false, reference.column);
    if (prefix == right_.tableName) return inTable(true, reference.column);
    if (!prefix.empty()) {
      throw std::runtime_error("Unknown table prefix '" + prefix + "' in " + where + ".");
    }
    const bool isLeft = left_.columnPosition(reference.column) != noColumn;
    return inTable(!isLeft, reference.column);
  }

  Side inTable(bool isRight, const std::string& column) const {
    const std::size_t position = (isRight ? right_ : left_).columnPosition(column);
    if (position == noColumn) {
      throw std::runtime_error("Column '" + column + "' not found in either table.");
    }
    return {isRight, position};
  }

  // Whether a condition is for the right table. One with a prefix is handed to that table whether
  // or not it has the column: it then matches nothing there.
  bool isForRight(const Condition& condition) const {
    if (condition.tableName == left_.tableName) return false;
    if (condition.tableName == right_.tableName) return true;
    return resolve({condition.tableName, condition.column}, "WHERE clause").isRight;
  }

 private:
  const Table& left_;
  const Table& right_;
};

struct JoinColumns {
  std::size_t left = 0;
  std::size_t right = 0;
};

JoinColumns resolveOn(const Resolver& resolver, const ColumnReference& first,
                      const ColumnReference& second, const std::string& leftTable,
                      const std::string& rightTable) {
  constexpr const char* where = "JOIN ON clause";
  const auto sideOf = [&](const ColumnReference& reference) {
    if (reference.table == leftTable) return false;
    if (reference.table == rightTable) return true;
    throw std::runtime_error("Unknown table prefix '" + reference.table + "' in " + where + ".");
  };
  bool firstIsRight = false;
  if (leftTable != rightTable) {
    if (!first.table.empty() && !second.table.empty()) {
      firstIsRight = sideOf(first);
      if (sideOf(second) == firstIsRight) {
        throw std::runtime_error("JOIN ON needs a column of each table");
      }
    } else if (!first.table.empty()) {
      firstIsRight = sideOf(first);
    } else if (!second.table.empty()) {
      firstIsRight = !sideOf(second);
    }
  } else {
    // Both sides are one table: only the prefixes need a look.
    if (!first.table.empty()) sideOf(first);
    if (!second.table.empty()) sideOf(second);
  }
  const std::size_t firstColumn = resolver.inTable(firstIsRight, first.column).column;
  const std::size_t secondColumn = resolver.inTable(!firstIsRight, second.column).column;
  return firstIsRight ? JoinColumns{secondColumn, firstColumn}
                      : JoinColumns{firstColumn, secondColumn};
}

// A row's key: a number that is equal for equal texts. Between two keys that both are their
// texts' numbers it is unequal for unequal ones, too.
struct Key {
  std::int32_t code;
  bool isNumber;
};

// One side's join column.
class KeyColumn {
 public:
  // With isNumeric both sides are integers.
  KeyColumn(const Table& table, std::size_t column, bool isNumeric, std::int64_t now)
      : reader_(table.values(column), now), isNumeric_(isNumeric) {}

  Key key(std::int32_t row) {
    const auto index = static_cast<std::size_t>(row);
    if (isNumeric_) {
      const ColumnValues::Chunk& chunk = reader_.chunkOf(index);
      const std::size_t place = Rows::placeOf(index);
      if (!chunk.isUnclear(place)) return {chunk.numbers()[place], true};
    }
    TextRoom room;
    const std::string_view text = reader_.text(index, room);
    return {static_cast<std::int32_t>(std::hash<std::string_view>()(text)), false};
  }
  bool hasEqualText(std::int32_t row, const KeyColumn& other, std::int32_t otherRow) const {
    TextRoom room;
    TextRoom otherRoom;
    return reader_.text(static_cast<std::size_t>(row), room) ==
           other.reader_.text(static_cast<std::size_t>(otherRow), otherRoom);
  }

 private:
  ColumnReader reader_;
  bool isNumeric_;
};

struct Pair {
  std::int32_t left;
  std::int32_t right;
};

// The right rows by the code of their key, in buckets: one for each code where these are numbers
// that lie close together, else by a hash. Rows of one bucket are chained in ascending order. Where
// such numbers are all different, as keys are, the buckets hold the rows themselves.
class PartnerIndex {
 public:
  PartnerIndex(KeyColumn& keys, const std::vector<std::int32_t>& rows, std::size_t leftRowCount)
      : keys_(keys), entries_(rows.size()) {
    std::int64_t least = std::numeric_limits<std::int32_t>::max();
    std::int64_t most = std::numeric_limits<std::int32_t>::min();
    for (std::size_t i = 0; i < rows.size(); ++i) {
      const Key key = keys.key(rows[i]);
      entries_[i] = {key.code, rows[i], none};
      areNumbers_ = areNumbers_ && key.isNumber;
      least = std::min<std::int64_t>(least, key.code);
      most = std::max<std::int64_t>(most, key.code);
    }
    constexpr std::int64_t dense = 4;
    const auto span = static_cast<std::size_t>(std::max<std::int64_t>(most - least + 1, 0));
    if (areNumbers_ && span <= dense * (rows.size() + leftRowCount)) {
      first_ = static_cast<std::uint32_t>(least);
      lastBucket_ = span;
    } else {
      holdRows_ = false;
      shift_ = 32 - bucketBits(rows.size());
      lastBucket_ = (std::size_t{1} << (32 - shift_)) - 1;
    }
    buckets_.resize(lastBucket_ + 1, none);
    for (std::size_t i = rows.size(); i-- > 0;) {
      std::uint32_t& bucket = buckets_[bucketOf(entries_[i].code)];
      holdRows_ = holdRows_ && bucket == none;
      entries_[i].next = bucket;
      bucket = static_cast<std::uint32_t>(i);
    }
    for (std::uint32_t& bucket : buckets_) {
      if (!holdRows_) break;
      if (bucket != none) bucket = static_cast<std::uint32_t>(entries_[bucket].row);
    }
  }

  // Finds the pairs of some left rows, in order, with every right row whose key text is theirs, and
  // calls emit(pairs) with some at a time. The steps of all rows are taken side by side, so that
  // none waits for memory alone.
  template <typename Emit>
  void findPairs(KeyColumn& leftKeys, std::span<const std::int32_t> leftRows,
                 std::vector<Pair>& pairs, Emit emit) const {
    Key keys[blockSize] = {};
    for (std::size_t i = 0; i < leftRows.size(); ++i) {
      keys[i] = leftKeys.key(leftRows[i]);
      __builtin_prefetch(&buckets_[bucketOf(keys[i].code)]);
    }
    std::size_t found[blockSize];
    std::uint32_t heads[blockSize];
    std::size_t count = 0;
    for (std::size_t i = 0; i < leftRows.size(); ++i) {
      found[count] = i;
      heads[count] = buckets_[bucketOf(keys[i].code)];
      count += heads[count] != none ? 1 : 0;
    }
    if (holdRows_) {
      pairs.resize(count);
      std::size_t pairCount = 0;
      for (std::size_t i = 0; i < count; ++i) {
        pairs[pairCount] = {leftRows[found[i]], static_cast<std::int32_t>(heads[i])};
        pairCount += keys[found[i]].isNumber ? 1 : 0;
      }
      pairs.resize(pairCount);
      return emit(pairs);
    }
    for (std::size_t i = 0; i < count; ++i) __builtin_prefetch(&entries_[heads[i]]);
    for (std::size_t i = 0; i < count; ++i) {
      const std::int32_t leftRow = leftRows[found[i]];
      const Key key = keys[found[i]];
      for (std::uint32_t e = heads[i]; e != none; e = entries_[e].next) {
        const Entry& entry = entries_[e];
        if (entry.code != key.code) continue;
        // A text that is no number equals none.
        const bool isPair =
            areNumbers_ ? key.isNumber : leftKeys.hasEqualText(leftRow, keys_, entry.row);
        if (!isPair) continue;
        pairs.push_back({leftRow, entry.row});
        if (pairs.size() == mostPairs) emit(pairs);
      }
    }
    emit(pairs);
  }

  static constexpr std::size_t blockSize = 128;

 private:
  static constexpr std::uint32_t none = ~std::uint32_t{0};
  static constexpr std::size_t mostPairs = 256;
  struct Entry {
    std::int32_t code;
    std::int32_t row;
    std::uint32_t next;
  };

  // Few rows get many buckets: most look-ups then end at an empty one, at once and as predicted.
  static int bucketBits(std::size_t rows) {
    constexpr int sparse = 4;
    constexpr int mostSparse = 15;
    const int bits = static_cast<int>(std::bit_width(rows | 1));
    return std::max(bits, std::min(bits + sparse, mostSparse));
  }
  std::size_t bucketOf(std::int32_t code) const {
    if (shift_ == 0) {
      // The last bucket is for codes that no right row has.
      const std::uint32_t distance = static_cast<std::uint32_t>(code) - first_;
      return std::min<std::size_t>(distance, lastBucket_);
    }
    constexpr std::uint32_t golden = 0x9E3779B1;
    return (static_cast<std::uint32_t>(code) * golden) >> shift_;
  }

  const KeyColumn& keys_;
  std::vector<Entry> entries_;
  bool areNumbers_ = true;
  bool holdRows_ = true;
  int shift_ = 0;  // of the hash; 0 where each code has a bucket
  std::uint32_t first_ = 0;
  std::size_t lastBucket_ = 0;
  std::vector<std::uint32_t> buckets_;
};

// The left rows in ascending order, some at a time: those that satisfy the conditions, or, when
// there are none, simply all live rows, without a list of them.
class LeftRows {
 public:
  LeftRows(const Table& table, std::span<const std::int32_t> matched)
      : table_(table), areAll_(false), matched_(matched), end_(matched.size()) {}
  explicit LeftRows(const Table& table) : table_(table), areAll_(true), end_(table.rowCount()) {}

  // How many there are, or a few more.
  std::size_t size() const { return end_ - position_; }
  // Keeps the first half of the rows; the answer is the second.
  LeftRows cutInHalf() {
    LeftRows second(*this);
    end_ = second.position_ = size() / 2 / Rows::chunkRows * Rows::chunkRows;
    return second;
  }
  // The next rows, at most PartnerIndex::blockSize; none at the end.
  std::span<const std::int32_t> next() {
    const std::size_t start = position_;
    if (!areAll_) {
      position_ = std::min(end_, start + PartnerIndex::blockSize);
      return matched_.subspan(start, position_ - start);
    }
    std::size_t count = 0;
    while (position_ < end_ && count == 0) {
      // A chunk's rows are so many of these blocks.
      const std::uint8_t* const deleted =
          table_.rows().deleted(Rows::chunkOf(position_)) + Rows::placeOf(position_);
      const std::size_t size = std::min(PartnerIndex::blockSize, end_ - position_);
      for (std::size_t i = 0; i < size; ++i) {
        block_[count] = static_cast<std::int32_t>(position_ + i);
        count += deleted[i] == 0 ? 1 : 0;
      }
      position_ += size;
    }
    return std::span(block_, count);
  }

 private:
  const Table& table_;
  bool areAll_;
  std::span<const std::int32_t> matched_;
  std::size_t position_ = 0;
  std::size_t end_;
  std::int32_t block_[PartnerIndex::blockSize] = {};
  static_assert(Rows::chunkRows % PartnerIndex::blockSize == 0);
};

// A column of the answer, with the table that it is read from.
struct Output {
  const Table* table;
  std::size_t column;
  bool isRight;
  ColumnReader reader;
};

// Prints pairs. Where their values lie is found out, and these are asked for, while the pairs
// before are printed: a loop that finds each value only when it is printed waits for it, because
// where it writes depends on the values before.
class PairPrinter {
 public:
  PairPrinter(std::vector<Output>& outputs, JsonRows& rows) : outputs_(outputs), rows_(rows) {}

  // Takes the pairs, and prints those taken before; returns how many these were.
  std::size_t print(std::vector<Pair>& found) {
    places_.resize(found.size() * outputs_.size());
    std::size_t asked = 0;
    std::size_t longToAsk =
        haveLongTexts() && coming_.size() > stepsAhead ? coming_.size() - stepsAhead : 0;
    const std::byte* const* place = comingPlaces_.data();
    for (const Pair& pair : coming_) {
      if (asked < found.size()) ask(found, asked++);
      if (longToAsk > 0) {
        askForBytes(place + stepsAhead * outputs_.size());
        --longToAsk;
      }
      for (Output& output : outputs_) print(output, pair, *place++);
    }
    while (asked < found.size()) ask(found, asked++);
    const std::size_t count = coming_.size();
    coming_.clear();
    coming_.swap(found);
    comingPlaces_.swap(places_);
    return count;
  }

 private:
  static std::size_t rowOf(const Output& output, const Pair& pair) {
    return static_cast<std::size_t>(output.isRight ? pair.right : pair.left);
  }
  // Inlined always, since compilers drop calls of functions that only prefetch.
  [[gnu::always_inline]] void ask(const std::vector<Pair>& found, std::size_t i) {
    const std::byte** place = places_.data() + i * outputs_.size();
    for (const Output& output : outputs_) {
      *place++ = output.reader.prefetchPlain(rowOf(output, found[i]));
    }
  }
  // Of long texts, which ask has brought by now.
  [[gnu::always_inline]] void askForBytes(const std::byte* const* place) const {
    for (const Output& output : outputs_) {
      if (const Text* const text = output.reader.plainText(*place++)) text->prefetchBytes();
    }
  }
  // Whether there are some among the first pairs to print: where all are short, looking at each
  // before it is printed took a tenth of the join's time.
  bool haveLongTexts() const {
    const std::size_t count = std::min(coming_.size(), stepsAhead) * outputs_.size();
    for (std::size_t i = 0; i < count; ++i) {
      const Text* const text = outputs_[i % outputs_.size()].reader.plainText(comingPlaces_[i]);
      if (text != nullptr && text->isOnHeap()) return true;
    }
    return false;
  }
  void print(Output& output, const Pair& pair, const std::byte* place) {
    if (place != nullptr) return output.reader.printPlain(place, rows_);
    const std::size_t row = rowOf(output, pair);
    atPlace(*output.table, output.column, row, [&] { output.reader.print(row, rows_); });
  }

  static constexpr std::size_t stepsAhead = 8;

  std::vector<Output>& outputs_;
  JsonRows& rows_;
  std::vector<Pair> coming_;
  // Of each pair the places of its values, pair by pair: of those that come, and of those to print.
  std::vector<const std::byte*> places_;
  std::vector<const std::byte*> comingPlaces_;
};

constexpr std::size_t mostRows = std::numeric_limits<std::int32_t>::max();
constexpr const char* tooLarge = "Result is too large";

// Prints the pairs of some left rows; returns how many there are.
std::size_t printPairs(LeftRows& rows, KeyColumn leftKeys, const PartnerIndex& partners,
                       std::vector<Output> outputs, JsonRows& answer) {
  PairPrinter printer(outputs, answer);
  std::size_t count = 0;
  const auto addPairs = [&](std::vector<Pair>& found) {
    count += printer.print(found);
    if (count > mostRows) throw std::runtime_error(tooLarge);
  };
  std::vector<Pair> pairs;
  for (auto block = rows.next(); !block.empty(); block = rows.next()) {
    partners.findPairs(leftKeys, block, pairs, addPairs);
  }
  addPairs(pairs);
  return count;
}

}  // namespace

ResultSet Database::selectJoin(const std::string& leftTable, const std::string& rightTable,
                               const ColumnReference& firstOn, const ColumnReference& secondOn,
                               const std::vector<ColumnReference>& columns,
                               const std::vector<Condition>& conditions, std::int64_t now,
                               TextBuffer&& spare) {
  const std::unique_lock lock(dbMutex);
  const Table& left = tableOrNew(leftTable);
  const Table& right = tableOrNew(rightTable);
  const Resolver resolver(left, right);

  std::vector<Condition> leftConditions;
  std::vector<Condition> rightConditions;
  for (const Condition& condition : conditions) {
    (resolver.isForRight(condition) ? rightConditions : leftConditions).push_back(condition);
  }
  const JoinColumns on = resolveOn(resolver, firstOn, secondOn, leftTable, rightTable);
  ResultSet result = successful("success!");
  std::vector<Side> sides;
  std::vector<std::string> names;
  for (const ColumnReference& column : columns) {
    sides.push_back(resolver.resolve(column, "SELECT list"));
    names.push_back((sides.back().isRight ? rightTable : leftTable) + "." + column.column);
  }

  const std::vector<std::int32_t> matched = leftConditions.empty()
                                                ? std::vector<std::int32_t>()
                                                : getRequestedRows(leftConditions, left, now);
  LeftRows leftRows = leftConditions.empty() ? LeftRows(left) : LeftRows(left, matched);
  const std::vector<std::int32_t> rightRows = getRequestedRows(rightConditions, right, now);
  const bool isNumeric =
      left.kind(on.left) == ValueKind::integer && right.kind(on.right) == ValueKind::integer;
  const KeyColumn leftKeys(left, on.left, isNumeric, now);
  KeyColumn rightKeys(right, on.right, isNumeric, now);
  const PartnerIndex partners(rightKeys, rightRows, leftRows.size());
  std::vector<Output> outputs;
  // Looking at timed values puts arrays right, which is one thread's work.
  bool arePlain = left.values(on.left).isPlain() && right.values(on.right).isPlain();
  for (const Side& side : sides) {
    const Table& table = side.isRight ? right : left;
    const ColumnReader reader(table.values(side.column), now);
    outputs.push_back({&table, side.column, side.isRight, reader});
    arePlain = arePlain && table.values(side.column).isPlain();
  }
  const auto print = [&](LeftRows& rows, JsonRows& answer) {
    answer.expectRows(rows.size());
    return printPairs(rows, leftKeys, partners, outputs, answer);
  };
  result.rows.begin(names, std::move(spare));
  std::size_t count = 0;
  if (arePlain && leftRows.size() >= leastRowsOfHalves) {
    LeftRows secondHalf = leftRows.cutInHalf();
    JsonRows secondRows;
    secondRows.begin(names, std::move(secondHalf_));
    std::size_t secondCount = 0;
    runBeside([&] { count = print(leftRows, result.rows); },
              [&] { secondCount = print(secondHalf, secondRows); });
    secondHalf_ = secondRows.take();
    result.rows.append(secondHalf_.view());
    count += secondCount;
  } else {
    count = print(leftRows, result.rows);
  }
  if (count > mostRows) throw std::runtime_error(tooLarge);
  result.rowsAffected = static_cast<std::int32_t>(count);
  return result;
}

}  // namespace velmora
