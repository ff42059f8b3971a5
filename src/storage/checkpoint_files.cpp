// The checkpoint, all or nothing.
//
// 1. Each table's new files, and an empty log, are written and synced beside the old ones as
//    <file>.checkpoint.
// 2. The marker "velmora.ckpt" is written and synced: it names the new files. This is the point of
//    no return.
// 3. The new files are renamed into place, then the marker is removed.
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
#include "storage.h"
#include "table_rows.h"
#include "timed_file.h"

namespace velmora {
namespace {

constexpr const char* markerName = "velmora.ckpt";
constexpr std::string_view newSuffix = ".checkpoint";
constexpr std::string_view markerEnd = "end\n";
// Small enough to stay in the processor's cache, and for the system to keep it in small pieces of
// memory: larger blocks took up to ten times as long when it had to make room for large ones.
constexpr std::size_t writeBlockSize = 32 * 1024;

std::string newName(const std::string& fileName) { return fileName + std::string(newSuffix); }

[[noreturn]] void throwFailed(const std::string& what) {
  throw std::runtime_error("Checkpoint failed: " + what);
}

// A new file, written in blocks.
class NewFile {
 public:
  NewFile(const Directory& directory, const std::string& fileName)
      : file_(directory, newName(fileName), File::Mode::replace), fileName_(fileName) {
    if (!file_.isOpen()) throwFailed("cannot create " + newName(fileName_));
  }

  // Room for `count` bytes, of which written() then takes what was used.
  char* room(std::size_t count) {
    if (buffer_.size() < used_ + count) {
      flush();
      if (buffer_.size() < count) buffer_.resize(std::max(count, writeBlockSize));
    }
    return buffer_.data() + used_;
  }
  void written(const char* end) { used_ = static_cast<std::size_t>(end - buffer_.data()); }
  void write(std::string_view bytes) {
    flush();
    if (!file_.write(bytes)) throwFailed("cannot write " + newName(fileName_));
  }
  void finish() {
    flush();
    if (!file_.sync()) throwFailed("cannot sync " + newName(fileName_));
  }

 private:
  void flush() {
    const std::string_view bytes(buffer_.data(), used_);
    used_ = 0;
    if (!bytes.empty() && !file_.write(bytes)) throwFailed("cannot write " + newName(fileName_));
  }

  File file_;
  std::string fileName_;
  std::string buffer_;
  std::size_t used_ = 0;
};

// The timed values of one table during its checkpoint: the old file's bytes, brought up to date
// while the rows are encoded. Cells keep the slots that the files give them.
class TimedValues {
 public:
  TimedValues(const Table& table, const Directory& directory)
      : table_(table),
        directory_(directory),
        maxStates_(largestMaxStates(table.columns)),
        cellOffsets_(wholeOffsets(table.columns)),
        slots_(table.columns.size(), -1) {}

  // Files the timed values of row i under their slots and returns these, by column.
  std::span<const std::int32_t> slotsOf(std::size_t i, const Row& row) {
    if (maxStates_ == 0 && !hasTimedCell(row)) return slots_;
    for (std::size_t c = 0; c < slots_.size(); ++c) {
      const Cell& cell = row.cells()[c];
      if (cell.tempRule == nullptr) continue;
      load();
      slots_[c] = put(i, c, *cell.tempRule);
    }
    return slots_;
  }

  bool isChanged() const noexcept { return isLoaded_; }
  const std::string& bytes() const noexcept { return bytes_; }

 private:
  static bool hasTimedCell(const Row& row) {
    const auto cells = row.cells();
    return std::any_of(cells.begin(), cells.end(),
                       [](const Cell& cell) { return cell.tempRule != nullptr; });
  }

  void load() {
    if (isLoaded_) return;
    isLoaded_ = true;
    bytes_ = readFile(directory_, table_.tableName + ".tmp").value_or("");
    // What a torn record left at the end is no slot.
    bytes_.resize(bytes_.size() - bytes_.size() % timedRecordSize(maxStates_));
    const bool isShifted = rowsAreShifted(table_.columns);
    oldRows_ = readFile(directory_, table_.tableName + (isShifted ? ".row" : ".bin")).value_or("");
    oldRowsStart_ =
        isShifted ? 0 : static_cast<std::size_t>(Storage::headerSize(table_.columns.size()));
  }

