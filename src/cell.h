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

// How values of a type compare, convert and are stored. ApexInt behaves like int but for its
// numbering.
enum class ValueKind : std::uint8_t { integer, real, boolean, text, unknown };
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

// A timed value: states passed through by wall-clock time, once or cycling.
struct TempRule {
  mutable std::int32_t currentIndex = 0;  // the state last found current; any reader may rewrite it
  std::vector<TempState> states;
  std::int64_t startTime = 0;    // seconds since the epoch at which the first state began
  std::int64_t cycleLength = 0;  // seconds of one pass through all states
  bool repeat = false;

  // Recomputes currentIndex for the second `now` and returns it. With no states it is left as it
  // is. Readers may do this beside each other.
  std::int32_t calculateIndex(std::int64_t now) const noexcept;

  // The value in force at the second `now`; throws std::out_of_range when there are no states.
  std::string_view valueAt(std::int64_t now) const;

  // The first state whose value the cell can still show: 0 when it cycles, else the current one.
  std::size_t firstComingState(std::int64_t now) const noexcept;
};

struct Cell {
  Text value;  // of a plain cell; of a timed key cell the text under which the key map files it
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

static_assert(sizeof(Cell) == 24);

// a < b by the rules of a type; bools order only false before true, unknown types never.
bool comesBefore(ValueKind kind, std::string_view a, std::string_view b);

// Calls use(text) for each text that the cell holds now or can hold later: the values that a
// foreign key has to find.
template <typename Use>
void forEachKeyText(const Cell& cell, std::int64_t now, Use use) {
  if (cell.tempRule == nullptr) {
    use(cell.value.view());
    return;
  }
  const TempRule& rule = *cell.tempRule;
  for (std::size_t i = rule.firstComingState(now); i < rule.states.size(); ++i) {
    use(rule.states[i].value.view());
  }
}

}  // namespace velmora
