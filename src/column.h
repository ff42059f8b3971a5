// The values of one column of a table, in typed arrays.
//
// A value is a text that is read by its column's type; equality is of texts. What is kept is the
// typed value, from which the text can be told:
//
//   int, ApexInt   4 bytes; the text is the number's shortest form
//   float          4 bytes, and one for the spelling: how many decimals the text has
//   long, double   8 bytes, and one for a double to tell whether there is one
//   bool           1 byte
//   string         a Text, and one byte that is seldom equal for unequal texts
//
// A cell for which that is not enough is odd: a timed value, or a text that is not spelled so (05,
// 99999999999, or 5.5 where integers belong). Odd cells are kept beside the arrays, a list for each
// chunk of rows. Of a timed value the array holds the state in force, as far as that can be told by
// it, and it is known until when that is right: a scan looks at no rule before. For other seconds
// all states of timed values are kept in arrays as well, arranged by rhythm. What concerns time is
// kept for sections of four chunks: the fewer they are, the fewer searches tell what all show, and
// the longer it takes to arrange one.
//
// Only this room knows which cells are odd. Who scans asks for a chunk's arrays and is told which
// rows they do not stand for.
//
// The strict language has values instead of texts. Null is the missing value there, in the arrays
// or as the text of an odd cell; a text that reads like it is an odd cell that is not timed. Such
// reads change nothing that others read, and may be at any second: see chunkAt.
#pragma once

#include <algorithm>
#include <bitset>
#include <cmath>
#include <cstdint>
#include <limits>
#include <memory>
#include <mutex>
#include <optional>
#include <span>
#include <string_view>
#include <vector>

#include "cell.h"
#include "number.h"
#include "read_ahead.h"
#include "rhythm.h"
#include "rows.h"
#include "typed_value.h"

namespace velmora {

// Memory for the text of a number.
using TextRoom = char[maxNumberText];

// How a float's text is spelled: a number of decimals, or one of these, of which arrays hold the
// first two. The shortest form is any float's that the strict language stores; doubles have no
// other.
inline constexpr std::uint8_t shortestSpelling = 253;
inline constexpr std::uint8_t missingSpelling = 254;
inline constexpr std::uint8_t oddSpelling = 255;
// What a bool is; no array holds odd.
enum class BoolCode : std::uint8_t { isFalse, isTrue, missing, odd };
BoolCode boolCodeOf(std::string_view text) noexcept;

class ColumnValues {
 public:
  // The rows are those of the table, and stay where they are.
  ColumnValues(ValueKind kind, Rows& rows);
  ~ColumnValues();
  ColumnValues(const ColumnValues&) = delete;
  ColumnValues& operator=(const ColumnValues&) = delete;

  ValueKind kind() const noexcept { return kind_; }

  // The text in force at the second `now`; it lies in the room or in the column, and is there until
  // either changes.
  std::string_view text(std::size_t row, std::int64_t now, TextRoom& room) const;
  // The rule of a timed value, or null.
  const TempRule* rule(std::size_t row) const noexcept;
  // The text under which the key map files a row: of a timed value, the one that it showed when it
  // was last filed.
  std::string_view keyText(std::size_t row, TextRoom& room) const;
  // A copy of the cell.
  Cell cell(std::size_t row) const;
  // Whether no cell has ever been odd: what reads the values then changes nothing here.
  bool isPlain() const noexcept { return odd_.empty(); }
  // Whether the cell shows this text at the second `now`.
  bool shows(std::size_t row, std::string_view text, std::int64_t now) const;
  // The number of integers that tells the text of a row that is not timed; null if none does.
  const std::int32_t* plainNumber(std::size_t row) const noexcept {
    return isOdd(row) ? nullptr : &rows_.at<std::int32_t>(row, values_);
  }
  // Calls use(text) for each text that the cell shows at the second `now` or can show later: the
  // values that a foreign key has to find.
  template <typename Use>
  void forEachComingText(std::size_t row, std::int64_t now, Use use) const {
    if (const TempRule* const timed = rule(row)) {
      timed->forEachComingText(now, use);
    } else {
      TextRoom room;
      use(text(row, now, room));
    }
  }

