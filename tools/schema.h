// The commands that make the tables, links and listeners of a database again.
#pragma once

#include <string>

#include "velmora/velmora.hpp"

namespace tool {

// One command a line: the tables by name, or the one that is named, then their links and listeners.
// Throws velmora::Error for a table that is not there.
std::string schemaCommands(velmora::Database& database, const std::string& table = "");

}  // namespace tool
