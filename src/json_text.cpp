// See json_text.h.
#include "json_text.h"

#include <algorithm>

#include "text.h"

namespace velmora {
namespace {

constexpr std::string_view replacement = "\xEF\xBF\xBD";  // U+FFFD

constexpr bool isAscii(char c) noexcept { return static_cast<unsigned char>(c) < 0x80; }

constexpr bool isPlain(char c) noexcept { return isAscii(c) && c >= ' ' && c != '"' && c != '\\'; }

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
      const Utf8Sequence sequence = firstUtf8Sequence(text);
      size = sequence.size;
      out += sequence.isValid ? text.substr(0, size) : replacement;
    }
    text.remove_prefix(size);
  }
}

}  // namespace velmora