  // Makes the values of rows just appended: none, or 0 for integers.
  void append(std::size_t row, std::size_t count) noexcept;
  // Takes back what append and set have made of the last row.
  void removeLast(std::size_t row) noexcept;
  // Gives the row another cell, whose key text is the text in force at the second `now`. A failure
  // changes nothing.
  void set(std::size_t row, const Cell& cell, std::int64_t now);
  // The same for a cell that was taken here, whose key text stays as it was.
  void restore(std::size_t row, const Cell& cell, std::int64_t now);
  // The same for a text; for one text in many rows, of which a failure may leave some changed; and
  // for a number in a column of integers.
  void setText(std::size_t row, std::string_view text);
  void setTexts(std::span<const std::int32_t> rows, std::string_view text);
  void setNumber(std::size_t row, std::int32_t number) noexcept;
  // The same for a value of the strict language, of the column's type and within its range; a
  // number of either sort goes into floats.
  void setValue(std::size_t row, const TypedValue& value);
  // Has a timed value filed under the text in force.
  void refile(std::size_t row, std::int64_t now);

  // In Chunk::odd: the cell is odd; its array value does not tell its text; and it is a text that
  // only reads like the missing value.
  static constexpr std::uint8_t listed = 1;
  static constexpr std::uint8_t unclear = 2;
  static constexpr std::uint8_t literal = 4;
  // The arrays of a chunk.
  struct Chunk {
    std::byte* values;
    std::uint8_t* codes;  // of floats their spelling, of bools a BoolCode, of texts fingerprints
    const std::uint8_t* odd;  // by row; null where no cell is odd

    std::int32_t* numbers() const noexcept { return reinterpret_cast<std::int32_t*>(values); }
    float* reals() const noexcept { return reinterpret_cast<float*>(values); }  // or NaN for none
    std::int64_t* longs() const noexcept { return reinterpret_cast<std::int64_t*>(values); }
    double* doubles() const noexcept { return reinterpret_cast<double*>(values); }  // or NaN
    Text* texts() const noexcept { return reinterpret_cast<Text*>(values); }
    bool isUnclear(std::size_t place) const noexcept {
      return odd != nullptr && (odd[place] & unclear) != 0;
    }
    bool isOdd(std::size_t place) const noexcept { return odd != nullptr && odd[place] != 0; }
    // Of a column of texts.
    bool isNullText(std::size_t place) const noexcept {
      return texts()[place] == missingValue && (odd == nullptr || (odd[place] & literal) == 0);
    }
  };
  // What holds for the second `now`.
  Chunk chunk(std::size_t chunk, std::int64_t now) const {
    if (hasOdd(chunk)) keepRight(sectionOf(chunk), now);
    return this->chunk(chunk);
  }
  // The same without looking at timed values: for who asks for these by row.
  Chunk chunk(std::size_t chunk) const noexcept {
    return {rows_.array<std::byte>(chunk, values_), rows_.array<std::uint8_t>(chunk, codes_),
            hasOdd(chunk) ? odd_[chunk]->flags.data() : nullptr};
  }

  // Chunks that lie together, as far as time is concerned. A row's place in its section has 16
  // bits.
  static constexpr std::size_t sectionChunks = 4;
  static constexpr std::size_t sectionRows = sectionChunks * Rows::chunkRows;
  static constexpr std::size_t sectionOf(std::size_t chunk) { return chunk / sectionChunks; }

  // The arrays of a chunk as they are at the second `now`, also where others read them at another:
  // then they are a copy, which is kept here and by the column for the next who asks. Any number of
  // threads may ask as long as none changes the table.
  struct Snapshot;
  struct ChunkAt {
    Chunk arrays{};
    std::shared_ptr<const Snapshot> copy;
  };
  ChunkAt chunkAt(std::size_t chunk, std::int64_t now) const;
  // What the timed values of a section show at a second without arrays made of them: each run has
  // the values that the cells of its places show, but for the single ones of the states, which have
  // to be asked.
  struct States;
  struct FreshSection {
    struct Run {
      Chunk arrays{};
      const std::uint8_t* distances;  // of the states, or null
      std::span<const std::uint16_t> places;
    };
    const States* states = nullptr;
    std::vector<Run> runs;
  };
  // Reads that, and has it brought into the cache, for who needs it once. No states are given where
  // chunkAt is quicker, and for a second that was asked for before: then the copy is worth making.
  // Threads as there.
  void readFresh(std::size_t section, std::int64_t now, FreshSection& fresh) const;
  std::size_t rowsOf(std::size_t section) const noexcept {
    return std::min(sectionRows, rows_.size() - section * sectionRows);
  }
  // Arrays without what lies before a place.
  Chunk from(const Chunk& arrays, std::size_t place) const noexcept {
    return {arrays.values + place * width_, arrays.codes + place,
            arrays.odd == nullptr ? nullptr : arrays.odd + place};
  }
  // The value of a row at the second `now`; its text lies in the column.
  TypedValue value(std::size_t row, std::int64_t now) const;
  // The same with the arrays of the row's chunk at that second, in which its text may lie.
  TypedValue value(const Chunk& chunk, std::size_t row, std::int64_t now) const;
  // The first second behind `now` at which a live row shows another value; the largest number if
  // none does. Threads as for chunkAt.
  std::int64_t nextChange(std::int64_t now) const;
  // Of long texts and of odd cells; the arrays are the rows'.
  std::size_t memoryBytes() const;
  // To be called when the row has come to life or gone: what is kept for readers is no longer
  // right.
  void noteLife(std::size_t row) noexcept {
    if (!hasOdd(Rows::chunkOf(row))) return;
    dropKept(sectionOf(Rows::chunkOf(row)));
    haveRulesChanged_ = haveRulesChanged_ || rule(row) != nullptr;
  }
  // Whether timed values have been set, replaced or removed, or the rows of some have come to life
  // or gone, since this was forgotten.
  bool haveRulesChanged() const noexcept { return haveRulesChanged_; }
  void forgetRuleChanges() noexcept { haveRulesChanged_ = false; }

