// The unit of a time follows from its size; bytes are few and have none but their own.
#include "figure_text.h"

#include <cstdio>

namespace bench {

namespace {

std::string printed(double value, const char* unit) {
  const int digits = value < 10 ? 2 : value < 100 ? 1 : 0;
  char text[48];
  std::snprintf(text, sizeof text, "%.*f%s", digits, value, unit);
  return text;
}

std::string duration(double seconds) {
  if (seconds < 1e-6) return printed(seconds * 1e9, " ns");
  if (seconds < 1e-3) return printed(seconds * 1e6, " us");
  if (seconds < 1) return printed(seconds * 1e3, " ms");
  return printed(seconds, " s");
}

}  // namespace

std::string figureText(double value, Unit unit) {
  return unit == Unit::seconds ? duration(value) : printed(value, " B");
}

std::string shareText(double value) {
  if (value >= 0.1) return printed(value, "");
  char text[48];
  std::snprintf(text, sizeof text, "%.3f", value);
  return text;
}

std::string speedText(double bytesPerSecond) { return printed(bytesPerSecond / 1e9, " GB/s"); }

}  // namespace bench
