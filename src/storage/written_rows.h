// Whether rows that were read from a table's files are, byte for byte, what a checkpoint would
// write of them again. Only then can the next checkpoint leave them alone: a file may come from
// elsewhere, or hold a number that its text does not give back.
#pragma once

#include <cstdint>
#include <span>
#include <string_view>
#include <vector>

#include "../table.h"
#include "table_rows.h"

namespace velmora {

// What the records of a row's timed values bear as the row's number in a column: the row's offset
// in the table file, counted in cells of this column.
std::int32_t timedLabel(const std::vector<Column>& columns, std::size_t column, std::size_t row);

// Whether row number `row`, whose bytes these are, is as the encoder writes it by these shapes.
bool isRowAsWritten(std::string_view bytes, const std::vector<Column>& columns, std::size_t row,
                    std::span<const CellShape> shapes, TimedReader* timed);

}  // namespace velmora