  std::int32_t put(std::size_t i, std::size_t column, const TempRule& rule) {
    const std::size_t recordSize = timedRecordSize(maxStates_);
    const std::size_t oldStart = oldRowsStart_ + i * wholeRowSize(table_.columns);
    const auto slotCount = static_cast<std::int64_t>(bytes_.size() / recordSize);
    std::int32_t slot =
        slotAt(std::string_view(oldRows_).substr(std::min(oldStart, oldRows_.size())),
               cellOffsets_[column], slotCount);
    if (slot < 0) {
      slot = slotBehind(slotCount);
      bytes_.resize(bytes_.size() + recordSize);
    }
    // Deliberate: the label of a row is its offset counted in cells of this column.
    const std::int64_t rowOffset = Storage::headerSize(table_.columns.size()) +
                                   static_cast<std::int64_t>(i) * Storage::rowSize(table_.columns);
    const std::int64_t label = rowOffset / Storage::getColumnBinSize(table_.columns[column]);
    const std::string record = timedRecord(static_cast<std::int32_t>(label),
                                           static_cast<std::int32_t>(column), rule, maxStates_);
    bytes_.replace(static_cast<std::size_t>(slot) * recordSize, recordSize, record);
    return slot;
  }

  const Table& table_;
  Directory directory_;
  std::int32_t maxStates_;
  std::vector<std::size_t> cellOffsets_;
  std::vector<std::int32_t> slots_;
  bool isLoaded_ = false;
  std::string bytes_;
  std::string oldRows_;
  std::size_t oldRowsStart_ = 0;
};

// encodeRow for row i of a table.
char* encoded(char* out, const Table& table, std::size_t i, std::span<const CellShape> shapes,
              std::span<const std::int32_t> slots) {
  try {
    return encodeRow(out, table.rows[i], shapes, slots);
  } catch (FailedConversion& failure) {
    failure.table = table.tableName;
    failure.row = i;
    throw;
  }
}

// Writes the rows of a table whose rows fit: one after the other.
void writeFittingRows(const Table& table, TimedValues& timed, const Directory& directory) {
  NewFile file(directory, table.tableName + ".bin");
  file.write(Storage::tableFileHeader(table));
  const std::size_t largest = largestRowSize(table.columns);
  const std::vector<CellShape> shapes = shapesOf(table.columns, CellWidths::written);
  for (std::size_t i = 0; i < table.rows.size(); ++i) {
    const Row& row = table.rows[i];
    const auto slots = timed.slotsOf(i, row);
    char* const out = file.room(largest);
    file.written(encoded(out, table, i, shapes, slots));
  }
  file.finish();
}

// Writes the rows of a table whose rows are longer or shorter than their declared size: each at its
// place over what the file held and what the row before left there, and once more whole.
void writeShiftedRows(const Table& table, TimedValues& timed, const Directory& directory) {
  const std::string fileName = table.tableName + ".bin";
  std::string image = readFile(directory, fileName).value_or("");
  const std::string header = Storage::tableFileHeader(table);
  image.resize(std::max(image.size(), header.size()));
  image.replace(0, header.size(), header);
  std::size_t end = header.size();
  std::string written(largestRowSize(table.columns), '\0');
  const auto rowSize = static_cast<std::size_t>(Storage::rowSize(table.columns));

  NewFile whole(directory, table.tableName + ".row");
  const std::size_t wholeSize = wholeRowSize(table.columns);
  const std::vector<CellShape> shapes = shapesOf(table.columns, CellWidths::written);
  const std::vector<CellShape> wholeShapes = shapesOf(table.columns, CellWidths::whole);
  for (std::size_t i = 0; i < table.rows.size(); ++i) {
    const Row& row = table.rows[i];
    const auto slots = timed.slotsOf(i, row);
    const char* const writtenEnd = encoded(written.data(), table, i, shapes, slots);
    const auto size = static_cast<std::size_t>(writtenEnd - written.data());
    const std::size_t start = header.size() + i * rowSize;
    image.resize(std::max(image.size(), start + size));
    image.replace(start, size, written, 0, size);
    end = std::max(end, start + size);
    char* const out = whole.room(wholeSize);
    whole.written(encodeRow(out, row, wholeShapes, slots));
  }
  whole.finish();
  NewFile file(directory, fileName);
  file.write(std::string_view(image).substr(0, end));
  file.finish();
}

// Writes the new files of one table and adds their names to `names`, each before it is begun.
void writeTable(const Table& table, const Directory& directory, std::vector<std::string>& names) {
  names.push_back(table.tableName + ".del");
  NewFile marks(directory, names.back());
  marks.write(std::string(table.deletedRows.begin(), table.deletedRows.end()));
  marks.finish();
  if (table.columns.empty()) return;

  TimedValues timed(table, directory);
  names.push_back(table.tableName + ".bin");
  if (rowsAreShifted(table.columns)) {
    names.push_back(table.tableName + ".row");
    writeShiftedRows(table, timed, directory);
  } else {
    writeFittingRows(table, timed, directory);
  }
  if (timed.isChanged()) {
    names.push_back(table.tableName + ".tmp");
    NewFile file(directory, names.back());
    file.write(timed.bytes());
    file.finish();
  }
}

void writeMarker(const std::vector<std::string>& names, const Directory& directory) {
  std::string text;
  for (const std::string& name : names) text += name + "\n";
  text += markerEnd;
  File file(directory, markerName, File::Mode::replace);
  if (!file.isOpen() || !file.write(text) || !file.sync() || !syncDirectory(directory)) {
    throwFailed(std::string("cannot write ") + markerName);
  }
}

// Makes the files durable that commands have written since the last checkpoint, and writes the
// relation files that could not be written then: once the log is emptied, nothing else could make a
// lost link again.
void syncOtherFiles(const Tables& tables, const Directory& directory) {
  const auto sync = [&](const std::string& name) {
    File file(directory, name, File::Mode::readWrite);
    if (!file.isOpen() && errno == ENOENT) return false;
    if (!file.sync()) throwFailed("cannot sync " + name);
    return true;
  };
  sync(listenersFileName);
  sync(webhooksFileName);
  for (const auto& [name, table] : tables) {
    for (const LinkRecord& link : table.links) {
      const std::string file =
          Storage::relationFileName({name, link.parentTable, link.column, link.parentColumn});
      const auto parent = tables.find(link.parentTable);
      if (sync(file) || parent == tables.end()) continue;
      Storage::linkTables(table, parent->second, link.column, directory);
      if (!sync(file)) throwFailed("cannot write " + file);
    }
  }
}

// The files that the marker names, or nothing when there is none, when it was not written to its
// end, or when it names a file elsewhere, which no checkpoint does.
std::optional<std::vector<std::string>> readMarker(const Directory& directory) {
  const auto text = readFile(directory, markerName);
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

}  // namespace

void Storage::saveCheckpoint(const Tables& tables, const Directory& directory) {
  finishCheckpoint(directory);
  std::vector<std::string> names;
  try {
    for (const auto& [name, table] : tables) {
      if (isStorableName(name)) writeTable(table, directory, names);
    }
    syncOtherFiles(tables, directory);
    names.emplace_back(logFileName);
    NewFile(directory, logFileName).finish();
    writeMarker(names, directory);
  } catch (...) {
    // A marker that cannot be removed may be complete; its files have to stay then.
    if (removeFile(directory, markerName)) {
      for (const std::string& name : names) removeFile(directory, newName(name));
    }
    throw;
  }
  expectNewLog(true);
  finishCheckpoint(directory);
}

void Storage::finishCheckpoint(const Directory& directory) {
  const auto names = readMarker(directory);
  if (!names) return;
  for (const std::string& name : *names) {
    if (!renameFile(directory, newName(name), name)) throwFailed("cannot replace " + name);
  }
  expectNewLog(false);
  if (!syncDirectory(directory)) throwFailed("cannot sync the directory");
  if (!removeFile(directory, markerName)) throwFailed(std::string("cannot remove ") + markerName);
}

void Storage::sweepCheckpoint(const Directory& directory) {
  removeFile(directory, markerName);
  for (const std::string& name : listFiles(directory, newSuffix)) {
    const std::string_view target =
        std::string_view(name).substr(0, name.size() - newSuffix.size());
    const bool isOurs = target == logFileName || target.ends_with(".bin") ||
                        target.ends_with(".del") || target.ends_with(".tmp") ||
                        target.ends_with(".row");
    if (isOurs) removeFile(directory, name);
  }
}

std::vector<std::string> Storage::filesOfTable(const std::string& tableName) {
  if (!isStorableName(tableName)) return {};
  std::vector<std::string> names;
  for (const char* const extension : {".bin", ".del", ".tmp", ".row"}) {
    const std::string name = tableName + extension;
    // A table left behind under such a name has no file of its own there.
    if (name == listenersFileName || name == webhooksFileName) continue;
    names.push_back(name);
    names.push_back(newName(name));
  }
  return names;
}

}  // namespace velmora
