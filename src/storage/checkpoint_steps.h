// The steps of a checkpoint, which are the same whatever it writes. They are told in
// checkpoint_steps.cpp.
#pragma once

#include <functional>

#include "checkpoint_journal.h"
#include "files.h"

namespace velmora {

struct Checkpoint {
  // Writes the new files, each in the journal before it is begun, and what is to be patched. An
  // empty log comes last by itself.
  std::function<void(CheckpointJournal&)> write;
  // It counts from here on: whatever fails, it will be completed before the files are read.
  std::function<void()> counts;
  // Tells whether the new log lies ready under its other name: commands logged meanwhile belong
  // there.
  std::function<void(bool)> expectNewLog;
  // After a failure before it counted: whether the journal could not be taken back for certain.
  bool isInDoubt = false;
};

// All functions throw WriteFailure and NotRegularFile.
void runCheckpoint(Checkpoint& checkpoint, const Directory& directory);
// Completes an interrupted one; can be called again.
void completeCheckpoint(const std::function<void(bool)>& expectNewLog, const Directory& directory);
// What a new file, which the journal then names, is called for now.
std::string addNewFile(CheckpointJournal& journal, const std::string& name,
                       const Directory& directory);

}  // namespace velmora