  // What a condition reads of a chunk, for a scan that comes to it next.
  ReadAhead readAhead(std::size_t chunk, std::int64_t now) const noexcept;
  // The cell of an odd one.
  const Cell& oddCell(std::size_t row) const noexcept { return *oddOf(row); }

  // What the arrays tell of a cell that is not unclear.
  [[gnu::always_inline]] TypedValue toldValue(const Chunk& chunk, std::size_t place) const {
    switch (kind_) {
      case ValueKind::integer:
        return TypedValue::ofInteger(chunk.numbers()[place]);
      case ValueKind::longInteger:
        return TypedValue::ofInteger(chunk.longs()[place]);
      case ValueKind::real:
        return toldReal(static_cast<double>(chunk.reals()[place]));
      case ValueKind::doubleReal:
        return toldReal(chunk.doubles()[place]);
      case ValueKind::boolean:
        if (chunk.codes[place] == static_cast<std::uint8_t>(BoolCode::missing)) return {};
        return TypedValue::ofBoolean(chunk.codes[place] != 0);
      case ValueKind::text:
      case ValueKind::unknown:
        break;
    }
    return chunk.isNullText(place) ? TypedValue() : TypedValue::ofText(chunk.texts()[place]);
  }
  std::size_t width() const noexcept { return width_; }

  // Has the value brought into the cache, for a loop that will come to it in some steps. Inlined
  // always, since compilers drop calls of functions that change nothing.
  [[gnu::always_inline]] void prefetch(std::size_t row) const noexcept {
    prefetchValue(row);
    // Of a text the code is no matter to who reads it.
    if (kind_ == ValueKind::real) {
      __builtin_prefetch(rows_.array<std::byte>(Rows::chunkOf(row), codes_) + Rows::placeOf(row));
    }
  }
  // The same for who reads it as a typed value: the spelling of a float is not looked at.
  [[gnu::always_inline]] void prefetchValue(std::size_t row) const noexcept {
    __builtin_prefetch(rows_.array<std::byte>(Rows::chunkOf(row), values_) +
                       Rows::placeOf(row) * width_);
  }
  bool isLongText(std::size_t row) const noexcept {
    return holdsTexts(kind_) && rows_.at<Text>(row, values_).isOnHeap();
  }
  // Behind that: the same for the bytes of a long text.
  [[gnu::always_inline]] void prefetchBytes(std::size_t row) const noexcept {
    if (holdsTexts(kind_)) rows_.at<Text>(row, values_).prefetchBytes();
  }
  // Has the rule of a timed value brought into the cache, in steps that each need what the one
  // before has brought: 0 the cell, 1 its rule, 2 the rule's states.
  [[gnu::always_inline]] void prefetchRule(std::size_t row, int step) const noexcept {
    const Cell* const cell = oddOf(row);
    if (cell == nullptr) return;
    if (step == 0) return __builtin_prefetch(cell);
    const TempRule* const rule = cell->tempRule.get();
    if (rule == nullptr) return;
    __builtin_prefetch(step == 1 ? static_cast<const void*>(rule) : rule->states.data());
  }
  // The same as prefetch, and where it lies; null where the place alone does not tell it, as for
  // the values of a chunk with odd cells and for all but integers and texts.
  [[gnu::always_inline]] const std::byte* prefetchPlain(std::size_t row) const noexcept {
    const std::size_t chunk = Rows::chunkOf(row);
    if (hasOdd(chunk) || (kind_ != ValueKind::integer && kind_ != ValueKind::text)) {
      prefetch(row);
      return nullptr;
    }
    const std::byte* const place =
        rows_.array<std::byte>(chunk, values_) + Rows::placeOf(row) * width_;
    __builtin_prefetch(place);
    return place;
  }

