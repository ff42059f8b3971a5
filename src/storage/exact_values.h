// <table>.exact: the values that a table's other files cannot give back as they are.
//
//   OFFSET  SIZE  MEANING
//        0     8  "velmexct"
//        8     8  number of entries
//
// and the entries, ascending by row and column:
//
//   SIZE  MEANING
//      4  row
//      4  column
//      1  what follows:
//         n  null, in a column of integers or bools: nothing
//         t  a text that is longer than 60 bytes, holds a zero byte or reads like the missing
//            value: 4 bytes size, the bytes
//         s  a timed value: 1 byte whether it cycles, 8 start, 8 length of one pass, 4 number of
//            states, and of each: 8 duration, 4 size, the bytes
//
// It is written whole when its table has changed, and is not there when it has no entry: then only
// the rows that change are looked at.
#pragma once

#include <string>

#include "../table.h"
#include "checkpoint_journal.h"
#include "files.h"

namespace velmora {

// Writes the table's file as a new one of the checkpoint; false when there is nothing to be
// written. Throws WriteFailure and NotRegularFile.
bool writeExactValues(const Table& table, const Directory& directory, CheckpointJournal& journal);
// Whether there is something to be written of the rows that have changed.
bool haveChangesExactValues(const Table& table);
// Gives the table, as its other files have it, the values of this one, if there is one. Throws
// std::runtime_error "Corrupt file: NAME" or "Failed to read file: NAME", with what stands before
// the fault in the table, and NotRegularFile.
void readExactValues(Table& table, const Directory& directory);
// Whether the table's other files give it back as it is, to those that know no nulls in integers
// and bools, no wider types, and of floats six decimals.
bool needsNoExactValues(const Table& table);

}  // namespace velmora
