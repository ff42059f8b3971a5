// What a figure of velmora is held against, and how that came out.
#pragma once

#include <cstddef>
#include <map>
#include <string>
#include <vector>

#include "engine.h"
#include "figure_text.h"

namespace bench {

struct Goal {
  enum class Kind {
    none,
    absolute,   // the figure is at most `value`
    ofMode,     // at most `value` times the figure of this mode
    ofMeasure,  // at most `value` times the own figure of the measure `other`
  };
  Kind kind = Kind::none;
  double value = 0;
  Mode mode = Mode::velmora;
  std::size_t other = 0;
  std::string otherName = {};
};

inline Goal atMost(double value) { return {Goal::Kind::absolute, value}; }
inline Goal atMostOf(Mode mode, double value) { return {Goal::Kind::ofMode, value, mode}; }
inline Goal atMostOf(std::size_t measure, const std::string& name, double value) {
  return {Goal::Kind::ofMeasure, value, Mode::velmora, measure, name};
}

enum class Verdict { none, met, missed };

// One line of the report.
struct Line {
  std::string number;
  std::string label;
  Unit unit = Unit::seconds;
  Mode own = Mode::velmora;        // whose figure is judged
  std::map<Mode, double> figures;  // of the modes that took part
  double ofSqlite = 0;             // the own figure by that of the best fitting SQLite mode
  double ofDuckdb = 0;             // the same for DuckDB; 0 where there is none
  std::string goal;
  Verdict verdict = Verdict::none;
};

// Says the goal of the line, and whether it is met. The lines are all of the workload.
void judge(Line& line, const Goal& goal, const std::vector<Line>& lines);

}  // namespace bench
