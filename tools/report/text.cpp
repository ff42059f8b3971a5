// See text.h.
#include "report/text.h"

#include <array>
#include <chrono>
#include <cmath>
#include <cstdio>

#include "output/text.h"

namespace tool {
namespace {

constexpr std::int64_t day = 86400;

std::string twoDigits(std::int64_t number) {
  return (number < 10 ? "0" : "") + std::to_string(number);
}

std::int64_t dayOf(std::int64_t second) { return second / day - (second % day < 0 ? 1 : 0); }

struct Date {
  std::int64_t year;
  unsigned month, day;
};

// By 400 years, which have the same days each, so that no second is too far away.
Date dateOf(std::int64_t second) {
  constexpr std::int64_t era = 146097;
  const std::int64_t days = dayOf(second);
  const std::int64_t eras = days / era;
  using std::chrono::sys_days, std::chrono::year_month_day;
  const year_month_day date(sys_days(std::chrono::days(static_cast<int>(days - eras * era))));
  return {static_cast<int>(date.year()) + eras * 400, static_cast<unsigned>(date.month()),
          static_cast<unsigned>(date.day())};
}

std::string monthName(unsigned month) {
  static constexpr std::array<const char*, 12> names = {"Jan", "Feb", "Mar", "Apr", "May", "Jun",
                                                        "Jul", "Aug", "Sep", "Oct", "Nov", "Dec"};
  return names[month - 1];
}

bool beginsCharacter(char c) { return (static_cast<unsigned char>(c) & 0xC0U) != 0x80; }

}  // namespace

std::string html(std::string_view text, std::size_t longest) {
  std::string escaped;
  std::size_t count = 0;
  for (const char c : visible(text)) {
    if (beginsCharacter(c) && ++count > longest) return escaped + "…";
    switch (c) {
      case '&':
        escaped += "&amp;";
        break;
      case '<':
        escaped += "&lt;";
        break;
      case '>':
        escaped += "&gt;";
        break;
      case '"':
        escaped += "&quot;";
        break;
      case '\'':
        escaped += "&#39;";
        break;
      default:
        escaped += c;
    }
  }
  return escaped;
}

std::size_t drawnWidth(std::string_view text) { return displayWidth(visible(text)); }

std::string clockText(std::int64_t second, bool withSeconds) {
  const std::int64_t rest = second - dayOf(second) * day;
  std::string text = twoDigits(rest / 3600) + ":" + twoDigits(rest / 60 % 60);
  if (withSeconds) text += ":" + twoDigits(rest % 60);
  return text;
}

std::string timeText(std::int64_t second) {
  const Date date = dateOf(second);
  return std::to_string(date.year) + "-" + twoDigits(date.month) + "-" + twoDigits(date.day) + " " +
         clockText(second, true);
}

std::string dayText(std::int64_t second) {
  const Date date = dateOf(second);
  return std::to_string(date.day) + " " + monthName(date.month);
}

std::string monthText(std::int64_t second) {
  const Date date = dateOf(second);
  return monthName(date.month) + " " + std::to_string(date.year);
}

std::string durationText(std::int64_t seconds) {
  struct Unit {
    std::int64_t seconds;
    const char* name;
  };
  static constexpr std::array<Unit, 5> units = {
      {{365 * day, "years"}, {day, "d"}, {3600, "h"}, {60, "min"}, {1, "s"}}};
  std::string text;
  int named = 0;
  for (const Unit& unit : units) {
    const std::int64_t count = seconds / unit.seconds;
    if (count == 0 || named == 2) {
      if (named > 0) break;
      continue;
    }
    text += (named++ > 0 ? " " : "") + std::to_string(count) + " " + unit.name;
    seconds %= unit.seconds;
  }
  return text.empty() ? "0 s" : text;
}

std::string relativeText(std::int64_t second, std::int64_t now) {
  if (second == now) return "now";
  return second > now ? "in " + durationText(second - now) : durationText(now - second) + " ago";
}

std::string sizeText(std::uint64_t bytes) {
  static constexpr std::array<const char*, 5> units = {"B", "KiB", "MiB", "GiB", "TiB"};
  double size = static_cast<double>(bytes);
  std::size_t unit = 0;
  while (size >= 1024 && unit + 1 < units.size()) {
    size /= 1024;
    ++unit;
  }
  std::array<char, 32> text = {};
  std::snprintf(text.data(), text.size(), unit == 0 ? "%.0f %s" : "%.1f %s", size, units[unit]);
  return text.data();
}

std::string countText(std::uint64_t count, const std::string& what) {
  return std::to_string(count) + " " + what + (count == 1 ? "" : "s");
}

std::string coordinate(double value) {
  std::array<char, 48> text = {};
  std::snprintf(text.data(), text.size(), "%.2f", value);
  std::string shown = text.data();
  while (shown.ends_with('0')) shown.pop_back();
  if (shown.ends_with('.')) shown.pop_back();
  return shown == "-0" ? "0" : shown;
}

}  // namespace tool
