// See number.h. The common shapes of numbers are converted by std::from_chars and by exact scaled
// arithmetic; the rare ones (hexadecimal floats, denormals, huge values) by the C library under an
// explicit C locale.
#include "number.h"

#include <locale.h>

#include <bit>
#include <cfenv>
#include <cfloat>
#include <charconv>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <limits>

#include "record_io.h"

namespace velmora {
namespace {

// Moves over blanks and one sign, as the strto functions do.
std::string_view skipBlanksAndSign(std::string_view text, bool& negative) noexcept {
  std::size_t i = 0;
  while (i < text.size() && isSpace(text[i])) ++i;
  negative = i < text.size() && text[i] == '-';
  if (i < text.size() && (text[i] == '-' || text[i] == '+')) ++i;
  return text.substr(i);
}

template <typename Number>
Conversion convertDecimal(std::string_view text, Number& result) noexcept {
  bool negative = false;
  const std::string_view digits = skipBlanksAndSign(text, negative);
  if (digits.empty() || !isDigit(digits.front())) return Conversion::invalid;
  const Number limit =
      negative ? std::numeric_limits<Number>::min() : std::numeric_limits<Number>::max();
  Number value = 0;
  for (const char c : digits) {
    if (!isDigit(c)) break;
    // Collected on the negative side for negative numbers, so that the least value fits.
    const auto digit = static_cast<Number>(negative ? '0' - c : c - '0');
    const bool fits = negative ? value > limit / 10 || (value == limit / 10 && digit >= limit % 10)
                               : value < limit / 10 || (value == limit / 10 && digit <= limit % 10);
    if (!fits) return Conversion::outOfRange;
    value = static_cast<Number>(value * 10 + digit);
  }
  result = value;
  return Conversion::ok;
}

// What most whole numbers are, a few digits and nothing else; all others take the long way.
template <typename Number>
Conversion convertWhole(std::string_view text, Number& result) noexcept {
  constexpr std::size_t surelyFits = std::numeric_limits<Number>::digits10;
  if (text.empty() || text.size() > surelyFits) return convertDecimal(text, result);
  Number value = 0;
  for (const char c : text) {
    if (!isDigit(c)) return convertDecimal(text, result);
    value = value * 10 + (c - '0');
  }
  result = value;
  return Conversion::ok;
}

locale_t cLocale() {
  static const locale_t locale = newlocale(LC_ALL_MASK, "C", nullptr);
  return locale;
}

// Digits with at most one point among them, of which there are so few that both the digits and the
// power of ten are exact floats: their quotient is then the nearest float.
bool convertShortDecimal(std::string_view text, float& result) noexcept {
  static constexpr float powers[] = {1, 1e1F, 1e2F, 1e3F, 1e4F, 1e5F, 1e6F, 1e7F, 1e8F};
  constexpr std::size_t mostCharacters = 9;
  constexpr std::int32_t mostExact = 1 << 24;
  const bool negative = !text.empty() && text.front() == '-';
  std::string_view digits = text.substr(negative ? 1 : 0);
  // The files give every float six decimals.
  if (digits.find('.') != std::string_view::npos) {
    while (digits.back() == '0') digits.remove_suffix(1);
  }
  if (digits.empty() || digits.size() > mostCharacters || !isDigit(digits.front())) return false;
  std::int32_t value = 0;
  std::size_t point = digits.size() - 1;
  for (std::size_t i = 0; i < digits.size(); ++i) {
    if (isDigit(digits[i])) {
      value = value * 10 + (digits[i] - '0');
    } else if (digits[i] == '.' && point == digits.size() - 1) {
      point = i;
    } else {
      return false;
    }
  }
  if (value > mostExact) return false;
  const float magnitude = static_cast<float>(value) / powers[digits.size() - 1 - point];
  result = negative ? -magnitude : magnitude;
  return true;
}

Conversion convertFloatSlowly(std::string_view text, float& result) {
  const std::string terminated(text);
  char* end = nullptr;
  errno = 0;
  const float value = strtof_l(terminated.c_str(), &end, cLocale());
  if (end == terminated.c_str()) return Conversion::invalid;
  if (errno == ERANGE) return Conversion::outOfRange;
  result = value;
  return Conversion::ok;
}

// value * 10^decimals is exact in a double for the ranges used here: a float has 24 significant
// bits, and 5^decimals at most 21 more.
std::int64_t scaledRounded(float value, int decimals) noexcept {
  static constexpr double powers[] = {1, 1e1, 1e2, 1e3, 1e4, 1e5, 1e6, 1e7, 1e8, 1e9};
  return std::llrint(static_cast<double>(value) * powers[decimals]);
}

// The digits of a number, at most eight, ready to be put in one piece: the first in the lowest
// byte, and what is behind the last one of no account.
struct Digits {
  static constexpr std::int64_t limit = 100'000'000;  // of the numbers that have so few

