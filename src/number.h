// Conversions between texts and numbers.
//
// Reading accepts what the standard functions std::stoi, std::stof and std::stoll accept in the C
// locale (leading blanks, a sign, trailing text ignored) and fails with their exceptions, which
// know a little more here, but neither asks the host's locale nor allocates. Writing gives what
// printf gives in the C locale for %d, %g and %f.
#pragma once

#include <cstdint>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>

namespace velmora {

enum class Conversion : std::uint8_t { ok, invalid, outOfRange };

// Reads a decimal integer into result; on anything but ok, result is not touched.
Conversion convertInt(std::string_view text, std::int32_t& result) noexcept;
Conversion convertLong(std::string_view text, std::int64_t& result) noexcept;
// Reads a float as strtof does: decimal or hexadecimal, with exponent, infinities and NaN.
Conversion convertFloat(std::string_view text, float& result);
// Reads a decimal double, with exponent, infinities and NaN.
Conversion convertDouble(std::string_view text, double& result) noexcept;

// What a failed conversion knows beside its standard exception. The conversion gives the text; the
// place is filled in on the way out, by those who know it.
struct FailedConversion {
  std::string text;
  std::string table;  // empty: not known
  std::string column;
  std::optional<std::size_t> row;  // none: the text is the command's, for that column
};
struct InvalidNumber : std::invalid_argument, FailedConversion {
  InvalidNumber(const char* name, std::string_view unread)
      : std::invalid_argument(name), FailedConversion{std::string(unread), {}, {}, {}} {}
};
struct NumberOutOfRange : std::out_of_range, FailedConversion {
  NumberOutOfRange(const char* name, std::string_view unread)
      : std::out_of_range(name), FailedConversion{std::string(unread), {}, {}, {}} {}
};

// The same, throwing InvalidNumber or NumberOutOfRange with "stoi", "stof", "stod" or "stoll" as
// what().
std::int32_t parseInt(std::string_view text);
float parseFloat(std::string_view text);
double parseDouble(std::string_view text);
std::int64_t parseLong(std::string_view text);

// Throws for a conversion of the text that was not ok, with the function's name as what(); returns
// if it was.
void requireConverted(Conversion conversion, const char* name, std::string_view text);

// Runs the function and lets failed conversions out as the standard types themselves, for hosts:
// the runtime names the type of an exception that nobody catches.
template <typename Run>
void withStandardExceptions(Run run) {
  try {
    run();
  } catch (const InvalidNumber& error) {
    throw std::invalid_argument(error);
  } catch (const NumberOutOfRange& error) {
    throw std::out_of_range(error);
  }
}

// strtol's reading: no digits give 0, and a number outside 64 bits gives the nearest limit.
std::int64_t saturatedLong(std::string_view text) noexcept;

// The number if the text is exactly its shortest decimal form ("5", "-17", not "05", "+5", "-0").
std::optional<std::int32_t> canonicalInt(std::string_view text) noexcept;
std::optional<std::int64_t> canonicalLong(std::string_view text) noexcept;
// The number if the text is what writeShortest makes of it.
std::optional<double> canonicalDouble(std::string_view text) noexcept;

// How many decimals the text has if it is what writeDecimals makes of its value, with nine at the
// most; the value goes to result then.
std::optional<std::uint8_t> decimalsOf(std::string_view text, float& result);

// The longest output of each function below, in bytes: a float's %f has up to 39 digits before the
// point.
inline constexpr std::size_t maxNumberText = 64;

// Write the number at out, which has room for maxNumberText bytes; return the end of what was
// written.
char* writeInt(char* out, std::int64_t value) noexcept;
// %g: six significant digits, fixed or scientific, no trailing zeros.
char* writeGeneral(char* out, float value) noexcept;
// The same for a float that prints as itself with so many decimals, which is quicker then.
char* writeGeneral(char* out, float value, int decimals) noexcept;
// %.*f: so many digits behind the point.
char* writeDecimals(char* out, float value, int decimals) noexcept;

// The shortest form that reads back as the same number, fixed or scientific.
char* writeShortest(char* out, float value) noexcept;
char* writeShortest(char* out, double value) noexcept;

void appendInt(std::string& out, std::int64_t value);

// ASCII's character classes, whatever the host's locale is.
constexpr bool isSpace(char c) noexcept { return c == ' ' || (c >= '\t' && c <= '\r'); }
constexpr bool isDigit(char c) noexcept { return c >= '0' && c <= '9'; }
constexpr bool isLetter(char c) noexcept {
  return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z');
}

}  // namespace velmora
