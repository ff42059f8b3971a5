// See strict_commands.h.
#include "strict_commands.h"

#include <algorithm>
#include <array>

namespace velmora::handles {
namespace {

// Longer than a page of the log, and what looks like the end of a record.
std::string longText() { return std::string(5000, 'x') + "'' #TIME# 1 2 0badcafe\n\"y\""; }

struct Definition {
  const char* table;
  const char* columns;
};
constexpr std::array<Definition, 4> definitions = {
    {{"people",
      "id ApexInt n int name string code string(20) note string(6000) colour string(20) 3 "
      "f float d double l long b bool"},
     {"codes", "code string(20) n int"},
     {"visits", "n int person int level int 4 note string(300)"},
     {"scratch", "id ApexInt n int s string"}}};
const std::vector<std::string> links = {"people.code --> codes.code",
                                        "visits.person --> people.id"};
const std::vector<std::string> listeners = {"people.INSERT --> 'hook'", "visits.change --> 'there'",
                                            "scratch.x --> 'y'"};

std::string creation(const Definition& definition) {
  return std::string("CREATE TABLE ") + definition.table + " " + definition.columns;
}

}  // namespace

bool isCheckpoint(std::string_view command) {
  return command.starts_with("CHECKPOINT") || command.starts_with("VACUUM");
}

std::vector<StrictCommand> StrictCommands::preparation() {
  std::vector<StrictCommand> commands;
  for (const Definition& each : definitions) commands.push_back({creation(each), {}});
  for (const std::string& link : links) commands.push_back({"LINK " + link, {}});
  commands.push_back({"LISTEN people.INSERT --> 'hook' WHERE name = 'it''s' || n > 3", {}});
  for (const char* const code : {"a", "b", "c"}) {
    commands.push_back({"INSERT INTO codes code = ? n = 1", {std::string(code)}});
  }
  commands.push_back(
      {"INSERT INTO people n = 1 name = 'it''s' code = 'a' note = ? f = 0.1 d = 1e300 "
       "l = 9007199254740993 b = true colour = 'red' --> 'green' @ 10 s --> 'blue' @ 5 s c",
       {longText()}});
  commands.push_back({"INSERT INTO people code = 'b'", {}});
  commands.push_back({"INSERT INTO visits n = 0 person = 1 level = 1 --> 2 @ 7 s --> 9 @ 1 h", {}});
  commands.push_back({"INSERT INTO scratch n = 1 s = 'gone'", {}});
  commands.push_back({"DELETE FROM scratch", {}});
  // Nulls, long texts and timed values come, go and stay, in the files and behind them.
  commands.push_back({"CHECKPOINT", {}});
  commands.push_back({"UPDATE people SET n = NULL note = 'short' WHERE n = 1", {}});
  commands.push_back(
      {"UPDATE people SET b = false colour = 'x' --> 'y' @ 5 s WHERE code = 'b'", {}});
  commands.push_back({"INSERT INTO scratch s = '#/#?'", {}});
  commands.push_back({"CHECKPOINT", {}});
  commands.push_back({"UPDATE people SET n = 1 note = ? WHERE code = 'a'", {longText()}});
  commands.push_back({"UPDATE people SET n = 2 colour = 'z' WHERE code = 'b'", {}});
  commands.push_back({"UPDATE scratch SET n = 4", {}});
  commands.push_back({"DELETE FROM visits", {}});
  commands.push_back({"CHECKPOINT", {}});
  return commands;
}

int StrictCommands::upTo(int most) { return std::uniform_int_distribution<int>(0, most)(random_); }

template <typename T>
T StrictCommands::oneOf(const std::vector<T>& choices) {
  return choices[static_cast<std::size_t>(upTo(static_cast<int>(choices.size()) - 1))];
}

std::string StrictCommands::table() { return definitions[static_cast<std::size_t>(upTo(3))].table; }

std::string StrictCommands::number() { return upTo(5) == 0 ? "NULL" : std::to_string(upTo(9)); }

std::string StrictCommands::text() {
  return oneOf<std::string>({"NULL", "''", "'a'", "'it''s'", "'NULL'", "'#/#?'", "'x\ny'",
                             "' #TIME# 3 4 00000000'", "'\xc3\xa4'"});
}

// A value, or some states of a timed one.
std::string StrictCommands::timed(const std::vector<std::string>& states) {
  std::string value = oneOf(states);
  const int more = upTo(2);
  for (int i = 0; i < more; ++i) {
    value += " --> " + oneOf(states) + " @ " + std::to_string(1 + upTo(20)) + " s";
  }
  return more > 0 && upTo(1) == 0 ? value + " c" : value;
}

std::string StrictCommands::filter() {
  if (upTo(7) == 0) return "";
  return " WHERE n " + oneOf<std::string>({"=", "<", ">=", "!="}) + " " + std::to_string(upTo(9));
}

StrictCommand StrictCommands::insert() {
  const std::string into = table();
  StrictCommand command = {"INSERT INTO " + into + " n = " + number(), {}};
  if (into == "codes") command.text += " code = '" + oneOf<std::string>({"a", "b", "c", "d"}) + "'";
  if (into == "scratch") command.text += " s = " + text();
  if (into == "visits") {
    command.text += " person = " + number() + " level = " + timed({"1", "2", "NULL", "-7"});
    if (upTo(1) == 0) command.text += " note = " + text();
  }
  if (into != "people") return command;
  command.text += " name = " + text() +
                  " d = ? l = ? b = ? colour = " + timed({"'red'", "'green'", "''", "'it''s'"});
  command.values = {oneOf<Value>({0.1, -0.0, 5e-324, Value()}),
                    oneOf<Value>({std::int64_t{1} << 62, std::int64_t{-1}, Value()}),
                    oneOf<Value>({true, false, Value()})};
  if (upTo(1) == 0) command.text += " code = '" + oneOf<std::string>({"a", "b", "c", "d"}) + "'";
  if (upTo(3) > 0) return command;
  command.text += " note = ? f = 0.3";
  command.values.emplace_back(longText());
  return command;
}

StrictCommand StrictCommands::update() {
  const std::vector<StrictCommand> choices = {
      {"UPDATE people SET name = " + text() + " colour = " + timed({"'a'", "'b'"}) + filter(), {}},
      {"UPDATE people SET code = " + text() + " n = " + number() + filter(), {}},
      {"UPDATE people SET note = ?" + filter(), {longText()}},
      {"UPDATE codes SET code = 'e' n = 5" + filter(), {}},
      {"UPDATE visits SET person = " + number() + " level = " + timed({"3", "4"}) + filter(), {}},
      {"UPDATE scratch SET s = " + text() + filter(), {}}};
  return oneOf(choices);
}

StrictCommand StrictCommands::command() {
  const int kind = upTo(99);
  if (kind < 45) return insert();
  if (kind < 63) return update();
  if (kind < 73) return {"DELETE FROM " + table() + filter(), {}};
  if (kind < 76) return {"DROP TABLE " + table(), {}};
  if (kind < 84) return {creation(definitions[static_cast<std::size_t>(upTo(3))]), {}};
  if (kind < 90) return {"LINK " + oneOf(links), {}};
  if (kind < 92) return {"UNLINK " + oneOf(links), {}};
  if (kind < 97) return {"LISTEN " + oneOf(listeners) + (upTo(1) == 0 ? "" : filter()), {}};
  return {"UNLISTEN " + oneOf(listeners), {}};
}

Call StrictCommands::next(bool isInTransaction) {
  const int kind = upTo(99);
  if (kind < 8) return {{isInTransaction ? "COMMIT" : "BEGIN", {}}};
  if (kind < 12) return {{"ROLLBACK", {}}};
  if (kind < 14) return {{"VACUUM", {}}};
  if (kind < 15) return {{"VACUUM " + table(), {}}};
  if (kind < 21) return {{"CHECKPOINT", {}}};
  if (kind < 28) return {command(), command(), command()};
  return {command()};
}

}  // namespace velmora::handles
