// What differs between two databases.
#ifndef VELMORA_TOOLS_COPY_DIFFERENCE_H
#define VELMORA_TOOLS_COPY_DIFFERENCE_H

#include <optional>
#include <string>
#include <vector>

#include "velmora/velmora.hpp"

namespace tool {

struct Difference {
  std::string what;  // table, column, row, value, link, listener
  std::string table;
  std::string key;  // of the row; empty where it is found by all its values
  std::string column;
  std::optional<std::string> first;  // as the language writes it; none: only the second has it
  std::optional<std::string> second;
};

// Rows are found by the table's key; in a table without one, each is looked for as a whole, as
// often as it is there.
std::vector<Difference> differences(velmora::Database& first, velmora::Database& second);

}  // namespace tool

#endif
