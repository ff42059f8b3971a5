// Texts of the report: escaped, and seconds as people read them.
#ifndef VELMORA_TOOLS_REPORT_TEXT_H
#define VELMORA_TOOLS_REPORT_TEXT_H

#include <cstdint>
#include <string>
#include <string_view>

namespace tool {

// The text for HTML and SVG, with symbols for control characters; cut behind so many characters.
std::string html(std::string_view text, std::size_t longest = 200);
// How wide a text is drawn, in characters of usual width.
std::size_t drawnWidth(std::string_view text);

// "2026-11-22 10:30:05", in UTC.
std::string timeText(std::int64_t second);
std::string dayText(std::int64_t second);                      // "22 Nov"
std::string monthText(std::int64_t second);                    // "Nov 2026"
std::string clockText(std::int64_t second, bool withSeconds);  // "10:30" or "10:30:05"

// "35 s", "2 h 5 min", "3 d": the two largest units.
std::string durationText(std::int64_t seconds);
// "in 35 s", "35 s ago" or "now".
std::string relativeText(std::int64_t second, std::int64_t now);
// "1.2 MiB".
std::string sizeText(std::uint64_t bytes);
// "1 table", "2 tables".
std::string countText(std::uint64_t count, const std::string& what);

// A coordinate, with two decimals at the most.
std::string coordinate(double value);

}  // namespace tool

#endif
