// Value: one value of a command or a row, by its type. Whole numbers are 64-bit here and floats
// double; what a column can hold of them is the column's affair.
#pragma once

#include <cstdint>
#include <string>
#include <variant>

namespace velmora {

// Null, a whole number, a float, a bool or a text in UTF-8.
using Value = std::variant<std::monostate, std::int64_t, double, bool, std::string>;

inline bool isNull(const Value& value) noexcept { return value.index() == 0; }

}  // namespace velmora
