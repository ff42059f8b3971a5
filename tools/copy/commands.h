// A database as the commands that make it again: tables, rows, timed values with their starts,
// identity numbers with their gaps, links and listeners.
#ifndef VELMORA_TOOLS_COPY_COMMANDS_H
#define VELMORA_TOOLS_COPY_COMMANDS_H

#include <functional>
#include <string_view>

#include "velmora/velmora.hpp"

namespace tool {

using Sink = std::function<void(std::string_view)>;

// Commands, each on a line of its own and ended by ";", as one transaction. What no command can
// give again stands at the top, in lines that begin with "-- Not kept: ". Rows are read at the
// database's second, and nothing else may change it meanwhile.
void writeCommands(velmora::Database& database, const Sink& sink);

}  // namespace tool

#endif
