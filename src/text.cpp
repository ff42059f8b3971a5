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

}  // namespace velmora
