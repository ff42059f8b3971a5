// <table>.tmp: the timed values of a table, one fixed-size record a slot.
//
// With S the largest states limit of the table's columns, slot k starts at k * (29 + 68 * S):
//
//   OFFSET  SIZE    MEANING
//        0     4    row number, a label
//        4     4    column index, a label
//        8     1    1 if the states cycle
//        9     8    start time, seconds since the epoch
//       17     8    length of one pass, seconds
//       25     4    number of states c
//       29  68 * S  the states: 8 bytes duration in seconds, 60 bytes value; zeros from c on
//
// A slot belongs to one cell. It is never freed: a cell that is written again rewrites its slot.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "../cell.h"
#include "block_io.h"
#include "checkpoint_journal.h"

namespace velmora {

// Bytes of one slot in a table whose largest states limit is maxStates.
std::size_t timedRecordSize(std::int32_t maxStates);
// The slot behind `count` others. Throws std::runtime_error "Too many timed values" when slot
// numbers have run out.
std::int32_t slotBehind(std::int64_t count);

// Reads the timed values of a table for its rows.
class TimedReader {
 public:
  // A file that is not there has no slots. Throws std::runtime_error "Failed to read file: NAME".
  TimedReader(const Directory& directory, const std::string& fileName, std::int32_t maxStates);

  bool hasFile() const noexcept { return file_.isOpen(); }
  // The timed value in a slot that a cell names; null when the slot lies outside, is cut off, has
  // no states or more than there is room for, or is another cell's.
  std::unique_ptr<TempRule> claim(std::int32_t slot);

  // Whether a slot was claimed twice. It belongs to none of the claimants then, the first one
  // included: after this answer all rows have to be read anew, and get it no more.
  bool hasNewDispute();

  // Whether the slot's record is what the writer would make of it again, for this row and column.
  bool isAsWritten(std::int32_t slot, std::int32_t row, std::int32_t column);

 private:
  std::unique_ptr<TempRule> read(std::int32_t slot);

  std::int32_t maxStates_;
  File file_;
  BlockReader reader_;
  std::vector<bool> isClaimed_;  // by slot
  std::set<std::int32_t> disputed_;
  bool isDisputeNew_ = false;
};

// Writes a table's timed values for a checkpoint: with a patch into that, and else into a new file,
// begun as a copy of the old one when the first value comes.
class TimedWriter {
 public:
  TimedWriter(const Directory& directory, const std::string& fileName, std::int32_t maxStates,
              PatchWriter* patch = nullptr);

  // Writes the value into the slot that the cell's row names in the old files, or into a new one if
  // that is -1, not there, or another cell's by now; returns the slot. Row and column are labels.
  std::int32_t put(std::int32_t oldSlot, std::int32_t row, std::int32_t column,
                   const TempRule& rule);
  // Makes the new file durable. False when there is none.
  bool finish();

 private:
  void begin();
  void copy(File& old);

  Directory directory_;
  std::string fileName_;
  std::int32_t maxStates_;
  PatchWriter* patch_;
  bool hasBegun_ = false;
  std::optional<NewFile> file_;
  std::vector<bool> isTaken_;  // by slot of the old file
  std::int64_t slotCount_ = 0;
};

}  // namespace velmora
