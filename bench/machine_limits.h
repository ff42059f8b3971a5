// What the machine allows, measured in the same run: the figures below which no engine can come.
#pragma once

#include <string>
#include <vector>

#include "workload.h"

namespace bench {

struct MachineLimit {
  std::string label;
  double seconds;  // of one operation
  double bytes;    // that one operation moves, or 0 where the time is what counts
};

// Measures in the current directory, with Google Benchmark, in a process of its own.
std::vector<MachineLimit> measureMachineLimits(const Scale& scale);

}  // namespace bench
