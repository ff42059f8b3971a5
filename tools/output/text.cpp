// See text.h. Widths are those of the C library's wcwidth in a UTF-8 locale, which main sets.
#include "output/text.h"

#include <cwchar>

namespace tool {
namespace {

struct Character {
  char32_t code;
  std::size_t size;  // in bytes
};

constexpr char32_t replacement = 0xFFFD;

// The first character of a text that is not empty; a byte that begins none is the replacement.
Character firstOf(std::string_view text) {
  const auto byte = [&](std::size_t i) { return static_cast<unsigned char>(text[i]); };
  const unsigned char lead = byte(0);
  if (lead < 0x80) return {lead, 1};
  const std::size_t size = lead >= 0xF0 ? 4 : lead >= 0xE0 ? 3 : 2;
  if (lead < 0xC2 || lead > 0xF4 || text.size() < size) return {replacement, 1};
  char32_t code = lead & (0x7F >> size);
  for (std::size_t i = 1; i < size; ++i) {
    if ((byte(i) & 0xC0) != 0x80) return {replacement, 1};
    code = code << 6 | (byte(i) & 0x3F);
  }
  const bool isOverlong = code < (size == 4 ? 0x10000U : size == 3 ? 0x800U : 0x80U);
  const bool isNone = (code >= 0xD800 && code < 0xE000) || code > 0x10FFFF;
  return isOverlong || isNone ? Character{replacement, 1} : Character{code, size};
}

bool turnsDirection(char32_t code) {
  return (code >= 0x202A && code <= 0x202E) || (code >= 0x2066 && code <= 0x2069) ||
         code == 0x200E || code == 0x200F || code == 0x061C;
}

// What stands for a character; of up to three bytes in UTF-8.
char32_t shownFor(char32_t code) {
  constexpr char32_t symbols = 0x2400;  // in the order of the control characters
  if (code < 0x20) return symbols + code;
  if (code == 0x7F) return symbols + 0x21;
  const bool isControl = (code >= 0x80 && code < 0xA0) || code == 0x2028 || code == 0x2029;
  return isControl || turnsDirection(code) ? replacement : code;
}

}  // namespace

std::string visible(std::string_view text) {
  std::string shown;
  while (!text.empty()) {
    const Character character = firstOf(text);
    const char32_t code = shownFor(character.code);
    if (code == character.code && code != replacement) {
      shown += text.substr(0, character.size);
    } else {
      shown += static_cast<char>(0xE0 | code >> 12);
      shown += static_cast<char>(0x80 | (code >> 6 & 0x3F));
      shown += static_cast<char>(0x80 | (code & 0x3F));
    }
    text.remove_prefix(character.size);
  }
  return shown;
}

std::size_t displayWidth(std::string_view text) {
  std::size_t width = 0;
  while (!text.empty()) {
    const Character character = firstOf(text);
    const int columns = wcwidth(static_cast<wchar_t>(character.code));
    width += columns < 0 ? 1 : static_cast<std::size_t>(columns);
    text.remove_prefix(character.size);
  }
  return width;
}

}  // namespace tool
