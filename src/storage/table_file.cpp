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
#include <cerrno>
#include <limits>
#include <stdexcept>

#include "../clock.h"
#include "../number.h"
#include "../record_io.h"
#include "storage.h"
#include "table_rows.h"
#include "timed_file.h"

namespace velmora {
namespace {

constexpr std::size_t headerFieldsPerColumn = 4;
constexpr std::size_t readBlockSize = 256 * 1024;

[[noreturn]] void throwCorrupt(const std::string& fileName) {
  throw std::runtime_error("Corrupt table file: " + fileName);
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

// Bytes of a file from an offset on, read in large blocks.
class BlockReader {
 public:
  BlockReader(File& file, std::string fileName, std::size_t largestPiece)
      : file_(file), fileName_(std::move(fileName)), buffer_(readBlockSize + largestPiece, '\0') {}

  // At least `count` bytes from the offset on, or as many as the file has.
  std::string_view at(std::int64_t offset, std::size_t count) {
    const bool isHeld = offset >= start_ && offset + static_cast<std::int64_t>(count) <=
                                                start_ + static_cast<std::int64_t>(held_);
    if (!isHeld && !(atEnd_ && offset >= start_)) fill(offset);
    const auto skipped = static_cast<std::size_t>(offset - start_);
    return std::string_view(buffer_.data(), held_).substr(std::min(skipped, held_));
  }

 private:
  void fill(std::int64_t offset) {
    const auto count = file_.readAt(offset, buffer_.data(), buffer_.size());
    if (!count) throw std::runtime_error("Failed to read file: " + fileName_);
    start_ = offset;
    held_ = *count;
    atEnd_ = held_ < buffer_.size();
  }

  File& file_;
  std::string fileName_;
  std::string buffer_;
  std::int64_t start_ = 0;
  std::size_t held_ = 0;
  bool atEnd_ = false;
};

struct RowSource {
  std::string fileName;
  std::int64_t firstOffset;
  std::int64_t rowSize;
  CellWidths widths;
  std::int64_t rowLimit;
};

void readRows(File& file, const RowSource& source, const std::string& timedFile, Table& table) {
  const std::int32_t maxStates = largestMaxStates(table.columns);
  const std::size_t piece = largestRowSize(table.columns);
  const std::int64_t now = clock::now();
  const std::vector<CellShape> shapes = shapesOf(table.columns, source.widths);
  BlockReader reader(file, source.fileName, piece);
  table.rows.setHugePages(false);
  std::int64_t offset = source.firstOffset;
  for (std::int64_t i = 0; i < source.rowLimit; ++i, offset += source.rowSize) {
    const std::string_view bytes = reader.at(offset, piece);
    if (bytes.empty()) break;
    if (!decodeRow(bytes, shapes, timedFile, maxStates, now, table.appendRow())) {
      table.removeLastRow();
      break;
    }
  }
  table.rows.setHugePages(true);
}

// How many slots the table's timed-value file holds.
std::int64_t slotCount(const std::string& tableName, std::int32_t maxStates,
                       const Directory& directory) {
  const File file(directory, tableName + ".tmp", File::Mode::read);
  return file.size().value_or(0) / static_cast<std::int64_t>(timedRecordSize(maxStates));
}

std::string binFile(const std::string& tableName) { return tableName + ".bin"; }
std::string delFile(const std::string& tableName) { return tableName + ".del"; }

}  // namespace

const std::map<std::string, int, std::less<>> Storage::typeSizes = {
    {"int", 4}, {"ApexInt", 4}, {"float", 4}, {"bool", 1}, {"string", 60}};

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

void Storage::saveTable(const std::string& fileName, const Table& table,
                        const Directory& directory) {
  {
    File file(directory, fileName, File::Mode::create);
    if (!file.isOpen()) throw std::runtime_error("Failed to open file: " + fileName);
    if (!getColumns(file, fileName).empty()) throw std::runtime_error("Column size error");
    // What a file without columns held behind the header would be taken for rows.
    const std::string header = tableFileHeader(table);
    if (!file.truncate(0) || !file.writeAt(0, header)) {
      file.truncate(0);
      throw std::runtime_error("Failed to write file: " + fileName);
    }
  }
  setUpDeletesFile(table, directory);
}

void Storage::setUpDeletesFile(const Table& table, const Directory& directory) {
  File file(directory, delFile(table.tableName), File::Mode::replace);
  if (file.isOpen()) file.write(std::string(table.rows.size(), '\0'));
}

void Storage::insertRow(const Table& table, const Row& row, std::int64_t offset,
                        std::ios_base::seekdir dir, const Directory& directory) {
  const bool isAppended = dir == std::ios_base::end;
  const std::vector<Column>& columns = table.columns;
  File file(directory, binFile(table.tableName), File::Mode::readWrite);
  const std::int64_t size = rowSize(columns);
  if (!file.isOpen() || size == 0) return;
  File marks(directory, delFile(table.tableName), File::Mode::append);
  const bool isShifted = rowsAreShifted(columns);
  const std::int64_t index =
      isAppended ? marks.size().value_or(0) : (offset - headerSize(columns.size())) / size;
  if (isAppended) offset += file.size().value_or(0);
  const auto wholeSize = static_cast<std::int64_t>(wholeRowSize(columns));
  std::optional<File> whole;
  if (isShifted) whole.emplace(directory, table.tableName + ".row", File::Mode::create);

  // Timed cells keep the slots that the overwritten row gave them.
  std::string oldRow(isAppended ? 0 : static_cast<std::size_t>(wholeSize), '\0');
  const auto oldSize = isShifted ? whole->readAt(index * wholeSize, oldRow.data(), oldRow.size())
                                 : file.readAt(offset, oldRow.data(), oldRow.size());
  oldRow.resize(oldSize.value_or(0));
  const std::vector<std::size_t> cellOffsets = wholeOffsets(columns);
  std::vector<std::int32_t> slots(columns.size(), -1);
  for (std::size_t i = 0; i < columns.size(); ++i) {
    const Cell& cell = row.cells()[i];
    if (cell.tempRule == nullptr) continue;
    const std::int32_t maxStates = largestMaxStates(columns);
    const std::int32_t oldSlot =
        slotAt(oldRow, cellOffsets[i], slotCount(table.tableName, maxStates, directory));
    // Deliberate: an overwritten row is labelled with its offset counted in cells of this column.
    const std::int64_t label = isAppended ? static_cast<std::int64_t>(table.rows.size())
                                          : offset / getColumnBinSize(columns[i]);
    slots[i] = writeTempRule(table.tableName, static_cast<std::int32_t>(label),
                             static_cast<std::int32_t>(i), cell.tempRule.get(), maxStates, oldSlot,
                             directory);
  }

  std::string bytes(largestRowSize(columns), '\0');
  const auto encoded = [&](CellWidths widths) {
    const char* const end = encodeRow(bytes.data(), row, shapesOf(columns, widths), slots);
    return std::string_view(bytes.data(), static_cast<std::size_t>(end - bytes.data()));
  };
  const std::string_view written = encoded(CellWidths::written);
  if (isAppended) marks.write(std::string_view("\0", 1));
  file.writeAt(offset, written);
  if (isShifted) whole->writeAt(index * wholeSize, encoded(CellWidths::whole));
}

void Storage::update(const Table& table, const std::vector<std::int32_t>& rows,
                     const Directory& directory) {
  const std::int64_t first = headerSize(table.columns.size());
  for (const std::int32_t row : rows) {
    insertRow(table, table.rows.at(static_cast<std::size_t>(row)),
              first + row * rowSize(table.columns), std::ios_base::beg, directory);
  }
}

void Storage::deleteAt(const std::string& tableName, std::int32_t index,
                       const Directory& directory) {
  deleteBatch(tableName, {index}, directory);
}

void Storage::deleteBatch(const std::string& tableName, const std::vector<std::int32_t>& indices,
                          const Directory& directory) {
  File file(directory, delFile(tableName), File::Mode::readWrite);
  if (!file.isOpen()) return;
  for (const std::int32_t index : indices) file.writeAt(index, std::string_view("\1", 1));
}

std::string Storage::read(File& file, std::int64_t offset, std::size_t length) {
  std::string bytes(length, '\0');
  const auto count = file.readAt(offset, bytes.data(), length);
  if (!count) throw std::runtime_error("Failed to read file: " + file.name());
  return std::string(getText(bytes.data(), *count));
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
    if (std::find(typeNames.begin(), typeNames.end(), type) == typeNames.end()) break;
    nextField();
    columns.emplace_back();
    columns.back().type = type;
  }
  if (columns.empty()) return columns;
  if (file.size().value_or(0) < headerSize(columns.size())) throwCorrupt(fileName);
  constexpr std::int32_t maxStatesOfOldFiles = 3;
  for (Column& column : columns) column.name = nextField();
  for (Column& column : columns) {
    column.maxStates = headerNumber(nextField(), maxStatesOfOldFiles, 0, fileName);
  }
  for (Column& column : columns) {
    column.stringSize = headerNumber(nextField(), defaultStringSize, 1, fileName);
  }
  return columns;
}

std::optional<Table> Storage::loadTable(const std::string& fileName, const Directory& directory) {
  File file(directory, fileName, File::Mode::read);
  if (!file.isOpen()) throw std::runtime_error("Failed to open file: " + fileName);
  std::vector<Column> columns = getColumns(file, fileName);
  if (columns.empty()) return std::nullopt;

  const std::string tableName = fileName.substr(0, fileName.find('.'));
  Table table(tableName, std::move(columns));
  const std::string marks = readFile(directory, delFile(tableName)).value_or("");

  // Timed values are filed under the name that the row file bears.
  const std::string timedName = read(file, 0);
  std::string timedFile;
  if (largestMaxStates(table.columns) >= 1 && isStorableName(timedName)) {
    timedFile = readFile(directory, timedName + ".tmp").value_or("");
  }

  RowSource source{fileName, headerSize(table.columns.size()), rowSize(table.columns),
                   CellWidths::declared, std::numeric_limits<std::int64_t>::max()};
  const bool isShifted = rowsAreShifted(table.columns);
  const std::string wholeName = tableName + ".row";
  if (isShifted) source.rowLimit = static_cast<std::int64_t>(marks.size());
  File whole(directory, isShifted ? wholeName : fileName, File::Mode::read);
  if (isShifted && !whole.isOpen() && errno != ENOENT) {
    throw std::runtime_error("Failed to read file: " + wholeName);
  }
  const auto wholeSize = static_cast<std::int64_t>(wholeRowSize(table.columns));
  if (isShifted && whole.isOpen() && whole.size() == wholeSize * source.rowLimit) {
    source = {wholeName, 0, wholeSize, CellWidths::whole, source.rowLimit};
    readRows(whole, source, timedFile, table);
  } else {
    readRows(file, source, timedFile, table);
  }

  for (std::size_t i = 0; i < std::min(marks.size(), table.rows.size()); ++i) {
    if (marks[i] != '\0') table.setDeleted(i, true);
  }
  return table;
}

std::vector<std::string> Storage::getBinFiles(const Directory& directory) {
  return listFiles(directory, ".bin");
}

}  // namespace velmora
