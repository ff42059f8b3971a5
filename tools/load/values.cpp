// See values.h.
#include "load/values.h"

#include <charconv>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <ctime>
#include <limits>
#include <utility>

#include "output/text.h"

namespace tool {
namespace {

template <typename Number>
std::optional<Number> numberOf(std::string_view text) {
  Number number = 0;
  const char* const end = text.data() + text.size();
  const auto [read, error] = std::from_chars(text.data(), end, number);
  if (error != std::errc() || read != end) return std::nullopt;
  return number;
}

bool isSame(std::string_view text, std::string_view lower) {
  if (text.size() != lower.size()) return false;
  for (std::size_t i = 0; i < text.size(); ++i) {
    if ((text[i] | 0x20) != lower[i]) return false;
  }
  return true;
}

// Cuts a number of so many digits from the front of the text.
std::optional<int> takeDigits(std::string_view& text, std::size_t count) {
  const std::string_view digits = text.substr(0, count);
  if (digits.size() < count || digits.find_first_not_of("0123456789") != digits.npos) return {};
  text.remove_prefix(count);
  return numberOf<int>(digits);
}

bool takeSign(std::string_view& text, std::string_view signs) {
  if (text.empty() || signs.find(text[0]) == signs.npos) return false;
  text.remove_prefix(1);
  return true;
}

// ["Z" | ("+" | "-") hh [":"] mm], in seconds.
std::optional<std::int64_t> takeZone(std::string_view& text) {
  if (text.empty() || takeSign(text, "Zz")) return 0;
  const bool isWest = text[0] == '-';
  if (!takeSign(text, "+-")) return std::nullopt;
  const auto hours = takeDigits(text, 2);
  takeSign(text, ":");
  const auto minutes = takeDigits(text, 2);
  if (!hours || !minutes || *minutes > 59) return std::nullopt;
  const std::int64_t seconds = *hours * 3600 + *minutes * 60;
  return isWest ? -seconds : seconds;
}

// hh ":" mm [":" ss ["." digits]] [zone]
std::optional<std::int64_t> takeTime(std::string_view& text) {
  const auto hours = takeDigits(text, 2);
  if (!hours || !takeSign(text, ":")) return std::nullopt;
  const auto minutes = takeDigits(text, 2);
  std::optional<int> seconds = 0;
  if (takeSign(text, ":")) seconds = takeDigits(text, 2);
  if (!minutes || !seconds || *hours > 23 || *minutes > 59 || *seconds > 59) return std::nullopt;
  if (takeSign(text, ".")) {
    while (takeDigits(text, 1)) {
    }
  }
  takeSign(text, " ");
  const auto zone = takeZone(text);
  if (!zone) return std::nullopt;
  return *hours * 3600 + *minutes * 60 + *seconds - *zone;
}

std::optional<std::int64_t> usualSecondOf(std::string_view text) {
  using std::chrono::days, std::chrono::sys_days;
  const auto year = takeDigits(text, 4);
  if (!year || !takeSign(text, "-")) return std::nullopt;
  const auto month = takeDigits(text, 2);
  if (!month || !takeSign(text, "-")) return std::nullopt;
  const auto day = takeDigits(text, 2);
  if (!day) return std::nullopt;
  const std::chrono::year_month_day date{std::chrono::year(*year),
                                         std::chrono::month(static_cast<unsigned>(*month)),
                                         std::chrono::day(static_cast<unsigned>(*day))};
  if (!date.ok()) return std::nullopt;
  const std::int64_t midnight = std::int64_t{sys_days(date).time_since_epoch().count()} * 86400;
  if (text.empty()) return midnight;
  if (!takeSign(text, "Tt ")) return std::nullopt;
  const auto time = takeTime(text);
  if (!time || !text.empty()) return std::nullopt;
  return midnight + *time;
}

[[noreturn]] void refuse(const Field& field, const Target& target, const std::string& what) {
  constexpr std::size_t longestShown = 40;
  const bool isLong = field.text.size() > longestShown;
  const std::string text = visible(field.text.substr(0, longestShown)) + (isLong ? "..." : "");
  throw BadInput(field.offset, "column " + target.column.name + ": '" + text + "' " + what);
}

velmora_value wholeValue(const Field& field, const Target& target) {
  velmora_value value = {};
  value.type = VELMORA_INTEGER;
  std::optional<std::int64_t> whole;
  if (target.isDate) {
    whole = secondOf(field.text, target.dateForm);
    if (!whole) refuse(field, target, "is no date");
  } else {
    whole = field.isText ? std::nullopt : wholeOf(field.text);
    if (!whole) refuse(field, target, "is no whole number");
  }
  if (target.column.type == "int" && !std::in_range<std::int32_t>(*whole)) {
    refuse(field, target, "does not fit an int");
  }
  value.integer = *whole;
  return value;
}

velmora_value realValue(const Field& field, const Target& target) {
  velmora_value value = {};
  value.type = VELMORA_REAL;
  const auto real = field.isText ? std::nullopt : realOf(field.text);
  if (!real) refuse(field, target, "is no number");
  if (target.column.type == "float" &&
      std::abs(*real) > static_cast<double>(std::numeric_limits<float>::max())) {
    refuse(field, target, "does not fit a float");
  }
  value.real = *real;
  return value;
}

}  // namespace

std::optional<std::int64_t> wholeOf(std::string_view text) { return numberOf<std::int64_t>(text); }

std::optional<double> realOf(std::string_view text) {
  const auto number = numberOf<double>(text);
  if (!number || !std::isfinite(*number)) return std::nullopt;
  return number;
}

std::optional<bool> boolOf(std::string_view text) {
  if (isSame(text, "true")) return true;
  if (isSame(text, "false")) return false;
  return std::nullopt;
}

std::optional<std::int64_t> secondOf(std::string_view text, const std::string& form) {
  if (form.empty()) return usualSecondOf(text);
  const std::string ended(text);
  std::tm time = {};
  time.tm_mday = 1;
  const char* const read = strptime(ended.c_str(), form.c_str(), &time);
  if (read == nullptr || *read != '\0') return std::nullopt;
  const long east = time.tm_gmtoff;  // timegm takes it away
  return timegm(&time) - east;
}

velmora_value valueOf(const Field& field, const Target& target) {
  velmora_value value = {};
  if (field.isNull) return value;
  const TableColumn& column = target.column;
  if (column.isReal()) return realValue(field, target);
  if (column.type == "bool") {
    const auto truth = field.isText ? std::nullopt : boolOf(field.text);
    if (!truth) refuse(field, target, "is neither true nor false");
    value.type = VELMORA_BOOLEAN;
    value.boolean = *truth ? 1 : 0;
    return value;
  }
  if (!column.isText()) return wholeValue(field, target);
  if (field.text.size() > static_cast<std::size_t>(column.length)) {
    refuse(field, target,
           "has " + std::to_string(field.text.size()) + " bytes, more than the " +
               std::to_string(column.length) + " of the column");
  }
  value.type = VELMORA_TEXT;
  value.text = field.text.data();
  value.text_size = field.text.size();
  return value;
}

}  // namespace tool
