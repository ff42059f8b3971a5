// The two encodings.
#include "texts.h"

namespace velmora_node {
namespace {

bool isHighSurrogate(char16_t unit) { return (unit & 0xFC00U) == 0xD800U; }
bool isLowSurrogate(char16_t unit) { return (unit & 0xFC00U) == 0xDC00U; }

void append(std::string& to, char32_t character, int continuations, unsigned mark) {
  to += static_cast<char>(mark | (character >> (6 * continuations)));
  while (continuations-- > 0) {
    to += static_cast<char>(0x80U | ((character >> (6 * continuations)) & 0x3FU));
  }
}

void append(std::string& to, char32_t character) {
  if (character < 0x80) return append(to, character, 0, 0);
  if (character < 0x800) return append(to, character, 1, 0xC0);
  if (character < 0x10000) return append(to, character, 2, 0xE0);
  append(to, character, 3, 0xF0);
}

// The character at a place, which moves behind it.
char32_t characterAt(std::string_view text, std::size_t& place) {
  const auto byte = [&] { return static_cast<unsigned char>(text[place++]); };
  const char32_t first = byte();
  if (first < 0x80) return first;
  const int continuations = first < 0xE0 ? 1 : first < 0xF0 ? 2 : 3;
  char32_t character = first & (0x3FU >> continuations);
  for (int i = 0; i < continuations; ++i) character = (character << 6U) | (byte() & 0x3FU);
  return character;
}

}  // namespace

std::u16string utf16Of(napi_env env, napi_value string) {
  std::size_t length = 0;
  require(env, napi_get_value_string_utf16(env, string, nullptr, 0, &length));
  std::u16string text(length, u'\0');
  require(env, napi_get_value_string_utf16(env, string, text.data(), length + 1, nullptr));
  return text;
}

std::string utf8Of(napi_env env, napi_value string, const std::string& what) {
  napi_valuetype type = napi_undefined;
  require(env, napi_typeof(env, string, &type));
  if (type != napi_string) throwTypeError(env, what + " is not a string");
  std::string text;
  if (!appendUtf8(text, utf16Of(env, string))) throwTypeError(env, what + " has a lone surrogate");
  return text;
}

bool appendUtf8(std::string& to, std::u16string_view text) {
  for (std::size_t i = 0; i < text.size(); ++i) {
    char32_t character = text[i];
    if (isLowSurrogate(text[i])) return false;
    if (isHighSurrogate(text[i])) {
      if (++i == text.size() || !isLowSurrogate(text[i])) return false;
      character = 0x10000U + ((character & 0x3FFU) << 10U) + (text[i] & 0x3FFU);
    }
    append(to, character);
  }
  return true;
}

void appendUtf16(std::u16string& to, std::string_view text) {
  for (std::size_t place = 0; place < text.size();) {
    const char32_t character = characterAt(text, place);
    if (character < 0x10000) {
      to += static_cast<char16_t>(character);
    } else {
      to += static_cast<char16_t>(0xD7C0U + (character >> 10U));
      to += static_cast<char16_t>(0xDC00U | (character & 0x3FFU));
    }
  }
}

bool isAscii(std::string_view text) {
  unsigned all = 0;
  for (const char byte : text) all |= static_cast<unsigned char>(byte);
  return all < 0x80;
}

napi_value stringOf(napi_env env, std::string_view text) {
  napi_value string = nullptr;
  require(env, napi_create_string_utf8(env, text.data(), text.size(), &string));
  return string;
}

}  // namespace velmora_node
