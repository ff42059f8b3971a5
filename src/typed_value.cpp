// See typed_value.h.
#include "typed_value.h"

#include <cmath>
#include <type_traits>

#include "number.h"

namespace velmora {
namespace {

// The number that convert(text, number) reads, or null if there is none.
template <typename Number, typename Convert>
TypedValue numberOf(std::string_view text, Convert convert) {
  Number value = 0;
  if (convert(text, value) != Conversion::ok) return {};
  if constexpr (std::is_integral_v<Number>) {
    return TypedValue::ofInteger(value);
  } else {
    return std::isnan(value) ? TypedValue() : TypedValue::ofReal(static_cast<double>(value));
  }
}

template <typename Number>
std::string shortest(Number value) {
  char room[maxNumberText];
  return {room, writeShortest(room, value)};
}

double realOf(const TypedValue& value) {
  return value.type == AnswerType::integer ? static_cast<double>(value.integer) : value.real;
}

}  // namespace

TypedValue typedValue(ValueKind kind, std::string_view text) {
  if (text == missingValue) return {};
  switch (kind) {
    case ValueKind::integer:
      return numberOf<std::int32_t>(text, convertInt);
    case ValueKind::longInteger:
      return numberOf<std::int64_t>(text, convertLong);
    case ValueKind::real:
      return numberOf<float>(text, convertFloat);
    case ValueKind::doubleReal:
      return numberOf<double>(text, convertDouble);
    case ValueKind::boolean:
      return TypedValue::ofBoolean(isTrueText(text));
    case ValueKind::text:
    case ValueKind::unknown:
      break;
  }
  return TypedValue::ofText(text);
}

Value ownedValue(const TypedValue& value) {
  switch (value.type) {
    case AnswerType::null:
      break;
    case AnswerType::integer:
      return value.integer;
    case AnswerType::real:
      return value.real;
    case AnswerType::boolean:
      return value.integer != 0;
    case AnswerType::text:
      return std::string(value.text);
  }
  return {};
}

std::string textOf(ValueKind kind, const TypedValue& value) {
  if (value.type == AnswerType::null) return std::string(missingValue);
  switch (kind) {
    case ValueKind::integer:
    case ValueKind::longInteger:
      return std::to_string(value.integer);
    case ValueKind::real:
      return shortest(static_cast<float>(realOf(value)));
    case ValueKind::doubleReal:
      return shortest(realOf(value));
    case ValueKind::boolean:
      return value.integer != 0 ? "true" : "false";
    case ValueKind::text:
    case ValueKind::unknown:
      break;
  }
  return std::string(value.text);
}

}  // namespace velmora
