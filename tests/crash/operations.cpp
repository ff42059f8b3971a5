// See operations.h.
#include "operations.h"

#include "model.h"
#include "random_commands.h"

namespace velmora::crash {
namespace {

constexpr std::uintmax_t pageSize = 4096;

Value plain(const std::string& text) { return Value::plain(text); }

ModelLink manyLink(const std::string& column) { return {"many", column, "people", "id"}; }

// More than a page, of lines that each look like a command of their own.
std::string longText() {
  std::string text;
  while (text.size() < 2 * pageSize) text += "a line\nDELETE FROM people\n";
  return text;
}

// So many rows that the relation file of a link from them takes more than a page.
void addManyRows(std::vector<Command>& commands) {
  constexpr int count = 1015;
  for (int i = 0; i < count; ++i) {
    const std::string person = std::to_string(1 + i % 2);
    commands.push_back(insertInto("many", {{"owner", plain(person)}, {"buyer", plain("1")}}));
  }
}

}  // namespace

Command schemaCommand(Kind kind, const std::string& table) {
  Command command;
  command.kind = kind;
  command.table = table;
  return command;
}

Command insertInto(const std::string& table, const std::vector<Assignment>& values) {
  Command command = schemaCommand(Kind::insert, table);
  command.values = values;
  return command;
}

Command updateOf(const std::string& table, const Assignment& value, const Comparison& where) {
  Command command = schemaCommand(Kind::update, table);
  command.values = {value};
  command.where = where;
  return command;
}

Command eraseFrom(const std::string& table, const Comparison& where) {
  Command command = schemaCommand(Kind::erase, table);
  command.where = where;
  return command;
}

Command listenTo(const std::string& target, int conditions) {
  Command command = schemaCommand(Kind::listen, "people");
  command.column = target;
  command.conditions = conditions;
  return command;
}

Value timed(const std::string& first, const std::string& second, bool repeats) {
  return {{{first, 20}, {second, 20}}, repeats, 0};
}

Value phases(int count) {
  Value value;
  for (int i = 0; i < count; ++i) value.periods.push_back({"phase " + std::to_string(i), 20});
  value.repeats = true;
  return value;
}

std::vector<Command> smallPreparation() {
  return {
      schemaCommand(Kind::createTable, "people"),
      schemaCommand(Kind::createTable, "orders"),
      schemaCommand(Kind::createTable, "codes"),
      schemaCommand(Kind::createTable, "uses"),
      schemaCommand(Kind::createTable, "scratch"),
      schemaCommand(Kind::createTable, "slow"),
      insertInto("people", {{"name", plain("Ann")}, {"weight", plain("60.5")}}),
      insertInto("people", {{"name", plain("Bob")}}),
      insertInto("codes", {{"code", plain("a")}, {"worth", plain("1")}}),
      commandOf(peopleLink(), 0),
      insertInto("orders", {{"person", timed("1", "2", false)}, {"item", plain("two\nlines")}}),
      insertInto("orders", {{"person", plain("1")}, {"item", timed("pen", "ink", true)}}),
      insertInto("scratch", {{"n", plain("1")}, {"mark", timed("x", "y", true)}}),
      insertInto("scratch", {{"n", plain("2")}, {"mark", plain("z")}}),
      insertInto("uses", {{"code", plain("a")}, {"note", plain("a text of over twelve bytes")}}),
      insertInto("slow", {{"n", plain("1")}, {"phase", phases(70)}}),
      listenTo("first", 0),
  };
}

std::vector<Command> loggedPreparation() {
  return {
      insertInto("uses", {{"code", plain("b")}, {"lamp", timed("true", "false", true)}}),
      insertInto("codes", {{"code", plain("b")}}),
      updateOf("orders", {"item", timed("cap", "hat", false)}, {"person", "1"}),
      eraseFrom("scratch", {"n", "2"}),
      insertInto("people", {{"name", plain("Cid")}}),
      insertInto("slow", {{"n", plain("2")}, {"phase", phases(3)}}),
  };
}

std::vector<Command> preparation() {
  std::vector<Command> commands = smallPreparation();
  commands.push_back(schemaCommand(Kind::createTable, "many"));
  addManyRows(commands);
  commands.push_back(commandOf(manyLink("owner"), 0));
  commands.push_back(checkpointCommand());
  const std::vector<Command> logged = loggedPreparation();
  commands.insert(commands.end(), logged.begin(), logged.end());
  return commands;
}

std::vector<Command> rolledBackChanges() {
  return {
      schemaCommand(Kind::begin, ""),
      insertInto("codes", {{"code", plain("rolled back")}}),
      eraseFrom("people", {"id", "3"}),
      schemaCommand(Kind::rollback, ""),
  };
}

std::vector<Command> rollbackOfStoredRows() {
  return {
      schemaCommand(Kind::begin, ""),
      insertInto("codes", {{"code", plain("stored")}}),
      insertInto("codes", {{"code", plain("stored too")}}),
      insertInto("orders", {{"person", timed("1", "2", true)}, {"item", plain("pen")}}),
      checkpointCommand(),
      schemaCommand(Kind::rollback, ""),
      insertInto("codes", {{"code", plain("another")}}),
      updateOf("scratch", {"mark", timed("v", "w", false)}, {"n", "1"}),
  };
}

std::vector<Command> laterCommands() {
  return {
      insertInto("codes", {{"code", plain("later")}, {"worth", plain("9")}}),
      insertInto("orders", {{"person", plain("2")}, {"item", timed("late", "later", true)}}),
      updateOf("people", {"weight", plain("1.5")}, {"id", "1"}),
      eraseFrom("orders", {"item", "cap"}),
      schemaCommand(Kind::dropTable, "scratch"),
      schemaCommand(Kind::createTable, "scratch"),
      insertInto("scratch", {{"n", plain("3")}, {"mark", timed("new", "newer", true)}}),
  };
}

std::vector<Operation> operations() {
  Command update = updateOf("people", {"name", plain("A")}, {"id", "1"});
  update.beforeWhere = "\n";
  return {
      {"Checkpoint", checkpointCommand()},
      {"CheckpointOfFewerRows", checkpointCommand(), false, false, true},
      {"Stop", std::nullopt},
      {"CreateTable", schemaCommand(Kind::createTable, "spare")},
      {"CreateBroadTable", schemaCommand(Kind::createTable, "broad")},
      {"DropTable", schemaCommand(Kind::dropTable, "slow")},
      {"Link", commandOf(codesLink(), 0)},
      {"LinkOfManyRows", commandOf(manyLink("buyer"), 0)},
      {"Insert", insertInto("uses", {{"code", timed("a", "b", true)}, {"lamp", plain("true")}})},
      {"InsertLongText", insertInto("codes", {{"code", plain(longText())}})},
      {"InsertManyStates", insertInto("slow", {{"phase", phases(70)}})},
      {"Update", updateOf("scratch", {"mark", timed("p", "q", false)}, {"n", "1"})},
      {"UpdateOverPages", update, false, true},
      {"UpdateOverFirstPages", update, true, true},
      {"Delete", eraseFrom("scratch", {"n", "1"})},
      {"Listen", listenTo("second", 0)},
      {"ListenWithManyConditions", listenTo("second", 100)},
  };
}

std::vector<Operation> operationsThatMayFail() {
  std::vector<Operation> all = operations();
  std::erase_if(all, [](const Operation& operation) {
    return operation.command && operation.command->kind == Kind::dropTable;
  });
  return all;
}

Command Operation::commandIn(const std::filesystem::path& directory) const {
  if (!endsPageBeforeWhere) return command.value_or(checkpointCommand());
  Command aligned = *command;
  const std::uintmax_t logSize = std::filesystem::file_size(directory / "velmora.wal");
  const std::uintmax_t cut = logSize + aligned.text().find(aligned.beforeWhere + "WHERE") + 1;
  aligned.values[0].second.periods[0].text.append(pageSize - cut % pageSize, 'x');
  return aligned;
}

std::ostream& operator<<(std::ostream& stream, const Operation& operation) {
  return stream << operation.name;
}

}  // namespace velmora::crash
