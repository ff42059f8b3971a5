// The checkpoint: everything in memory goes to the files, and the log is emptied. Holding the lock
// is all that is done here; how it is made all or nothing is told in
// ../storage/checkpoint.cpp.
#include "database.h"

namespace velmora {

void Database::checkpoint(std::int64_t now) {
  const std::unique_lock lock(dbMutex);
  Storage::saveCheckpoint(tables, now, directory, log);
}

}  // namespace velmora
