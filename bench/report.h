// The report as a table of text, or in Markdown for the documentation.
#pragma once

#include <string>
#include <vector>

#include "machine_limits.h"
#include "runner.h"

namespace bench {

enum class Form { text, markdown };

// Date, compiler, processor and libraries of this run.
std::string describeRun(const Scale& scale);
std::string reportLimits(const std::vector<MachineLimit>& limits, Form form);
std::string reportLines(const std::vector<Line>& lines, Form form);

}  // namespace bench
