// Tables with a column as wide as its longest text, and figures with three digits and a unit.
#include "report.h"

#include <sqlite3.h>

#include <algorithm>
#include <cstdio>
#include <ctime>
#include <fstream>
#include <thread>

#include "stopwatch.h"

namespace bench {

namespace {

using Row = std::vector<std::string>;

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

std::string figureOf(const Line& line, Mode mode) {
  const auto found = line.figures.find(mode);
  if (found == line.figures.end()) return "-";
  return line.unit == Unit::seconds ? duration(found->second) : printed(found->second, " B");
}

std::string verdictText(Verdict verdict) {
  switch (verdict) {
    case Verdict::none:
      return "";
    case Verdict::met:
      return "met";
    case Verdict::missed:
      return "MISSED";
  }
  return "";
}

std::string padded(const std::string& text, std::size_t width, bool isLeft) {
  const std::string blanks(width - std::min(width, text.size()), ' ');
  return isLeft ? text + blanks : blanks + text;
}

// The first columns, as many as said, hold texts and stand left; the others hold figures.
std::string table(const std::vector<Row>& rows, std::size_t textColumns, Form form) {
  std::vector<std::size_t> widths(rows.front().size());
  for (const Row& row : rows) {
    for (std::size_t column = 0; column < row.size(); ++column) {
      widths[column] = std::max(widths[column], row[column].size());
    }
  }
  const std::string edge = form == Form::markdown ? "| " : "";
  const std::string between = form == Form::markdown ? " | " : "  ";
  const std::string end = form == Form::markdown ? " |\n" : "\n";
  std::string text;
  for (const Row& row : rows) {
    text += edge;
    for (std::size_t column = 0; column < row.size(); ++column) {
      if (column > 0) text += between;
      text += padded(row[column], widths[column], column < textColumns);
    }
    text += end;
    if (&row != &rows.front()) continue;
    for (std::size_t column = 0; column < widths.size(); ++column) {
      const std::string dashes(widths[column] - (form == Form::markdown ? 1 : 0), '-');
      const bool isLeft = column < textColumns;
      text += column == 0 ? edge : between;
      text += form == Form::text ? dashes : isLeft ? dashes + "-" : dashes + ":";
    }
    text += end;
  }
  return text;
}

std::string processorName() {
  std::ifstream account("/proc/cpuinfo");
  std::string line;
  while (std::getline(account, line)) {
    if (line.rfind("model name", 0) == 0) return line.substr(line.find(':') + 2);
  }
  return "unknown processor";
}

std::string today() {
  const std::time_t now = std::time(nullptr);
  std::tm parts = {};
  gmtime_r(&now, &parts);
  char text[16];
  std::strftime(text, sizeof text, "%Y-%m-%d", &parts);
  return text;
}

}  // namespace

std::string describeRun(const Scale& scale) {
  return today() + ", compiler " + __VERSION__ + ", SQLite " + sqlite3_libversion() + ", " +
         processorName() + ", " + std::to_string(std::thread::hardware_concurrency()) +
         " processors, medians of " + std::to_string(scale.rounds) + " rounds" +
         (stopwatchClock == CLOCK_MONOTONIC ? "" : ", processor time") +
         (scale.isQuick ? ", QUICK: a tenth of the rows" : "");
}

std::string reportLimits(const std::vector<MachineLimit>& limits, Form form) {
  if (limits.empty()) return "";
  std::vector<Row> rows = {{"the machine", "time", "speed"}};
  for (const MachineLimit& limit : limits) {
    rows.push_back({limit.label, duration(limit.seconds),
                    limit.bytes > 0 ? printed(limit.bytes / limit.seconds / 1e9, " GB/s") : ""});
  }
  return table(rows, 1, form);
}

std::string reportLines(const std::vector<Line>& lines, Form form) {
  Row head = {"", "workload"};
  for (const Mode mode : allModes) head.emplace_back(modeName(mode));
  head.insert(head.end(), {"ratio", "goal", ""});
  std::vector<Row> rows = {head};
  for (const Line& line : lines) {
    Row row = {line.number, line.label};
    for (const Mode mode : allModes) row.push_back(figureOf(line, mode));
    row.push_back(line.ratio > 0 ? printed(line.ratio, "") : "");
    row.push_back(line.goal);
    row.push_back(verdictText(line.verdict));
    rows.push_back(row);
  }
  return table(rows, 2, form);
}

}  // namespace bench
