// Conversions between texts and numbers, compared with the standard functions on generated texts
// and with printf on bit patterns of floats.

#include "number.h"

#include <gtest/gtest.h>
#include <stdlib.h>

#include <bit>
#include <clocale>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <functional>
#include <limits>
#include <locale>
#include <random>
#include <stdexcept>
#include <string>
#include <string_view>
#include <typeinfo>
#include <utility>
#include <vector>

namespace velmora {
namespace {

char* writeFixed(char* out, float value) noexcept { return writeDecimals(out, value, 6); }

// What a conversion came to, as a text that can be compared: the number's bits or the exception.
template <typename Number>
std::string outcomeOf(const std::function<Number()>& convert) {
  try {
    const Number number = convert();
    if constexpr (std::is_same_v<Number, float>) {
      if (std::isnan(number)) return std::signbit(number) ? "-nan" : "nan";
      return "float " + std::to_string(std::bit_cast<std::uint32_t>(number));
    } else {
      return "integer " + std::to_string(number);
    }
  } catch (const std::invalid_argument& error) {
    return std::string("invalid_argument ") + error.what();
  } catch (const std::out_of_range& error) {
    return std::string("out_of_range ") + error.what();
  }
}

void expectLikeStandard(const std::string& text) {
  ASSERT_EQ(outcomeOf<int>([&] { return parseInt(text); }),
            outcomeOf<int>([&] { return std::stoi(text); }))
      << "stoi of \"" << text << '"';
  ASSERT_EQ(outcomeOf<long long>([&] { return parseLong(text); }),
            outcomeOf<long long>([&] { return std::stoll(text); }))
      << "stoll of \"" << text << '"';
  ASSERT_EQ(outcomeOf<float>([&] { return parseFloat(text); }),
            outcomeOf<float>([&] { return std::stof(text); }))
      << "stof of \"" << text << '"';
  ASSERT_EQ(saturatedLong(text), std::strtol(text.c_str(), nullptr, 10))
      << "strtol of \"" << text << '"';
}

TEST(NumberFromText, agreesWithTheStandardOnLiterals) {
  const char* const texts[] = {"",
                               " ",
                               "0",
                               "-0",
                               "+0",
                               "5",
                               "05",
                               "007",
                               "-5",
                               "+5",
                               " 5",
                               "\t\n\v\f\r 5",
                               "5 ",
                               "5x",
                               "x5",
                               "- 5",
                               "--5",
                               "+-5",
                               "-",
                               "+",
                               ".",
                               "-.",
                               ".5",
                               "-.5",
                               "5.",
                               "5.5",
                               "5.5.5",
                               "1,5",
                               "1e5",
                               "1e",
                               "1e+",
                               "1e-5",
                               "1E5",
                               "1e5.5",
                               "e5",
                               "0x10",
                               "0X1p3",
                               "0x",
                               "0x.8",
                               "0xg",
                               "-0x1.8p1",
                               "0x1p-149",
                               "0x1p-150",
                               "0x1p128",
                               "inf",
                               "-inf",
                               "INF",
                               "infinity",
                               "infinit",
                               "nan",
                               "-nan",
                               "NAN",
                               "nan(1)",
                               "nan(",
                               "abc",
                               "#/#?",
                               "true",
                               "2147483647",
                               "2147483648",
                               "-2147483648",
                               "-2147483649",
                               "4294967296",
                               "4294967301",
                               "9223372036854775807",
                               "9223372036854775808",
                               "-9223372036854775808",
                               "-9223372036854775809",
                               "99999999999999999999999999",
                               "00000000000000000000000000000005",
                               "-00000000000000000000000000000005",
                               "2147483647.9",
                               "2147483648.1",
                               "16777216",
                               "16777217",
                               "16777218",
                               "16777219",
                               "33554433",
                               "0.1",
                               "0.3",
                               "3.4028234e38",
                               "3.4028235e38",
                               "3.4028236e38",
                               "340282346638528859811704183484516925440",
                               "340282356779733661637539395458142568447",
                               "340282356779733661637539395458142568448",
                               "1e38",
                               "1e39",
                               "1e400",
                               "1e99999999999",
                               "1e-37",
                               "1e-38",
                               "1.17549435e-38",
                               "1.1754943e-38",
                               "1.1754942e-38",
                               "2.3509887e-38",
                               "1e-39",
                               "1e-45",
                               "7e-46",
                               "8e-46",
                               "1e-50",
                               "1e-400",
                               "0e-400",
                               "0.0e999",
                               "0.00000000000000000000000000000000000000000001",
                               "1.00000017881393432617187499",
                               "1.00000017881393432617187500",
                               "1.00000017881393432617187501"};
  for (const char* const text : texts) expectLikeStandard(text);
  expectLikeStandard(
      std::string("5\0"
                  "5",
                  3));
  expectLikeStandard(
      std::string("\0"
                  "5",
                  2));
  expectLikeStandard(
      std::string("1.\0"
                  "5",
                  4));
  expectLikeStandard(
      std::string("1.5e\0"
                  "5",
                  6));
}

// Any characters that some number could be made of.
TEST(NumberFromText, agreesWithTheStandardOnRandomCharacters) {
  std::string alphabet = "0123456789012345678900..+--eExXpPaFnNiIfFtTyY() \t\n,_";
  alphabet += '\0';
  std::mt19937 random(1);
  for (int round = 0; round < 60000; ++round) {
    std::string text;
    for (std::size_t size = random() % 12; text.size() < size;) {
      text += alphabet[random() % alphabet.size()];
    }
    ASSERT_NO_FATAL_FAILURE(expectLikeStandard(text));
  }
}

std::string randomDigits(std::mt19937& random, std::size_t most) {
  std::string digits;
  for (std::size_t size = random() % (most + 1); digits.size() < size;) {
    digits += static_cast<char>('0' + random() % 10);
  }
  return digits;
}

// Texts of a number's shape, near the limits of each type more often than chance would have it.
TEST(NumberFromText, agreesWithTheStandardOnRandomNumbers) {
  const char* const signs[] = {"", "", "-", "+", " -", "\t"};
  const char* const heads[] = {"",           "",          "0",           "214748364",
                               "2147483647", "429496729", "92233720368", "922337203685477580",
                               "3402823",    "1175494"};
  const char* const tails[] = {"", "", "", "x", " ", ".", "e"};
  std::mt19937 random(2);
  for (int round = 0; round < 60000; ++round) {
    std::string text = signs[random() % std::size(signs)];
    text += heads[random() % std::size(heads)];
    text += randomDigits(random, 12);
    if (random() % 2 == 0) text += '.' + randomDigits(random, 20);
    if (random() % 2 == 0) {
      text += random() % 2 == 0 ? "e" : "E";
      text += std::to_string(static_cast<int>(random() % 100) - 50);
    }
    text += tails[random() % std::size(tails)];
    ASSERT_NO_FATAL_FAILURE(expectLikeStandard(text));
  }
}

// As the files give floats back, and what looks like it.
TEST(NumberFromText, agreesWithTheStandardOnTrailingZeros) {
  std::mt19937 random(6);
  const char* const tails[] = {"", "", "", "", " ", "e0", ".", ".0", "x", "-"};
  for (int round = 0; round < 60000; ++round) {
    std::string text = random() % 3 == 0 ? "-" : "";
    text += randomDigits(random, 9) + '.' + randomDigits(random, 7);
    text += std::string(random() % 8, '0');
    text += tails[random() % std::size(tails)];
    ASSERT_NO_FATAL_FAILURE(expectLikeStandard(text));
  }
}

// Every float survives being written with nine digits, and with six decimals is read as printf
// wrote it.
TEST(NumberFromText, readsFloatsBack) {
  std::mt19937 random(3);
  for (int round = 0; round < 100000; ++round) {
    const auto number = std::bit_cast<float>(static_cast<std::uint32_t>(random()));
    char text[64];
    std::snprintf(text, sizeof text, "%.9g", static_cast<double>(number));
    if (!std::isnormal(number)) {
      ASSERT_NO_FATAL_FAILURE(expectLikeStandard(text));
      continue;
    }
    ASSERT_EQ(std::bit_cast<std::uint32_t>(parseFloat(text)), std::bit_cast<std::uint32_t>(number))
        << text;
  }
}

// Digits that are an exact float, or just none any more, with the point at each of their places.
TEST(NumberFromText, decimalsOfFewDigitsAreTheNearestFloats) {
  constexpr int mostExact = 1 << 24;
  for (int value = mostExact - 300; value <= mostExact + 300; ++value) {
    for (std::size_t decimals = 0; decimals <= 8; ++decimals) {
      std::string text = std::to_string(value);
      text.insert(text.size() - decimals, ".");
      expectLikeStandard(text);
      expectLikeStandard("-" + text + "0");
      expectLikeStandard(std::to_string(value / 7) + text.substr(text.find('.')));
    }
  }
}

TEST(NumberFromText, leavesTheResultAloneWhenItFails) {
  std::int32_t integer = 17;
  EXPECT_EQ(convertInt("x", integer), Conversion::invalid);
  EXPECT_EQ(convertInt("2147483648", integer), Conversion::outOfRange);
  EXPECT_EQ(convertInt("-2147483649", integer), Conversion::outOfRange);
  EXPECT_EQ(integer, 17);
  EXPECT_EQ(convertInt("18x", integer), Conversion::ok);
  EXPECT_EQ(integer, 18);
  std::int64_t wide = 17;
  EXPECT_EQ(convertLong("", wide), Conversion::invalid);
  EXPECT_EQ(convertLong("9223372036854775808", wide), Conversion::outOfRange);
  EXPECT_EQ(wide, 17);
  EXPECT_EQ(convertLong("-9223372036854775808", wide), Conversion::ok);
  EXPECT_EQ(wide, std::numeric_limits<std::int64_t>::min());
  float real = 17;
  EXPECT_EQ(convertFloat("x", real), Conversion::invalid);
  EXPECT_EQ(convertFloat("1e39", real), Conversion::outOfRange);
  EXPECT_EQ(convertFloat("1e-50", real), Conversion::outOfRange);
  EXPECT_EQ(real, 17.0F);
  EXPECT_EQ(convertFloat("18.5x", real), Conversion::ok);
  EXPECT_EQ(real, 18.5F);
}

TEST(NumberFromText, throwsWhatTheStandardThrows) {
  const auto intOf = [](const char* text) { return [text] { return parseInt(text); }; };
  EXPECT_EQ(outcomeOf<int>(intOf("abc")), "invalid_argument stoi");
  EXPECT_EQ(outcomeOf<int>(intOf("99999999999")), "out_of_range stoi");
  EXPECT_EQ(outcomeOf<float>([] { return parseFloat("abc"); }), "invalid_argument stof");
  EXPECT_EQ(outcomeOf<float>([] { return parseFloat("1e99"); }), "out_of_range stof");
  EXPECT_EQ(outcomeOf<long long>([] { return parseLong("abc"); }), "invalid_argument stoll");
  EXPECT_EQ(outcomeOf<long long>([] { return parseLong("99999999999999999999"); }),
            "out_of_range stoll");
  EXPECT_NO_THROW(requireConverted(Conversion::ok, "stoi", "5"));
}

TEST(NumberFromText, failuresKnowTheTextAndCanBeMadeStandard) {
  try {
    parseInt("abc");
    FAIL();
  } catch (const FailedConversion& failure) {
    EXPECT_EQ(failure.text, "abc");
    EXPECT_EQ(failure.table, "");
    EXPECT_FALSE(failure.row.has_value());
  }
  const auto typeOf = [](const char* text) -> const std::type_info& {
    try {
      withStandardExceptions([=] { parseInt(text); });
    } catch (const std::logic_error& error) {
      return typeid(error);
    }
    return typeid(void);
  };
  EXPECT_EQ(typeOf("abc"), typeid(std::invalid_argument));
  EXPECT_EQ(typeOf("99999999999"), typeid(std::out_of_range));
}

TEST(CanonicalInt, isANumberInItsShortestForm) {
  EXPECT_EQ(canonicalInt("0"), 0);
  EXPECT_EQ(canonicalInt("-17"), -17);
  EXPECT_EQ(canonicalInt("2147483647"), 2147483647);
  EXPECT_EQ(canonicalInt("-2147483648"), std::numeric_limits<std::int32_t>::min());
  for (const char* const text :
       {"", "-", "05", "00", "-0", "-05", "+5", " 5", "5 ", "5.0", "5x", "2147483648",
        "-2147483649", "99999999999", "99999999999999999999", "#/#?"}) {
    EXPECT_EQ(canonicalInt(text), std::nullopt) << text;
  }
  std::mt19937 random(4);
  for (int round = 0; round < 100000; ++round) {
    const auto number = static_cast<std::int32_t>(random()) >> random() % 32;
    const std::string text = std::to_string(number);
    ASSERT_EQ(canonicalInt(text), number);
    ASSERT_EQ(canonicalInt("0" + text), std::nullopt);
    ASSERT_EQ(canonicalInt(text + " "), std::nullopt);
  }
}

std::string written(char* (*write)(char*, float) noexcept, float number) {
  char text[maxNumberText];
  return {text, write(text, number)};
}

void expectLikePrintf(float number) {
  const auto wide = static_cast<double>(number);
  char expected[maxNumberText];
  char actual[maxNumberText] = {};
  std::snprintf(expected, sizeof expected, "%g", wide);
  *writeGeneral(actual, number) = '\0';
  ASSERT_STREQ(actual, expected);
  std::snprintf(expected, sizeof expected, "%f", wide);
  *writeFixed(actual, number) = '\0';
  ASSERT_STREQ(actual, expected);
}

void expectLikePrintfAround(float number, int neighbours) {
  float below = number;
  float above = number;
  for (int i = 0; i < neighbours; ++i) {
    ASSERT_NO_FATAL_FAILURE(expectLikePrintf(below));
    ASSERT_NO_FATAL_FAILURE(expectLikePrintf(above));
    ASSERT_NO_FATAL_FAILURE(expectLikePrintf(-below));
    below = std::nextafterf(below, 0.0F);
    above = std::nextafterf(above, std::numeric_limits<float>::infinity());
  }
}

TEST(FloatToText, hasTheFormsOfPrintf) {
  EXPECT_EQ(written(writeGeneral, 3.5F), "3.5");
  EXPECT_EQ(written(writeGeneral, 10000000.0F), "1e+07");
  EXPECT_EQ(written(writeGeneral, 0.1F), "0.1");
  EXPECT_EQ(written(writeGeneral, 1234567.0F), "1.23457e+06");
  EXPECT_EQ(written(writeGeneral, 0.0F), "0");
  EXPECT_EQ(written(writeGeneral, -0.0F), "-0");
  EXPECT_EQ(written(writeGeneral, 100000.0F), "100000");
  EXPECT_EQ(written(writeGeneral, 1000000.0F), "1e+06");
  EXPECT_EQ(written(writeGeneral, 999999.5F), "1e+06");
  EXPECT_EQ(written(writeGeneral, 0.0001F), "0.0001");
  EXPECT_EQ(written(writeGeneral, 0.00001F), "1e-05");
  EXPECT_EQ(written(writeGeneral, 1.0F / 3), "0.333333");
  EXPECT_EQ(written(writeFixed, 0.5F), "0.500000");
  EXPECT_EQ(written(writeFixed, -0.0F), "-0.000000");
  EXPECT_EQ(written(writeFixed, 1e-7F), "0.000000");
  EXPECT_EQ(written(writeFixed, std::numeric_limits<float>::max()),
            "340282346638528859811704183484516925440.000000");
}

TEST(FloatToText, agreesWithPrintfAtTheEdges) {
  using Limits = std::numeric_limits<float>;
  for (const float number : {0.0F, -0.0F, Limits::infinity(), -Limits::infinity(), Limits::max(),
                             Limits::lowest(), Limits::min(), Limits::denorm_min()}) {
    ASSERT_NO_FATAL_FAILURE(expectLikePrintf(number));
  }
  for (int exponent = -45; exponent <= 38; ++exponent) {
    const auto power = static_cast<float>(std::pow(10.0, exponent));
    for (const float factor : {1.0F, 0.5F, 5.0F, 9.99999F, 9.999995F, 1.000005F, 1.234565F}) {
      ASSERT_NO_FATAL_FAILURE(expectLikePrintfAround(power * factor, 40));
    }
  }
  for (int exponent = -149; exponent <= 127; ++exponent) {
    ASSERT_NO_FATAL_FAILURE(expectLikePrintfAround(std::ldexp(1.0F, exponent), 10));
  }
}

// Halves of the last digit written, where rounding goes to the even one.
TEST(FloatToText, agreesWithPrintfOnHalves) {
  for (int whole = 100000; whole < 2000000; whole += 19) {
    ASSERT_NO_FATAL_FAILURE(expectLikePrintf(static_cast<float>(whole) + 0.5F));
    ASSERT_NO_FATAL_FAILURE(expectLikePrintf((static_cast<float>(whole) + 0.5F) / 128));
    ASSERT_NO_FATAL_FAILURE(expectLikePrintf((static_cast<float>(whole) + 0.5F) / 4096));
  }
}

// Bit patterns spread evenly over all floats, not-a-number left out.
TEST(FloatToText, agreesWithPrintfOnBitPatterns) {
  constexpr std::uint32_t patterns = 1'000'000;
  constexpr std::uint32_t step = 4295;  // an odd one that comes to all floats together
  std::uint32_t bits = 0;
  for (std::uint32_t i = 0; i < patterns; ++i, bits += step) {
    const auto number = std::bit_cast<float>(bits);
    if (std::isnan(number)) continue;
    ASSERT_NO_FATAL_FAILURE(expectLikePrintf(number));
  }
}

// The range in which values are mostly kept, tried more densely.
TEST(FloatToText, agreesWithPrintfOnEverydayNumbers) {
  std::mt19937 random(5);
  std::uniform_real_distribution<float> exponent(-6, 10);
  for (int i = 0; i < 1'000'000; ++i) {
    const float number = std::pow(10.0F, exponent(random));
    ASSERT_NO_FATAL_FAILURE(expectLikePrintf(i % 2 == 0 ? number : -number));
  }
}

// As many decimals as wanted, for floats of all sizes.
TEST(FloatToText, agreesWithPrintfOnAnyNumberOfDecimals) {
  constexpr std::uint32_t patterns = 300'000;
  constexpr std::uint32_t step = 14317;  // an odd one that comes to all floats together
  char expected[maxNumberText];
  char actual[maxNumberText];
  std::uint32_t bits = 0;
  for (std::uint32_t i = 0; i < patterns; ++i, bits += step) {
    const auto number = std::bit_cast<float>(bits);
    for (int decimals = 0; decimals <= 9 && !std::isnan(number); ++decimals) {
      std::snprintf(expected, sizeof expected, "%.*f", decimals, static_cast<double>(number));
      *writeDecimals(actual, number, decimals) = '\0';
      ASSERT_STREQ(actual, expected);
    }
  }
}

// Whole numbers moved behind the point, and what is next to them: of floats that print as
// themselves with so many decimals, %g is written in a shorter way.
TEST(FloatToText, agreesWithPrintfWhereTheDecimalsAreKnown) {
  std::mt19937 random(7);
  char text[maxNumberText];
  char expected[maxNumberText];
  int known = 0;
  for (int round = 0; round < 1'000'000; ++round) {
    const int decimals = round % 10;
    const auto whole = static_cast<double>(static_cast<std::int32_t>(random()) >> random() % 31);
    const auto number = static_cast<float>(whole / std::pow(10.0, decimals));
    std::snprintf(text, sizeof text, "%.*f", decimals, static_cast<double>(number));
    float value = 0;
    if (decimalsOf(text, value) != decimals || std::signbit(value) != std::signbit(number))
      continue;
    ++known;
    std::snprintf(expected, sizeof expected, "%g", static_cast<double>(value));
    char actual[maxNumberText];
    ASSERT_EQ(std::string_view(actual, writeGeneral(actual, value, decimals)), expected)
        << text << " with " << decimals;
  }
  EXPECT_GT(known, 900'000);
}

TEST(FloatToText, agreesWithPrintfOnZerosOfAnyLength) {
  for (int decimals = 0; decimals <= 9; ++decimals) {
    char actual[maxNumberText];
    EXPECT_EQ(std::string_view(actual, writeGeneral(actual, 0.0F, decimals)), "0");
    EXPECT_EQ(std::string_view(actual, writeGeneral(actual, -0.0F, decimals)), "-0");
  }
}

TEST(DecimalsOf, areToldForTextsThatTheirValueGives) {
  const auto decimals = [](const char* text) {
    float value = -1;
    const auto count = decimalsOf(text, value);
    // What does not tell its decimals leaves the result alone.
    EXPECT_EQ(value == -1, !count) << text;
    return count ? static_cast<int>(*count) : -1;
  };
  const std::vector<std::pair<const char*, int>> cases = {
      {"5", 0},
      {"-5", 0},
      {"0", 0},
      {"-0", 0},
      {"5.0", 1},
      {"-0.00", 2},
      {"0.123456789", -1},
      {"0.500000000", 9},
      {"0.5000000000", -1},
      {"16777216", 0},
      {"16777217", -1},
      {"0.1000000", 7},
      {"0.10000000", 8},
      {"0.100000001", 9},
      {"0.100000000", -1},
      {"999999.9", 1},
      {"05", -1},
      {"00", -1},
      {"00.5", -1},
      {"5.", -1},
      {".5", -1},
      {"-.5", -1},
      {"-", -1},
      {"", -1},
      {"+5", -1},
      {" 5", -1},
      {"5 ", -1},
      {"1e5", -1},
      {"1.5.5", -1},
      {"5x", -1},
      {"#/#?", -1},
      {"nan", -1},
      {"inf", -1},
      {"340282346638528859811704183484516925440", 0},
      {"340282346638528859811704183484516925441", -1},
      {"1000000000000000000000000000000000000000000", -1}};
  for (const auto& [text, expected] : cases) EXPECT_EQ(decimals(text), expected) << text;
}

TEST(IntegerToText, agreesWithTheStandard) {
  std::mt19937_64 random(6);
  for (int round = 0; round < 100000; ++round) {
    const auto number = static_cast<std::int64_t>(random()) >> random() % 64;
    std::string text = "x";
    appendInt(text, number);
    ASSERT_EQ(text, "x" + std::to_string(number));
  }
  std::string limits;
  appendInt(limits, std::numeric_limits<std::int64_t>::min());
  appendInt(limits, std::numeric_limits<std::int64_t>::max());
  EXPECT_EQ(limits, "-92233720368547758089223372036854775807");
}

TEST(IntegerToText, agreesWithTheStandardWhereTheCountOfDigitsChanges) {
  std::int64_t power = 1;
  for (int digits = 1; digits <= 18; ++digits, power *= 10) {
    for (const std::int64_t number : {power - 1, power, power + 1, 9 * power, -power, 1 - power}) {
      std::string text;
      appendInt(text, number);
      ASSERT_EQ(text, std::to_string(number));
    }
  }
}

TEST(CharacterClasses, areThoseOfAscii) {
  for (int byte = 0; byte < 256; ++byte) {
    const auto c = static_cast<char>(byte);
    const bool isAscii = byte < 128;
    EXPECT_EQ(isSpace(c), isAscii && byte != 0 && std::strchr(" \t\n\v\f\r", byte) != nullptr);
    EXPECT_EQ(isDigit(c), byte >= '0' && byte <= '9');
    EXPECT_EQ(isLetter(c), (byte >= 'a' && byte <= 'z') || (byte >= 'A' && byte <= 'Z'));
  }
}

// A locale of the host with a decimal comma, for as long as this lives: an installed one, or one
// made from its source.
class CommaLocale {
 public:
  CommaLocale() { isSet = select("de_DE.UTF-8") || select("fr_FR.UTF-8") || selectMade(); }
  ~CommaLocale() {
    std::setlocale(LC_ALL, "C");
    std::error_code ignored;
    if (!directory_.empty()) std::filesystem::remove_all(directory_, ignored);
  }
  CommaLocale(const CommaLocale&) = delete;
  CommaLocale& operator=(const CommaLocale&) = delete;

  bool isSet = false;

 private:
  static bool select(const char* name) {
    return std::setlocale(LC_ALL, name) != nullptr && *std::localeconv()->decimal_point == ',';
  }
  bool selectMade() {
    std::string name = (std::filesystem::temp_directory_path() / "velmora-locale-XXXXXX").string();
    if (mkdtemp(name.data()) == nullptr) return false;
    directory_ = name;
    const std::string make =
        "localedef --no-archive -i de_DE -f UTF-8 " + name + "/de_DE.UTF-8 >/dev/null 2>&1";
    if (std::system(make.c_str()) != 0) return false;
    setenv("LOCPATH", name.c_str(), 1);
    const bool selected = select("de_DE.UTF-8");
    unsetenv("LOCPATH");
    return selected;
  }

  std::filesystem::path directory_;
};

// A locale of C++ streams that writes 1.234.567,5.
class CommaDigits : public std::numpunct<char> {
 protected:
  char do_decimal_point() const override { return ','; }
  char do_thousands_sep() const override { return '.'; }
  std::string do_grouping() const override { return "\3"; }
};

TEST(Locale, ofStreamsChangesNothing) {
  const std::locale previous = std::locale::global(std::locale(std::locale(), new CommaDigits));
  std::string text;
  appendInt(text, 1234567);
  EXPECT_EQ(text, "1234567");
  EXPECT_EQ(written(writeGeneral, 1234.5F), "1234.5");
  EXPECT_EQ(written(writeFixed, 1234.5F), "1234.500000");
  EXPECT_EQ(parseFloat("1.5"), 1.5F);
  std::locale::global(previous);
}

TEST(Locale, changesNothing) {
  const CommaLocale locale;
  if (!locale.isSet) GTEST_SKIP() << "no locale with a decimal comma is installed";
  EXPECT_EQ(parseFloat("1.5"), 1.5F);
  EXPECT_EQ(parseFloat(" 1.5"), 1.5F);
  EXPECT_EQ(parseFloat("1,5"), 1.0F);
  EXPECT_EQ(parseFloat("0x1.8p0"), 1.5F);
  EXPECT_EQ(written(writeGeneral, 1.5F), "1.5");
  EXPECT_EQ(written(writeGeneral, 1.5e-7F), "1.5e-07");
  EXPECT_EQ(written(writeFixed, 1.5e9F), "1500000000.000000");
}

}  // namespace
}  // namespace velmora