 private:
  // What a chunk's arrays hold, without room for further rows, or other values in the same form.
  struct Arrays {
    std::unique_ptr<std::byte[]> values;  // null where there are texts
    std::unique_ptr<Text[]> texts;
    std::unique_ptr<std::uint8_t[]> codes;  // null where they are the values
    std::unique_ptr<std::uint8_t[]> odd;

    Chunk chunk() const noexcept;
  };
  struct FreshSecond {
    std::int64_t second;
    std::int64_t next;  // when a live value changes
  };
  struct OddCells {
    std::vector<std::uint8_t> flags;    // by row
    std::vector<std::uint16_t> places;  // ascending by row
    std::vector<Cell> cells;

    std::size_t find(std::size_t place) const noexcept;
  };
  // What is known of time about the odd cells of a section. Its arrays are those of the chunks that
  // have odd cells.
  struct Section {
    // The seconds for which the arrays are right.
    std::int64_t since = std::numeric_limits<std::int64_t>::min();
    std::int64_t until = std::numeric_limits<std::int64_t>::max();

    // What readers have made for those who come: the last two snapshots, when a live value changes
    // next while the arrays are right, the last second read without a snapshot, and the states.
    std::mutex guard;  // of these
    std::shared_ptr<const Snapshot> snapshots[2];
    std::size_t newerSnapshot = 0;
    std::optional<std::int64_t> next;
    std::optional<FreshSecond> fresh;
    std::unique_ptr<States> states;

    bool holdsAt(std::int64_t now) const noexcept { return since <= now && now < until; }
    // Needs the guard.
    const std::shared_ptr<const Snapshot>* snapshotAt(std::int64_t now) const noexcept;
  };
  // The arrays of a section's chunks into which is put what its cells show; null where a chunk has
  // no odd cells.
  struct Targets {
    Chunk arrays[sectionChunks]{};
    std::uint8_t* flags[sectionChunks]{};
  };
  class DeletedPlaces;

