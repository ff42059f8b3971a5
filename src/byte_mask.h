// Masks with a byte for each row of a chunk, so that loops over them vectorise: which places are
// set.
#pragma once

#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <iterator>

namespace velmora {

// Calls use(first, eight) for each eight bytes of which one has one of the bits, ascending, with
// these bits alone. Most bytes have none: many are passed over at once.
template <typename Use>
void forEachEight(const std::uint8_t* bytes, std::size_t size, std::uint8_t bits, Use use) {
  static_assert(std::endian::native == std::endian::little);
  const std::uint64_t wanted = bits * std::uint64_t{0x0101010101010101};
  std::uint64_t words[4];
  for (std::size_t first = 0; first < size; first += sizeof words) {
    if (first + sizeof words <= size) {
      std::memcpy(words, bytes + first, sizeof words);
    } else {
      std::memset(words, 0, sizeof words);
      std::memcpy(words, bytes + first, size - first);
    }
    if (((words[0] | words[1] | words[2] | words[3]) & wanted) == 0) continue;
    for (std::size_t i = 0; i < std::size(words); ++i) {
      const std::uint64_t eight = words[i] & wanted;
      if (eight != 0) use(first + i * sizeof eight, eight);
    }
  }
}

// Calls use(place) for the bytes that have one of the bits, ascending.
template <typename Use>
void forEachSet(const std::uint8_t* bytes, std::size_t size, std::uint8_t bits, Use use) {
  forEachEight(bytes, size, bits, [&](std::size_t first, std::uint64_t eight) {
    while (eight != 0) {
      const auto byte = static_cast<unsigned>(std::countr_zero(eight)) / 8;
      use(first + byte);
      eight &= ~(std::uint64_t{0xFF} << 8 * byte);
    }
  });
}

// Writes the places of the bytes that are 1, of others that are 0, ascending; returns how many.
// There has to be room for all places, their number rounded up to one that eight divides.
inline std::size_t placesOf(const std::uint8_t* bytes, std::size_t size,
                            std::uint16_t* out) noexcept {
  std::size_t found = 0;
  forEachEight(bytes, size, 1, [&](std::size_t first, std::uint64_t eight) {
    // Without a branch for each, which nobody could foretell.
    for (std::size_t i = 0; i < sizeof eight; ++i) {
      out[found] = static_cast<std::uint16_t>(first + i);
      found += (eight >> 8 * i) & 1U;
    }
  });
  return found;
}

}  // namespace velmora
