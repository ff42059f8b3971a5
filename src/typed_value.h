// TypedValue: one value of a column by its type, as the strict language reads it, without a copy of
// its text. What a text tells where no array does; and the text that a value is kept as where one
// is needed, as a key or a state.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "answer.h"
#include "cell.h"
#include "value.h"

namespace velmora {

struct TypedValue {
  union {
    std::int64_t integer = 0;  // of a bool 1 or 0
    double real;
  };
  std::string_view text;  // there as long as the value is
  AnswerType type = AnswerType::null;

  static TypedValue ofInteger(std::int64_t value) noexcept {
    TypedValue made;
    made.integer = value;
    made.type = AnswerType::integer;
    return made;
  }
  static TypedValue ofReal(double value) noexcept {
    TypedValue made;
    made.real = value;
    made.type = AnswerType::real;
    return made;
  }
  static TypedValue ofBoolean(bool value) noexcept {
    TypedValue made = ofInteger(value ? 1 : 0);
    made.type = AnswerType::boolean;
    return made;
  }
  static TypedValue ofText(std::string_view value) noexcept {
    TypedValue made;
    made.text = value;
    made.type = AnswerType::text;
    return made;
  }
};

// What a text is in a column of the kind: null for the missing value, and where a number belongs
// for what is none.
TypedValue typedValue(ValueKind kind, std::string_view text);
// A view of a value.
inline TypedValue typedValue(const Value& value) noexcept {
  if (const auto* const whole = std::get_if<std::int64_t>(&value)) {
    return TypedValue::ofInteger(*whole);
  }
  if (const auto* const real = std::get_if<double>(&value)) return TypedValue::ofReal(*real);
  if (const auto* const truth = std::get_if<bool>(&value)) return TypedValue::ofBoolean(*truth);
  if (const auto* const text = std::get_if<std::string>(&value)) return TypedValue::ofText(*text);
  return {};
}
// A copy of it that stays.
Value ownedValue(const TypedValue& value);

// The text by which a column of the kind keeps the value: what reads back as it. A number of either
// sort goes into a column of either.
std::string textOf(ValueKind kind, const TypedValue& value);

}  // namespace velmora
