// What tests of columns share: timed values, texts of cells, and what a chunk's arrays tell.
#pragma once

#include <bit>
#include <cstdint>
#include <limits>
#include <memory>
#include <optional>
#include <random>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "number.h"
#include "table.h"

namespace velmora {

inline Cell plainCell(std::string_view text) { return Cell(Text(text)); }

inline Cell timedCell(TempRule rule) {
  Cell cell;
  cell.tempRule = std::make_unique<TempRule>(std::move(rule));
  return cell;
}

struct State {
  std::string text;
  std::int64_t duration;
};

// A timed value whose pass is as long as its states together.
inline TempRule ruleOf(const std::vector<State>& states, bool repeat, std::int64_t startTime) {
  TempRule rule;
  for (const State& state : states) {
    rule.states.push_back({Text(state.text), state.duration});
    rule.cycleLength += state.duration;
  }
  rule.repeat = repeat;
  rule.startTime = startTime;
  return rule;
}

using Texts = std::vector<std::string>;

inline const Texts allTypes = {"int",    "ApexInt", "float", "bool",
                               "string", "other",   "/long", "/double"};

// Texts that a column of the kind takes: usual ones, odd ones, none.
inline Texts textsFor(ValueKind kind) {
  switch (kind) {
    case ValueKind::integer:
      return {"5", "-17", "2147483647", "05", "99999999999", "#/#?", "x"};
    case ValueKind::real:
      return {"5", "1.50", "-0", "0.123456", "1e5", "5.", "#/#?", "x", "1" + std::string(50, '0')};
    case ValueKind::boolean:
      return {"true", "false", "#/#?", "1", "yes"};
    case ValueKind::longInteger:
      return {"5", "-17", "9223372036854775807", "05", "99999999999999999999", "#/#?", "x"};
    case ValueKind::doubleReal:
      return {"5", "1.5", "-0", "1e+300", "0.1", "1.50", "1e999", "#/#?", "x"};
    default:
      return {"", "a", "a text longer than fifteen bytes", "another text that is long", "#/#?"};
  }
}

// What an appended row shows.
inline std::string_view unsetText(ValueKind kind) {
  const bool isWhole = kind == ValueKind::integer || kind == ValueKind::longInteger;
  return isWhole ? "0" : missingValue;
}

// A table of one column.
inline Table tableOf(const std::string& type) { return {"t", {{"c", type}}}; }

// Appends a row with this cell.
inline std::size_t add(Table& table, const Cell& cell, std::int64_t now = 0) {
  const std::size_t row = table.appendRow();
  table.set(row, 0, cell, now);
  return row;
}

inline bool isOdd(const Table& table, std::size_t row) {
  return table.values(0).chunk(Rows::chunkOf(row)).isOdd(Rows::placeOf(row));
}

inline std::string keyTextOf(const Table& table, std::size_t row) {
  TextRoom room;
  return std::string(table.values(0).keyText(row, room));
}

inline std::string textOf(const Table& table, std::size_t row, std::size_t column,
                          std::int64_t now) {
  TextRoom room;
  return std::string(table.text(row, column, now, room));
}

// The text of a float and its spelling, of which the float has to be the very value.
inline std::string toldFloat(float value, std::uint8_t spelling) {
  const auto bitsOf = [](float each) { return std::bit_cast<std::uint32_t>(each); };
  if (spelling == shortestSpelling) {
    TextRoom room;
    return {room, writeShortest(room, value)};
  }
  if (spelling == missingSpelling) {
    const bool isNone = bitsOf(value) == bitsOf(std::numeric_limits<float>::quiet_NaN());
    return isNone ? std::string(missingValue) : "(missing)";
  }
  TextRoom room;
  const std::string text(room, writeDecimals(room, value, spelling));
  return bitsOf(parseFloat(text)) == bitsOf(value) ? text : "(another value)";
}

// The text that a chunk's arrays tell for a row; nothing where they say that they do not.
inline std::optional<std::string> toldText(ValueKind kind, const ColumnValues::Chunk& chunk,
                                           std::size_t place) {
  if (chunk.isUnclear(place)) return std::nullopt;
  switch (kind) {
    case ValueKind::integer:
      return std::to_string(chunk.numbers()[place]);
    case ValueKind::real:
      return toldFloat(chunk.reals()[place], chunk.codes[place]);
    case ValueKind::boolean: {
      constexpr const char* texts[] = {"false", "true", "#/#?", "(odd)"};
      return texts[chunk.codes[place]];
    }
    case ValueKind::longInteger:
      return std::to_string(chunk.longs()[place]);
    case ValueKind::doubleReal: {
      if (chunk.codes[place] == missingSpelling) return std::string(missingValue);
      TextRoom room;
      return std::string(room, writeShortest(room, chunk.doubles()[place]));
    }
    default:
      break;
  }
  const Text& text = chunk.texts()[place];
  return text.fingerprint() == chunk.codes[place] ? std::string(text.view()) : "(fingerprint)";
}

// Numbers and choices that are the same in each run.
class Choices {
 public:
  explicit Choices(unsigned seed) : random_(seed) {}

  std::int64_t within(std::int64_t low, std::int64_t high) {
    return low + static_cast<std::int64_t>(random_() % static_cast<std::uint64_t>(high - low + 1));
  }
  // True once in so many times.
  bool oneIn(std::int64_t times) { return within(1, times) == 1; }
  template <typename Value>
  const Value& of(const std::vector<Value>& values) {
    return values[static_cast<std::size_t>(
        within(0, static_cast<std::int64_t>(values.size()) - 1))];
  }
  // A timed value of the texts, sane or not: states of no length, a pass that is not their sum, and
  // at times durations below zero.
  TempRule rule(const std::vector<std::string>& texts, std::int64_t firstStart,
                std::int64_t lastStart) {
    std::vector<State> states;
    for (std::int64_t i = within(1, 5); i > 0; --i) {
      states.push_back({of(texts), oneIn(4) ? 0 : within(oneIn(20) ? -5 : 0, 12)});
    }
    TempRule rule = ruleOf(states, oneIn(2), within(firstStart, lastStart));
    if (oneIn(4)) rule.cycleLength = within(-3, 40);
    return rule;
  }

 private:
  std::mt19937_64 random_;
};

}  // namespace velmora
