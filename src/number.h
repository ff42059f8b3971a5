// Conversions between texts and numbers.
//
// Reading accepts what the standard functions std::stoi, std::stof and std::stoll accept in the C
// locale (leading blanks, a sign, trailing text ignored) and fails with their exception types and
// texts, but neither asks the host's locale nor allocates. Writing gives what printf gives in the
// C locale for %d, %g and %f.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace velmora {

enum class Conversion : std::uint8_t { ok, invalid, outOfRange };

// Reads a decimal integer into result; on anything but ok, result is not touched.
Conversion convertInt(std::string_view text, std::int32_t& result) noexcept;
Conversion convertLong(std::string_view text, std::int64_t& result) noexcept;
// Reads a float as strtof does: decimal or hexadecimal, with exponent, infinities and NaN.
Conversion convertFloat(std::string_view text, float& result);

// The same, throwing std::invalid_argument or std::out_of_range with the text "stoi", "stof" or
// "stoll".
std::int32_t parseInt(std::string_view text);
float parseFloat(std::string_view text);
std::int64_t parseLong(std::string_view text);

// Throws for a conversion that was not ok, with the function's name as text; returns if it was.
void requireConverted(Conversion conversion, const char* name);

// strtol's reading: no digits give 0, and a number outside 64 bits gives the nearest limit.
std::int64_t saturatedLong(std::string_view text) noexcept;

// The number if the text is exactly its shortest decimal form ("5", "-17", not "05", "+5", "-0").
std::optional<std::int32_t> canonicalInt(std::string_view text) noexcept;

// The longest output of each function below, in bytes: a float's %f has up to 39 digits before the
// point.
inline constexpr std::size_t maxNumberText = 64;

// Write the number at out, which has room for maxNumberText bytes; return the end of what was
// written.
char* writeInt(char* out, std::int64_t value) noexcept;
// %g: six significant digits, fixed or scientific, no trailing zeros.
char* writeGeneral(char* out, float value) noexcept;
// %f: six digits behind the point.
char* writeFixed(char* out, float value) noexcept;

void appendInt(std::string& out, std::int64_t value);

// ASCII's character classes, whatever the host's locale is.
constexpr bool isSpace(char c) noexcept { return c == ' ' || (c >= '\t' && c <= '\r'); }
constexpr bool isDigit(char c) noexcept { return c >= '0' && c <= '9'; }
constexpr bool isLetter(char c) noexcept {
  return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z');
}

}  // namespace velmora