  static bool holdsTexts(ValueKind kind) noexcept {
    return kind == ValueKind::text || kind == ValueKind::unknown;
  }
  bool isOdd(std::size_t row) const noexcept { return !odd_.empty() && oddOf(row) != nullptr; }
  const Cell* oddOf(std::size_t row) const noexcept;
  // NaN stands for none.
  static TypedValue toldReal(double value) noexcept {
    return std::isnan(value) ? TypedValue() : TypedValue::ofReal(value);
  }
  TypedValue oddValue(std::size_t row, std::int64_t now) const;
  bool hasOdd(std::size_t chunk) const noexcept {
    return chunk < odd_.size() && odd_[chunk] != nullptr;
  }
  OddCells& oddCells(std::size_t chunk);
  Section& sectionOfRow(std::size_t row) const noexcept {
    return *sections_[sectionOf(Rows::chunkOf(row))];
  }
  bool store(const Chunk& chunk, std::size_t place, std::string_view text) const;
  void copyTo(std::span<const std::int32_t> rows, const Chunk& to, std::size_t model);
  void setOdd(std::size_t row, Cell&& cell, std::int64_t now);
  void removeOdd(std::size_t row) noexcept;
  void makeSingle(std::size_t row) noexcept;
  std::string_view plainText(std::size_t row, TextRoom& room) const;
  void keepRight(std::size_t section, std::int64_t now) const;
  void refresh(std::size_t section, std::int64_t now) const;
  void forgetKept(std::size_t chunk) noexcept {
    if (hasOdd(chunk)) dropKept(sectionOf(chunk));
  }
  void dropKept(std::size_t section) noexcept;
  // What a condition reads of such arrays: of texts the codes are enough for most rows.
  ReadAhead readAhead(const Chunk& arrays, std::size_t count) const noexcept {
    if (holdsTexts(kind_)) return {arrays.codes, count, 1};
    return {arrays.values, count, width_};
  }
  // Calls use(arrayOf) for each of the arrays: arrayOf(chunk) is where it begins.
  template <typename Use>
  void forEachArray(Use use) const;
  Arrays makeArrays(std::size_t count) const;
  // Calls use(number, odd) with the chunks of the section that have odd cells, counted from its
  // first one.
  template <typename Use>
  void forEachOdd(std::size_t section, Use use) const;
  // What follows needs the guard, or that nobody else reads.
  std::unique_ptr<States> makeStates(std::size_t section) const;
  std::size_t memoryBytesOf(const States& states) const;
  void storeStates(std::size_t section, States& states) const;
  template <typename PlaceAt>
  void prefetchRulesAt(std::size_t section, std::size_t count, std::size_t i,
                       PlaceAt placeAt) const;
  const States* statesAt(std::size_t section, std::int64_t now) const;
  template <typename Use>
  void forEachSingle(std::size_t section, std::int64_t now, Use use) const;
  void showGroups(const States& states, std::optional<std::int64_t> before, std::int64_t now,
                  const Targets& to) const;
  std::int64_t show(std::size_t section, std::optional<std::int64_t> before, std::int64_t now,
                    const Targets& to) const;
  // Calls use(group, state, first, last, firstValue) with the runs of all groups at a usual second,
  // or with the parts of these that have changed since one before, and where the values of each
  // begin.
  template <typename Use>
  static void forEachRun(const States& states, std::optional<std::int64_t> before, std::int64_t now,
                         Use use);
  std::int64_t nextOfGroups(std::size_t section, std::int64_t now,
                            const DeletedPlaces& deleted) const;
  std::int64_t nextOfSingle(std::size_t section, std::int64_t now,
                            const DeletedPlaces& deleted) const;
  std::shared_ptr<const Snapshot> snapshot(std::size_t section, std::int64_t now) const;
  std::int64_t nextChangeOf(std::size_t section, std::int64_t now) const;

  ValueKind kind_;
  Rows& rows_;
  std::size_t width_;                           // bytes of a value
  std::size_t values_;                          // the array of the values
  std::size_t codes_;                           // of the codes; the same for bools
  std::vector<std::unique_ptr<OddCells>> odd_;  // by chunk; shorter, or null, where there are none
  std::vector<std::unique_ptr<Section>> sections_;  // the same
  bool haveRulesChanged_ = false;
};

// What the timed values of a section show, all of them at any second.
struct ColumnValues::States {
  std::vector<RhythmGroup> groups;
  // Those that are asked one by one, whatever the groups say of them: the ones of which rules are
  // not usual or rhythms rare, and those that have changed since, also to values that are not
  // timed.
  std::vector<std::uint16_t> single;
  std::bitset<sectionRows> isSingle;
  // The second, if any, for which what the groups say was put into the section's arrays.
  std::optional<std::int64_t> shown;
  // Of the groups, one behind the other, the values of each state in the group's order; the odd
  // ones are null where the arrays tell all.
  Arrays values;
  // Of integers that lie so close together how far each is above the least one; else null. What is
  // decided once mostly waits for what it reads: by these it took three quarters of the time.
  std::unique_ptr<std::uint8_t[]> distances;
  std::int32_t least = 0;

  bool makeSingle(std::size_t place) noexcept;
  void measureDistances(const std::int32_t* numbers, std::size_t count);
  bool areAllGrouped(std::size_t rows) const noexcept;
  bool isSkipped(std::size_t place, const DeletedPlaces& deleted) const noexcept;
};

template <typename Use>
void ColumnValues::forEachArray(Use use) const {
  switch (kind_) {
    case ValueKind::integer:
      use([](const Chunk& chunk) { return chunk.numbers(); });
      break;
    case ValueKind::real:
      use([](const Chunk& chunk) { return chunk.reals(); });
      break;
    case ValueKind::longInteger:
      use([](const Chunk& chunk) { return chunk.longs(); });
      break;
    case ValueKind::doubleReal:
      use([](const Chunk& chunk) { return chunk.doubles(); });
      break;
    case ValueKind::boolean:
      break;  // its code is all
    case ValueKind::text:
    case ValueKind::unknown:
      use([](const Chunk& chunk) { return chunk.texts(); });
      break;
  }
  if (codes_ != values_ || kind_ == ValueKind::boolean) {
    use([](const Chunk& chunk) { return chunk.codes; });
  }
}

}  // namespace velmora
