// A database with everything that a copy has to keep: every type, nulls, awkward texts and numbers,
// timed values that begin at several seconds, identity numbers with gaps, links and listeners.
#pragma once

#include <string>
#include <vector>

#include "tool_fixture.h"

namespace velmora_tests {

class RichDatabase : public ToolFixture {
 protected:
  // At second 1000000000.
  void makeRich(const std::string& database) const;
  // Runs commands as dump writes them.
  void load(const std::string& database, const std::string& commands) const;
};

// The tables of the rich database.
inline const std::vector<std::string> richTables = {"Mixed", "lights", "places", "stays"};
// Twelve seconds, before, within and behind the plans of the rich database.
inline const std::vector<std::string> richSeconds = {
    "0",          "999999939",  "999999940",  "999999959",  "1000000000", "1000000004",
    "1000000005", "1000000034", "1000003600", "1000100000", "1900000000", "4000000000"};

}  // namespace velmora_tests
