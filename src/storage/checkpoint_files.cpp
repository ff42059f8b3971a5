// See checkpoint_files.h.
#include "checkpoint_files.h"

#include <algorithm>
#include <cerrno>
#include <stdexcept>

#include "../record_io.h"
#include "block_io.h"
#include "checkpoint_steps.h"
#include "halves.h"
#include "storage.h"
#include "table_rows.h"
#include "timed_file.h"

namespace velmora {
namespace {

// The timed values of one table during its checkpoint. Cells keep the slots that the table's files
// give them.
class TimedValues {
 public:
  // Without a patch they go to a new file.
  TimedValues(const Table& table, const Directory& directory, PatchWriter* patch)
      : table_(table),
        maxStates_(largestMaxStates(table.columns)),
        isShifted_(rowsAreShifted(table.columns)),
        oldRows_(directory,
                 fileNameOf(table.tableName, isShifted_ ? wholeRowExtension : tableExtension),
                 File::Mode::read),
        reader_(oldRows_),
        writer_(directory, fileNameOf(table.tableName, timedExtension), maxStates_, patch),
        cellOffsets_(wholeOffsets(table.columns)),
        slots_(table.columns.size(), -1) {}

  // Files the timed values of a row under their slots and returns these, by column.
  std::span<const std::int32_t> slotsOf(std::size_t row) {
    for (std::size_t c = 0; c < slots_.size() && maxStates_ > 0; ++c) {
      const TempRule* const rule = table_.values(c).rule(row);
      if (rule != nullptr) slots_[c] = put(row, c, *rule);
    }
    return slots_;
  }

  bool finish() { return writer_.finish(); }

 private:
  std::int32_t put(std::size_t i, std::size_t column, const TempRule& rule) {
    const std::size_t size = wholeRowSize(table_.columns);
    const std::int64_t header = isShifted_ ? 0 : Storage::headerSize(table_.columns.size());
    const std::string_view oldRow =
        oldRows_.isOpen() ? reader_.at(header + static_cast<std::int64_t>(i * size), size)
                          : std::string_view();
    return writer_.put(slotAt(oldRow, cellOffsets_[column]), timedLabel(table_.columns, column, i),
                       static_cast<std::int32_t>(column), rule);
  }

  const Table& table_;
  std::int32_t maxStates_;
  bool isShifted_;
  File oldRows_;
  BlockReader reader_;
  TimedWriter writer_;
  std::vector<std::size_t> cellOffsets_;
  std::vector<std::int32_t> slots_;
};

// Where rows begin in the table file; the row's size is worked out once, not a row.
class RowOffsets {
 public:
  explicit RowOffsets(const Table& table)
      : header_(Storage::headerSize(table.columns.size())),
        rowSize_(Storage::rowSize(table.columns)) {}
  std::int64_t operator()(std::size_t row) const noexcept {
    return header_ + static_cast<std::int64_t>(row) * rowSize_;
  }

 private:
  std::int64_t header_;
  std::int64_t rowSize_;
};

// Makes the spare file the new one, if there is one, and hands back how that is to be opened.
File::Mode beginOverSpare(const Directory& directory, const std::string& fileName) {
  requireRegular(directory, spareName(fileName));
  renameFile(directory, spareName(fileName), checkpointName(fileName));
  return File::Mode::overwrite;
}

// Finishes such a file. Its name is the journal's already; what it replaces may become the spare.
void finishOverSpare(NewFile& file, const std::string& fileName, CheckpointJournal& journal) {
  constexpr std::int64_t leastSpare = 256 * 1024;  // a smaller file is made as quickly
  journal.awaited().replaced[fileName] = file.position() >= leastSpare;
  file.finish();
}

// Writes the rows of a table whose rows fit: one after the other.
void writeFittingRows(const Table& table, TimedValues& timed, const Directory& directory,
                      CheckpointJournal& journal) {
  const std::string name = fileNameOf(table.tableName, tableExtension);
  NewFile file(directory, checkpointName(name), beginOverSpare(directory, name));
  file.write(Storage::tableFileHeader(table));
  const std::size_t longest = longestRow(table.columns, CellWidths::written);
  const std::vector<CellShape> shapes = shapesOf(table.columns, CellWidths::written);
  const std::size_t mostRows = std::max<std::size_t>(1, NewFile::pieceSize / longest);
  const auto writeRows = [&](NewFile& out, std::size_t first, std::size_t end) {
    for (std::size_t i = first; i < end;) {
      const std::size_t count = std::min({mostRows, encodedTogether(table, i), end - i});
      const auto slots = timed.slotsOf(i);
      char* const room = out.room(count * longest);
      out.written(encodeRows(room, table, i, count, shapes, slots));
      i += count;
    }
  };
  const std::size_t rowCount = table.rowCount();
  if (rowCount < leastRowsOfHalves || largestMaxStates(table.columns) > 0) {
    writeRows(file, 0, rowCount);
  } else {
    // Putting rows together takes about as long as the system takes to copy them.
    const std::size_t middle = rowCount / 2;
    const RowOffsets offsetOf(table);
    runBeside([&] { writeRows(file, 0, middle); },
              [&] {
                NewFile secondHalf(directory, checkpointName(name), File::Mode::overwrite);
                secondHalf.seek(offsetOf(middle));
                writeRows(secondHalf, middle, rowCount);
                secondHalf.flush();
              });
    file.seek(offsetOf(rowCount));
  }
  finishOverSpare(file, name, journal);
}

// Writes pieces that may overlap, by ascending offsets, each over those before it; where no piece
// comes, what an old file had there stays.
class Overlay {
 public:
  Overlay(const Directory& directory, const std::string& fileName)
      : old_(directory, fileName, File::Mode::read),
        reader_(openOrMissing(old_)),
        file_(directory, checkpointName(fileName)) {}

