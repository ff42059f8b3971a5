// See disk.h.
#include "disk.h"

#include "failure.h"
#include "open.h"

namespace tool {

Disk diskOf(const std::string& directory, std::int64_t recentSecond) {
  Disk disk;
  disk.use.size = sizeof disk.use;
  const velmora_disk_file add = [](void* context, const char* /*file*/, const char* table,
                                   std::uint64_t bytes) {
    static_cast<Disk*>(context)->tableBytes[table] += static_cast<std::int64_t>(bytes);
  };
  velmora_error* error = nullptr;
  const int code =
      velmora_stat(directory.data(), directory.size(), recentSecond, &disk.use, add, &disk, &error);
  if (code == VELMORA_OK) return disk;
  throw Failure(exitNotOpened, openingText(directory, velmora::Error(code, error)));
}

}  // namespace tool
