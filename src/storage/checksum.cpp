// See checksum.h.
#include "checksum.h"

#include <array>

#include "../record_io.h"

namespace velmora {
namespace {

constexpr std::uint32_t polynomial = 0x82F63B78;  // its bits in reverse

constexpr std::array<std::uint32_t, 256> makeTable() {
  std::array<std::uint32_t, 256> table = {};
  for (std::uint32_t i = 0; i < table.size(); ++i) {
    std::uint32_t value = i;
    for (int bit = 0; bit < 8; ++bit) value = value >> 1 ^ (value & 1) * polynomial;
    table[i] = value;
  }
  return table;
}
constexpr std::array<std::uint32_t, 256> table = makeTable();

// Of polynomials, the highest bit being that of 1.
constexpr std::uint32_t product(std::uint32_t a, std::uint32_t b) noexcept {
  std::uint32_t sum = 0;
  for (; a != 0; a <<= 1) {
    if (a >> 31 != 0) sum ^= b;
    b = b >> 1 ^ (b & 1) * polynomial;
  }
  return sum;
}

// What a state becomes behind as many zero bytes.
constexpr std::uint32_t behindZeros(std::uint32_t state, std::uint64_t count) noexcept {
  std::uint32_t power = std::uint32_t{1} << (31 - 8);  // of one byte, of two, of four
  for (; count != 0; count >>= 1) {
    if ((count & 1) != 0) state = product(state, power);
    power = product(power, power);
  }
  return state;
}

#ifdef __x86_64__
// The instruction takes three steps, of which one begins each step: three stripes side by side are
// done three times as fast as one. What the first come to is then carried over the others' bytes.
constexpr std::size_t stripeSize = 4096;

// What each bit of a state becomes behind a stripe.
constexpr std::array<std::uint32_t, 32> makeCarried() {
  std::array<std::uint32_t, 32> carried = {};
  for (std::size_t bit = 0; bit < carried.size(); ++bit) {
    carried[bit] = behindZeros(std::uint32_t{1} << bit, stripeSize);
  }
  return carried;
}
constexpr std::array<std::uint32_t, 32> carried = makeCarried();

std::uint64_t carriedOver(std::uint64_t state) noexcept {
  std::uint32_t result = 0;
  for (std::size_t bit = 0; bit < carried.size(); ++bit) {
    result ^= carried[bit] & -static_cast<std::uint32_t>(state >> bit & 1);
  }
  return result;
}

std::uint64_t eightBytes(const char* in) noexcept {
  return static_cast<std::uint64_t>(getInt64(in));
}

[[gnu::target("sse4.2")]] std::uint32_t crc32cByInstruction(std::uint32_t crc,
                                                            std::string_view bytes) noexcept {
  std::uint64_t state = ~crc;
  for (; bytes.size() >= 3 * stripeSize; bytes.remove_prefix(3 * stripeSize)) {
    std::uint64_t second = 0;
    std::uint64_t third = 0;
    for (std::size_t i = 0; i < stripeSize; i += sizeof state) {
      const char* const at = bytes.data() + i;
      state = __builtin_ia32_crc32di(state, eightBytes(at));
      second = __builtin_ia32_crc32di(second, eightBytes(at + stripeSize));
      third = __builtin_ia32_crc32di(third, eightBytes(at + 2 * stripeSize));
    }
    state = carriedOver(carriedOver(state) ^ second) ^ third;
  }
  for (; bytes.size() >= sizeof state; bytes.remove_prefix(sizeof state)) {
    state = __builtin_ia32_crc32di(state, eightBytes(bytes.data()));
  }
  auto rest = static_cast<std::uint32_t>(state);
  for (const char c : bytes) rest = __builtin_ia32_crc32qi(rest, static_cast<unsigned char>(c));
  return ~rest;
}
#endif

}  // namespace

std::uint32_t crc32cByTable(std::uint32_t crc, std::string_view bytes) noexcept {
  crc = ~crc;
  for (const char c : bytes) crc = crc >> 8 ^ table[(crc ^ static_cast<unsigned char>(c)) & 255];
  return ~crc;
}

std::uint32_t crc32c(std::uint32_t crc, std::string_view bytes) noexcept {
#ifdef __x86_64__
  static const bool hasInstruction = __builtin_cpu_supports("sse4.2") != 0;
  if (hasInstruction) return crc32cByInstruction(crc, bytes);
#endif
  return crc32cByTable(crc, bytes);
}

std::uint32_t crc32cBehind(std::uint32_t difference, std::uint64_t count) noexcept {
  return behindZeros(difference, count);
}

char* writeChecksum(char* out, std::uint32_t crc) noexcept {
  for (int shift = 28; shift >= 0; shift -= 4) *out++ = "0123456789abcdef"[crc >> shift & 15];
  return out;
}

bool isChecksum(std::string_view digits, std::uint32_t crc) noexcept {
  char expected[checksumDigits];
  writeChecksum(expected, crc);
  return digits == std::string_view(expected, sizeof expected);
}

}  // namespace velmora
