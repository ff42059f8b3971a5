// See record_values.h. The bytes are written into room made for the longest form of all values.
#include "record_values.h"

#include <bit>
#include <charconv>
#include <cmath>
#include <cstring>

namespace velmora {
namespace {

constexpr std::size_t floatDigits = 16;
constexpr std::size_t longestNumber = 20;  // -9223372036854775808

std::size_t mostBytes(const Value& value) noexcept {
  const auto* const text = std::get_if<std::string>(&value);
  return text != nullptr ? 2 * text->size() + 2 : longestNumber;
}

char* write(char* out, std::monostate /*null*/) noexcept {
  *out = 'n';
  return out + 1;
}

char* write(char* out, std::int64_t number) noexcept {
  return std::to_chars(out, out + longestNumber, number).ptr;
}

char* write(char* out, double number) noexcept {
  const auto bits = std::bit_cast<std::uint64_t>(number);
  *out++ = 'x';
  for (int shift = 60; shift >= 0; shift -= 4) *out++ = "0123456789abcdef"[bits >> shift & 15];
  return out;
}

char* write(char* out, bool isTrue) noexcept {
  *out = isTrue ? 't' : 'f';
  return out + 1;
}

char* write(char* out, const std::string& text) noexcept {
  *out++ = '\'';
  const char* from = text.data();
  const char* const end = from + text.size();
  while (const void* const found = std::memchr(from, '\'', static_cast<std::size_t>(end - from))) {
    const char* const behind = static_cast<const char*>(found) + 1;
    std::memcpy(out, from, static_cast<std::size_t>(behind - from));
    out += behind - from;
    *out++ = '\'';
    from = behind;
  }
  std::memcpy(out, from, static_cast<std::size_t>(end - from));
  out += end - from;
  *out++ = '\'';
  return out;
}

// Each takes a value off the text's beginning; false if there is none such.
bool takeFloat(std::string_view& text, Value& value) {
  std::uint64_t bits = 0;
  const std::string_view digits = text.substr(1, floatDigits);
  const auto [end, error] = std::from_chars(digits.data(), digits.data() + digits.size(), bits, 16);
  const auto number = std::bit_cast<double>(bits);
  if (end != digits.data() + floatDigits || error != std::errc() || !std::isfinite(number)) {
    return false;
  }
  text.remove_prefix(1 + floatDigits);
  value = number;
  return true;
}

bool takeWhole(std::string_view& text, Value& value) {
  std::int64_t number = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
  if (error != std::errc()) return false;
  text.remove_prefix(static_cast<std::size_t>(end - text.data()));
  value = number;
  return true;
}

bool takeText(std::string_view& text, Value& value) {
  std::string& content = value.emplace<std::string>();
  do {
    text.remove_prefix(1);  // the first quote, or the second of two
    const std::size_t end = text.find('\'');
    if (end == std::string_view::npos) return false;
    const bool isDoubled = end + 1 < text.size() && text[end + 1] == '\'';
    content += text.substr(0, end + (isDoubled ? 1 : 0));
    text.remove_prefix(end + 1);
  } while (text.starts_with('\''));
  return true;
}

bool takeValue(std::string_view& text, Value& value) {
  if (text.empty()) return false;
  if (text.front() == '\'') return takeText(text, value);
  if (text.front() == 'x') return takeFloat(text, value);
  const bool isLetter = text.front() == 't' || text.front() == 'f' || text.front() == 'n';
  if (!isLetter) return takeWhole(text, value);
  if (text.front() != 'n') value = text.front() == 't';
  text.remove_prefix(1);
  return true;
}

}  // namespace

void appendValues(std::string& out, std::span<const Value> values) {
  const std::size_t size = out.size();
  std::size_t most = size;
  for (const Value& value : values) most += 1 + mostBytes(value);
  out.resize(most);
  char* end = out.data() + size;
  for (const Value& value : values) {
    *end++ = ' ';
    end = std::visit([end](const auto& held) { return write(end, held); }, value);
  }
  out.resize(static_cast<std::size_t>(end - out.data()));
}

std::optional<std::vector<Value>> takeValues(std::string_view& text) {
  std::vector<Value> values;
  while (text.starts_with(' ')) {
    text.remove_prefix(1);
    if (!takeValue(text, values.emplace_back())) return std::nullopt;
  }
  return values;
}

}  // namespace velmora
