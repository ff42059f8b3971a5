// RowMask: which rows of a chunk are meant, a byte a row so that loops over them vectorise.
#pragma once

#include <bit>
#include <cstdint>
#include <cstring>

#include "../rows.h"

namespace velmora::query {

struct RowMask {
  std::size_t size = 0;
  alignas(64) std::uint8_t passes[Rows::chunkRows];  // 1 or 0

  std::size_t count() const noexcept {
    std::uint16_t sum = 0;  // a narrow one vectorises better
    for (std::size_t i = 0; i < size; ++i) sum = static_cast<std::uint16_t>(sum + passes[i]);
    return sum;
  }
  // Writes the places that pass, ascending; returns how many. Where few pass eight are passed over
  // at once.
  std::size_t places(std::uint16_t* out) const noexcept {
    std::size_t found = 0;
    const auto add = [&](std::size_t i) {
      out[found] = static_cast<std::uint16_t>(i);
      found += passes[i] & 1U;
    };
    std::size_t first = 0;
    for (; first + sizeof(std::uint64_t) <= size; first += sizeof(std::uint64_t)) {
      std::uint64_t eight;
      std::memcpy(&eight, passes + first, sizeof eight);
      if (eight == 0) continue;
      for (std::size_t i = 0; i < sizeof eight; ++i) add(first + i);
    }
    for (; first < size; ++first) add(first);
    return found;
  }
};

// Calls use(place) for the bytes that have one of the bits, ascending.
template <typename Use>
void forEachSet(const std::uint8_t* bytes, std::size_t size, std::uint8_t bits, Use use) {
  static_assert(std::endian::native == std::endian::little);
  const std::uint64_t wanted = bits * std::uint64_t{0x0101010101010101};
  std::size_t first = 0;
  for (; first + sizeof(std::uint64_t) <= size; first += sizeof(std::uint64_t)) {
    std::uint64_t eight;
    std::memcpy(&eight, bytes + first, sizeof eight);
    eight &= wanted;
    while (eight != 0) {
      const auto byte = static_cast<unsigned>(std::countr_zero(eight)) / 8;
      use(first + byte);
      eight &= ~(std::uint64_t{0xFF} << 8 * byte);
    }
  }
  for (; first < size; ++first) {
    if ((bytes[first] & bits) != 0) use(first);
  }
}

}  // namespace velmora::query
