// Makes one text of a result or an error, by the functions that every host has. The rows are taken
// from the result's JSON, which is cut where a row ends.
#include "short_answer.h"

#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string_view>

namespace velmora::golden {
namespace {

constexpr std::array<std::string_view, VELMORA_INTERNAL + 1> codeNames = {
    "OK",        "MISUSE",      "BUSY",           "IS_READ_ONLY", "NOT_FOUND",
    "EXISTS",    "DUPLICATE",   "MISSING_PARENT", "RESTRICTED",   "WRONG_TYPE",
    "RANGE",     "SYNTAX",      "FULL",           "CORRUPT",      "IO",
    "NO_MEMORY", "INTERRUPTED", "TRANSACTION",    "IN_USE",       "INTERNAL"};

std::string refusal(const velmora_error* error) {
  const auto code = static_cast<std::size_t>(velmora_error_code(error));
  std::string text = std::string("Error: ") + velmora_error_text(error) + " (";
  text += codeNames.at(code);
  if (const std::int64_t offset = velmora_error_offset(error); offset >= 0) {
    text += ", byte " + std::to_string(offset);
  }
  return text + ")";
}

// The objects behind "data", which hold no objects themselves, each on a line.
std::string rowsOf(std::string_view json) {
  json.remove_prefix(json.find("\"data\": ["));
  std::string lines;
  bool isInText = false;
  bool isInRow = false;
  for (std::size_t i = 0; i < json.size() && (isInText || isInRow || json[i] != ']'); ++i) {
    const char byte = json[i];
    if (byte == '"') isInText = !isInText;
    if (byte == '{' && !isInText) isInRow = true;
    if (isInRow) lines += byte;
    if (byte == '\\') lines += json[++i];
    if (byte != '}' || isInText) continue;
    isInRow = false;
    lines += '\n';
  }
  return lines;
}

std::string counted(const velmora_result* result) {
  const std::int64_t rows = velmora_result_rows_affected(result);
  std::string text = std::to_string(rows) + (rows == 1 ? " row" : " rows");
  std::int64_t number = 0;
  if (velmora_result_identity(result, &number) != 0) text += ", number " + std::to_string(number);
  return text;
}

}  // namespace

std::string shortAnswer(velmora_db* db, const std::string& command) {
  velmora_result* made = nullptr;
  velmora_error* failed = nullptr;
  velmora_run(db, command.data(), command.size(), nullptr, 0, &made, &failed);
  const std::unique_ptr<velmora_result, decltype(&velmora_result_destroy)> result(
      made, velmora_result_destroy);
  const std::unique_ptr<velmora_error, decltype(&velmora_error_destroy)> error(
      failed, velmora_error_destroy);
  if (error != nullptr) return refusal(error.get());
  if (velmora_result_columns(result.get()) == 0) return counted(result.get());
  if (velmora_result_rows(result.get()) == 0) return "(no rows)";
  return rowsOf(velmora_result_json(result.get(), nullptr));
}

}  // namespace velmora::golden
