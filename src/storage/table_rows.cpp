// See table_rows.h.
#include "table_rows.h"

#include <algorithm>
#include <bit>
#include <cmath>
#include <cstring>
#include <limits>
#include <stdexcept>

#include "../number.h"
#include "../record_io.h"
#include "storage.h"

namespace velmora {
namespace {

constexpr std::size_t stringWidth = 60;
constexpr std::size_t slotWidth = 4;

// Bytes of a value by its column's type, without a flag byte.
std::size_t plainWidth(const Column& column, ValueKind kind, CellWidths widths) {
  if (kind == ValueKind::text) {
    return widths == CellWidths::declared ? static_cast<std::size_t>(column.stringSize)
                                          : stringWidth;
  }
  if (kind == ValueKind::longInteger || kind == ValueKind::doubleReal) return 8;
  return kind == ValueKind::boolean ? 1 : 4;
}

// Bytes that a timed cell takes behind its flag byte: its slot, padded to the type's width.
std::size_t timedWidth(std::size_t plain) { return std::max(plain, slotWidth); }

bool isTrueInLowerCase(std::string_view text) {
  std::string lower(text);
  for (char& c : lower) {
    if (c >= 'A' && c <= 'Z') c = static_cast<char>(c + 32);
  }
  return isTrueText(lower);
}

// Calls convert(); what it throws for a text that does not convert is dropped in a deleted row.
template <typename Convert>
auto converted(bool isLive, Convert convert) -> decltype(convert()) {
  if (isLive) return convert();
  try {
    return convert();
  } catch (const std::logic_error&) {
    return {};
  }
}

char* putFloat(char* out, float value) {
  std::int32_t bits;
  static_assert(sizeof bits == sizeof value);
  std::memcpy(&bits, &value, sizeof bits);
  return putInt32(out, bits);
}

float getFloat(const char* in) {
  const std::int32_t bits = getInt32(in);
  float value;
  std::memcpy(&value, &bits, sizeof value);
  return value;
}

char* putDouble(char* out, double value) {
  return putInt64(out, std::bit_cast<std::int64_t>(value));
}

// A value by its text.
char* encodeText(char* out, const CellShape& shape, std::string_view text, bool isLive) {
  switch (shape.kind) {
    case ValueKind::integer:
      if (text == missingValue) return putInt32(out, 0);
      return putInt32(out, converted(isLive, [&] { return parseInt(text); }));
    case ValueKind::real:
      // A value that nobody gave has no number; NaN says so, and comes back as no value.
      if (text == missingValue) return putFloat(out, std::numeric_limits<float>::quiet_NaN());
      return putFloat(out, converted(isLive, [&] { return parseFloat(text); }));
    case ValueKind::boolean:
      // Deliberate: only columns that cannot hold timed values take TRUE in capitals for true.
      *out++ = (shape.canBeTimed ? isTrueText(text) : isTrueInLowerCase(text)) ? '\1' : '\0';
      return out;
    case ValueKind::longInteger:
      return putInt64(
          out, text == missingValue ? 0 : converted(isLive, [&] { return parseLong(text); }));
    case ValueKind::doubleReal:
      if (text == missingValue) return putDouble(out, std::numeric_limits<double>::quiet_NaN());
      return putDouble(out, converted(isLive, [&] { return parseDouble(text); }));
    case ValueKind::text:
    case ValueKind::unknown:
      break;
  }
  return putText(out, text, stringWidth);
}

// Rows that are put together at a time: few enough that their bytes, and what they are made of, are
// still in the processor's first cache when their last column is.
constexpr std::size_t pieceRows = 32;

// A column's plain values of some rows, each so many bytes behind the one before.
void encodePlain(char* out, std::size_t stride, const CellShape& shape,
                 const ColumnValues::Chunk& values, std::size_t place, std::size_t count) {
  const auto encodeEach = [&](const auto* array, auto encode) {
    for (std::size_t i = 0; i < count; ++i) encode(out + i * stride, array[place + i]);
  };
  switch (shape.kind) {
    case ValueKind::integer:
      encodeEach(values.numbers(), putInt32);
      break;
    case ValueKind::real:
      encodeEach(values.reals(), putFloat);
      break;
    case ValueKind::boolean:
      encodeEach(values.codes, [&](char* at, std::uint8_t code) {
        *at = code == static_cast<std::uint8_t>(BoolCode::isTrue) ? '\1' : '\0';
        std::fill_n(at + 1, shape.plainWidth - 1, '\0');
      });
      break;
    case ValueKind::longInteger:
      encodeEach(values.longs(), putInt64);
      break;
    case ValueKind::doubleReal:
      encodeEach(values.doubles(), putDouble);
      break;
    case ValueKind::text:
    case ValueKind::unknown:
      encodeEach(values.texts(),
                 [](char* at, const Text& text) { text.putPadded(at, stringWidth); });
      break;
  }
}

// Rows of a chunk without odd cells.
char* encodePlainRows(char* out, const Table& table, std::size_t firstRow, std::size_t count,
                      std::span<const CellShape> shapes, std::size_t rowSize) {
  const std::size_t place = Rows::placeOf(firstRow);
  char* cell = out;
  for (std::size_t i = 0; i < shapes.size(); ++i) {
    const CellShape& shape = shapes[i];
    for (std::size_t row = 0; row < count && shape.canBeTimed; ++row) cell[row * rowSize] = '\0';
    if (shape.canBeTimed) ++cell;
    encodePlain(cell, rowSize, shape, table.values(i).chunk(Rows::chunkOf(firstRow)), place, count);
    cell += shape.plainWidth;
  }
  return out + count * rowSize;
}

char* encodeOdd(char* out, const CellShape& shape, const Table& table, std::size_t row,
                std::size_t column) {
  TextRoom room;
  // Not timed, so the second is nothing.
  const std::string_view text = table.text(row, column, 0, room);
  return atPlace(table, column, row,
                 [&] { return encodeText(out, shape, text, table.isLive(row)); });
}

// The float that the text of a stored one is read as, which has six decimals: below 16 floats lie
// closer together than these.
float asRead(float stored) {
  constexpr float decimals = 1e6F;
  // Doubles as large as this have no fraction: what is added to one is rounded.
  constexpr double rounding = 0x1.8p52;
  if (!(std::fabs(stored) < 16)) return stored;
  const double scaled = (static_cast<double>(stored) * 1e6 + rounding) - rounding;
  return std::copysign(static_cast<float>(scaled) / decimals, stored);
}

bool haveEqualBits(float a, float b) {
  return std::bit_cast<std::int32_t>(a) == std::bit_cast<std::int32_t>(b);
}

// A column's plain values of some rows, each so many bytes behind the one before; whether they are
// as encodePlain writes them.
bool decodePlain(const char* in, std::size_t stride, const CellShape& shape,
                 const ColumnValues::Chunk& values, std::size_t place, std::size_t count) {
  bool areAsWritten = true;
  const auto forEach = [&](auto decode) {
    for (std::size_t i = 0; i < count; ++i) decode(in + i * stride, place + i);
  };
  switch (shape.kind) {
    case ValueKind::integer:
      forEach([&](const char* at, std::size_t i) { values.numbers()[i] = getInt32(at); });
      break;
    case ValueKind::real:
      forEach([&](const char* at, std::size_t i) {
        constexpr std::uint8_t decimals = 6;
        constexpr float missing = std::numeric_limits<float>::quiet_NaN();
        const bool isShortest = shape.floats == FloatTexts::shortest;
        const float stored = getFloat(at);
        const float value = std::isnan(stored) ? missing : isShortest ? stored : asRead(stored);
        values.reals()[i] = value;
        values.codes[i] = std::isnan(stored) ? missingSpelling
                          : isShortest       ? shortestSpelling
                                             : decimals;
        areAsWritten &= haveEqualBits(stored, value);
      });
      break;
    case ValueKind::boolean:
      forEach([&](const char* at, std::size_t i) {
        const auto code = *at != 0 ? BoolCode::isTrue : BoolCode::isFalse;
        values.codes[i] = static_cast<std::uint8_t>(code);
        areAsWritten &= static_cast<unsigned char>(*at) <= 1;
      });
      break;
    case ValueKind::longInteger:
      forEach([&](const char* at, std::size_t i) { values.longs()[i] = getInt64(at); });
      break;
    case ValueKind::doubleReal:
      forEach([&](const char* at, std::size_t i) {
        constexpr double missing = std::numeric_limits<double>::quiet_NaN();
        const auto stored = std::bit_cast<double>(getInt64(at));
        values.doubles()[i] = std::isnan(stored) ? missing : stored;
        values.codes[i] = std::isnan(stored) ? missingSpelling : shortestSpelling;
        areAsWritten &= getInt64(at) == std::bit_cast<std::int64_t>(values.doubles()[i]);
      });
      break;
    case ValueKind::text:
    case ValueKind::unknown:
      forEach([&](const char* at, std::size_t i) {
        const std::string_view text = getText(at, shape.plainWidth);
        if (text.size() <= Text::inlineCapacity && shape.plainWidth > Text::inlineCapacity) {
          values.texts()[i].takeField(at, text.size());
        } else {
          values.texts()[i] = Text(text);
        }
        values.codes[i] = values.texts()[i].fingerprint();
        areAsWritten &= isAllZero({at + text.size(), shape.plainWidth - text.size()});
      });
      break;
  }
  return areAsWritten;
}

// A column's cells of rows of one chunk, all of them plain.
bool decodeColumn(const char* in, std::size_t stride, const CellShape& shape, const Table& table,
                  std::size_t column, std::size_t firstRow, std::size_t count) {
  return decodePlain(in + (shape.canBeTimed ? 1 : 0), stride, shape,
                     table.values(column).chunk(Rows::chunkOf(firstRow)), Rows::placeOf(firstRow),
                     count);
}

bool decodeTimed(const char* in, const CellShape& shape, TimedReader* timed, Table& table,
                 std::size_t row, std::size_t column) {
  Cell cell;
  const std::int32_t slot = getInt32(in);
  if (timed != nullptr) cell.tempRule = timed->claim(slot);
  const bool isRead = cell.tempRule != nullptr;
  // Otherwise the row keeps what an appended one has: no value, or 0.
  if (!isRead && !shape.isIdentity) return false;
  if (!isRead) {
    cell.value = Text("0");
    cell.tempRule = std::make_unique<TempRule>();
    cell.tempRule->states.push_back({cell.value, 0});
  }
  table.restore(row, column, cell, 0);
  return isRead && isAllZero({in + slotWidth, shape.timedWidth - slotWidth}) &&
         timed->isAsWritten(slot, timedLabel(table.columns, column, row),
                            static_cast<std::int32_t>(column));
}

bool isTimedCell(std::string_view bytes, const CellShape& shape) {
  return shape.canBeTimed && !bytes.empty() && bytes.front() == '\1';
}

// Bytes of the cell of this shape that begins there.
std::size_t cellSize(std::string_view bytes, const CellShape& shape) {
  const std::size_t flagSize = shape.canBeTimed ? 1 : 0;
  return flagSize + (isTimedCell(bytes, shape) ? shape.timedWidth : shape.plainWidth);
}

bool decodeCell(std::string_view bytes, const CellShape& shape, TimedReader* timed, Table& table,
                std::size_t row, std::size_t column) {
  const char* const value = bytes.data() + (shape.canBeTimed ? 1 : 0);
  if (isTimedCell(bytes, shape)) return decodeTimed(value, shape, timed, table, row, column);
  const bool isFlagAsWritten = !shape.canBeTimed || bytes.front() == '\0';
  if (shape.kind == ValueKind::real && std::isinf(getFloat(value))) {
    // Its text has no decimals.
    table.set(row, column, Cell(Text(std::signbit(getFloat(value)) ? "-inf" : "inf")), 0);
    return isFlagAsWritten;
  }
  return decodeColumn(bytes.data(), 0, shape, table, column, row, 1) && isFlagAsWritten;
}

// Whether a column's cells of these rows can be read together.
bool arePlain(const char* in, std::size_t stride, const CellShape& shape, std::size_t count) {
  if (!shape.canBeTimed && shape.kind != ValueKind::real) return true;
  bool found = false;
  for (std::size_t i = 0; i < count; ++i, in += stride) {
    const char* const value = in + (shape.canBeTimed ? 1 : 0);
    found |= shape.canBeTimed && *in != '\0';
    found |= shape.kind == ValueKind::real && std::isinf(getFloat(value));
  }
  return !found;
}

}  // namespace

std::int32_t largestMaxStates(const std::vector<Column>& columns) {
  std::int32_t largest = 0;
  for (const Column& column : columns) largest = std::max(largest, column.maxStates);
  return largest;
}

bool floatsHaveSixDecimals(const Table& table) {
  for (std::size_t column = 0; column < table.columns.size(); ++column) {
    if (table.kind(column) != ValueKind::real) continue;
    for (std::size_t row = 0; row < table.rowCount(); ++row) {
      const float value =
          table.values(column).chunk(Rows::chunkOf(row)).reals()[Rows::placeOf(row)];
      if (!std::isnan(value) && !haveEqualBits(asRead(value), value)) return false;
    }
  }
  return true;
}

bool rowsAreShifted(const std::vector<Column>& columns) {
  return std::any_of(columns.begin(), columns.end(), [](const Column& column) {
    return (column.type == "string" && column.stringSize != defaultStringSize) ||
           (column.type == "bool" && column.maxStates >= 1);
  });
}

std::size_t wholeRowSize(const std::vector<Column>& columns) {
  std::size_t size = 0;
  for (const Column& column : columns) {
    const std::size_t plain = plainWidth(column, valueKind(column.type), CellWidths::whole);
    size += column.maxStates >= 1 ? 1 + timedWidth(plain) : plain;
  }
  return size;
}

std::size_t longestRow(const std::vector<Column>& columns, CellWidths widths) {
  std::size_t size = 0;
  for (const CellShape& shape : shapesOf(columns, widths)) {
    size += shape.canBeTimed ? 1 + std::max(shape.plainWidth, shape.timedWidth) : shape.plainWidth;
  }
  return size;
}

std::vector<std::size_t> wholeOffsets(const std::vector<Column>& columns) {
  std::vector<std::size_t> offsets;
  std::size_t offset = 0;
  for (const Column& column : columns) {
    offsets.push_back(offset);
    offset += wholeRowSize({column});
  }
  return offsets;
}

std::size_t encodedTogether(const Table& table, std::size_t firstRow) {
  const std::size_t chunk = Rows::chunkOf(firstRow);
  for (std::size_t column = 0; column < table.columns.size(); ++column) {
    if (table.values(column).chunk(chunk).odd != nullptr) return 1;
  }
  return table.rows().sizeOf(chunk) - Rows::placeOf(firstRow);
}

char* encodeRows(char* out, const Table& table, std::size_t firstRow, std::size_t count,
                 std::span<const CellShape> shapes, std::span<const std::int32_t> slots) {
  if (count > 1) {
    std::size_t rowSize = 0;
    for (const CellShape& shape : shapes) rowSize += cellSize({}, shape);
    for (std::size_t i = 0; i < count; i += pieceRows) {
      out = encodePlainRows(out, table, firstRow + i, std::min(pieceRows, count - i), shapes,
                            rowSize);
    }
    return out;
  }
  for (std::size_t i = 0; i < shapes.size(); ++i) {
    const CellShape& shape = shapes[i];
    const ColumnValues::Chunk values = table.values(i).chunk(Rows::chunkOf(firstRow));
    const std::size_t place = Rows::placeOf(firstRow);
    const bool isTimed = table.values(i).rule(firstRow) != nullptr;
    if (shape.canBeTimed) *out++ = isTimed ? '\1' : '\0';
    if (isTimed) {
      // In a row file, deliberate: a timed bool's slot overruns the one byte of its column.
      out = putInt32(out, slots[i]);
      out = putText(out, {}, shape.timedWidth - slotWidth);
    } else {
      char* const end = out + shape.plainWidth;
      if (values.isOdd(place)) {
        out = encodeOdd(out, shape, table, firstRow, i);
        out = putText(out, {}, static_cast<std::size_t>(end - out));
      } else {
        encodePlain(out, 0, shape, values, place, 1);
        out = end;
      }
    }
  }
  return out;
}

std::int32_t timedLabel(const std::vector<Column>& columns, std::size_t column, std::size_t row) {
  const std::int64_t offset = Storage::headerSize(columns.size()) +
                              static_cast<std::int64_t>(row) * Storage::rowSize(columns);
  return static_cast<std::int32_t>(offset / Storage::getColumnBinSize(columns[column]));
}

std::int32_t slotAt(std::string_view row, std::size_t offset) {
  if (row.size() < offset + 1 + slotWidth || row[offset] != '\1') return -1;
  return getInt32(row.data() + offset + 1);
}

bool decodeRows(std::string_view bytes, const std::vector<CellShape>& shapes, TimedReader* timed,
                Table& table, std::size_t firstRow, std::size_t count) {
  const std::size_t rowSize = bytes.size() / count;
  bool areAsWritten = true;
  for (std::size_t column = 0; column < shapes.size(); ++column) {
    const CellShape& shape = shapes[column];
    if (arePlain(bytes.data(), rowSize, shape, count)) {
      areAsWritten &= decodeColumn(bytes.data(), rowSize, shape, table, column, firstRow, count);
    } else {
      for (std::size_t i = 0; i < count; ++i) {
        areAsWritten &=
            decodeCell(bytes.substr(i * rowSize), shape, timed, table, firstRow + i, column);
      }
    }
    bytes.remove_prefix(cellSize({}, shape));
  }
  return areAsWritten;
}

std::optional<bool> decodePlainRows(std::string_view bytes, const std::vector<CellShape>& shapes,
                                    Table& table, std::size_t firstRow, std::size_t count) {
  const std::size_t rowSize = bytes.size() / count;
  bool areAsWritten = true;
  for (std::size_t column = 0; column < shapes.size(); ++column) {
    const CellShape& shape = shapes[column];
    if (!arePlain(bytes.data(), rowSize, shape, count)) return std::nullopt;
    areAsWritten &= decodeColumn(bytes.data(), rowSize, shape, table, column, firstRow, count);
    bytes.remove_prefix(cellSize({}, shape));
  }
  return areAsWritten;
}

void decodeWideRow(BlockReader& reader, std::int64_t offset, const std::vector<CellShape>& shapes,
                   TimedReader* timed, Table& table, std::size_t row) {
  std::string bytes;
  for (std::size_t column = 0; column < shapes.size(); ++column) {
    const CellShape& shape = shapes[column];
    const std::size_t longest = 1 + std::max(shape.plainWidth, shape.timedWidth);
    bytes = reader.at(offset, longest);
    bytes.resize(longest);
    decodeCell(bytes, shape, timed, table, row, column);
    offset += static_cast<std::int64_t>(cellSize(bytes, shape));
  }
}

std::vector<CellShape> shapesOf(const std::vector<Column>& columns, CellWidths widths,
                                FloatTexts floats) {
  std::vector<CellShape> shapes;
  for (const Column& column : columns) {
    CellShape shape;
    shape.kind = valueKind(column.type);
    shape.canBeTimed = column.maxStates >= 1;
    shape.floats = floats;
    shape.isIdentity = isNumbered(column);
    const std::size_t plain = plainWidth(column, shape.kind, widths);
    shape.timedWidth = timedWidth(plain);
    const bool isWide = widths == CellWidths::whole && shape.canBeTimed;
    shape.plainWidth = isWide ? shape.timedWidth : plain;
    shapes.push_back(shape);
  }
  return shapes;
}

}  // namespace velmora
