// See table_rows.h.
#include "table_rows.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <limits>
#include <stdexcept>

#include "../number.h"
#include "../record_io.h"

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

char* encodePlain(char* out, const CellShape& shape, std::string_view text, bool isLive) {
  switch (shape.kind) {
    case ValueKind::integer:
      return putInt32(out, converted(isLive, [&] { return parseInt(text); }));
    case ValueKind::real:
      // A value that nobody gave has no number; NaN says so, and comes back as no value.
      if (text == missingValue) return putFloat(out, std::numeric_limits<float>::quiet_NaN());
      return putFloat(out, converted(isLive, [&] { return parseFloat(text); }));
    case ValueKind::boolean:
      // Deliberate: only columns that cannot hold timed values take TRUE in capitals for true.
      *out++ = (shape.canBeTimed ? isTrueText(text) : isTrueInLowerCase(text)) ? '\1' : '\0';
      return out;
    case ValueKind::text:
    case ValueKind::unknown:
      break;
  }
  // A width known here is filled with a few wide stores.
  std::memset(out, 0, stringWidth);
  std::memcpy(out, text.data(), std::min(text.size(), stringWidth));
  return out + stringWidth;
}

void decodePlain(const char* in, ValueKind kind, std::size_t width, Cell& cell) {
  char number[maxNumberText];
  switch (kind) {
    case ValueKind::integer:
      cell.value = std::string_view(number, writeInt(number, getInt32(in)));
      return;
    case ValueKind::real: {
      const float value = getFloat(in);
      if (std::isnan(value)) {
        cell.value = missingValue;
      } else {
        cell.value = std::string_view(number, writeFixed(number, value));
      }
      return;
    }
    case ValueKind::boolean:
      cell.value = std::string_view(*in != 0 ? "true" : "false");
      return;
    case ValueKind::text:
    case ValueKind::unknown:
      cell.value = getText(in, width);
      return;
  }
}

void decodeTimed(const char* in, const CellShape& shape, TimedReader* timed, Cell& cell) {
  if (timed != nullptr) cell.tempRule = timed->claim(getInt32(in));
  if (cell.tempRule != nullptr) return;
  cell.value = shape.kind == ValueKind::integer ? std::string_view("0") : missingValue;
  if (!shape.isIdentity) return;
  cell.tempRule = std::make_unique<TempRule>();
  cell.tempRule->states.push_back({cell.value, 0});
}

bool isTimedCell(std::string_view bytes, const CellShape& shape) {
  return shape.canBeTimed && !bytes.empty() && bytes.front() == '\1';
}

// Bytes of the cell of this shape that begins there.
std::size_t cellSize(std::string_view bytes, const CellShape& shape) {
  const std::size_t flagSize = shape.canBeTimed ? 1 : 0;
  return flagSize + (isTimedCell(bytes, shape) ? shape.timedWidth : shape.plainWidth);
}

void decodeCell(std::string_view bytes, const CellShape& shape, TimedReader* timed, Cell& cell) {
  const char* const value = bytes.data() + (shape.canBeTimed ? 1 : 0);
  if (isTimedCell(bytes, shape)) {
    decodeTimed(value, shape, timed, cell);
  } else {
    decodePlain(value, shape.kind, shape.plainWidth, cell);
  }
}

}  // namespace

std::int32_t largestMaxStates(const std::vector<Column>& columns) {
  std::int32_t largest = 0;
  for (const Column& column : columns) largest = std::max(largest, column.maxStates);
  return largest;
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

char* encodeRow(char* out, const Row& row, bool isLive, std::span<const CellShape> shapes,
                std::span<const std::int32_t> slots) {
  for (std::size_t i = 0; i < shapes.size(); ++i) {
    const CellShape& shape = shapes[i];
    const Cell& cell = row.cells()[i];
    const bool isTimed = cell.tempRule != nullptr;
    if (shape.canBeTimed) *out++ = isTimed ? '\1' : '\0';
    if (isTimed) {
      // In a row file, deliberate: a timed bool's slot overruns the one byte of its column.
      out = putInt32(out, slots[i]);
      out = putText(out, {}, shape.timedWidth - slotWidth);
    } else {
      char* const end = out + shape.plainWidth;
      try {
        out = encodePlain(out, shape, cell.value, isLive);
      } catch (FailedConversion& failure) {
        failure.column = shape.name;
        throw;
      }
      if (out < end) out = putText(out, {}, static_cast<std::size_t>(end - out));
    }
  }
  return out;
}

std::int32_t slotAt(std::string_view row, std::size_t offset) {
  if (row.size() < offset + 1 + slotWidth || row[offset] != '\1') return -1;
  return getInt32(row.data() + offset + 1);
}

bool decodeRow(std::string_view bytes, const std::vector<CellShape>& shapes, TimedReader* timed,
               Row& row) {
  Cell* cell = row.cells().data();
  for (const CellShape& shape : shapes) {
    const std::size_t size = cellSize(bytes, shape);
    if (bytes.size() < size) return false;
    decodeCell(bytes, shape, timed, *cell++);
    bytes.remove_prefix(size);
  }
  return true;
}

void decodeWideRow(BlockReader& reader, std::int64_t offset, const std::vector<CellShape>& shapes,
                   TimedReader* timed, Row& row) {
  Cell* cell = row.cells().data();
  std::string bytes;
  for (const CellShape& shape : shapes) {
    const std::size_t longest = 1 + std::max(shape.plainWidth, shape.timedWidth);
    bytes = reader.at(offset, longest);
    bytes.resize(longest);
    decodeCell(bytes, shape, timed, *cell++);
    offset += static_cast<std::int64_t>(cellSize(bytes, shape));
  }
}

std::vector<CellShape> shapesOf(const std::vector<Column>& columns, CellWidths widths) {
  std::vector<CellShape> shapes;
  for (const Column& column : columns) {
    CellShape shape;
    shape.name = column.name;
    shape.kind = valueKind(column.type);
    shape.canBeTimed = column.maxStates >= 1;
    shape.isIdentity = column.type == "ApexInt";
    const std::size_t plain = plainWidth(column, shape.kind, widths);
    shape.timedWidth = timedWidth(plain);
    const bool isWide = widths == CellWidths::whole && shape.canBeTimed;
    shape.plainWidth = isWide ? shape.timedWidth : plain;
    shapes.push_back(shape);
  }
  return shapes;
}

}  // namespace velmora
