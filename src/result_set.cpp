// See result_set.h.
#include "result_set.h"

#include "number.h"

namespace velmora {
namespace {

void appendValue(std::string& out, const ResultValue& value) {
  char number[maxNumberText];
  switch (value.index()) {
    case 0:
      out.append(number, writeInt(number, std::get<std::int32_t>(value)));
      break;
    case 1:
      out.append(number, writeGeneral(number, std::get<float>(value)));
      break;
    case 2:
      out += std::get<bool>(value) ? "true" : "false";
      break;
    default:
      const std::string_view text = std::get<Text>(value);
      if (text == "NULL") {
        out += "null";
      } else {
        out += '"';
        out += text;
        out += '"';
      }
  }
}

void appendRows(std::string& out, const ResultSet& result) {
  // What stands before each value: the brace or comma, and the member's name.
  std::vector<std::string> leads;
  leads.reserve(result.columns.size());
  for (const std::string& column : result.columns) {
    leads.push_back((leads.empty() ? "    {\"" : ", \"") + column + "\": ");
  }
  const std::size_t rowCount = result.rowCount();
  const ResultValue* value = result.values.data();
  for (std::size_t row = 0; row < rowCount; ++row) {
    for (const std::string& lead : leads) {
      out += lead;
      appendValue(out, *value++);
    }
    out += row + 1 < rowCount ? "},\n" : "}\n";
  }
}

}  // namespace

ResultSet successful(std::string message, std::int32_t rowsAffected) {
  ResultSet result;
  result.message = std::move(message);
  result.rowsAffected = rowsAffected;
  return result;
}

void renderJson(const ResultSet& result, std::string& out) {
  out = result.success ? "{\n  \"success\": true,\n  \"message\": \""
                       : "{\n  \"success\": false,\n  \"message\": \"";
  out += result.message;
  out += "\",\n  \"rows_affected\": ";
  appendInt(out, result.rowsAffected);
  if (result.columns.empty() || result.values.empty()) {
    out += "\n}";
    return;
  }
  out += ",\n  \"data\": [\n";
  appendRows(out, result);
  out += "  ]\n}";
}

}  // namespace velmora
