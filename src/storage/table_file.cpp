// The files of one table.
//
// <table>.bin, the table file. With n columns:
//
//   OFFSET     SIZE        MEANING
//   0          15          table name
//   15         15 * n      the columns' types
//   15 + 15n   15 * n      their names
//   15 + 30n   15 * n      their states limits, decimal text
//   15 + 45n   15 * n      their string sizes, decimal text
//   15 + 60n   row size *  the rows in insertion order
//
// A row's size is the sum of its columns' declared sizes; what a cell looks like is told in
// table_rows.h. Texts are padded with zero bytes.
//
// <table>.del, the deletion file: byte i is 1 if row i is deleted, else 0.
//
// <table>.row, the whole-row file, of a table whose rows overlap in the table file: the same rows
// back to back, every string 60 bytes, every cell that can be timed a flag byte and at least 4.
#include <algorithm>
#include <atomic>
#include <cerrno>
#include <limits>
#include <set>
#include <stdexcept>
#include <utility>

#include "../number.h"
#include "../record_io.h"
#include "block_io.h"
#include "checksum.h"
#include "halves.h"
#include "storage.h"
#include "table_rows.h"
#include "timed_file.h"

namespace velmora {
namespace {

constexpr std::size_t headerFieldsPerColumn = 4;
constexpr std::int64_t blockRows = 512;  // read at a time

[[noreturn]] void throwCorrupt(std::string_view fileName) {
  throw std::runtime_error("Corrupt table file: " + printable(fileName));
}

// A number of the header, within the limits of CREATE TABLE; the default when the field is empty.
std::int32_t headerNumber(const std::string& text, std::int32_t missing, std::int32_t least,
                          const std::string& fileName) {
  if (text.empty()) return missing;
  std::int32_t number = 0;
  constexpr std::int32_t most = 65535;
  if (convertInt(text, number) != Conversion::ok || number < least || number > most) {
    throwCorrupt(fileName);
  }
  return number;
}

// Which rows of which file a table is read from.
struct RowSource {
  std::string fileName;
  std::int64_t firstOffset;
  std::int64_t rowSize;
  CellWidths widths;
  std::int64_t rowLimit;
  FloatTexts floats;
  bool isCounted = false;  // their number is known: a row is one though the file ends within it
};

// Rows that overlap are read from the whole-row file if that holds whole rows only, unless it was
// cut: the other two files of the table agree on more rows then. Without it their number is that of
// the deletion file's marks, or, if that lacks some, of the rows that the row file begins for
// certain.
RowSource shiftedSource(const Table& table, const RowSource& rowFile, std::int64_t rowFileSize,
                        std::int64_t markCount, const Directory& directory) {
  const std::string wholeName = fileNameOf(table.tableName, wholeRowExtension);
  const auto wholeSize = static_cast<std::int64_t>(wholeRowSize(table.columns));
  const std::int64_t size = sizeOf(directory, wholeName);
  const std::int64_t wholeRows = size / wholeSize;
  const auto longest = static_cast<std::int64_t>(longestRow(table.columns, CellWidths::written));
  const std::int64_t lastBegin = std::max(rowFileSize - rowFile.firstOffset - longest, 0L);
  const bool hasRows = rowFileSize > rowFile.firstOffset;
  const std::int64_t begunRows = hasRows ? lastBegin / rowFile.rowSize + 1 : 0;
  const bool wasCut = wholeRows < begunRows && wholeRows < markCount;
  if (size > 0 && size % wholeSize == 0 && !wasCut) {
    return {wholeName, 0, wholeSize, CellWidths::whole, wholeRows, rowFile.floats};
  }
  RowSource source = rowFile;
  source.rowLimit = std::max(markCount, begunRows);
  source.isCounted = true;
  return source;
}

// Rows of fixed size, as far as the file has whole ones; whether a checkpoint would write the same
// bytes for them.
bool readWholeRows(const RowSource& source, BlockReader& reader, TimedReader* timed, Table& table) {
  const std::vector<CellShape> shapes = shapesOf(table.columns, source.widths, source.floats);
  const auto rowSize = static_cast<std::size_t>(source.rowSize);
  std::int64_t left = source.rowLimit;
  std::int64_t offset = source.firstOffset;
  bool areAsWritten = true;
  while (left > 0) {
    const auto wanted = static_cast<std::size_t>(std::min<std::int64_t>(left, blockRows));
    const std::string_view bytes = reader.at(offset, wanted * rowSize);
    if (bytes.size() < rowSize) break;
    const std::size_t first = table.rowCount();
    const std::size_t count = table.appendRows(bytes.size() / rowSize);
    const std::string_view whole = bytes.substr(0, count * rowSize);
    areAsWritten &= decodeRows(whole, shapes, timed, table, first, count);
    left -= static_cast<std::int64_t>(count);
    offset += static_cast<std::int64_t>(count * rowSize);
  }
  return areAsWritten;
}

// Rows of the table that a thread makes and fills. Those that it did not come to are made in the
// end, without values, so that there is a table to be thrown away.
class Half {
 public:
  Half(Table& table, std::size_t first, std::size_t end) : table_(table), made_(first), end_(end) {}
  ~Half() {
    const int systemError = errno;  // of what has ended the work
    table_.makeRows(made_, end_ - made_);
    errno = systemError;
  }
  Half(const Half&) = delete;
  Half& operator=(const Half&) = delete;

