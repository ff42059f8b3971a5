// <table>.exact: the values that a table's other files cannot give back as they are.
//
//   OFFSET  SIZE  MEANING
//        0     8  "velmexct"; "velmexc2" once entries have been added
//        8     8  number of entries; the offset at which those begin that were added
//
// and the entries, ascending by row and column as far as they were not added later:
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
//         -  only among those that were added: what stands before this of the row, of which the
//            column is 0, is void; nothing
//
// A checkpoint adds the entries of the rows that have changed, those of a row that the table's
// files had behind a "-": what was exact and is not any more needs no entry, since the other files
// have it. The file is written whole when nothing is known of the table's files, and once half as
// much would have been added as there was, more than a byte a row and more than a page. Without
// entries none is written; as long as there is none, only the rows that change are looked at.
#pragma once

#include <cstdint>
#include <optional>

#include "../table.h"
#include "checkpoint_journal.h"
#include "files.h"

namespace velmora {

// Has the checkpoint bring the table's file up to date, which has so many bytes and what the
// table's clean rows have; none if there is none, and nothing if that is not known. False when
// there is to be none. Throws WriteFailure and NotRegularFile.
bool writeExactValues(const Table& table, std::optional<std::int64_t> oldSize,
                      const Directory& directory, CheckpointJournal& journal);
// Gives the table, as its other files have it, the values of this one, if there is one. Throws
// std::runtime_error "Corrupt file: NAME" or "Failed to read file: NAME", with what stands before
// the fault in the table, and NotRegularFile.
void readExactValues(Table& table, const Directory& directory);
// Whether the table's other files give it back as it is, to those that know no nulls in integers
// and bools, no wider types, and of floats six decimals.
bool needsNoExactValues(const Table& table);

}  // namespace velmora
