// See time_point.h.
#include "time_point.h"

#include <charconv>
#include <chrono>
#include <cstdio>
#include <ctime>

#include "failure.h"
#include "output/text.h"

namespace tool {
namespace {

constexpr std::int64_t day = 86'400;

std::int64_t unitOf(char letter) {
  switch (letter) {
    case 's':
      return 1;
    case 'm':
      return 60;
    case 'h':
      return 3'600;
    case 'd':
      return day;
    case 'w':
      return 7 * day;
    default:
      return 0;
  }
}

// What is left of a text that is being read; a part that is not there has it be none.
class Reader {
 public:
  explicit Reader(std::string_view text) : rest_(text) {}

  bool skip(char c) {
    if (!rest_.starts_with(c)) return false;
    rest_.remove_prefix(1);
    return true;
  }
  // A number of so many digits.
  int digits(std::size_t count) {
    int number = 0;
    for (std::size_t i = 0; i < count; ++i) {
      const char c = rest_.empty() ? '\0' : rest_.front();
      if (c < '0' || c > '9') {
        isWrong_ = true;
        return 0;
      }
      number = number * 10 + (c - '0');
      rest_.remove_prefix(1);
    }
    return number;
  }
  void expect(char c) { isWrong_ |= !skip(c); }
  void require(bool isRight) { isWrong_ |= !isRight; }
  bool atEnd() const { return rest_.empty(); }
  bool isWhole() const { return rest_.empty() && !isWrong_; }

 private:
  std::string_view rest_;
  bool isWrong_ = false;
};

struct TimeOfDay {
  int hour = 0, minute = 0, second = 0;
};

TimeOfDay readTime(Reader& reader) {
  TimeOfDay time;
  time.hour = reader.digits(2);
  reader.expect(':');
  time.minute = reader.digits(2);
  if (reader.skip(':')) time.second = reader.digits(2);
  reader.require(time.hour < 24 && time.minute < 60 && time.second < 60);
  return time;
}

// "Z", "+01:00", "-0330"; nothing where the time zone is that of TZ.
std::optional<std::int64_t> readOffset(Reader& reader) {
  if (reader.skip('Z')) return 0;
  const bool isEast = reader.skip('+');
  if (!isEast && !reader.skip('-')) return std::nullopt;
  const int hours = reader.digits(2);
  reader.skip(':');
  const int minutes = reader.digits(2);
  reader.require(hours < 24 && minutes < 60);
  return (isEast ? 1 : -1) * (std::int64_t{hours} * 3'600 + std::int64_t{minutes} * 60);
}

std::int64_t localSecond(std::chrono::year_month_day date, const TimeOfDay& time) {
  std::tm local = {};
  local.tm_year = static_cast<int>(date.year()) - 1900;
  local.tm_mon = static_cast<int>(static_cast<unsigned>(date.month())) - 1;
  local.tm_mday = static_cast<int>(static_cast<unsigned>(date.day()));
  local.tm_hour = time.hour;
  local.tm_min = time.minute;
  local.tm_sec = time.second;
  local.tm_isdst = -1;
  return std::mktime(&local);
}

std::optional<std::int64_t> readDate(std::string_view text) {
  Reader reader(text);
  const std::chrono::year year(reader.digits(4));
  reader.expect('-');
  const std::chrono::month month(static_cast<unsigned>(reader.digits(2)));
  reader.expect('-');
  const std::chrono::year_month_day date =
      year / month / std::chrono::day(static_cast<unsigned>(reader.digits(2)));
  reader.require(date.ok());
  TimeOfDay time;
  std::optional<std::int64_t> offset;
  if (!reader.atEnd()) {
    if (!reader.skip(' ')) reader.expect('T');
    time = readTime(reader);
    offset = readOffset(reader);
  }
  if (!reader.isWhole()) return std::nullopt;
  if (!offset) return localSecond(date, time);
  return std::chrono::sys_days(date).time_since_epoch().count() * day + time.hour * 3'600 +
         time.minute * 60 + time.second - *offset;
}

// A number, and what stands behind it; nothing where there is none.
std::optional<std::int64_t> readNumber(std::string_view text, std::string_view& rest) {
  std::int64_t number = 0;
  if (text.starts_with('+')) text.remove_prefix(1);
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
  if (error != std::errc()) return std::nullopt;
  rest = text.substr(static_cast<std::size_t>(end - text.data()));
  return number;
}

}  // namespace

std::int64_t secondOf(std::string_view text, std::int64_t now) {
  std::string_view unit;
  if (const auto number = readNumber(text, unit)) {
    const bool isDistance = text.front() == '+' || text.front() == '-';
    if (unit.empty() && text.front() != '+') return *number;
    std::int64_t second = 0;
    if (isDistance && unit.size() == 1 && unitOf(unit[0]) != 0 &&
        !__builtin_mul_overflow(*number, unitOf(unit[0]), &second) &&
        !__builtin_add_overflow(second, now, &second)) {
      return second;
    }
  }
  if (const auto second = readDate(text)) return *second;
  throw Failure(exitWrongUse, "No time: '" + visible(text) + "'; write " + timeHelp);
}

std::string timeText(std::int64_t second) {
  const auto seconds = static_cast<std::time_t>(second);
  std::tm time = {};
  if (gmtime_r(&seconds, &time) == nullptr || time.tm_year < -1900 || time.tm_year > 8099) {
    return "";
  }
  char text[32];
  return {text, std::strftime(text, sizeof text, "%Y-%m-%dT%H:%M:%SZ", &time)};
}

}  // namespace tool
