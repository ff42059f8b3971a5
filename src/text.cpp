// See text.h. Of Text, the rare half: texts of more than 15 bytes.
#include "text.h"

#include <limits>
#include <stdexcept>

namespace velmora {

void Text::constructOnHeap(std::string_view text) {
  if (text.size() > std::numeric_limits<std::uint32_t>::max()) {
    throw std::length_error("Text is longer than 4 GiB");
  }
  char* const bytes = new char[text.size()];
  std::memcpy(bytes, text.data(), text.size());
  const auto size = static_cast<std::uint32_t>(text.size());
  std::memcpy(bytes_, &bytes, sizeof bytes);
  std::memcpy(bytes_ + sizeof bytes, &size, sizeof size);
  bytes_[lengthByte] = onHeap;
  // The pointer lies in bytes_ now, and release() frees it.
  // cppcheck-suppress memleak
}

std::string printable(std::string_view text) {
  constexpr std::string_view digits = "0123456789abcdef";
  std::string shown;
  for (const char c : text) {
    const auto byte = static_cast<unsigned char>(c);
    if (byte >= 0x20 && byte != 0x7f) {
      shown += c;
    } else {
      shown += "\\x";
      shown += digits[byte / 16];
      shown += digits[byte % 16];
    }
  }
  return shown;
}

Utf8Sequence firstUtf8Sequence(std::string_view text) noexcept {
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

std::size_t utf8Prefix(std::string_view text) noexcept {
  constexpr std::uint64_t notAscii = 0x8080808080808080;
  std::size_t i = 0;
  while (i < text.size()) {
    std::uint64_t eight = notAscii;
    if (text.size() - i >= sizeof eight) std::memcpy(&eight, text.data() + i, sizeof eight);
    if ((eight & notAscii) == 0) {
      i += sizeof eight;
    } else if (static_cast<unsigned char>(text[i]) < 0x80) {
      ++i;
    } else {
      const Utf8Sequence sequence = firstUtf8Sequence(text.substr(i));
      if (!sequence.isValid) break;
      i += sequence.size;
    }
  }
  return i;
}

}  // namespace velmora
