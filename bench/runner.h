// Plays workloads: every side in a process of its own, in turns, over several rounds; the figures
// are medians. What came out is held against the goals.
#pragma once

#include <filesystem>
#include <map>
#include <string>
#include <vector>

#include "machine_limits.h"
#include "workload.h"

namespace bench {

enum class Verdict { none, met, missed };

// One line of the report.
struct Line {
  std::string number;
  std::string label;
  Unit unit = Unit::seconds;
  std::map<Mode, double> figures;  // of the modes that took part
  double ratio = 0;                // best fitting SQLite mode by velmora; 0 where there is none
  std::string goal;
  Verdict verdict = Verdict::none;
};

// Plays in new directories below root, which are removed again. With only, that mode alone takes
// part. Throws std::runtime_error when two sides give different answers.
std::vector<Line> runWorkload(const Workload& workload, const Scale& scale,
                              const std::vector<MachineLimit>& limits,
                              const std::filesystem::path& root, const Mode* only);

}  // namespace bench
