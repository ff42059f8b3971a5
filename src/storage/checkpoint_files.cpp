// The checkpoint, all or nothing.
//
// 1. Each table's new files, and an empty log, are written and synced beside the old ones as
//    <file>.checkpoint; the directory is synced.
// 2. The marker "velmora.ckpt" is written and synced, and the directory again: it names the new
//    files. This is the point of no return.
// 3. The new files are renamed into place and the directory is synced; then the marker is removed,
//    and the directory synced a last time, so that no marker of this checkpoint comes back for the
//    files of the next one.
//
// What is interrupted before 2 is swept away at the next start and everything is as before; what is
// interrupted behind it is done again from 3, by the next start or the next checkpoint. Step 3 may
// be repeated at any point: a file that has been renamed is no longer there to be renamed. Commands
// that are logged between 2 and the end of 3, after a failure, go to the new log.
//
// The marker is text: one file a line by its final name, then "end". Without that last line it
// counts as not written.
#include <algorithm>
#include <cerrno>
#include <stdexcept>

#include "../record_io.h"
#include "block_io.h"
#include "storage.h"
#include "table_rows.h"
#include "timed_file.h"

namespace velmora {
namespace {

constexpr std::string_view markerEnd = "end\n";

[[noreturn]] void throwFailed(const std::string& what) {
  throw std::runtime_error("Checkpoint failed: " + what);
}

// The timed values of one table during its checkpoint. Cells keep the slots that the table's files
// give them.
class TimedValues {
 public:
  TimedValues(const Table& table, const Directory& directory)
      : table_(table),
        maxStates_(largestMaxStates(table.columns)),
        isShifted_(rowsAreShifted(table.columns)),
        oldRows_(directory,
                 fileNameOf(table.tableName, isShifted_ ? wholeRowExtension : tableExtension),
                 File::Mode::read),
        reader_(oldRows_),
        writer_(directory, fileNameOf(table.tableName, timedExtension), maxStates_),
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
    const std::size_t header = isShifted_ ? 0 : Storage::headerSize(table_.columns.size());
    const std::string_view oldRow =
        oldRows_.isOpen() ? reader_.at(static_cast<std::int64_t>(header + i * size), size)
                          : std::string_view();
    // Deliberate: the label of a row is its offset counted in cells of this column.
    const std::int64_t rowOffset = Storage::headerSize(table_.columns.size()) +
                                   static_cast<std::int64_t>(i) * Storage::rowSize(table_.columns);
    const std::int64_t label = rowOffset / Storage::getColumnBinSize(table_.columns[column]);
    return writer_.put(slotAt(oldRow, cellOffsets_[column]), static_cast<std::int32_t>(label),
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

// Writes the rows of a table whose rows fit: one after the other.
void writeFittingRows(const Table& table, TimedValues& timed, const Directory& directory) {
  NewFile file(directory, checkpointName(fileNameOf(table.tableName, tableExtension)));
  file.write(Storage::tableFileHeader(table));
  const std::size_t longest = longestRow(table.columns, CellWidths::written);
  const std::vector<CellShape> shapes = shapesOf(table.columns, CellWidths::written);
  const std::size_t mostRows = std::max<std::size_t>(1, NewFile::blockSize / longest);
  for (std::size_t i = 0; i < table.rowCount();) {
    const std::size_t count = std::min(mostRows, encodedTogether(table, i));
    const auto slots = timed.slotsOf(i);
    char* const out = file.room(count * longest);
    file.written(encodeRows(out, table, i, count, shapes, slots));
    i += count;
  }
  file.finish();
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
void writeShiftedRows(const Table& table, TimedValues& timed, const Directory& directory) {
  Overlay file(directory, fileNameOf(table.tableName, tableExtension));
  file.put(0, Storage::tableFileHeader(table));
  NewFile whole(directory, checkpointName(fileNameOf(table.tableName, wholeRowExtension)));
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
  whole.finish();
  file.finish();
}

// Writes the new files of one table and adds their names to `names`, each before it is begun.
void writeTable(const Table& table, const Directory& directory, std::vector<std::string>& names) {
  const auto add = [&](std::string_view extension) {
    names.push_back(fileNameOf(table.tableName, extension));
    requireRegular(directory, names.back());
  };
  add(deletionExtension);
  NewFile marks(directory, checkpointName(names.back()));
  for (std::size_t chunk = 0; chunk < table.rows().chunkCount(); ++chunk) {
    marks.write({reinterpret_cast<const char*>(table.rows().deleted(chunk)),
                 table.rows().sizeOf(chunk)});
  }
  marks.finish();
  if (table.columns.empty()) return;

  add(tableExtension);
  if (rowsAreShifted(table.columns)) add(wholeRowExtension);
  add(timedExtension);
  TimedValues timed(table, directory);
  if (rowsAreShifted(table.columns)) {
    writeShiftedRows(table, timed, directory);
  } else {
    writeFittingRows(table, timed, directory);
  }
  if (!timed.finish()) names.pop_back();
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

// The files that the marker names, or nothing when there is none, when it was not written to its
// end, or when it names a file elsewhere, which no checkpoint does.
std::optional<std::vector<std::string>> readMarker(const Directory& directory) {
  const auto text = readFile(directory, markerFileName);
  if (!text || !text->ends_with(markerEnd)) return std::nullopt;
  if (text->find('/') != std::string::npos) return std::nullopt;
  std::vector<std::string> names;
  std::string_view rest = std::string_view(*text).substr(0, text->size() - markerEnd.size());
  while (!rest.empty()) {
    const std::size_t lineFeed = rest.find('\n');
    names.emplace_back(rest.substr(0, lineFeed));
    rest.remove_prefix(lineFeed == std::string_view::npos ? rest.size() : lineFeed + 1);
  }
  return names;
}

void removeMarker(const Directory& directory) {
  if (!removeFile(directory, markerFileName)) {
    throw WriteFailure(std::string("cannot remove ") + markerFileName);
  }
}

// Takes a checkpoint back that came as far as its marker at the most.
void abandon(const std::vector<std::string>& names, bool isMarked, const Directory& directory,
             Log& log) {
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
  for (const std::string& name : names) removeFile(directory, checkpointName(name));
}

bool isOurs(std::string_view fileName) {
  return fileName == logFileName || fileName.ends_with(tableExtension) ||
         fileName.ends_with(deletionExtension) || fileName.ends_with(wholeRowExtension) ||
         fileName.ends_with(timedExtension) || fileName.ends_with(relationExtension);
}

// The files of these names in the directory that are no more than the beginnings of others.
std::vector<DirectoryEntry> leftOvers(const Directory& directory) {
  std::vector<DirectoryEntry> found;
  for (const std::string_view suffix : {checkpointSuffix, unfinishedSuffix}) {
    for (DirectoryEntry& entry : listFiles(directory, suffix)) {
      const std::size_t size = entry.name.size() - suffix.size();
      if (isOurs(std::string_view(entry.name).substr(0, size))) found.push_back(std::move(entry));
    }
  }
  return found;
}

}  // namespace

void Storage::saveCheckpoint(const Tables& tables, std::int64_t now, const Directory& directory,
                             Log& log) {
  finishCheckpoint(directory, log);
  std::vector<std::string> names;
  bool isMarked = false;
  try {
    // An earlier marker is durably gone before a file is called as one that it named.
    removeMarker(directory);
    requireSync(directory);
    for (const auto& [name, table] : tables) {
      if (isStorableName(name)) writeTable(table, directory, names);
    }
    syncOtherFiles(tables, now, directory);
    names.emplace_back(logFileName);
    requireRegular(directory, logFileName);
    NewFile(directory, checkpointName(logFileName)).finish();
    requireSync(directory);
    std::string text;
    for (const std::string& name : names) text += name + "\n";
    File marker(directory, markerFileName, File::Mode::create);
    isMarked = marker.isOpen() && marker.write(text.append(markerEnd));
    if (!isMarked || !marker.sync() || !syncDirectory(directory)) {
      throw WriteFailure(std::string("cannot write ") + markerFileName);
    }
  } catch (const WriteFailure& failure) {
    abandon(names, isMarked, directory, log);
    throwFailed(failure.what());
  } catch (...) {
    abandon(names, isMarked, directory, log);
    throw;
  }
  log.expectNew(true);
  finishCheckpoint(directory, log);
}

std::set<std::string, std::less<>> Storage::awaitedFiles(const Directory& directory) {
  const auto names = readMarker(directory).value_or(std::vector<std::string>());
  return {names.begin(), names.end()};
}

void Storage::finishCheckpoint(const Directory& directory, Log& log) {
  const auto names = readMarker(directory);
  if (!names) return;
  for (const std::string& name : *names) requireRegular(directory, checkpointName(name));
  try {
    // The process that wrote the marker may have died before it was durable.
    if (!File(directory, markerFileName, File::Mode::read).sync()) {
      throw WriteFailure(std::string("cannot sync ") + markerFileName);
    }
    requireSync(directory);
    for (const std::string& name : *names) {
      if (!renameFile(directory, checkpointName(name), name)) {
        throw WriteFailure("cannot replace " + printable(name));
      }
    }
    log.expectNew(false);
    requireSync(directory);
    removeMarker(directory);
    requireSync(directory);
  } catch (const WriteFailure& failure) {
    throwFailed(failure.what());
  }
}

void Storage::checkLeftOvers(const Directory& directory) {
  for (const DirectoryEntry& entry : leftOvers(directory)) {
    if (!entry.isRegular) throw NotRegularFile(entry.name);
  }
}

void Storage::sweepLeftOvers(const std::vector<std::string>& kept, const Directory& directory) {
  if (identityOf(directory, markerFileName)) {
    // One that was emptied and could not be synced must not come back for half of its files.
    removeMarker(directory);
    requireSync(directory);
  }
  for (const DirectoryEntry& entry : leftOvers(directory)) {
    const bool isKept = std::find(kept.begin(), kept.end(), entry.name) != kept.end();
    if (!isKept) removeFile(directory, entry.name);
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
