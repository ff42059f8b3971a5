// Bound values as the log of a handle has them: what is written quickly, is read back as the very
// value, and holds neither a zero byte nor an open quote.
//
//   n t f      null, true, false
//   -5         a whole number, in decimal digits
//   x3ff0...   a float: its 64 bits in sixteen hexadecimal digits
//   'it''s'    a text; a quote inside stands doubled
#pragma once

#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "../value.h"

namespace velmora {

// Appends the values, each behind a blank.
void appendValues(std::string& out, std::span<const Value> values);
// Takes such values off the text's beginning, as many as there are; nothing if one is malformed.
std::optional<std::vector<Value>> takeValues(std::string_view& text);

}  // namespace velmora
