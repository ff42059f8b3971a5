// The commands that make the tables, links and listeners of a database again.
#pragma once

#include <string>
#include <string_view>

#include "velmora/velmora.hpp"

namespace tool {

// "'it''s'": as the language writes texts.
std::string quoted(std::string_view text);

// One command a line: tables by name, or the one named, then its links and listeners. Throws
// velmora::Error for a table that is not there.
std::string createCommands(velmora::Database& database, const std::string& table = "");
std::string linkCommands(velmora::Database& database, const std::string& table = "");
std::string listenCommands(velmora::Database& database, const std::string& table = "");

}  // namespace tool
