// The checkpoint: everything in memory goes to the files, and the log is emptied.
#include "database.h"

namespace velmora {

void Database::checkpoint() {
  const std::unique_lock lock(dbMutex);
  Storage::saveCheckpoint(tables, directory);
}

}  // namespace velmora
