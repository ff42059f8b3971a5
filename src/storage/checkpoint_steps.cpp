// The checkpoint, all or nothing, and at the cost of what has changed.
//
// 1. The journal "velmora.ckpt" is begun. Into it goes what changes in tables of which little has
//    changed; of the others the new files are written and synced beside the old ones as
//    <file>.checkpoint, and so is an empty log. The directory is synced.
// 2. The journal gets its last line and is synced. This is the point of no return.
// 3. The changes are made in the tables' files, each of which is synced, and the new files are
//    renamed into place. The directory is synced.
// 4. The journal is emptied, synced and removed: it cannot come back for other files of these
//    names.
//
// What is interrupted before 2 is swept away at the next start and everything is as before; what is
// interrupted behind it is done again from 3, by the next start, the next checkpoint or the next
// command that makes a table's files, which must not be taken for those of another one. Step 3 may
// be repeated at any point: a file that has been renamed is no longer there to be renamed. Commands
// that are logged between 2 and the end of 3, after a failure, go to the new log.
#include "checkpoint_steps.h"

#include <cerrno>

#include "../text.h"
#include "file_names.h"

namespace velmora {
namespace {

void requireSync(const Directory& directory) {
  if (!syncDirectory(directory)) throw WriteFailure("cannot sync the directory");
}

void removeMarker(const Directory& directory) {
  if (!removeFile(directory, markerFileName)) {
    throw WriteFailure(std::string("cannot remove ") + markerFileName);
  }
}

// Takes a checkpoint back that came as far as the last line of its journal at the most.
void abandon(CheckpointJournal& journal, Checkpoint& checkpoint, const Directory& directory) {
  if (journal.isWhole()) {
    // Emptied and synced before it is removed: a power failure could bring a marker back that was
    // only removed, when its files are gone.
    File marker(directory, markerFileName, File::Mode::change);
    checkpoint.isInDoubt = true;
    if (!marker.truncate(0)) {
      // It stands, and its files with it: the next checkpoint completes it.
      checkpoint.expectNewLog(true);
      return;
    }
    if (!marker.sync()) return;
    checkpoint.isInDoubt = false;
  }
  removeFile(directory, markerFileName);
  for (const auto& [name, keepsSpare] : journal.awaited().replaced) {
    removeFile(directory, checkpointName(name));
  }
}

// Puts a new file in place, if that has not been done yet.
void replaceFile(const std::string& name, bool keepsSpare, const Directory& directory) {
  const std::string newName = checkpointName(name);
  if (keepsSpare && identityOf(directory, newName.c_str())) {
    const auto old = identityOf(directory, name.c_str());
    if (old && !old->isForeign()) renameFile(directory, name, spareName(name));
  }
  if (!renameFile(directory, newName, name)) {
    throw WriteFailure("cannot replace " + printable(name));
  }
}

// Does what the journal says, which cannot be taken back any more.
void complete(const AwaitedFiles& awaited, const std::function<void(bool)>& expectNewLog,
              const Directory& directory) {
  for (const auto& [name, keepsSpare] : awaited.replaced) {
    requireRegular(directory, checkpointName(name));
  }
  applyPatches(awaited, directory);
  for (const auto& [name, keepsSpare] : awaited.replaced) {
    replaceFile(name, keepsSpare, directory);
  }
  expectNewLog(false);
  for (const std::string& name : awaited.removed) {
    if (!removeFile(directory, name)) throw WriteFailure("cannot remove " + printable(name));
  }
  requireSync(directory);
  File marker(directory, markerFileName, File::Mode::change);
  if (!marker.truncate(0) || !marker.sync()) {
    throw WriteFailure(std::string("cannot empty ") + markerFileName);
  }
  removeMarker(directory);
}

}  // namespace

std::string addNewFile(CheckpointJournal& journal, const std::string& name,
                       const Directory& directory) {
  requireRegular(directory, name);
  journal.awaited().replaced[name] = false;
  return checkpointName(name);
}

void runCheckpoint(Checkpoint& checkpoint, const Directory& directory) {
  completeCheckpoint(checkpoint.expectNewLog, directory);
  CheckpointJournal journal(directory);
  try {
    checkpoint.write(journal);
    NewFile(directory, addNewFile(journal, logFileName, directory)).finish();
    // All names are durable before the journal counts.
    requireSync(directory);
    journal.finish();
  } catch (...) {
    const int error = errno;
    abandon(journal, checkpoint, directory);
    errno = error;
    throw;
  }
  // From here on the files count as written: whatever fails, they will be before they are read.
  checkpoint.counts();
  checkpoint.expectNewLog(true);
  complete(journal.awaited(), checkpoint.expectNewLog, directory);
}

void completeCheckpoint(const std::function<void(bool)>& expectNewLog, const Directory& directory) {
  if (const auto awaited = readJournal(directory)) {
    // The process that wrote the journal may have died before it was durable.
    if (!File(directory, markerFileName, File::Mode::read).sync()) {
      throw WriteFailure(std::string("cannot sync ") + markerFileName);
    }
    requireSync(directory);
    complete(*awaited, expectNewLog, directory);
  } else if (identityOf(directory, markerFileName)) {
    // One that was emptied and could not be synced must not come back for half of its files, or
    // for others of their names.
    removeMarker(directory);
    requireSync(directory);
  }
}

}  // namespace velmora