  void put(std::int64_t offset, std::string_view bytes) {
    settle(offset);
    pending_.replace(0, bytes.size(), bytes);
  }
  // Nothing comes behind the last piece.
  void finish() {
    file_.write(pending_);
    file_.finish();
  }

 private:
  // To be asked before another file is opened: the failure is the last one's.
  static File& openOrMissing(File& old) {
    if (!old.isOpen() && errno != ENOENT) throwUnreadable(old.name());
    return old;
  }

  // Writes everything before the offset, where no further piece can come.
  void settle(std::int64_t offset) {
    const auto gone = std::min(pending_.size(), static_cast<std::size_t>(offset - settled_));
    file_.write(std::string_view(pending_).substr(0, gone));
    pending_.erase(0, gone);
    settled_ += static_cast<std::int64_t>(gone);
    constexpr std::int64_t blockSize = 64 * 1024;
    while (settled_ < offset) {
      const std::int64_t size = std::min(blockSize, offset - settled_);
      const std::string_view kept =
          old_.isOpen() ? reader_.at(settled_, static_cast<std::size_t>(size)) : std::string_view();
      if (!isAllZero(kept)) file_.write(kept);
      settled_ += size;
      file_.seek(settled_);
    }
  }

  File old_;
  BlockReader reader_;
  NewFile file_;
  std::int64_t settled_ = 0;
  std::string pending_;  // what comes next, as far as it is known
};

// Writes the rows of a table whose rows are longer or shorter than their declared size: each at its
// place over what the file held and what the row before left there, and once more whole.
void writeShiftedRows(const Table& table, TimedValues& timed, const Directory& directory,
                      CheckpointJournal& journal) {
  Overlay file(directory, fileNameOf(table.tableName, tableExtension));
  file.put(0, Storage::tableFileHeader(table));
  const std::string wholeName = fileNameOf(table.tableName, wholeRowExtension);
  NewFile whole(directory, checkpointName(wholeName), beginOverSpare(directory, wholeName));
  const std::size_t longest = longestRow(table.columns, CellWidths::whole);
  const std::vector<CellShape> shapes = shapesOf(table.columns, CellWidths::written);
  const std::vector<CellShape> wholeShapes = shapesOf(table.columns, CellWidths::whole);
  std::string written(longest, '\0');
  std::int64_t offset = Storage::headerSize(table.columns.size());
  for (std::size_t i = 0; i < table.rowCount(); ++i) {
    const auto slots = timed.slotsOf(i);
    const char* const end = encodeRows(written.data(), table, i, 1, shapes, slots);
    file.put(offset, {written.data(), static_cast<std::size_t>(end - written.data())});
    offset += Storage::rowSize(table.columns);
    char* const out = whole.room(longest);
    whole.written(encodeRows(out, table, i, 1, wholeShapes, slots));
  }
  finishOverSpare(whole, wholeName, journal);
  file.finish();
}

void writeMarks(const Table& table, const Directory& directory, CheckpointJournal& journal) {
  const std::string name = fileNameOf(table.tableName, deletionExtension);
  NewFile marks(directory, addNewFile(journal, name, directory));
  for (std::size_t chunk = 0; chunk < table.rows().chunkCount(); ++chunk) {
    marks.write(
        {reinterpret_cast<const char*>(table.rows().deleted(chunk)), table.rows().sizeOf(chunk)});
  }
  marks.finish();
}

// Writes the new files of one table that has columns, each in the journal before it is begun.
void writeWhole(const Table& table, const Directory& directory, CheckpointJournal& journal) {
  const auto add = [&](std::string_view extension) {
    std::string name = fileNameOf(table.tableName, extension);
    addNewFile(journal, name, directory);
    return name;
  };
  add(tableExtension);
  const bool areShifted = rowsAreShifted(table.columns);
  if (areShifted) add(wholeRowExtension);
  const std::string timedName = add(timedExtension);
  TimedValues timed(table, directory, nullptr);
  (areShifted ? writeShiftedRows : writeFittingRows)(table, timed, directory, journal);
  if (!timed.finish()) journal.awaited().replaced.erase(timedName);
}

// Puts what has changed of a table into the journal.
void writeChanges(const Table& table, const Directory& directory, CheckpointJournal& journal) {
  PatchWriter rows(journal, directory, fileNameOf(table.tableName, tableExtension));
  PatchWriter marks(journal, directory, fileNameOf(table.tableName, deletionExtension));
  const std::string timedName = fileNameOf(table.tableName, timedExtension);
  PatchWriter timedPatch(journal, directory, timedName);
  // Where there is none yet, all that is in it is new.
  if (!timedPatch.isOpen()) journal.awaited().replaced[timedName] = false;
  TimedValues timed(table, directory, timedPatch.isOpen() ? &timedPatch : nullptr);
  const std::vector<CellShape> shapes = shapesOf(table.columns, CellWidths::written);
  std::string row(longestRow(table.columns, CellWidths::written), '\0');
  const RowOffsets offsetOf(table);
  table.forEachDirtyRun([&](std::size_t first, std::size_t count) {
    for (std::size_t i = first; i < first + count; ++i) {
      encodeRows(row.data(), table, i, 1, shapes, timed.slotsOf(i));
      rows.put(offsetOf(i), row);
      marks.put(static_cast<std::int64_t>(i), table.isLive(i) ? std::string_view("\0", 1) : "\1");
    }
  });
  rows.finish(offsetOf(table.rowCount()));
  marks.finish(static_cast<std::int64_t>(table.rowCount()));
  if (!timed.finish()) journal.awaited().replaced.erase(timedName);
}

// Whether the table's files are there and as long as they were when they were last written or read.
bool areFilesKnown(const Table& table, const Directory& directory) {
  if (table.isAllDirty()) return false;
  const auto hasSize = [&](std::string_view extension, std::size_t size) {
    const File file(directory, fileNameOf(table.tableName, extension), File::Mode::read);
    return file.isOpen() && file.size() == static_cast<std::int64_t>(size);
  };
  const std::size_t count = table.storedRowCount();
  if (!hasSize(deletionExtension, count)) return false;
  if (table.columns.empty()) return true;
  if (!rowsAreShifted(table.columns)) {
    return hasSize(tableExtension, static_cast<std::size_t>(RowOffsets(table)(count)));
  }
  return hasSize(wholeRowExtension, count * wholeRowSize(table.columns)) &&
         sizeOf(directory, fileNameOf(table.tableName, tableExtension)) > 0;
}

// Whether the files can be changed in place, with whole records in the last of them.
bool canBePatched(const Table& table, const Directory& directory) {
  if (table.columns.empty() || rowsAreShifted(table.columns)) return false;
  const auto isOurs = [&](std::string_view extension) {
    return isPatchable(directory, fileNameOf(table.tableName, extension));
  };
  if (!isOurs(tableExtension) || !isOurs(deletionExtension)) return false;
  const std::int32_t maxStates = largestMaxStates(table.columns);
  const std::string timedName = fileNameOf(table.tableName, timedExtension);
  if (maxStates == 0 || !identityOf(directory, timedName.c_str())) return true;
  const auto slotSize = static_cast<std::int64_t>(timedRecordSize(maxStates));
  return isOurs(timedExtension) && sizeOf(directory, timedName) % slotSize == 0;
}

// Whether so little has changed that writing it twice, into the journal and into its place, costs
// less than writing everything once.
bool hasChangedLittle(const Table& table) {
  constexpr std::int64_t pageSize = 4096;
  constexpr std::int64_t alwaysLittle = 16;  // new files take longer than these
  constexpr std::int64_t littleInPercent = 15;
  std::int64_t changed = 0;
  std::int64_t counted = 0;  // the first page that may still have to be counted
  const RowOffsets offsetOf(table);
  table.forEachDirtyRun([&](std::size_t first, std::size_t count) {
    const std::int64_t begin = std::max(offsetOf(first) / pageSize, counted);
    counted = (offsetOf(first + count) - 1) / pageSize + 1;
    changed += std::max(counted - begin, std::int64_t{0});
  });
  const std::int64_t all = offsetOf(table.rowCount()) / pageSize + 1;
  return changed <= std::max(alwaysLittle, all * littleInPercent / 100);
}

}  // namespace

void writeTable(const Table& table, const Directory& directory, CheckpointJournal& journal) {
  const bool isKnown = areFilesKnown(table, directory);
  if (isKnown && !table.isDirty()) return;
  if (isKnown && hasChangedLittle(table) && canBePatched(table, directory)) {
    writeChanges(table, directory, journal);
    return;
  }
  // To replace a million marks by the same ones took a millisecond, and a sync.
  if (!isKnown || table.haveDeletionsChanged()) writeMarks(table, directory, journal);
  if (!table.columns.empty()) writeWhole(table, directory, journal);
}

}  // namespace velmora
