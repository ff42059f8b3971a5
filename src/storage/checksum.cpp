// See checksum.h.
#include "checksum.h"

#include <array>
#include <cstring>

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

#ifdef __x86_64__
[[gnu::target("sse4.2")]] std::uint32_t crc32cByInstruction(std::uint32_t crc,
                                                            std::string_view bytes) noexcept {
  std::uint64_t state = ~crc;
  while (bytes.size() >= sizeof state) {
    std::uint64_t eight;
    std::memcpy(&eight, bytes.data(), sizeof eight);
    state = __builtin_ia32_crc32di(state, eight);
    bytes.remove_prefix(sizeof eight);
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
