// Tables with a column as wide as its longest text, and what the run stood on.
#include "report.h"

#include <sqlite3.h>

#include <algorithm>
#include <ctime>
#include <fstream>
#include <thread>

#include "duckdb_library.h"
#include "stopwatch.h"

namespace bench {

namespace {

using Row = std::vector<std::string>;

std::string figureOf(const Line& line, Mode mode) {
  const auto found = line.figures.find(mode);
  if (found == line.figures.end()) return "-";
  return figureText(found->second, line.unit);
}

std::string shareOf(double share) { return share > 0 ? shareText(share) : ""; }

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
  std::vector<std::size_t> widths(rows.front().size(), 2);
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

std::string describeDuckdb() {
  if (!hasDuckdbLibrary()) return "no DuckDB";
  const std::string threads = callInFreshProcess(duckdbThreads);
  return std::string("DuckDB ") + duckdbLibrary().version() + " with " + threads +
         " threads, its own choice";
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
         describeDuckdb() + ", " + processorName() + ", " +
         std::to_string(std::thread::hardware_concurrency()) + " processors, medians of " +
         std::to_string(scale.rounds) + " rounds" +
         (stopwatchClock == CLOCK_MONOTONIC ? "" : ", processor time") +
         (scale.isQuick ? ", QUICK: a tenth of the rows" : "");
}

std::string reportLimits(const std::vector<MachineLimit>& limits, Form form) {
  if (limits.empty()) return "";
  std::vector<Row> rows = {{"the machine", "time", "speed"}};
  for (const MachineLimit& limit : limits) {
    rows.push_back({limit.label, figureText(limit.seconds, Unit::seconds),
                    limit.bytes > 0 ? speedText(limit.bytes / limit.seconds) : ""});
  }
  return table(rows, 1, form);
}

std::string reportLines(const std::vector<Line>& lines, Form form) {
  Row head = {"", "workload"};
  for (const Mode mode : allModes) head.emplace_back(modeName(mode));
  head.insert(head.end(), {"of SQLite", "of DuckDB", "goal", ""});
  std::vector<Row> rows = {head};
  for (const Line& line : lines) {
    Row row = {line.number, line.label};
    for (const Mode mode : allModes) row.push_back(figureOf(line, mode));
    row.push_back(shareOf(line.ofSqlite));
    row.push_back(shareOf(line.ofDuckdb));
    row.push_back(line.goal);
    row.push_back(verdictText(line.verdict));
    rows.push_back(row);
  }
  return table(rows, 2, form);
}

}  // namespace bench
