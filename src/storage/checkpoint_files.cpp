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
//
// A table file of some size that is replaced is kept as <file>.spare, and the next new one is
// written over it: that takes a third of the time that a new file takes.
#include <algorithm>
#include <cerrno>
#include <stdexcept>

#include "../record_io.h"
#include "block_io.h"
#include "checkpoint_journal.h"
#include "storage.h"
#include "table_rows.h"
#include "timed_file.h"
#include "written_rows.h"

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

  // Files the timed values of row i under their slots and returns these, by column.
  std::span<const std::int32_t> slotsOf(std::size_t i, const Row& row) {
    const auto cells = row.cells();
    for (std::size_t c = 0; c < cells.size() && maxStates_ > 0; ++c) {
      if (cells[c].tempRule != nullptr) slots_[c] = put(i, c, *cells[c].tempRule);
    }
    return slots_;
  }

  bool finish() { return writer_.finish(); }

 private:
  std::int32_t put(std::size_t i, std::size_t column, const TempRule& rule) {
    const std::size_t size = wholeRowSize(table_.columns);
    const std::size_t header = isShifted_ ? 0 : Storage::headerSize(table_.columns.size());
    const std::string_view oldRow =
        oldRows_.isOpen() ? reader_.at(static_cast<std::int64_t>(header + i * size), size)
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

// Where a row begins in the table file.
std::int64_t rowOffset(const Table& table, std::size_t i) {
  return Storage::headerSize(table.columns.size()) +
         static_cast<std::int64_t>(i) * Storage::rowSize(table.columns);
}

// encodeRow for row i of a table.
char* encoded(char* out, const Table& table, std::size_t i, std::span<const CellShape> shapes,
              std::span<const std::int32_t> slots) {
  try {
    return encodeRow(out, table.rows[i], table.isLive(i), shapes, slots);
  } catch (FailedConversion& failure) {
    failure.table = table.tableName;
    failure.row = i;
    throw;
  }
}

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
  for (std::size_t i = 0; i < table.rows.size(); ++i) {
    const Row& row = table.rows[i];
    const auto slots = timed.slotsOf(i, row);
    char* const out = file.room(longest);
    file.written(encoded(out, table, i, shapes, slots));
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
  for (std::size_t i = 0; i < table.rows.size(); ++i) {
    const Row& row = table.rows[i];
    const auto slots = timed.slotsOf(i, row);
    const char* const end = encoded(written.data(), table, i, shapes, slots);
    file.put(offset, {written.data(), static_cast<std::size_t>(end - written.data())});
    offset += Storage::rowSize(table.columns);
    char* const out = whole.room(longest);
    whole.written(encodeRow(out, row, table.isLive(i), wholeShapes, slots));
  }
  finishOverSpare(whole, wholeName, journal);
  file.finish();
}

// Writes the new files of one table, each in the journal before it is begun.
void writeWhole(const Table& table, const Directory& directory, CheckpointJournal& journal) {
  const auto add = [&](std::string_view extension) {
    std::string name = fileNameOf(table.tableName, extension);
    requireRegular(directory, name);
    journal.awaited().replaced[name] = false;
    return name;
  };
  NewFile marks(directory, checkpointName(add(deletionExtension)));
  const std::vector<std::uint8_t>& deleted = table.deletedRows;
  marks.write({reinterpret_cast<const char*>(deleted.data()), deleted.size()});
  marks.finish();
  if (table.columns.empty()) return;

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
  table.forEachDirtyRun([&](std::size_t first, std::size_t count) {
    for (std::size_t i = first; i < first + count; ++i) {
      encoded(row.data(), table, i, shapes, timed.slotsOf(i, table.rows[i]));
      rows.put(rowOffset(table, i), row);
      marks.put(static_cast<std::int64_t>(i), table.isLive(i) ? std::string_view("\0", 1) : "\1");
    }
  });
  rows.finish(rowOffset(table, table.rows.size()));
  marks.finish(static_cast<std::int64_t>(table.rows.size()));
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
    return hasSize(tableExtension, static_cast<std::size_t>(rowOffset(table, count)));
  }
  return hasSize(wholeRowExtension, count * wholeRowSize(table.columns)) &&
         sizeOf(directory, fileNameOf(table.tableName, tableExtension)) > 0;
}

