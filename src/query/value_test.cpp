// See value_test.h.
#include "value_test.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <type_traits>
#include <utility>

#include "row_mask.h"
#include "value_order.h"

namespace velmora::query {
namespace {

using strict::Operator;

bool holds(Operator op, int order) noexcept {
  switch (op) {
    case Operator::equal:
      return order == 0;
    case Operator::notEqual:
      return order != 0;
    case Operator::less:
      return order < 0;
    case Operator::greater:
      return order > 0;
    case Operator::lessOrEqual:
      return order <= 0;
    case Operator::greaterOrEqual:
      return order >= 0;
    case Operator::isNull:
    case Operator::isNotNull:
      break;
  }
  return false;
}

// The neighbours of a number among the values of a type: the largest not above it, the smallest not
// below it, the largest below it and the smallest above it.
struct Neighbours {
  Number notAbove, notBelow, below, above;
};

template <typename Value>
Neighbours neighboursOf(Number number) {
  if constexpr (std::is_integral_v<Value>) {
    const Number floor = std::floor(number);
    const Number ceiling = std::ceil(number);
    return {floor, ceiling, ceiling - 1, floor + 1};
  } else {
    constexpr Value infinity = std::numeric_limits<Value>::infinity();
    const auto nearest = static_cast<Value>(number);
    const Value lower = std::nextafter(nearest, -infinity);
    const Value upper = std::nextafter(nearest, infinity);
    const auto wide = [](Value value) { return static_cast<Number>(value); };
    return {wide(wide(nearest) <= number ? nearest : lower),
            wide(wide(nearest) >= number ? nearest : upper),
            wide(wide(nearest) < number ? nearest : lower),
            wide(wide(nearest) > number ? nearest : upper)};
  }
}

template <typename Value>
ValueRange<Value> rangeOf(Operator op, Number wanted) {
  const Neighbours near = neighboursOf<Value>(wanted);
  Number least = std::numeric_limits<Value>::lowest();
  Number most = std::numeric_limits<Value>::max();
  if constexpr (!std::is_integral_v<Value>) {
    most = std::numeric_limits<Number>::infinity();
    least = -most;
  }
  Number low = least;
  Number high = most;
  if (op == Operator::equal || op == Operator::notEqual) {
    low = near.notBelow;
    high = near.notAbove;
  }
  if (op == Operator::less) high = near.below;
  if (op == Operator::lessOrEqual) high = near.notAbove;
  if (op == Operator::greater) low = near.above;
  if (op == Operator::greaterOrEqual) low = near.notBelow;
  ValueRange<Value> range;
  range.isOutside = op == Operator::notEqual;
  const bool isNothingBeyond =
      (op == Operator::less && wanted <= least) || (op == Operator::greater && wanted >= most);
  if (low > high || low > most || high < least || isNothingBeyond) return range;
  range.low = static_cast<Value>(std::max(low, least));
  range.high = static_cast<Value>(std::min(high, most));
  return range;
}

template <typename Value>
void decideRange(const ValueRange<Value>& range, const Value* values, std::size_t size,
                 std::uint8_t* matches) {
  const Value low = range.low;
  const Value high = range.high;
  if (!range.isOutside) {
    for (std::size_t i = 0; i < size; ++i) {
      matches[i] = static_cast<std::uint8_t>((values[i] >= low) & (values[i] <= high));
    }
    return;
  }
  // Outside of nothing is everything but NaN.
  const bool isAny = low > high;
  for (std::size_t i = 0; i < size; ++i) {
    const bool isGiven = values[i] == values[i];
    matches[i] =
        static_cast<std::uint8_t>(isGiven & (isAny | (values[i] < low) | (values[i] > high)));
  }
}

// The same range in values of another type, which has those of both ends.
template <typename To, typename From>
ValueRange<To> rangeAs(const ValueRange<From>& range) {
  return {static_cast<To>(range.low), static_cast<To>(range.high), range.isOutside};
}

// The same for how far values lie above that least one, if that is so far at the most.
ValueRange<std::uint8_t> rangeAbove(std::int64_t least, const ValueRange<std::int64_t>& range) {
  constexpr std::int64_t farthest = std::numeric_limits<std::uint8_t>::max();
  ValueRange<std::uint8_t> above;
  above.isOutside = range.isOutside;
  const std::int64_t low = std::max<std::int64_t>(range.low - least, 0);
  const std::int64_t high = std::min(range.high - least, farthest);
  if (range.low > range.high || low > high) return above;
  above.low = static_cast<std::uint8_t>(low);
  above.high = static_cast<std::uint8_t>(high);
  return above;
}

template <typename IsNull>
void decideNulls(Operator op, std::size_t size, std::uint8_t* matches, IsNull isNull) {
  const bool isWanted = op == Operator::isNull;
  for (std::size_t i = 0; i < size; ++i) {
    matches[i] = static_cast<std::uint8_t>(isNull(i) == isWanted);
  }
}

}  // namespace

ValueTest::ValueTest(Operator op, const ColumnValues& column, TypedValue wanted)
    : column_(&column), op_(op), wanted_(wanted) {
  if (wanted_.type != AnswerType::real) return;
  if (std::isnan(wanted_.real)) wanted_ = {};
  if (column.kind() != ValueKind::real) return;
  // What would be rounded to nothing is no value of the column, and not 0.
  const auto narrowed = static_cast<float>(wanted_.real);
  if (narrowed != 0) wanted_.real = static_cast<double>(narrowed);
}

bool ValueTest::matches(const TypedValue& value) const noexcept {
  const bool isNull = value.type == AnswerType::null;
  if (isAboutNull()) return isNull == (op_ == Operator::isNull);
  if (isNull || wanted_.type == AnswerType::null) return false;
  return holds(op_, compareGiven(value, wanted_));
}

void ValueTest::decide(std::size_t chunk, std::int64_t now, std::size_t size,
                       std::uint8_t* matches) {
  if (!isAboutNull() && wanted_.type == AnswerType::null) {
    std::fill_n(matches, size, std::uint8_t{0});
    return;
  }
  if (!hasRange_) makeRange();
  Fresh& fresh = freshOf(chunk, now);
  if (fresh.values.states != nullptr) {
    if (!fresh.isDecided) decideFresh(fresh, now);
    const std::size_t first = chunk % ColumnValues::sectionChunks * Rows::chunkRows;
    std::copy_n(fresh.matches.data() + first, size, matches);
    return;
  }
  const ColumnValues::ChunkAt at = column_->chunkAt(chunk, now);
  std::exchange(next_, {}).beside(size, [&](std::size_t first, std::size_t end) {
    decideArrays(column_->from(at.arrays, first), end - first, matches + first);
  });
  if (at.arrays.odd == nullptr) return;
  forEachSet(at.arrays.odd, size, ColumnValues::unclear, [&](std::size_t place) {
    const TypedValue value = column_->value(at.arrays, chunk * Rows::chunkRows + place, now);
    matches[place] = static_cast<std::uint8_t>(this->matches(value));
  });
}

void ValueTest::readAhead(std::size_t chunk, std::int64_t now) {
  const bool isFresh = freshOf(chunk, now).values.states != nullptr;
  next_ = isFresh ? ReadAhead() : column_->readAhead(chunk, now);
}

ValueTest::Fresh& ValueTest::freshOf(std::size_t chunk, std::int64_t now) {
  const std::size_t section = ColumnValues::sectionOf(chunk);
  Fresh& fresh = fresh_[section % 2];
  if (fresh.section != section) {
    column_->readFresh(section, now, fresh.values);
    fresh.section = section;
    fresh.isDecided = false;
  }
  return fresh;
}

void ValueTest::makeRange() {
  hasRange_ = true;
  if (isAboutNull()) return;
  switch (column_->kind()) {
    case ValueKind::integer:
      integers_ = rangeAs<std::int64_t>(rangeOf<std::int32_t>(op_, numberOf(wanted_)));
      break;
    case ValueKind::longInteger:
      integers_ = rangeOf<std::int64_t>(op_, numberOf(wanted_));
      break;
    case ValueKind::real:
      reals_ = rangeAs<double>(rangeOf<float>(op_, numberOf(wanted_)));
      break;
    case ValueKind::doubleReal:
      reals_ = rangeOf<double>(op_, numberOf(wanted_));
      break;
    case ValueKind::boolean:
    case ValueKind::text:
    case ValueKind::unknown:
      break;
  }
}

void ValueTest::decideFresh(Fresh& fresh, std::int64_t now) const {
  const ColumnValues::FreshSection& values = fresh.values;
  const std::size_t firstChunk = fresh.section * ColumnValues::sectionChunks;
  const std::size_t size = column_->rowsOf(fresh.section);
  fresh.isDecided = true;
  fresh.matches.resize(size);
  std::uint8_t* const matches = fresh.matches.data();
  const auto ask = [&](std::size_t place) {
    matches[place] =
        static_cast<std::uint8_t>(matchesRow(firstChunk * Rows::chunkRows + place, now));
  };
  if (values.states->areAllGrouped(size)) {
    std::fill_n(matches, size, std::uint8_t{0});
  } else {  // the arrays are right for cells that are not timed
    for (std::size_t first = 0; first < size; first += Rows::chunkRows) {
      const ColumnValues::Chunk arrays = column_->chunk(firstChunk + Rows::chunkOf(first));
      const std::size_t count = std::min(Rows::chunkRows, size - first);
      decideArrays(arrays, count, matches + first);
      if (arrays.odd == nullptr) continue;
      forEachSet(arrays.odd, count, ColumnValues::unclear,
                 [&](std::size_t place) { ask(first + place); });
    }
    for (const auto& run : values.runs) {
      for (const std::uint16_t place : run.places) matches[place] = 0;
    }
  }
  decideRuns(values, matches);
  for (const auto& run : values.runs) {
    if (run.arrays.odd == nullptr) break;
    forEachSet(run.arrays.odd, run.places.size(), ColumnValues::unclear,
               [&](std::size_t i) { ask(run.places[i]); });
  }
  for (const std::uint16_t place : values.states->single) ask(place);
}

// Marks the places of the values that pass. They are on their way into the cache while the values
// that follow are decided.
void ValueTest::decideRuns(const ColumnValues::FreshSection& fresh, std::uint8_t* matches) const {
  const ValueRange<std::uint8_t> range = rangeAbove(fresh.states->least, integers_);
  alignas(64) std::uint8_t passes[Rows::chunkRows];
  std::uint16_t passing[Rows::chunkRows];
  const std::uint16_t* found[2][Rows::chunkRows];
  std::size_t counts[2] = {0, 0};
  std::size_t newer = 0;
  const auto markOlder = [&] {
    newer ^= 1;
    for (std::size_t i = 0; i < counts[newer]; ++i) matches[*found[newer][i]] = 1;
  };
  for (const auto& run : fresh.runs) {
    for (std::size_t first = 0; first < run.places.size(); first += Rows::chunkRows) {
      const std::size_t size = std::min(Rows::chunkRows, run.places.size() - first);
      if (run.distances != nullptr && !isAboutNull()) {
        decideRange(range, run.distances + first, size, passes);
      } else {
        decideArrays(column_->from(run.arrays, first), size, passes);
      }
      const std::size_t count = placesOf(passes, size, passing);
      for (std::size_t i = 0; i < count; ++i) {
        found[newer][i] = &run.places[first + passing[i]];
        __builtin_prefetch(found[newer][i]);
      }
      counts[newer] = count;
      markOlder();
    }
  }
  markOlder();
}

void ValueTest::decideArrays(const ColumnValues::Chunk& arrays, std::size_t size,
                             std::uint8_t* matches) const {
  const auto byRange = [&](const auto* values) {
    using Element = std::remove_cvref_t<decltype(*values)>;
    if (!isAboutNull()) {
      if constexpr (std::is_integral_v<Element>) {
        decideRange(rangeAs<Element>(integers_), values, size, matches);
      } else {
        decideRange(rangeAs<Element>(reals_), values, size, matches);
      }
    } else {
      decideNulls(op_, size, matches, [=](std::size_t i) { return values[i] != values[i]; });
    }
  };
  switch (column_->kind()) {
    case ValueKind::integer:
      byRange(arrays.numbers());
      break;
    case ValueKind::longInteger:
      byRange(arrays.longs());
      break;
    case ValueKind::real:
      byRange(arrays.reals());
      break;
    case ValueKind::doubleReal:
      byRange(arrays.doubles());
      break;
    case ValueKind::boolean: {
      const auto passes = [&](bool value) { return this->matches(TypedValue::ofBoolean(value)); };
      const unsigned codes = (passes(false) ? 1U : 0U) | (passes(true) ? 2U : 0U) |
                             (op_ == Operator::isNull ? 4U : 0U);
      for (std::size_t i = 0; i < size; ++i) {
        matches[i] = static_cast<std::uint8_t>((codes >> arrays.codes[i]) & 1U);
      }
      break;
    }
    case ValueKind::text:
    case ValueKind::unknown:
      decideTexts(arrays, size, matches);
      break;
  }
}

// What the codes or the beginnings of texts do not settle is looked at text by text.
void ValueTest::decideTexts(const ColumnValues::Chunk& arrays, std::size_t size,
                            std::uint8_t* matches) const {
  static const std::uint8_t missingCode = Text(missingValue).fingerprint();
  // Texts are so large that the processor does not fetch them in time by itself.
  constexpr std::size_t textsAhead = 64;
  const bool isEquality = op_ == Operator::equal || op_ == Operator::notEqual;
  const Text wanted(wanted_.text);
  const Text* const texts = arrays.texts();
  const std::uint8_t* const codes = arrays.codes;
  alignas(64) std::uint8_t isOpen[Rows::chunkRows];
  if (isEquality || isAboutNull()) {
    const std::uint8_t code = isEquality ? wanted.fingerprint() : missingCode;
    const bool isUsual = op_ == Operator::notEqual || op_ == Operator::isNotNull;
    std::fill_n(matches, size, static_cast<std::uint8_t>(isUsual));
    for (std::size_t i = 0; i < size; ++i) {
      isOpen[i] = static_cast<std::uint8_t>((codes[i] == code) | (codes[i] == missingCode));
    }
  } else {
    const std::uint64_t beginning = wanted.beginning();
    const bool isLess = op_ == Operator::less || op_ == Operator::lessOrEqual;
    for (std::size_t i = 0; i < size; ++i) {
      __builtin_prefetch(texts + i + textsAhead);
      const std::uint64_t own = texts[i].beginning();
      matches[i] = static_cast<std::uint8_t>((own < beginning) == isLess);
      isOpen[i] = static_cast<std::uint8_t>((own == beginning) | (codes[i] == missingCode));
    }
  }
  const auto passes = [&](std::size_t i) {
    if (arrays.isNullText(i)) return op_ == Operator::isNull;
    if (isAboutNull()) return op_ == Operator::isNotNull;
    if (isEquality) return (texts[i] == wanted) == (op_ == Operator::equal);
    return holds(op_, texts[i].view().compare(wanted_.text));
  };
  forEachSet(isOpen, size, 1,
             [&](std::size_t i) { matches[i] = static_cast<std::uint8_t>(passes(i)); });
}

}  // namespace velmora::query
