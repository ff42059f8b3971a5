// See written_rows.h.
#include "written_rows.h"

#include <bit>
#include <cmath>
#include <limits>

#include "../record_io.h"
#include "storage.h"

namespace velmora {
namespace {

constexpr std::size_t slotWidth = 4;

// Whether the number comes back from its text, which has six decimals. From 16 on all floats are
// further apart than these; below, the products are exact, and so is the quotient once it is a
// float again.
bool isFloatAsWritten(const char* in) {
  const std::int32_t bits = getInt32(in);
  const auto value = std::bit_cast<float>(bits);
  if (std::isnan(value)) {
    return bits == std::bit_cast<std::int32_t>(std::numeric_limits<float>::quiet_NaN());
  }
  constexpr double decimals = 1e6;
  if (std::fabs(value) >= 16) return std::isfinite(value);
  const double read = std::nearbyint(static_cast<double>(value) * decimals) / decimals;
  return std::bit_cast<std::int32_t>(static_cast<float>(read)) == bits;
}

bool isValueAsWritten(std::string_view value, const CellShape& shape) {
  switch (shape.kind) {
    case ValueKind::integer:
      return true;
    case ValueKind::real:
      return isFloatAsWritten(value.data());
    case ValueKind::boolean:
      return static_cast<unsigned char>(value.front()) <= 1;
    case ValueKind::text:
    case ValueKind::unknown:
      break;
  }
  return isPadded(value);
}

}  // namespace

std::int32_t timedLabel(const std::vector<Column>& columns, std::size_t column, std::size_t row) {
  const std::int64_t offset = Storage::headerSize(columns.size()) +
                              static_cast<std::int64_t>(row) * Storage::rowSize(columns);
  return static_cast<std::int32_t>(offset / Storage::getColumnBinSize(columns[column]));
}

bool isRowAsWritten(std::string_view bytes, const std::vector<Column>& columns, std::size_t row,
                    std::span<const CellShape> shapes, TimedReader* timed) {
  for (std::size_t c = 0; c < shapes.size(); ++c) {
    const CellShape& shape = shapes[c];
    const char flag = shape.canBeTimed ? bytes.front() : '\0';
    if (shape.canBeTimed) bytes.remove_prefix(1);
    const std::size_t width = flag == '\1' ? shape.timedWidth : shape.plainWidth;
    const std::string_view value = bytes.substr(0, width);
    bytes.remove_prefix(width);
    if (flag == '\0' && isValueAsWritten(value, shape)) continue;
    const bool isTimed = flag == '\1' && timed != nullptr && isAllZero(value.substr(slotWidth)) &&
                         timed->isAsWritten(getInt32(value.data()), timedLabel(columns, c, row),
                                            static_cast<std::int32_t>(c));
    if (!isTimed) return false;
  }
  return true;
}

}  // namespace velmora
