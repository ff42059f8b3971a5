// The checkpoint of the plain functions: all tables, an empty log, and what commands have written
// to other files since the last one made durable.
#include <cerrno>
#include <stdexcept>

#include "block_io.h"
#include "checkpoint_files.h"
#include "checkpoint_steps.h"
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

}  // namespace

void Storage::saveCheckpoint(Tables& tables, std::int64_t now, const Directory& directory,
                             Log& log) {
  Checkpoint checkpoint;
  checkpoint.write = [&](CheckpointJournal& journal) {
    for (const auto& [name, table] : tables) {
      if (isStorableName(name)) writeTable(table, directory, journal);
    }
    syncOtherFiles(tables, now, directory);
  };
  checkpoint.counts = [&] {
    for (auto& [name, table] : tables) {
      if (table.isDirty()) table.markClean();
    }
  };
  checkpoint.expectNewLog = [&](bool isExpected) { log.expectNew(isExpected); };
  asCheckpoint([&] { runCheckpoint(checkpoint, directory); });
}

AwaitedFiles Storage::awaitedFiles(const Directory& directory) {
  return readJournal(directory).value_or(AwaitedFiles());
}

void Storage::finishCheckpoint(const Directory& directory, Log& log) {
  asCheckpoint(
      [&] { completeCheckpoint([&](bool isExpected) { log.expectNew(isExpected); }, directory); });
}

}  // namespace velmora
