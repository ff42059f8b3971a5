// The rare half of Text: texts of more than 15 bytes.
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

}  // namespace velmora
