// Fields read as values: numbers, bools and dates.
#ifndef VELMORA_TOOLS_LOAD_VALUES_H
#define VELMORA_TOOLS_LOAD_VALUES_H

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "copy/catalogue.h"
#include "load/input.h"
#include "velmora/velmora.h"

namespace tool {

std::optional<std::int64_t> wholeOf(std::string_view text);
// Finite, and written with digits.
std::optional<double> realOf(std::string_view text);
// true and false, in any case.
std::optional<bool> boolOf(std::string_view text);
// The second of a date, or of a date and time, in UTC unless it says otherwise: "2027-01-31",
// "2027-01-31T10:00", "2027-01-31 10:00:00+02:00"; or in another form, written as for strptime.
std::optional<std::int64_t> secondOf(std::string_view text, const std::string& form);

// What a column of a table takes from a field of the input.
struct Target {
  TableColumn column;
  std::size_t field = 0;  // its place in the record
  bool isDate = false;    // becomes seconds
  std::string dateForm;   // empty: the usual one
};

// Throws BadInput for what the column cannot hold.
velmora_value valueOf(const Field& field, const Target& target);

}  // namespace tool

#endif
