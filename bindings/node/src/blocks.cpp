// Blocks of rows.
#include "blocks.h"

#include <algorithm>
#include <limits>
#include <string>

#include "errors.h"
#include "texts.h"

namespace velmora_node {
namespace {

constexpr double none = std::numeric_limits<double>::quiet_NaN();
constexpr std::int64_t mostExact = (std::int64_t{1} << 53U) - 1;

// A string that is cut from a block's keeps all of it in memory, so that has to stay small.
constexpr std::size_t mostTextBytes = 64 * 1024;

// The values of a block as the addon's arrays hold them. Texts end where their bytes do.
class BlockWriter {
 public:
  explicit BlockWriter(Addon& addon) : addon_(addon) {
    addon.blockTexts.clear();
    addon.blockTexts.reserve(mostTextBytes);
  }

  // Returns how many of the rows have been written.
  std::size_t write(std::size_t rows, std::size_t columns) {
    const velmora_value* value = addon_.block.data();
    for (std::size_t row = 0; row < rows; ++row) {
      if (addon_.blockTexts.size() > mostTextBytes) return row;
      for (std::size_t column = 0; column < columns; ++column) write(*value++);
    }
    return rows;
  }

  std::size_t end() const { return place_; }

 private:
  void write(const velmora_value& value) {
    switch (value.type) {
      case VELMORA_INTEGER:
        return writeInteger(addon_, place_++, value.integer);
      case VELMORA_REAL:
        return put(value.real);
      case VELMORA_BOOLEAN:
        return put(value.boolean);
      case VELMORA_TEXT:
        addon_.blockTexts.append(value.text, value.text_size);
        return put(static_cast<double>(addon_.blockTexts.size()));
      default:
        return put(none);
    }
  }
  void put(double number) { addon_.scratch.numbers[place_++] = number; }

  Addon& addon_;
  std::size_t place_ = firstValue;
};

// Texts with more than ASCII: in units of 16 bits, their ends counted in these.
napi_value wideTexts(const Call& call, std::size_t end) {
  const Addon& addon = *call.addon;
  std::u16string units;
  std::size_t begin = 0;
  const velmora_value* value = addon.block.data();
  for (std::size_t place = firstValue; place < end; ++place, ++value) {
    if (value->type != VELMORA_TEXT) continue;
    appendUtf16(units, std::string_view(addon.blockTexts).substr(begin, value->text_size));
    begin += value->text_size;
    addon.scratch.numbers[place] = static_cast<double>(units.size());
  }
  napi_value string = nullptr;
  require(call.env, napi_create_string_utf16(call.env, units.data(), units.size(), &string));
  return string;
}

}  // namespace

void writeInteger(Addon& addon, std::size_t place, std::int64_t integer) {
  const bool isExact = -mostExact <= integer && integer <= mostExact;
  addon.scratch.wide[place] = integer;
  addon.scratch.numbers[place] =
      isExact ? static_cast<double>(integer) : std::numeric_limits<double>::infinity();
}

void writeHeader(Addon& addon, const velmora_result* result) {
  double* const numbers = addon.scratch.numbers;
  numbers[rowsInResult] = static_cast<double>(velmora_result_rows(result));
  numbers[changeCount] = static_cast<double>(velmora_result_rows_affected(result));
  std::int64_t number = 0;
  numbers[identity] = none;
  if (velmora_result_identity(result, &number) != 0) writeInteger(addon, identity, number);
  const bool changes = velmora_result_next_change(result, &number) != 0;
  numbers[changesAt] = changes ? static_cast<double>(number) : none;
}

napi_value writeBlock(const Call& call, const velmora_result* result, std::size_t firstRow) {
  Addon& addon = *call.addon;
  const std::size_t columns = velmora_result_columns(result);
  const std::size_t room = addon.scratch.capacity - firstValue;
  if (columns > room) refuse(VELMORA_RANGE, "The answer has too many columns");
  const std::size_t wanted = columns == 0 ? 0 : room / columns;
  if (addon.block.size() < room) addon.block.resize(room);
  const std::size_t there = velmora_result_values(result, firstRow, wanted, addon.block.data());
  BlockWriter writer(addon);
  addon.scratch.numbers[rowsInBlock] = static_cast<double>(writer.write(there, columns));
  if (!isAscii(addon.blockTexts)) return wideTexts(call, writer.end());
  napi_value string = nullptr;
  require(call.env, napi_create_string_latin1(call.env, addon.blockTexts.data(),
                                              addon.blockTexts.size(), &string));
  return string;
}

}  // namespace velmora_node