  // Reads the rows, which lie behind one another from the offset on; whether a checkpoint would
  // write the same bytes for them. Nothing where one is not plain, and once the other half is over.
  std::optional<bool> read(std::int64_t offset, std::size_t rowSize,
                           const std::vector<CellShape>& shapes, BlockReader& reader,
                           std::atomic<bool>& isOver) {
    bool areAsWritten = true;
    while (made_ < end_ && !isOver) {
      const std::size_t count = std::min<std::size_t>(end_ - made_, blockRows);
      const std::string_view bytes = reader.at(offset, count * rowSize);
      if (bytes.size() < count * rowSize) break;
      const std::size_t first = std::exchange(made_, made_ + count);
      table_.makeRows(first, count);
      const auto result =
          decodePlainRows(bytes.substr(0, count * rowSize), shapes, table_, first, count);
      if (!result) break;
      areAsWritten &= *result;
      offset += static_cast<std::int64_t>(count * rowSize);
      if (made_ == end_) return areAsWritten;
    }
    isOver = true;
    return std::nullopt;
  }

 private:
  Table& table_;
  std::size_t made_;
  const std::size_t end_;
};

// Reads many plain rows by two threads; whether a checkpoint would write the same bytes for them.
// Nothing, and any values, where that cannot be done.
std::optional<bool> readInHalves(const RowSource& source, std::size_t rowCount,
                                 const Directory& directory, GrowingSeal* growing, Table& table) {
  const std::vector<CellShape> shapes = shapesOf(table.columns, source.widths, source.floats);
  const std::size_t middle = rowCount / 2 / Rows::chunkRows * Rows::chunkRows;
  const auto rowSize = static_cast<std::size_t>(source.rowSize);
  const auto offset = source.firstOffset + static_cast<std::int64_t>(middle * rowSize);
  std::atomic<std::size_t> countedBeside = 0;
  GrowingSeal firstSeal{
      {}, [&](std::size_t count) { growing->count(count + countedBeside.exchange(0)); }, offset};
  GrowingSeal secondSeal{{offset, 0}, [&](std::size_t count) { countedBeside += count; }};
  std::atomic<bool> isOver = false;
  std::optional<bool> isFirstAsWritten;
  std::optional<bool> isSecondAsWritten;
  table.extend(rowCount);
  Half first(table, 0, middle);
  Half second(table, middle, rowCount);
  const auto read = [&](Half& half, std::int64_t from, GrowingSeal& seal) {
    try {
      File file(directory, source.fileName, File::Mode::read);
      if (!file.isOpen()) throwUnreadable(source.fileName);
      BlockReader reader(file, growing != nullptr ? &seal : nullptr);
      if (growing != nullptr) reader.at(seal.seal.size, 1);  // the header is part of the file
      return half.read(from, rowSize, shapes, reader, isOver);
    } catch (...) {
      isOver = true;
      throw;
    }
  };
  runBeside([&] { isFirstAsWritten = read(first, source.firstOffset, firstSeal); },
            [&] { isSecondAsWritten = read(second, offset, secondSeal); });
  if (!isFirstAsWritten || !isSecondAsWritten) return std::nullopt;
  if (growing != nullptr && firstSeal.seal.size == offset) {
    growing->count(countedBeside);
    const auto behind = static_cast<std::uint64_t>(secondSeal.seal.size - offset);
    growing->seal = {secondSeal.seal.size,
                     crc32cBehind(firstSeal.seal.crc, behind) ^ secondSeal.seal.crc};
  }
  return *isFirstAsWritten && *isSecondAsWritten;
}

// Rows that overlap, as many as there are.
void readCountedRows(const RowSource& source, BlockReader& reader, TimedReader* timed,
                     Table& table) {
  const std::vector<CellShape> shapes = shapesOf(table.columns, source.widths, source.floats);
  std::int64_t offset = source.firstOffset;
  for (std::int64_t i = 0; i < source.rowLimit; ++i, offset += source.rowSize) {
    if (reader.at(offset, 1).empty()) break;
    decodeWideRow(reader, offset, shapes, timed, table, table.appendRow());
  }
}

// How many whole rows the file has, or as many as are wanted.
std::size_t wholeRowsIn(const RowSource& source, const File& file) {
  const std::int64_t size = std::max(file.size().value_or(0) - source.firstOffset, std::int64_t{0});
  return static_cast<std::size_t>(std::min(source.rowLimit, size / source.rowSize));
}

// Reads the rows; whether a checkpoint would write the same bytes for them.
bool readRows(const RowSource& source, TimedReader* timed, const Directory& directory,
              GrowingSeal* growing, Table& table) {
  File file(directory, source.fileName, File::Mode::read);
  if (!file.isOpen()) throwUnreadable(source.fileName);
  table.setHugePages(false);
  bool areAsWritten = !rowsAreShifted(table.columns);
  const std::size_t count = wholeRowsIn(source, file);
  const bool hasTimed = timed != nullptr && timed->hasFile();
  std::optional<bool> areHalvesAsWritten;
  if (!source.isCounted && !hasTimed && count >= leastRowsOfHalves) {
    areHalvesAsWritten = readInHalves(source, count, directory, growing, table);
    if (!areHalvesAsWritten) table = Table(table.tableName, table.columns);
  }
  if (areHalvesAsWritten) {
    areAsWritten &= *areHalvesAsWritten;
  } else {
    BlockReader reader(file, growing);
    if (growing != nullptr) reader.at(0, 1);  // what stands before the rows is part of the file
    if (source.isCounted) {
      readCountedRows(source, reader, timed, table);
    } else {
      areAsWritten &= readWholeRows(source, reader, timed, table);
    }
  }
  table.setHugePages(true);
  return areAsWritten;
}

// Reads the marks; whether a checkpoint would write the same bytes for them.
bool readMarks(const Directory& directory, const std::string& fileName, Table& table) {
  File file(directory, fileName, File::Mode::read);
  if (!file.isOpen() && errno == ENOENT) return false;
  BlockReader reader(file);
  bool areAsWritten = file.size() == static_cast<std::int64_t>(table.rowCount());
  for (std::size_t first = 0; first < table.rowCount(); first += Rows::chunkRows) {
    const std::size_t count = std::min(Rows::chunkRows, table.rowCount() - first);
    const std::string_view marks = reader.at(static_cast<std::int64_t>(first), count);
    const bool hasMarks = !isAllZero(marks);
    for (std::size_t i = 0; hasMarks && i < marks.size(); ++i) {
      if (marks[i] != '\0') table.setDeleted(first + i, true);
      areAsWritten = areAsWritten && static_cast<unsigned char>(marks[i]) <= 1;
    }
    if (marks.size() < count) return false;  // the rows behind the last mark are live
  }
  return areAsWritten;
}

// Whether the table file is called and begins as a checkpoint's, and ends with its last row.
bool isFileAsWritten(File& file, const std::string& fileName, const Table& table) {
  const std::string header = Storage::tableFileHeader(table);
  std::string found(header.size(), '\0');
  const auto rowsSize =
      static_cast<std::int64_t>(table.rowCount()) * Storage::rowSize(table.columns);
  return fileName == fileNameOf(table.tableName, tableExtension) &&
         file.readAt(0, found.data(), found.size()) == header.size() && found == header &&
         file.size() == static_cast<std::int64_t>(header.size()) + rowsSize;
}

}  // namespace

const std::map<std::string, int, std::less<>> Storage::typeSizes = {{"int", 4},
                                                                    {"ApexInt", 4},
                                                                    {"float", 4},
                                                                    {"bool", 1},
                                                                    {"string", 60},
                                                                    {std::string(longType), 8},
                                                                    {std::string(doubleType), 8}};

std::int64_t Storage::getColumnBinSize(const Column& column) {
  const auto size = typeSizes.find(column.type);
  const std::int64_t plain = column.type == "string"   ? column.stringSize
                             : size != typeSizes.end() ? size->second
                                                       : 0;
  return plain + (column.maxStates >= 1 ? 1 : 0);
}

std::int64_t Storage::rowSize(const std::vector<Column>& columns) {
  std::int64_t size = 0;
  for (const Column& column : columns) size += getColumnBinSize(column);
  return size;
}

std::int64_t Storage::headerSize(std::size_t columnCount) {
  return static_cast<std::int64_t>(nameWidth + headerFieldsPerColumn * nameWidth * columnCount);
}

bool Storage::isStorableName(std::string_view tableName) {
  constexpr std::string_view refused("/.\0\n", 4);
  return !tableName.empty() && tableName.size() <= nameWidth &&
         tableName.find_first_of(refused) == std::string_view::npos;
}

std::string Storage::tableFileHeader(const Table& table) {
  RecordWriter header;
  header.text(table.tableName, nameWidth);
  for (const Column& column : table.columns) header.text(column.type, nameWidth);
  for (const Column& column : table.columns) header.text(column.name, nameWidth);
  for (const Column& column : table.columns) {
    header.text(std::to_string(column.maxStates), nameWidth);
  }
  for (const Column& column : table.columns) {
    header.text(std::to_string(column.stringSize), nameWidth);
  }
  return header.bytes();
}

bool Storage::isStorableColumn(std::string_view name) {
  constexpr std::string_view refused("/\0", 2);
  return !name.empty() && name.size() <= nameWidth &&
         name.find_first_of(refused) == std::string_view::npos &&
         std::find(typeNames.begin(), typeNames.end(), name) == typeNames.end();
}

bool Storage::hasTable(const std::string& tableName, const Directory& directory) {
  const std::string fileName = fileNameOf(tableName, tableExtension);
  File file(directory, fileName, File::Mode::read);
  if (file.isOpen()) return !getColumns(file, fileName).empty();
  if (errno == ENOENT) return false;
  throw std::runtime_error("Failed to open file: " + printable(fileName));
}

void Storage::saveTable(const Table& table, const Directory& directory) {
  const std::string fileName = fileNameOf(table.tableName, tableExtension);
  if (hasTable(table.tableName, directory)) throw std::runtime_error("Column size error");
  try {
    // What an earlier table of this name may have left would be taken for rows of this one, also
    // when a power failure brings it back.
    const std::string rows = fileNameOf(table.tableName, wholeRowExtension);
    if (!removeFile(directory, rows)) throw WriteFailure("cannot remove " + printable(rows));
    if (rowsAreShifted(table.columns) && !syncDirectory(directory)) {
      throw WriteFailure("cannot sync the directory");
    }
    const File marks(directory, fileNameOf(table.tableName, deletionExtension), File::Mode::create);
    // The header comes whole or not at all: half a header would bar every later start.
    writeBeside(directory, fileName, tableFileHeader(table));
    putInPlace(directory, fileName);
  } catch (const CreateFailure&) {
    throw std::runtime_error("Failed to open file: " + printable(fileName));
  } catch (const WriteFailure&) {
    removeFile(directory, unfinishedName(fileName));
    throw std::runtime_error("Failed to write file: " + printable(fileName));
  }
}

std::string Storage::read(File& file, std::int64_t offset) {
  char bytes[nameWidth];
  const auto count = file.readAt(offset, bytes, nameWidth);
  if (!count) throwUnreadable(file.name());
  return std::string(getText(bytes, *count));
}

std::vector<Column> Storage::getColumns(File& file, const std::string& fileName) {
  std::vector<Column> columns;
  auto offset = static_cast<std::int64_t>(nameWidth);
  const auto nextField = [&] {
    std::string text = read(file, offset);
    offset += static_cast<std::int64_t>(nameWidth);
    return text;
  };
  while (true) {
    const std::string type = read(file, offset);
    if (!isStoredType(type)) break;
    nextField();
    columns.emplace_back();
    columns.back().type = type;
  }
  if (columns.empty()) return columns;
  if (file.size().value_or(0) < headerSize(columns.size())) throwCorrupt(fileName);
  constexpr std::int32_t maxStatesOfOldFiles = 3;
  std::set<std::string_view> names;
  for (Column& column : columns) {
    column.name = nextField();
    const bool isNew = names.insert(column.name).second;
    if (!isNew || !isStorableColumn(column.name)) throwCorrupt(fileName);
  }
  for (Column& column : columns) {
    column.maxStates = headerNumber(nextField(), maxStatesOfOldFiles, 0, fileName);
  }
  for (Column& column : columns) {
    column.stringSize = headerNumber(nextField(), defaultStringSize, 1, fileName);
  }
  return columns;
}

std::optional<Table> Storage::loadTable(const std::string& fileName, const Directory& directory,
                                        FloatTexts floats, GrowingSeal* growing) {
  File file(directory, fileName, File::Mode::read);
  const std::string refusal = "Failed to open file: " + printable(fileName);
  if (!file.isOpen() && errno == ENOENT) throw std::runtime_error(refusal);
  if (!file.isOpen()) throw Unreadable(refusal);
  const std::vector<Column> columns = getColumns(file, fileName);
  if (columns.empty()) return std::nullopt;

  const std::string tableName = fileName.substr(0, fileName.find('.'));
  Table table(tableName, columns);
  const std::string delName = fileNameOf(tableName, deletionExtension);
  RowSource source{fileName,
                   headerSize(columns.size()),
                   rowSize(columns),
                   CellWidths::declared,
                   std::numeric_limits<std::int64_t>::max(),
                   floats};
  if (rowsAreShifted(columns)) {
    source = shiftedSource(table, source, file.size().value_or(0), sizeOf(directory, delName),
                           directory);
    growing = nullptr;
  }
  // Timed values are filed under the name that the row file bears.
  const std::string timedName = read(file, 0);
  const std::int32_t maxStates = largestMaxStates(columns);
  std::optional<TimedReader> timed;
  if (maxStates >= 1 && isStorableName(timedName)) {
    timed.emplace(directory, fileNameOf(timedName, timedExtension), maxStates);
  }
  bool isAsWritten = readRows(source, timed ? &*timed : nullptr, directory, growing, table);
  while (timed && timed->hasNewDispute()) {
    isAsWritten = false;
    table = Table(tableName, columns);
    readRows(source, &*timed, directory, nullptr, table);
  }
  isAsWritten = readMarks(directory, delName, table) && isAsWritten;
  if (isAsWritten && isFileAsWritten(file, fileName, table)) table.markClean();
  return table;
}

std::vector<std::string> Storage::getBinFiles(const Directory& directory) {
  std::set<std::string> names;
  for (const DirectoryEntry& entry : listFiles(directory, tableExtension)) {
    const bool isOurs = isStorableName(entry.name.substr(0, entry.name.find('.')));
    if (isOurs && !entry.isRegular) throw NotRegularFile(entry.name);
    if (entry.isRegular) names.insert(entry.name);
  }
  if (directory.awaited != nullptr) {
    for (const auto& [name, keepsSpare] : directory.awaited->replaced) {
      const bool isThere = identityOf(directory, checkpointName(name).c_str()).has_value();
      if (isThere && name.ends_with(tableExtension)) names.insert(name);
    }
  }
  return {names.begin(), names.end()};
}

}  // namespace velmora
