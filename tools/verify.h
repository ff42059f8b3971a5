// Whether a database is what was written.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace tool {

struct Fault {
  std::string file;
  std::int64_t offset;  // in bytes; -1: the file as a whole
  std::string meaning;
};

// Every fault of a database that nobody has open. Throws Failure with exitNotOpened where there is
// none to be read.
std::vector<Fault> faultsOf(const std::string& directory);

}  // namespace tool
