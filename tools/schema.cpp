// See schema.h.
#include "schema.h"

#include <vector>

namespace tool {
namespace {

std::string createCommand(velmora::Database& database, const std::string& table) {
  std::string command = "CREATE TABLE " + table;
  for (const velmora::Row& column : database.run("SHOW COLUMNS FROM " + table)) {
    command += " " + column.get<std::string>("column") + " " + column.get<std::string>("type");
    if (const auto length = column.get<std::optional<int>>("length")) {
      command += "(" + std::to_string(*length) + ")";
    }
    if (const int states = column.get<int>("states"); states > 0) {
      command += " " + std::to_string(states);
    }
  }
  return command;
}

bool isWanted(const velmora::Row& row, std::string_view column, const std::string& table) {
  return table.empty() || row.get<std::string>(column) == table;
}

}  // namespace

std::string quoted(std::string_view text) {
  std::string literal = "'";
  for (const char c : text) literal.append(c == '\'' ? 2 : 1, c);
  return literal + "'";
}

std::string createCommands(velmora::Database& database, const std::string& table) {
  if (!table.empty()) return createCommand(database, table) + "\n";
  std::string commands;
  for (const velmora::Row& row : database.run("SHOW TABLES")) {
    commands += createCommand(database, row.get<std::string>("table")) + "\n";
  }
  return commands;
}

std::string linkCommands(velmora::Database& database, const std::string& table) {
  std::string commands;
  for (const velmora::Row& row : database.run("SHOW LINKS")) {
    if (!isWanted(row, "child_table", table)) continue;
    const auto text = [&](const char* column) { return row.get<std::string>(column); };
    commands += "LINK " + text("child_table") + "." + text("child_column") + " --> " +
                text("parent_table") + "." + text("parent_column") + "\n";
  }
  return commands;
}

std::string listenCommands(velmora::Database& database, const std::string& table) {
  std::string commands;
  for (const velmora::Row& row : database.run("SHOW LISTENERS")) {
    if (!isWanted(row, "table", table)) continue;
    const auto text = [&](const char* column) { return row.get<std::string>(column); };
    commands += "LISTEN " + text("table") + "." + text("event") + " --> " + quoted(text("target"));
    if (!text("filter").empty()) commands += " WHERE " + text("filter");
    commands += "\n";
  }
  return commands;
}

}  // namespace tool
