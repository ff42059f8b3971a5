// See json_text.h.
#include "json_text.h"

#include <algorithm>

namespace velmora {
namespace {

constexpr std::string_view replacement = "\xEF\xBF\xBD";  // U+FFFD

constexpr bool isAscii(char c) noexcept { return static_cast<unsigned char>(c) < 0x80; }

constexpr bool isPlain(char c) noexcept { return isAscii(c) && c >= ' ' && c != '"' && c != '\\'; }

struct Sequence {
  std::size_t size = 0;
  bool isValid = false;
};

// The UTF-8 sequence at the beginning of a text that does not begin with an ASCII character; an
// invalid one as far as it is the beginning of a valid one, but at least one byte.
Sequence firstSequence(std::string_view text) noexcept {
  const auto byteAt = [&](std::size_t i) { return static_cast<unsigned char>(text[i]); };
  const unsigned lead = byteAt(0);
  if (lead < 0xC2 || lead > 0xF4) return {1, false};
  const std::size_t size = lead >= 0xF0 ? 4 : lead >= 0xE0 ? 3 : 2;
  // The second byte's range leaves out overlong forms, surrogates and what lies past U+10FFFF.
  unsigned least = lead == 0xE0 ? 0xA0 : lead == 0xF0 ? 0x90 : 0x80;
  unsigned greatest = lead == 0xED ? 0x9F : lead == 0xF4 ? 0x8F : 0xBF;
  for (std::size_t i = 1; i < size; ++i) {
    if (i == text.size() || byteAt(i) < least || byteAt(i) > greatest) return {i, false};
    least = 0x80;
    greatest = 0xBF;
  }
  return {size, true};
}

void appendEscape(std::string& out, char c) {
  constexpr std::string_view digits = "0123456789abcdef";
  out += '\\';
  switch (c) {
    case '"':
    case '\\':
      out += c;
      return;
    case '\b':
      out += 'b';
      return;
    case '\f':
      out += 'f';
      return;
    case '\n':
      out += 'n';
      return;
    case '\r':
      out += 'r';
      return;
    case '\t':
      out += 't';
      return;
    default:
      out += "u00";
      out += digits[static_cast<std::size_t>(c) >> 4];
      out += digits[static_cast<std::size_t>(c) & 15];
  }
}

}  // namespace

void appendJsonText(std::string& out, std::string_view text) {
  while (!text.empty()) {
    const auto plainEnd = std::ranges::find_if_not(text, isPlain);
    out.append(text.begin(), plainEnd);
    text.remove_prefix(static_cast<std::size_t>(plainEnd - text.begin()));
    if (text.empty()) return;
    std::size_t size = 1;
    if (isAscii(text.front())) {
      appendEscape(out, text.front());
    } else {
      const Sequence sequence = firstSequence(text);
      size = sequence.size;
      out += sequence.isValid ? text.substr(0, size) : replacement;
    }
    text.remove_prefix(size);
  }
}

std::size_t validUtf8Size(std::string_view text) noexcept {
  std::size_t size = 0;
  while (size < text.size()) {
    const Sequence sequence =
        isAscii(text[size]) ? Sequence{1, true} : firstSequence(text.substr(size));
    if (!sequence.isValid) return size;
    size += sequence.size;
  }
  return size;
}

}  // namespace velmora