  std::uint64_t bytes;
  int count;

  char* putAt(char* out) const noexcept {
    putInt64(out, static_cast<std::int64_t>(bytes));
    return out + count;
  }
};

// Halves the number into fours, twos and single digits, those of each step side by side; that takes
// the same steps whatever their count is. The factors divide by 100 and by 10.
Digits digitsOf(std::uint32_t value) noexcept {
  const std::uint64_t fours = value / 10000 | std::uint64_t{value % 10000} << 32;
  const std::uint64_t hundreds = fours * 10486 >> 20 & 0x0000'007F'0000'007F;
  const std::uint64_t twos = hundreds | (fours - hundreds * 100) << 16;
  const std::uint64_t tens = twos * 103 >> 10 & 0x000F'000F'000F'000F;
  const std::uint64_t ones = tens | (twos - tens * 10) << 8;
  constexpr std::uint64_t last = std::uint64_t{1} << 56;  // a zero has one digit, too
  const int zeros = std::countr_zero(ones | last) / 8;
  return {(ones | 0x3030'3030'3030'3030) >> 8 * zeros, 8 - zeros};
}

// Writes a non-negative number with exactly `decimals` digits behind the point.
char* writeScaled(char* out, std::int64_t scaled, int decimals) noexcept {
  if (decimals == 0) return writeInt(out, scaled);
  if (scaled < Digits::limit) {
    const Digits digits = digitsOf(static_cast<std::uint32_t>(scaled));
    const int whole = digits.count - decimals;
    if (whole > 0) {
      digits.putAt(out);
      out[whole] = '.';
      return Digits{digits.bytes >> 8 * whole, decimals}.putAt(out + whole + 1);
    }
  }
  char digits[24];
  const char* const end = std::to_chars(digits, digits + sizeof digits, scaled).ptr;
  const auto count = static_cast<int>(end - digits);
  const int whole = count - decimals;
  if (whole <= 0) {
    *out++ = '0';
  } else {
    std::memcpy(out, digits, static_cast<std::size_t>(whole));
    out += whole;
  }
  *out++ = '.';
  for (int i = whole; i < 0; ++i) *out++ = '0';
  const int from = whole > 0 ? whole : 0;
  std::memcpy(out, digits + from, static_cast<std::size_t>(count - from));
  return out + (count - from);
}

}  // namespace

Conversion convertInt(std::string_view text, std::int32_t& result) noexcept {
  return convertWhole(text, result);
}

Conversion convertLong(std::string_view text, std::int64_t& result) noexcept {
  return convertWhole(text, result);
}

Conversion convertFloat(std::string_view text, float& result) {
  if (convertShortDecimal(text, result)) return Conversion::ok;
  // from_chars reads the plain decimal form as strtof does, but says nothing of denormal results.
  const std::size_t first = !text.empty() && text.front() == '-' ? 1 : 0;
  if (text.size() <= first || !isDigit(text[first])) return convertFloatSlowly(text, result);
  const bool hexadecimal = text.size() > first + 1 && (text[first + 1] | 0x20) == 'x';
  if (hexadecimal) return convertFloatSlowly(text, result);
  float value = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
  if (error == std::errc() && std::fabs(value) >= 2 * FLT_MIN) {
    result = value;
    return Conversion::ok;
  }
  return convertFloatSlowly(text, result);
}

std::optional<std::uint8_t> decimalsOf(std::string_view text, float& result) {
  constexpr std::size_t mostDecimals = 9;
  const std::size_t first = !text.empty() && text.front() == '-' ? 1 : 0;
  std::size_t digits = 0;
  std::size_t point = text.size();
  for (std::size_t i = first; i < text.size(); ++i) {
    if (isDigit(text[i])) {
      ++digits;
    } else if (text[i] == '.' && point == text.size()) {
      point = i;
    } else {
      return std::nullopt;
    }
  }
  const std::size_t whole = point - first;
  const std::size_t decimals = digits - whole;
  const bool isPadded = whole > 1 && text[first] == '0';
  const bool isOpen = point != text.size() && decimals == 0;
  if (whole == 0 || isPadded || isOpen || decimals > mostDecimals) return std::nullopt;
  float value = 0;
  if (convertFloat(text, value) != Conversion::ok) return std::nullopt;
  const auto count = static_cast<std::uint8_t>(decimals);
  // Up to seven digits floats lie closer together than texts.
  constexpr std::size_t surelyTold = 7;
  if (digits > surelyTold || decimals >= surelyTold) {
    char printed[maxNumberText];
    if (std::string_view(printed, writeDecimals(printed, value, count)) != text)
      return std::nullopt;
  }
  result = value;
  return count;
}

Conversion convertDouble(std::string_view text, double& result) noexcept {
  bool negative = false;
  const std::string_view digits = skipBlanksAndSign(text, negative);
  // Only one sign is read.
  if (digits.empty() || digits.front() == '-') return Conversion::invalid;
  double value = 0;
  const auto error = std::from_chars(digits.data(), digits.data() + digits.size(), value).ec;
  if (error == std::errc::result_out_of_range) return Conversion::outOfRange;
  if (error != std::errc()) return Conversion::invalid;
  result = negative ? -value : value;
  return Conversion::ok;
}

void requireConverted(Conversion conversion, const char* name, std::string_view text) {
  if (conversion == Conversion::invalid) throw InvalidNumber(name, text);
  if (conversion == Conversion::outOfRange) throw NumberOutOfRange(name, text);
}

std::int32_t parseInt(std::string_view text) {
  std::int32_t value = 0;
  requireConverted(convertInt(text, value), "stoi", text);
  return value;
}

float parseFloat(std::string_view text) {
  float value = 0;
  requireConverted(convertFloat(text, value), "stof", text);
  return value;
}

double parseDouble(std::string_view text) {
  double value = 0;
  requireConverted(convertDouble(text, value), "stod", text);
  return value;
}

std::int64_t parseLong(std::string_view text) {
  std::int64_t value = 0;
  requireConverted(convertLong(text, value), "stoll", text);
  return value;
}

std::int64_t saturatedLong(std::string_view text) noexcept {
  std::int64_t value = 0;
  if (convertLong(text, value) == Conversion::outOfRange) {
    bool negative = false;
    skipBlanksAndSign(text, negative);
    return negative ? std::numeric_limits<std::int64_t>::min()
                    : std::numeric_limits<std::int64_t>::max();
  }
  return value;
}

std::optional<std::int32_t> canonicalInt(std::string_view text) noexcept {
  const bool negative = !text.empty() && text.front() == '-';
  const std::string_view digits = text.substr(negative ? 1 : 0);
  if (digits.empty() || digits.size() > 10) return std::nullopt;
  if (digits.front() == '0' && (negative || digits.size() > 1)) return std::nullopt;
  std::int64_t value = 0;
  for (const char c : digits) {
    if (!isDigit(c)) return std::nullopt;
    value = value * 10 + (c - '0');
  }
  if (negative) value = -value;
  if (value < std::numeric_limits<std::int32_t>::min() ||
      value > std::numeric_limits<std::int32_t>::max()) {
    return std::nullopt;
  }
  return static_cast<std::int32_t>(value);
}

std::optional<std::int64_t> canonicalLong(std::string_view text) noexcept {
  std::int64_t value = 0;
  if (convertLong(text, value) != Conversion::ok) return std::nullopt;
  char digits[maxNumberText];
  if (std::string_view(digits, writeInt(digits, value)) != text) return std::nullopt;
  return value;
}

std::optional<double> canonicalDouble(std::string_view text) noexcept {
  double value = 0;
  if (convertDouble(text, value) != Conversion::ok) return std::nullopt;
  char digits[maxNumberText];
  if (std::string_view(digits, writeShortest(digits, value)) != text) return std::nullopt;
  return value;
}

char* writeInt(char* out, std::int64_t value) noexcept {
  return std::to_chars(out, out + maxNumberText, value).ptr;
}

char* writeGeneral(char* out, float value) noexcept {
  const float magnitude = std::fabs(value);
  if (magnitude >= 1e-4F && magnitude < 1e6F) {
    // Six significant digits: as many decimals as the digits before the point leave.
    int decimals = 0;
    for (float limit = 1e5F; magnitude < limit && decimals < 9; limit /= 10) ++decimals;
    std::int64_t scaled = scaledRounded(magnitude, decimals);
    if (scaled >= 100000 && scaled < 1000000) {
      if (std::signbit(value)) *out++ = '-';
      while (decimals > 0 && scaled % 10 == 0) {
        scaled /= 10;
        --decimals;
      }
      return writeScaled(out, scaled, decimals);
    }
  }
  // Zero, scientific notation, infinities, and what rounds up to a further digit.
  return std::to_chars(out, out + maxNumberText, static_cast<double>(value),
                       std::chars_format::general, 6)
      .ptr;
}

char* writeGeneral(char* out, float value, int decimals) noexcept {
  static constexpr float powers[] = {1, 1e1F, 1e2F, 1e3F, 1e4F, 1e5F, 1e6F};
  const float magnitude = std::fabs(value);
  if (decimals > 6 || !(magnitude < 1e6F)) return writeGeneral(out, value);
  std::int64_t scaled = scaledRounded(magnitude, decimals);
  while (decimals > 0 && scaled % 10 == 0) {
    scaled /= 10;
    --decimals;
  }
  // Six digits that mean this very float are the six that %g writes, where it writes them so.
  const bool isShort = scaled >= 1 && scaled < 1000000 && magnitude >= 1e-4F &&
                       static_cast<float>(scaled) / powers[decimals] == magnitude;
  if (!isShort) return writeGeneral(out, value);
  if (value < 0) *out++ = '-';
  return writeScaled(out, scaled, decimals);
}

char* writeDecimals(char* out, float value, int decimals) noexcept {
  const float magnitude = std::fabs(value);
  if (magnitude < 1e9F) {
    if (std::signbit(value)) *out++ = '-';
    return writeScaled(out, scaledRounded(magnitude, decimals), decimals);
  }
  return std::to_chars(out, out + maxNumberText, static_cast<double>(value),
                       std::chars_format::fixed, decimals)
      .ptr;
}

char* writeShortest(char* out, float value) noexcept {
  return std::to_chars(out, out + maxNumberText, value).ptr;
}

char* writeShortest(char* out, double value) noexcept {
  return std::to_chars(out, out + maxNumberText, value).ptr;
}

void appendInt(std::string& out, std::int64_t value) {
  char digits[maxNumberText];
  out.append(digits, writeInt(digits, value));
}

}  // namespace velmora
