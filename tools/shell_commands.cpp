// See shell_commands.h.
#include "shell_commands.h"

#include <algorithm>
#include <cctype>
#include <chrono>
#include <set>

#include "complaint.h"
#include "failure.h"
#include "interrupt.h"
#include "output/text.h"
#include "prompt.h"
#include "runner.h"
#include "schema.h"
#include "time_point.h"

namespace tool {
namespace {

constexpr const char* help =
    ".columns TABLE   the columns of a table\n"
    ".exit, .quit     leave; so does the end of input\n"
    ".format FORMAT   box, csv, json, jsonl, markdown or line\n"
    ".help            this list\n"
    ".links           which columns are linked to which\n"
    ".read FILE       run the commands of a file\n"
    ".schedule        what changes next by itself\n"
    ".schema [TABLE]  the commands that make the tables again\n"
    ".tables          the tables and how many rows they have\n"
    ".timing on|off   tell how long commands take\n"
    "Other commands end with \";\" or an empty line; velmora-commands(7) describes them.\n";

constexpr const char* ownNames[] = {".columns", ".exit",   ".format", ".help",
                                    ".links",   ".quit",   ".read",   ".schedule",
                                    ".schema",  ".tables", ".timing"};

constexpr const char* keywords[] = {
    "ASC",    "AT",     "BEGIN",    "BY",        "CHECKPOINT", "COLUMNS", "COMMIT",
    "COUNT",  "CREATE", "DELETE",   "DESC",      "DROP",       "FROM",    "GROUP",
    "INSERT", "INTO",   "JOIN",     "LIMIT",     "LINK",       "LINKS",   "LISTEN",
    "NULL",   "OFFSET", "ON",       "ORDER",     "SCHEDULE",   "SELECT",  "SET",
    "SHOW",   "TABLE",  "TABLES",   "UNLINK",    "UNLISTEN",   "UNTIL",   "UPDATE",
    "VACUUM", "WHERE",  "ROLLBACK", "LISTENERS", "IS",         "NOT"};

std::string counted(std::int64_t count, const std::string& noun) {
  return std::to_string(count) + " " + noun + (count == 1 ? "" : "s");
}

char toSmall(char c) { return static_cast<char>(std::tolower(static_cast<unsigned char>(c))); }

bool beginsLike(std::string_view word, std::string_view typed) {
  return word.size() >= typed.size() &&
         std::equal(typed.begin(), typed.end(), word.begin(),
                    [](char a, char b) { return toSmall(a) == toSmall(b); });
}

}  // namespace

bool ShellCommands::run(const std::string& command) {
  const auto begin = std::chrono::steady_clock::now();
  bool isDone = true;
  try {
    answer(database_.run(command));
  } catch (const velmora::Error& error) {
    flush();
    std::fprintf(stderr, "%s\n", complaintText(error, command).c_str());
    forgetInterrupt();
    isDone = false;
  }
  const std::chrono::duration<double> elapsed = std::chrono::steady_clock::now() - begin;
  if (isTiming_) {
    char text[48];
    std::snprintf(text, sizeof text, "(%.3f s)\n", elapsed.count());
    write(text);
  }
  flush();
  return isDone;
}

void ShellCommands::answer(const velmora::Result& result) const {
  const bool hasRows = result.columns() > 0;
  if (hasRows) print(format_, result);
  if (!isTalking_) return;
  std::string line = counted(result.rowsAffected(), "row");
  if (const auto identity = result.identity()) line += ", number " + std::to_string(*identity);
  if (const auto second = result.nextChange()) line += ", next change " + timeText(*second);
  write(line + "\n");
}

bool ShellCommands::runOwn(std::string_view line) {
  const std::size_t space = std::min(line.find_first_of(" \t"), line.size());
  const std::string name(line.substr(0, space));
  const std::size_t argument = line.find_first_not_of(" \t", space);
  std::string rest(argument == std::string_view::npos ? "" : line.substr(argument));
  rest.erase(rest.find_last_not_of(" \t;") + 1);
  try {
    runOwn(name, rest);
    flush();
    return true;
  } catch (const std::exception& error) {
    flush();
    std::fprintf(stderr, "%s\n", visible(error.what()).c_str());
    return false;
  }
}

void ShellCommands::runOwn(const std::string& name, const std::string& argument) {
  if (name == ".quit" || name == ".exit") {
    hasEnded_ = true;
  } else if (name == ".help") {
    write(help);
  } else if (name == ".tables") {
    print(format_, database_.run("SHOW TABLES"));
  } else if (name == ".links") {
    print(format_, database_.run("SHOW LINKS"));
  } else if (name == ".schedule") {
    print(format_, database_.run("SHOW SCHEDULE"));
  } else if (name == ".columns") {
    print(format_, database_.run("SHOW COLUMNS FROM " + argument));
  } else if (name == ".schema") {
    write(schemaCommands(database_, argument));
  } else if (name == ".format" || name == ".mode") {
    format_ = formatNamed(argument);
  } else if (name == ".timing" || name == ".timer") {
    if (argument != "on" && argument != "off") throw Failure(exitFailed, name + " on or off");
    isTiming_ = argument == "on";
  } else if (name == ".read") {
    if (!runFile(argument)) throw Failure(exitFailed, "Stopped");
  } else {
    throw Failure(exitFailed, "No command " + name + "; .help lists them");
  }
}

bool ShellCommands::runFile(const std::string& name) const {
  RunOptions options;
  options.format = format_;
  return Runner(database_, options).runFile(name);
}

std::vector<std::string> ShellCommands::completions(std::string_view line) const {
  const std::string_view typed = lastWord(line);
  std::set<std::string> words;
  const auto offer = [&](const std::string& word) {
    if (beginsLike(word, typed)) words.insert(word);
  };
  if (line.starts_with('.') && typed == line) {
    for (const char* const name : ownNames) offer(name);
    return {words.begin(), words.end()};
  }
  // In small letters for who types so.
  const bool isSmall = std::none_of(typed.begin(), typed.end(), [](char c) { return c < 'a'; });
  for (std::string keyword : keywords) {
    if (isSmall) std::transform(keyword.begin(), keyword.end(), keyword.begin(), toSmall);
    if (!typed.empty()) offer(keyword);
  }
  for (const velmora::Row& table : database_.run("SHOW TABLES")) {
    const auto name = table.get<std::string>("table");
    offer(name);
    for (const velmora::Row& column : database_.run("SHOW COLUMNS FROM " + name)) {
      offer(column.get<std::string>("column"));
    }
  }
  return {words.begin(), words.end()};
}

}  // namespace tool
