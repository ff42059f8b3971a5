// CRC-32C (Castagnoli), which tells whether bytes are those that were written. Every single flipped
// bit changes it, and every burst of up to 32 bits. Where the processor has an instruction for it
// that is used, and a table of 256 entries elsewhere.
#pragma once

#include <cstdint>
#include <string_view>

namespace velmora {

// The checksum of some bytes, whose own is given (0 of none), and these behind them.
std::uint32_t crc32c(std::uint32_t crc, std::string_view bytes) noexcept;
// The same by the table: what tests compare the instruction with.
std::uint32_t crc32cByTable(std::uint32_t crc, std::string_view bytes) noexcept;
// What the difference (^) of two checksums becomes when as many equal bytes come behind both.
std::uint32_t crc32cBehind(std::uint32_t difference, std::uint64_t count) noexcept;

// A checksum as files have it: eight hexadecimal digits.
inline constexpr std::size_t checksumDigits = 8;
char* writeChecksum(char* out, std::uint32_t crc) noexcept;
// Whether the digits are these, in lower case.
bool isChecksum(std::string_view digits, std::uint32_t crc) noexcept;

}  // namespace velmora
