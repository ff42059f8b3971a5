// See answer.h.
#include "answer.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <utility>

#include "json_text.h"

namespace velmora {
namespace {

template <typename Number>
void appendNumber(std::string& json, Number value) {
  char text[32];  // the longest is a double's: -2.2250738585072014e-308
  json.append(text, std::to_chars(text, text + sizeof text, value).ptr);
}

void appendReal(std::string& json, double value, bool isFloat) {
  if (!std::isfinite(value)) {
    json += "null";
  } else if (isFloat) {
    appendNumber(json, static_cast<float>(value));
  } else {
    appendNumber(json, value);
  }
}

void appendString(std::string& json, std::string_view text) {
  json += '"';
  appendJsonText(json, text);
  json += '"';
}

void appendValue(std::string& json, const Answer& answer, const AnswerValue& value, bool isFloat) {
  switch (value.type) {
    case AnswerType::null:
      json += "null";
      return;
    case AnswerType::integer:
      appendNumber(json, value.integer);
      return;
    case AnswerType::real:
      appendReal(json, value.real, isFloat);
      return;
    case AnswerType::boolean:
      json += value.integer != 0 ? "true" : "false";
      return;
    case AnswerType::text:
      appendString(json, answer.text(value));
  }
}

void appendColumns(std::string& json, const std::vector<AnswerColumn>& columns) {
  json += ", \"columns\": [";
  for (const AnswerColumn& column : columns) {
    if (&column != &columns.front()) json += ", ";
    appendString(json, column.name);
  }
  json += ']';
}

// What stands in front of each value of a row.
std::vector<std::string> rowPieces(const std::vector<AnswerColumn>& columns) {
  std::vector<std::string> pieces;
  for (const AnswerColumn& column : columns) {
    std::string& piece = pieces.emplace_back(pieces.empty() ? "{" : ", ");
    appendString(piece, column.name);
    piece += ": ";
  }
  return pieces;
}

void appendRows(std::string& json, const Answer& answer) {
  const std::vector<AnswerColumn>& columns = *answer.columns();
  const std::vector<std::string> pieces = rowPieces(columns);
  json += ", \"data\": [";
  for (std::size_t row = 0; row < answer.rowCount(); ++row) {
    if (row > 0) json += ", ";
    for (std::size_t column = 0; column < columns.size(); ++column) {
      json += pieces[column];
      appendValue(json, answer, answer.at(row, column), columns[column].isFloat);
    }
    json += '}';
  }
  json += ']';
}

void appendNextChange(std::string& json, std::int64_t second) {
  json += ", \"next_change\": ";
  if (second == Answer::never) {
    json += "null";
  } else {
    appendNumber(json, second);
  }
}

}  // namespace

const TimedAnswer* Answer::timedAt(std::size_t row, std::size_t column) const noexcept {
  const auto place = [](const TimedAnswer& one) {
    return std::pair<std::size_t, std::size_t>(one.row, one.column);
  };
  const auto found = std::ranges::lower_bound(timed, std::pair(row, column), {}, place);
  return found != timed.end() && place(*found) == std::pair(row, column) ? &*found : nullptr;
}

std::string renderJson(const Answer& answer) {
  std::string json = "{\"success\": true, \"message\": ";
  appendString(json, answer.message);
  json += ", \"rows_affected\": ";
  appendNumber(json, answer.rowsAffected);
  if (answer.columns() != nullptr) {
    appendColumns(json, *answer.columns());
    appendRows(json, answer);
  }
  if (answer.identity) {
    json += ", \"identity\": ";
    appendNumber(json, *answer.identity);
  }
  if (answer.columns() != nullptr) appendNextChange(json, answer.nextChange);
  return json += '}';
}

}  // namespace velmora
