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
// command that makes or removes a table's files. Step 3 may be repeated at any point: a file that
// has been renamed is no longer there to be renamed. Commands that are logged between 2 and the end
// of 3, after a failure, go to the new log.
#include <cerrno>
#include <optional>
#include <stdexcept>

#include "block_io.h"
#include "checkpoint_files.h"
#include "checkpoint_journal.h"
#include "storage.h"

namespace velmora {
namespace {

// Calls step(); a file that could not be written fails the checkpoint.
template <typename Step>
void asCheckpoint(Step step) {
  try {
    step();
  } catch (const WriteFailure& failure) {
    throw std::runtime_error(std::string("Checkpoint failed: ") + failure.what());
  }
}

void requireSync(const Directory& directory) {
  if (!syncDirectory(directory)) throw WriteFailure("cannot sync the directory");
}

// Makes the files durable that commands have written since the last checkpoint, and writes the
// relation files that could not be written then: once the log is emptied, nothing else could make a
// lost link again.
void syncOtherFiles(const Tables& tables, std::int64_t now, const Directory& directory) {
  const auto sync = [&](const std::string& name) {
    File file(directory, name, File::Mode::read);
    const bool isMissing = !file.isOpen() && errno == ENOENT;
    if (!isMissing && !file.sync()) throw WriteFailure("cannot sync " + printable(name));
  };
  sync(listenersFileName);
  sync(webhooksFileName);
  for (const auto& [name, table] : tables) {
    for (const LinkRecord& link : table.links) {
      const Relation relation{name, link.parentTable, link.column, link.parentColumn};
      const std::string fileName = Storage::relationFileName(relation);
      const auto parent = tables.find(link.parentTable);
      if (parent != tables.end() && Storage::readRelation(fileName, directory) != relation) {
        Storage::writeRelation(table, parent->second, link.column, now, directory);
        putInPlace(directory, fileName);
      }
      sync(fileName);
    }
  }
}

void removeMarker(const Directory& directory) {
  if (!removeFile(directory, markerFileName)) {
    throw WriteFailure(std::string("cannot remove ") + markerFileName);
  }
}

// Takes a checkpoint back that came as far as the last line of its journal at the most.
void abandon(CheckpointJournal& journal, const Directory& directory, Log& log) {
  if (journal.isWhole()) {
    // Emptied and synced before it is removed: a power failure could bring a marker back that was
    // only removed, when its files are gone.
    File marker(directory, markerFileName, File::Mode::change);
    if (!marker.truncate(0)) {
      log.expectNew(true);  // it stands, and its files with it: the next checkpoint completes it
      return;
    }
    if (!marker.sync()) return;
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
void complete(const AwaitedFiles& awaited, const Directory& directory, Log& log) {
  for (const auto& [name, keepsSpare] : awaited.replaced) {
    requireRegular(directory, checkpointName(name));
  }
  applyPatches(awaited, directory);
  for (const auto& [name, keepsSpare] : awaited.replaced) {
    replaceFile(name, keepsSpare, directory);
  }
  log.expectNew(false);
  requireSync(directory);
  File marker(directory, markerFileName, File::Mode::change);
  if (!marker.truncate(0) || !marker.sync()) {
    throw WriteFailure(std::string("cannot empty ") + markerFileName);
  }
  removeMarker(directory);
}

}  // namespace

void Storage::saveCheckpoint(Tables& tables, std::int64_t now, const Directory& directory,
                             Log& log) {
  finishCheckpoint(directory, log);
  std::optional<CheckpointJournal> journal;
  const auto write = [&] {
    journal.emplace(directory);
    for (const auto& [name, table] : tables) {
      if (isStorableName(name)) writeTable(table, directory, *journal);
    }
    syncOtherFiles(tables, now, directory);
    requireRegular(directory, logFileName);
    journal->awaited().replaced[logFileName] = false;
    NewFile(directory, checkpointName(logFileName)).finish();
    // All names are durable before the journal counts.
    requireSync(directory);
    journal->finish();
  };
  asCheckpoint([&] {
    try {
      write();
    } catch (...) {
      if (journal) abandon(*journal, directory, log);
      throw;
    }
  });
  // From here on the files count as written: whatever fails, they will be before they are read.
  for (auto& [name, table] : tables) {
    if (table.isDirty()) table.markClean();
  }
  log.expectNew(true);
  asCheckpoint([&] { complete(journal->awaited(), directory, log); });
}

AwaitedFiles Storage::awaitedFiles(const Directory& directory) {
  return readJournal(directory).value_or(AwaitedFiles());
}

void Storage::finishCheckpoint(const Directory& directory, Log& log) {
  asCheckpoint([&] {
    if (const auto awaited = readJournal(directory)) {
      // The process that wrote the journal may have died before it was durable.
      if (!File(directory, markerFileName, File::Mode::read).sync()) {
        throw WriteFailure(std::string("cannot sync ") + markerFileName);
      }
      requireSync(directory);
      complete(*awaited, directory, log);
    } else if (identityOf(directory, markerFileName)) {
      // One that was emptied and could not be synced must not come back for half of its files, or
      // for others of their names.
      removeMarker(directory);
      requireSync(directory);
    }
  });
}

}  // namespace velmora
