// ResultSet: what one command answers, and its JSON form.
#pragma once

#include <cstdint>
#include <string>
#include <variant>
#include <vector>

#include "text.h"

namespace velmora {

// One value of an answer. A text equal to "NULL" stands for no value.
using ResultValue = std::variant<std::int32_t, float, bool, Text>;

struct ResultSet {
  bool success = true;
  std::string message;
  std::vector<std::string> columns;
  // The values row by row, columns.size() of them to a row: one allocation for all rows.
  std::vector<ResultValue> values;
  std::int32_t rowsAffected = 0;

  std::size_t rowCount() const noexcept {
    return columns.empty() ? 0 : values.size() / columns.size();
  }
  const ResultValue& at(std::size_t row, std::size_t column) const {
    return values[row * columns.size() + column];
  }
};

ResultSet successful(std::string message, std::int32_t rowsAffected = 0);

// Replaces out by the answer as JSON. Texts are put in as they are, without escaping; the text does
// not end with a line feed. On std::bad_alloc out holds some beginning of it.
void renderJson(const ResultSet& result, std::string& out);

}  // namespace velmora
