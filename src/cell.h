// Cells and timed values: one stored value of one row, and the states it may pass through.
//
// A value is kept as text and read by its column's type. A cell with a TempRule shows the state
// that the wall clock selects at the moment of reading; nothing runs in the background.
#pragma once

#include <array>
#include <cstdint>
#include <memory>
#include <string_view>
#include <vector>

#include "text.h"

namespace velmora {

// The type names a column may have, in no particular order; the one list of them.
inline constexpr std::array<std::string_view, 5> typeNames = {"int", "string", "ApexInt", "float",
                                                              "bool"};

// Types that the plain functions do not know. No column can be called so, since a table file tells
// its column names from its types by them.
inline constexpr std::string_view longType = "/long";
inline constexpr std::string_view doubleType = "/double";
// Whether a table file can have columns of the type.
bool isStoredType(std::string_view typeName) noexcept;

// How values of a type compare, convert and are stored. ApexInt behaves like int but for its
// numbering; longInteger and doubleReal are the same in 64 bits.
enum class ValueKind : std::uint8_t {
  integer,
  real,
  boolean,
  text,
  unknown,
  longInteger,
  doubleReal
};
ValueKind valueKind(std::string_view typeName) noexcept;

// What a cell holds to which no value was given; readers see it as null.
inline constexpr std::string_view missingValue = "#/#?";

// A bool's text counts as true when it is one of two words.
inline bool isTrueText(std::string_view text) noexcept { return text == "true" || text == "1"; }

// One state of a timed value.
struct TempState {
  Text value;
  std::int64_t duration = 0;  // seconds
};

bool isUsualSecond(std::int64_t second) noexcept;

// A timed value: states passed through by wall-clock time, once or cycling.
struct TempRule {
  std::vector<TempState> states;
  std::int64_t startTime = 0;    // seconds since the epoch at which the first state began
  std::int64_t cycleLength = 0;  // seconds of one pass through all states
  bool repeat = false;

  // Whether changes at usual seconds can be told from the durations: what no clock shows and no
  // command gives may wrap.
  bool isUsual() const noexcept;
  // The state in force at the second `now`; 0 when there are none.
  std::size_t calculateIndex(std::int64_t now) const noexcept;
  // The value in force at the second `now`; throws std::out_of_range when there are no states.
  std::string_view valueAt(std::int64_t now) const;
  // A second up to which the state in force at the second `now` stays; behind that the rule has to
  // be asked again.
  std::int64_t nextChange(std::int64_t now) const noexcept;
  // The first second behind `now` at which another value is shown; the largest number if none is.
  // Where durations or seconds are absurd it may be too early.
  std::int64_t nextValueChange(std::int64_t now) const noexcept;

  // Calls use(text) for each value that is shown now or can be shown later: all of them when it
  // cycles, else those from the current one on.
  template <typename Use>
  void forEachComingText(std::int64_t now, Use use) const {
    for (std::size_t i = repeat ? 0 : calculateIndex(now); i < states.size(); ++i) {
      use(states[i].value.view());
    }
  }
};

// A value on its own: what a command gives to a column, or what a row held.
struct Cell {
  Text value;  // of a timed key cell the text under which the key map files it
  std::unique_ptr<TempRule> tempRule;  // null for a plain cell

  Cell() = default;
  explicit Cell(Text value_) : value(std::move(value_)) {}
  // Copies are deep: a timed cell's copy has a rule of its own.
  Cell(const Cell& other);
  Cell& operator=(const Cell& other);
  Cell(Cell&&) noexcept = default;
  Cell& operator=(Cell&&) noexcept = default;
  ~Cell() = default;

  // The value in force at the second `now`, valid until the cell changes. Throws
  // std::out_of_range for a rule without states.
  std::string_view valueAt(std::int64_t now) const {
    return tempRule == nullptr ? value.view() : tempRule->valueAt(now);
  }
};

// a < b by the rules of a type; bools order only false before true, unknown types never.
bool comesBefore(ValueKind kind, std::string_view a, std::string_view b);

}  // namespace velmora
