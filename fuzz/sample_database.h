// The small database that fuzzers start from: every kind of column and file, a link, timed values
// that cycle and that do not, deleted rows, a table whose rows are kept whole in a file of their
// own, and a log that has not been checkpointed yet.
#pragma once

#include <array>

#include "scratch_directory.h"

namespace velmora::fuzz {

// Children before their parents.
inline constexpr std::array sampleTables = {"orders", "customers", "lamps", "tags"};

// The commands that make it, one a line.
extern const char* const sampleCommands;

// Its files after a kill. Runs an engine in the scratch directory, which must not be in use.
Files sampleFiles();

}  // namespace velmora::fuzz
