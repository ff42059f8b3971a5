// Masks with a byte for each row of a chunk, so that loops over them vectorise: which places are
// set.
#pragma once

#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <iterator>

namespace velmora {

// Calls use(place) for the bytes that have one of the bits, ascending. Most bytes have none: many
// are passed over at once.
template <typename Use>
void forEachSet(const std::uint8_t* bytes, std::size_t size, std::uint8_t bits, Use use) {
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
      std::uint64_t eight = words[i] & wanted;
      while (eight != 0) {
        const auto byte = static_cast<unsigned>(std::countr_zero(eight)) / 8;
        use(first + i * sizeof eight + byte);
        eight &= ~(std::uint64_t{0xFF} << 8 * byte);
      }
    }
  }
}

// Of 64 bytes that are 1 or 0: a bit for each, and how many are 1.
struct SixtyFour {
  std::uint64_t bits = 0;
  std::size_t count = 0;

  explicit SixtyFour(const std::uint8_t* bytes) noexcept {
    static_assert(std::endian::native == std::endian::little);
    std::uint64_t sums = 0;  // a byte for every eighth one
    for (unsigned i = 0; i < 64; i += 8) {
      std::uint64_t eight = 0;
      std::memcpy(&eight, bytes + i, sizeof eight);
      sums += eight;
      bits |= (eight * 0x0102040810204080 >> 56) << i;  // the product's last byte has a bit of each
    }
    count = sums * 0x0101010101010101 >> 56;
  }
};

// Writes the places of the bytes that are 1, of others that are 0, ascending; returns how many.
// There has to be room for all places, their number rounded up to one that 64 divides.
inline std::size_t placesOf(const std::uint8_t* bytes, std::size_t size,
                            std::uint16_t* out) noexcept {
  // Mostly there are a few; writing so many always is quicker than a branch nobody could foretell.
  constexpr int few = 4;
  std::size_t found = 0;
  std::uint8_t last[64];
  for (std::size_t first = 0; first < size; first += 64) {
    const std::uint8_t* here = bytes + first;
    if (size - first < sizeof last) {
      std::memset(last, 0, sizeof last);
      std::memcpy(last, here, size - first);
      here = last;
    }
    const SixtyFour set(here);
    std::uint64_t bits = set.bits;
    std::uint16_t* to = out + found;
    found += set.count;
    const auto writeNext = [&] {
      const int next = std::countr_zero(bits | std::uint64_t{1} << 63);  // never of 0: no branch
      *to++ = static_cast<std::uint16_t>(first + static_cast<std::size_t>(next));
      bits &= bits - 1;
    };
    for (int i = 0; i < few; ++i) writeNext();
    while (bits != 0) writeNext();
  }
  return found;
}

}  // namespace velmora
