// Seconds as people write them.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace tool {

// What --help says of them.
inline constexpr const char* timeHelp =
    "a second since 1970, +2h, -30m, +1d (s, m, h, d, w from now), 2027-01-01, "
    "2027-01-01T08:30, 2027-01-01T08:30:15Z or +01:00 (the time zone is TZ's where none is given)";

// The second since 1970; now: what + and - count from. Throws Failure with exitWrongUse.
std::int64_t secondOf(std::string_view text, std::int64_t now);

// "2027-01-01T08:30:15Z"; empty where a year has not four digits.
std::string timeText(std::int64_t second);

}  // namespace tool
