// The forms for programs: CSV as in RFC 4180 with line feeds, null as nothing and an empty text as
// "", and JSON.
#include <nlohmann/json.hpp>

#include "output/output.h"

namespace tool {
namespace {

std::string_view textOf(const velmora_value& value) { return {value.text, value.text_size}; }

void appendJsonText(std::string& json, std::string_view text) {
  json += nlohmann::json(text).dump(-1, ' ', false, nlohmann::json::error_handler_t::replace);
}

}  // namespace

void appendCsvText(std::string& text, std::string_view field) {
  if (!field.empty() && field.find_first_of("\",\r\n") == std::string_view::npos) {
    text += field;
    return;
  }
  text += '"';
  for (const char c : field) text.append(c == '"' ? 2 : 1, c);
  text += '"';
}

void appendCsvRow(std::string& text, std::span<const velmora_value> values,
                  std::span<const Column> columns) {
  for (std::size_t i = 0; i < values.size(); ++i) {
    if (i > 0) text += ',';
    if (values[i].type == VELMORA_TEXT) {
      appendCsvText(text, textOf(values[i]));
    } else if (values[i].type != VELMORA_NULL) {
      text += numberText(values[i], columns[i]);
    }
  }
  text += '\n';
}

void appendJsonRow(std::string& text, std::span<const velmora_value> values,
                   std::span<const Column> columns) {
  text += '{';
  for (std::size_t i = 0; i < values.size(); ++i) {
    if (i > 0) text += ", ";
    appendJsonText(text, columns[i].name);
    text += ": ";
    if (values[i].type == VELMORA_TEXT) {
      appendJsonText(text, textOf(values[i]));
    } else {
      text += values[i].type == VELMORA_NULL ? "null" : numberText(values[i], columns[i]);
    }
  }
  text += '}';
}

}  // namespace tool
