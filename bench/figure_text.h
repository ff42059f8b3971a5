// Figures as the report shows them: two or three digits that count, and a unit.
#pragma once

#include <string>

namespace bench {

enum class Unit { seconds, bytes };

std::string figureText(double value, Unit unit);
// A share of something else: 0.034, 0.26, 1.30, 12.5.
std::string shareText(double value);
std::string speedText(double bytesPerSecond);

}  // namespace bench
