// How a stored text becomes a value of an answer.
#pragma once

#include <cstdint>

#include "../cell.h"
#include "../result_set.h"

namespace velmora {

// The cell's value at the second `now` by its column's kind; "NULL" when none was given. Throws
// std::invalid_argument or std::out_of_range ("stoi", "stof") for a text that does not convert.
ResultValue resultValueOf(const Cell& cell, ValueKind kind, std::int64_t now);

}  // namespace velmora