// Whether the files can be changed in place: there, ours to write, without a second name, and with
// whole records in the last of them.
bool canBePatched(const Table& table, const Directory& directory) {
  if (table.columns.empty() || rowsAreShifted(table.columns)) return false;
  const auto isOurs = [&](std::string_view extension) {
    const std::string name = fileNameOf(table.tableName, extension);
    const auto found = identityOf(directory, name.c_str());
    return found && found->nameCount == 1 && File(directory, name, File::Mode::change).isOpen();
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
  table.forEachDirtyRun([&](std::size_t first, std::size_t count) {
    const std::int64_t begin = std::max(rowOffset(table, first) / pageSize, counted);
    counted = (rowOffset(table, first + count) - 1) / pageSize + 1;
    changed += std::max(counted - begin, std::int64_t{0});
  });
  const std::int64_t all = rowOffset(table, table.rows.size()) / pageSize + 1;
  return changed <= std::max(alwaysLittle, all * littleInPercent / 100);
}

void writeTable(const Table& table, const Directory& directory, CheckpointJournal& journal) {
  const bool isKnown = areFilesKnown(table, directory);
  if (isKnown && !table.isDirty()) return;
  if (isKnown && hasChangedLittle(table) && canBePatched(table, directory)) {
    writeChanges(table, directory, journal);
  } else {
    writeWhole(table, directory, journal);
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
void abandon(const AwaitedFiles& awaited, bool isMarked, const Directory& directory, Log& log) {
  if (isMarked) {
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
  for (const auto& [name, keepsSpare] : awaited.replaced) {
    removeFile(directory, checkpointName(name));
  }
}

// Puts a new file in place, if that has not been done yet.
void replaceFile(const std::string& name, bool keepsSpare, const Directory& directory) {
  const std::string newName = checkpointName(name);
  const bool isThere = identityOf(directory, newName.c_str()).has_value();
  const auto old = identityOf(directory, name.c_str());
  if (keepsSpare && isThere && old && !old->isForeign()) {
    renameFile(directory, name, spareName(name));
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

bool isOurs(std::string_view fileName) {
  return fileName == logFileName || fileName.ends_with(tableExtension) ||
         fileName.ends_with(deletionExtension) || fileName.ends_with(wholeRowExtension) ||
         fileName.ends_with(timedExtension) || fileName.ends_with(relationExtension);
}

// The files of these names in the directory that are no more than the beginnings of others.
std::vector<DirectoryEntry> leftOvers(const Directory& directory) {
  std::vector<DirectoryEntry> found;
  for (const std::string_view suffix : {checkpointSuffix, unfinishedSuffix, spareSuffix}) {
    for (DirectoryEntry& entry : listFiles(directory, suffix)) {
      const std::size_t size = entry.name.size() - suffix.size();
      if (isOurs(std::string_view(entry.name).substr(0, size))) found.push_back(std::move(entry));
    }
  }
  return found;
}

}  // namespace

void Storage::saveCheckpoint(Tables& tables, std::int64_t now, const Directory& directory,
                             Log& log) {
  finishCheckpoint(directory, log);
  std::optional<CheckpointJournal> journal;
  bool isMarked = false;
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
    isMarked = true;
    journal->finish();
  };
  asCheckpoint([&] {
    try {
      write();
    } catch (...) {
      if (journal) abandon(journal->awaited(), isMarked, directory, log);
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

void Storage::checkLeftOvers(const Directory& directory) {
  for (const DirectoryEntry& entry : leftOvers(directory)) {
    if (!entry.isRegular) throw NotRegularFile(entry.name);
  }
}

void Storage::sweepLeftOvers(const std::vector<std::string>& kept, const Directory& directory) {
  for (const DirectoryEntry& entry : leftOvers(directory)) {
    const bool isKept = std::find(kept.begin(), kept.end(), entry.name) != kept.end();
    const std::string owner = entry.name.substr(0, entry.name.rfind('.'));
    const bool isSpare = entry.name.ends_with(spareSuffix) && identityOf(directory, owner.c_str());
    if (!isKept && !isSpare) removeFile(directory, entry.name);
  }
}

std::vector<std::string> Storage::filesOfTable(const std::string& tableName) {
  if (!isStorableName(tableName)) return {};
  std::vector<std::string> names;
  for (const std::string_view extension :
       {tableExtension, deletionExtension, timedExtension, wholeRowExtension}) {
    const std::string name = fileNameOf(tableName, extension);
    // A table left behind under such a name has no file of its own there.
    if (name == listenersFileName || name == webhooksFileName) continue;
    names.push_back(name);
    names.push_back(checkpointName(name));
    names.push_back(unfinishedName(name));
    names.push_back(spareName(name));
  }
  return names;
}

void Storage::removeTable(const std::vector<std::string>& files, const Directory& directory) {
  const auto isTableFile = [](const std::string& name) {
    for (const std::string_view suffix : {std::string_view(), checkpointSuffix, unfinishedSuffix}) {
      if (name.ends_with(std::string(tableExtension).append(suffix))) return true;
    }
    return false;
  };
  for (const std::string& name : files) {
    if (isTableFile(name)) removeFile(directory, name);
  }
  syncDirectory(directory);
  for (const std::string& name : files) {
    if (!isTableFile(name)) removeFile(directory, name);
  }
}

}  // namespace velmora
