// What a database has on the disk, as velmora_stat tells.
#pragma once

#include <cstdint>
#include <map>
#include <string>

#include "velmora/velmora.hpp"

namespace tool {

struct Disk {
  velmora_disk use = {};
  std::map<std::string, std::int64_t> tableBytes;  // of each table's files
};

// Throws Failure with exitNotOpened.
Disk diskOf(const std::string& directory, std::int64_t recentSecond = 0);

}  // namespace tool
