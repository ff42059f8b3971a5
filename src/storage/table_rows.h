// Rows as bytes: the one encoder and the one decoder of a table's cells, shared by the row file,
// the whole-row file and the checkpoint.
//
// A cell of a column whose states limit is 1 or more begins with a flag byte, 1 if a timed value
// follows; then comes the value at its type's width, or the timed value's slot number in 4 bytes
// padded to that width.
#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "../table.h"
#include "storage.h"
#include "timed_file.h"

namespace velmora {

// How wide cells are. The writer of the row file puts 60 bytes for every string and 4 for every
// slot, whatever the column's declared width says; its reader goes by the declared widths; in the
// whole-row file both go by widths that hold every cell.
enum class CellWidths : std::uint8_t { written, declared, whole };

// What has to be known of each column, worked out once a table.
struct CellShape {
  ValueKind kind = ValueKind::unknown;
  bool canBeTimed = false;
  bool isIdentity = false;
  std::size_t plainWidth = 0;  // bytes of a plain value, without a flag byte
  std::size_t timedWidth = 0;  // bytes of a timed value's slot with its padding
  FloatTexts floats = FloatTexts::sixDecimals;
};
std::vector<CellShape> shapesOf(const std::vector<Column>& columns, CellWidths widths,
                                FloatTexts floats = FloatTexts::sixDecimals);

// The largest states limit of the columns.
std::int32_t largestMaxStates(const std::vector<Column>& columns);
// Whether rows of such columns do not fit their declared width in the row file: a string declared
// other than 60, or a bool that can hold timed values.
bool rowsAreShifted(const std::vector<Column>& columns);
// Bytes of a row in the whole-row file.
std::size_t wholeRowSize(const std::vector<Column>& columns);
// The most bytes that a row of such columns can take by these widths.
std::size_t longestRow(const std::vector<Column>& columns, CellWidths widths);

// Whether each float of the table is what the text of six decimals reads as.
bool floatsHaveSixDecimals(const Table& table);

// Where each column's cell begins in a row of whole widths; in a table whose rows are not shifted,
// so it does in the row file.
std::vector<std::size_t> wholeOffsets(const std::vector<Column>& columns);

// Writes rows that lie in one chunk, one after the other, in these shapes, of written or whole
// widths, at out, which has room for longestRow each; returns the end. Without odd cells in the
// chunk it may be many rows; else one, whose timed cells' slots are given by column. Throws
// std::invalid_argument or std::out_of_range ("stoi", "stof") for a text that does not convert; in
// a row that is not live, which nobody reads, such a text is written as zero bytes.
char* encodeRows(char* out, const Table& table, std::size_t firstRow, std::size_t count,
                 std::span<const CellShape> shapes, std::span<const std::int32_t> slots);
// How many rows from this one on encodeRows can write together.
std::size_t encodedTogether(const Table& table, std::size_t firstRow);

// The slot of the timed cell that begins at the offset of a row's bytes; -1 if there is none.
std::int32_t slotAt(std::string_view row, std::size_t offset);

// What the records of a row's timed values bear as the row's number in a column: the row's offset
// in the table file, counted in cells of this column.
std::int32_t timedLabel(const std::vector<Column>& columns, std::size_t column, std::size_t row);

// Reads rows of these shapes, of declared widths of rows that are not shifted or of whole widths,
// back to back, into rows of the table that lie in one chunk. A timed value that cannot be read
// leaves its cell without a value; an identity stays timed, with the one state 0, so that it is
// still told from a number that the row was given. Returns whether the bytes are what encodeRows
// would make of the rows, slots included: only then can a checkpoint leave them alone.
bool decodeRows(std::string_view bytes, const std::vector<CellShape>& shapes, TimedReader* timed,
                Table& table, std::size_t firstRow, std::size_t count);
// The same where no cell is timed, nor an infinite float; nothing, and any values, where one is.
// Several threads may do this at once, each for chunks of its own.
std::optional<bool> decodePlainRows(std::string_view bytes, const std::vector<CellShape>& shapes,
                                    Table& table, std::size_t firstRow, std::size_t count);
// The same for a row that may be very wide, cell by cell, and that counts as a row though the file
// ends within it: what is missing is zero bytes.
void decodeWideRow(BlockReader& reader, std::int64_t offset, const std::vector<CellShape>& shapes,
                   TimedReader* timed, Table& table, std::size_t row);

}  // namespace velmora
