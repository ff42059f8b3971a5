// Plays workloads: every side in a process of its own, in turns, over several rounds; the figures
// are medians. What came out is held against the goals.
#pragma once

#include <filesystem>
#include <vector>

#include "workload.h"

namespace bench {

// Plays in new directories below root, which are removed again. With only, that mode alone takes
// part. Throws std::runtime_error when two sides give different answers.
std::vector<Line> runWorkload(const Workload& workload, const Scale& scale,
                              const std::filesystem::path& root, const Mode* only);

}  // namespace bench
