// What a checkpoint writes of one table.
//
// Nothing of a table that has not changed. What has changed of one goes into the journal as long as
// that is little; else all of its files are written anew, each as <file>.checkpoint. Either way the
// files come to hold the same bytes.
//
// A table file of some size that is replaced is kept as <file>.spare, and the next new one is
// written over it: that takes a third of the time that a new file takes.
#pragma once

#include "../table.h"
#include "checkpoint_journal.h"
#include "files.h"

namespace velmora {

// Writes what the table's files lack: into the journal, or as new files that the journal names,
// each before it is begun. Throws WriteFailure, NotRegularFile, std::runtime_error "Failed to read
// file: NAME" or "Too many timed values", and std::invalid_argument or std::out_of_range ("stoi",
// "stof") for a text that does not convert.
void writeTable(const Table& table, const Directory& directory, CheckpointJournal& journal);

}  // namespace velmora
