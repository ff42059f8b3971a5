// The order of values: numbers as numbers, whatever their types, texts by their bytes, false before
// true, null before all.
#pragma once

#include <compare>
#include <limits>

#include "../typed_value.h"

namespace velmora::query {

// Holds every whole number of 64 bits and every double as it is.
using Number = long double;
static_assert(std::numeric_limits<Number>::digits >= 64);

inline Number numberOf(const TypedValue& value) noexcept {
  return value.type == AnswerType::integer ? static_cast<Number>(value.integer)
                                           : static_cast<Number>(value.real);
}

// Of two values that are given and comparable: below, at or above 0.
inline int compareGiven(const TypedValue& a, const TypedValue& b) noexcept {
  const auto compare = [](const auto& x, const auto& y) { return (x > y) - (x < y); };
  if (a.type == AnswerType::text) return a.text.compare(b.text);
  if (a.type != b.type) return compare(numberOf(a), numberOf(b));
  return a.type == AnswerType::real ? compare(a.real, b.real) : compare(a.integer, b.integer);
}

inline int compareValues(const TypedValue& a, const TypedValue& b) noexcept {
  const bool isGiven = a.type != AnswerType::null;
  const bool isOtherGiven = b.type != AnswerType::null;
  if (!isGiven || !isOtherGiven) return (isGiven ? 1 : 0) - (isOtherGiven ? 1 : 0);
  return compareGiven(a, b);
}

}  // namespace velmora::query
