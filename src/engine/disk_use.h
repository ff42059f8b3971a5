// What a database has on the disk, read without its lock: also beside whoever has it open.
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <string_view>

#include "../storage/files.h"

namespace velmora {

struct DiskUse {
  std::int64_t process = 0;  // that has the directory open; 0: none, or not known
  std::uint64_t fileBytes = 0;
  std::uint64_t logBytes = 0;
  // In the log, and of these the ones not older than was asked for.
  std::uint64_t logRecords = 0;
  std::uint64_t recentRecords = 0;
  std::uint64_t records = 0;  // that the log ever had
  std::int64_t lastSecond = 0;
};

// Called with each file, and the table that it is of, or nothing.
using ReportFile =
    std::function<void(const std::string& name, std::string_view table, std::uint64_t bytes)>;

// Throws Failure: notFound, io.
DiskUse diskUseOf(const Directory& directory, std::int64_t recentSecond, const ReportFile& report);

}  // namespace velmora
