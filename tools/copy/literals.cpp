// See literals.h.
#include "copy/literals.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <charconv>

namespace tool {
namespace {

// What no name may be, in any case: the language's words; and the types, which columns may not be
// called.
constexpr std::array<std::string_view, 40> takenWords = {
    "BY",         "IS",     "ON",      "NOT",    "SET",    "DROP",   "FROM",     "INTO",
    "JOIN",       "LINK",   "NULL",    "SHOW",   "TRUE",   "BEGIN",  "FALSE",    "GROUP",
    "LIMIT",      "ORDER",  "TABLE",   "WHERE",  "COMMIT", "CREATE", "DELETE",   "INSERT",
    "LISTEN",     "OFFSET", "SELECT",  "UNLINK", "UPDATE", "VACUUM", "ROLLBACK", "UNLISTEN",
    "CHECKPOINT", "INT",    "APEXINT", "FLOAT",  "BOOL",   "STRING", "LONG",     "DOUBLE"};
constexpr std::size_t longestName = 15;

}  // namespace

std::string quotedText(std::string_view text) {
  std::string quoted = "'";
  for (const char c : text) quoted.append(c == '\'' ? 2 : 1, c);
  return quoted + "'";
}

std::string realText(double number, const TableColumn& column) {
  std::array<char, 64> room;
  char* const end = room.data() + room.size();
  const auto written = column.type == "float"
                           ? std::to_chars(room.data(), end, static_cast<float>(number))
                           : std::to_chars(room.data(), end, number);
  return {room.data(), written.ptr};
}

std::string literal(const velmora::Value& value, const TableColumn& column) {
  if (const auto* const whole = std::get_if<std::int64_t>(&value)) return std::to_string(*whole);
  if (const auto* const real = std::get_if<double>(&value)) return realText(*real, column);
  if (const auto* const truth = std::get_if<bool>(&value)) return *truth ? "true" : "false";
  if (const auto* const text = std::get_if<std::string>(&value)) return quotedText(*text);
  return "NULL";
}

std::string literal(const Plan& plan, const TableColumn& column) {
  std::string text = "(" + literal(plan.states.front().value, column);
  for (std::size_t i = 1; i < plan.states.size(); ++i) {
    text += " --> " + literal(plan.states[i].value, column) + " @ " +
            std::to_string(plan.states[i - 1].seconds) + " s";
  }
  return text + (plan.cycles ? " c)" : ")");
}

std::string createCommand(const TableShape& table) {
  std::string text = "CREATE TABLE " + table.name;
  for (const TableColumn& column : table.columns) {
    text += " " + column.name + " " + column.type;
    if (column.isText()) text += "(" + std::to_string(column.length) + ")";
    if (column.states > 0) text += " " + std::to_string(column.states);
  }
  return text;
}

std::string linkCommand(const LinkShape& link) {
  return "LINK " + link.childTable + "." + link.childColumn + " --> " + link.parentTable + "." +
         link.parentColumn;
}

std::string listenCommand(const ListenerShape& listener) {
  return "LISTEN " + listener.table + "." + listener.event + " --> " + quotedText(listener.target) +
         (listener.filter.empty() ? "" : " WHERE ") + listener.filter;
}

bool isFreeName(std::string_view name) {
  if (name.empty() || name.size() > longestName) return false;
  const auto isPart = [](char c) {
    return c == '_' || (c >= '0' && c <= '9') || (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z');
  };
  if (!std::all_of(name.begin(), name.end(), isPart) || (name[0] >= '0' && name[0] <= '9')) {
    return false;
  }
  std::string capitals;
  for (const char c : name) capitals += c >= 'a' && c <= 'z' ? static_cast<char>(c - 32) : c;
  return std::find(takenWords.begin(), takenWords.end(), capitals) == takenWords.end();
}

}  // namespace tool
