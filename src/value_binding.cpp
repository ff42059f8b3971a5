// See value_binding.h.
#include "value_binding.h"

#include <algorithm>
#include <cfloat>
#include <charconv>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <limits>
#include <stdexcept>

#include "number.h"

namespace velmora {
namespace {

constexpr char placeholder = '?';

void appendInteger(std::string& out, std::int64_t value) {
  if (value < std::numeric_limits<std::int32_t>::min() ||
      value > std::numeric_limits<std::int32_t>::max()) {
    throw std::runtime_error("is an integer outside 32 bits");
  }
  appendInt(out, value);
}

// The shortest text that the engine, which computes with 32-bit floats, reads as the same number.
void appendFloat(std::string& out, double value) {
  if (!std::isfinite(value)) throw std::runtime_error("is a float that is not finite");
  constexpr const char* unreadable = "is a float that the engine cannot read back";
  if (std::fabs(value) > static_cast<double>(FLT_MAX)) throw std::runtime_error(unreadable);
  const auto narrowed = static_cast<float>(value);
  char digits[maxNumberText];
  const char* const end =
      std::to_chars(digits, digits + sizeof digits, narrowed, std::chars_format::fixed).ptr;
  const std::string_view text(digits, static_cast<std::size_t>(end - digits));
  float readBack = 0;
  const bool isRead = convertFloat(text, readBack) == Conversion::ok && readBack == narrowed;
  const bool hasVanished = value != 0 && narrowed == 0;
  if (!isRead || hasVanished) throw std::runtime_error(unreadable);
  out += text;
}

// Literals have no escapes: one ends at the quote that it began with.
void appendText(std::string& out, std::string_view text) {
  const auto holds = [&](char c) { return text.find(c) != std::string_view::npos; };
  if (holds('\0')) throw std::runtime_error("is a text with a NUL");
  if (holds('\'') && holds('"')) throw std::runtime_error("is a text with both kinds of quotes");
  if (findClockMarker(text) != std::string_view::npos) {
    throw std::runtime_error("is a text with a clock marker and digits");
  }
  const char quote = holds('\'') ? '"' : '\'';
  out += quote;
  out += text;
  out += quote;
}

// A host may have put any number there, which must not be read as an enumeration.
int typeOf(const velmora_value& value) {
  int type = 0;
  static_assert(sizeof type == sizeof value.type);
  std::memcpy(&type, &value.type, sizeof type);
  return type;
}

void appendValue(std::string& out, const velmora_value& value) {
  switch (typeOf(value)) {
    case VELMORA_INTEGER:
      return appendInteger(out, value.integer);
    case VELMORA_FLOAT:
      return appendFloat(out, value.real);
    case VELMORA_BOOL:
      out += value.boolean != 0 ? "true" : "false";
      return;
    case VELMORA_TEXT:
      if (value.text == nullptr && value.text_size > 0) throw std::runtime_error("has no text");
      return appendText(out, std::string_view(value.text, value.text_size));
    default:
      throw std::runtime_error("is of no known type");
  }
}

// Whether a value may not touch this character: together they could be read as another token.
bool isPartOfToken(char c) {
  return isLetter(c) || isDigit(c) || c == '_' || c == '.' || c == '-' || c == placeholder;
}

// The position behind the literal that begins there; the text's end for one that is not ended.
std::size_t literalEnd(std::string_view text, std::size_t begin) {
  const std::size_t quote = text.find(text[begin], begin + 1);
  return quote == std::string_view::npos ? text.size() : quote + 1;
}

std::string counted(std::size_t count, std::string_view what) {
  return std::to_string(count) + " " + std::string(what) + (count == 1 ? "" : "s");
}

[[noreturn]] void throwWrongCount(std::size_t placeholders, std::size_t values) {
  throw std::runtime_error("Command has " + counted(placeholders, "placeholder") + " for " +
                           counted(values, "value"));
}

}  // namespace

BoundCommand bindValues(std::string_view text, std::span<const velmora_value> values) {
  BoundCommand command;
  std::string& bound = command.text;
  bound.reserve(text.size() + 16 * values.size());
  std::size_t count = 0;
  for (std::size_t i = 0; i < text.size();) {
    if (text[i] != placeholder) {
      const bool isQuote = text[i] == '\'' || text[i] == '"';
      const std::size_t end = isQuote ? literalEnd(text, i) : i + 1;
      bound += text.substr(i, end - i);
      i = end;
      continue;
    }
    ++i;
    if (count++ >= values.size()) continue;  // only to be counted
    if (!bound.empty() && isPartOfToken(bound.back())) bound += ' ';
    const velmora_value& value = values[count - 1];
    if (typeOf(value) == VELMORA_FLOAT) command.floats.push_back({bound.size(), count});
    try {
      appendValue(bound, value);
    } catch (const std::runtime_error& error) {
      throw std::runtime_error("Parameter " + std::to_string(count) + " " + error.what());
    }
    if (i < text.size() && isPartOfToken(text[i])) bound += ' ';
  }
  if (count != values.size()) throwWrongCount(count, values.size());
  return command;
}

}  // namespace velmora
