// See random_commands.h.
#include "random_commands.h"

#include <array>
#include <span>

namespace velmora::crash {

const ModelLink& peopleLink() {
  static const ModelLink link = {"orders", "person", "people", "id"};
  return link;
}

const ModelLink& codesLink() {
  static const ModelLink link = {"uses", "code", "codes", "code"};
  return link;
}

Command RandomCommands::bare(Kind kind, const std::string& table) {
  Command command;
  command.kind = kind;
  command.table = table;
  command.second = second_;
  return command;
}

Command RandomCommands::next(const Model& model) {
  second_ += upTo(3);
  // The replay of a log without its rollbacks can leave children without parents: clear them away,
  // the rules about them are not what is tested here.
  for (const ModelLink& link : model.live().links) {
    if (!model.live().holds(link, second_)) return bare(Kind::erase, link.child);
  }
  const int choice = upTo(99);
  if (choice < 50) return insert(model);
  if (choice < 70) return update(model);
  if (choice < 78) return erase(model);
  if (choice < 84) return bare(Kind::checkpoint);
  if (choice < 90) return transaction(model);
  return schema(model);
}

std::size_t RandomCommands::anyPlan() {
  return static_cast<std::size_t>(upTo(static_cast<int>(smallTables) - 1));
}

std::string RandomCommands::anyTable(const State& state) {
  const auto& plans = tablePlans();
  const std::string& name = plans[anyPlan()].name;
  if (state.tables.contains(name) || isTrue(2)) return name;
  return state.tables.empty() ? name : state.tables.begin()->first;
}

Command RandomCommands::insert(const Model& model) {
  Command command = bare(Kind::insert, anyTable(model.live()));
  for (const ColumnPlan& column : planOf(command.table).columns) {
    const bool isFirst = command.values.empty();
    if (isFirst || isTrue(85)) {
      command.values.emplace_back(column.name, valueFor(model.live(), command.table, column));
    }
  }
  return command;
}

// Never one that fails: a refused update keeps part of what it did, without a line in the log.
Command RandomCommands::update(const Model& model) {
  Command command = bare(Kind::update, anyTable(model.live()));
  const auto& columns = planOf(command.table).columns;
  const ColumnPlan* column = &columns[static_cast<std::size_t>(upTo(2)) % columns.size()];
  if (column->type == "ApexInt") column = &columns[1];
  command.where = filterFor(model.live(), command.table);
  if (command.table == "codes" && column->name == "code") {
    if (!command.where || command.where->column != "code") column = &columns[1];
  }
  command.values.emplace_back(column->name, valueFor(model.live(), command.table, *column));
  State trial = model.live();
  if (!trial.apply(command, false).succeeded) return bare(Kind::checkpoint);
  return command;
}

Command RandomCommands::erase(const Model& model) {
  Command command = bare(Kind::erase, anyTable(model.live()));
  // A creating access to a table that is not there is not what is tested here.
  if (!model.live().tables.contains(command.table)) return bare(Kind::checkpoint);
  if (isTrue(95)) command.where = filterFor(model.live(), command.table);
  // What a refused delete did before it was refused is not undone by a rollback.
  State trial = model.live();
  const bool isRefused = !trial.apply(command, false).succeeded;
  return isRefused && model.inTransaction() ? bare(Kind::checkpoint) : command;
}

Command RandomCommands::schema(const Model& model) {
  const int choice = upTo(9);
  if (choice < 2) {
    Command command = bare(Kind::listen, "people");
    command.column = "target" + std::to_string(isTrue(80) ? ++targets_ : targets_);
    return command;
  }
  // Links and tables are not undone by a rollback.
  if (model.inTransaction()) return insert(model);
  if (choice < 6) {
    Command command = bare(Kind::createTable, tablePlans()[anyPlan()].name);
    for (const TablePlan& plan : std::span(tablePlans()).first(smallTables)) {
      if (!model.live().tables.contains(plan.name) && isTrue(70)) command.table = plan.name;
    }
    return command;
  }
  if (choice < 7) {
    const std::string table = isTrue(50) ? "scratch" : "spare";
    if (model.live().tables.contains(table)) return bare(Kind::dropTable, table);
  }
  return commandOf(isTrue(50) ? peopleLink() : codesLink(), second_);
}

Command RandomCommands::transaction(const Model& model) {
  if (!model.inTransaction()) return bare(Kind::begin);
  return bare(isTrue(50) ? Kind::commit : Kind::rollback);
}

Value RandomCommands::valueFor(const State& state, const std::string& table,
                               const ColumnPlan& column) {
  Value value = Value::plain(textFor(state, table, column));
  if (column.maxStates < 2 || isTrue(65)) return value;
  const int more = 1 + upTo(column.maxStates - 2);
  for (int i = 0; i < more; ++i) {
    value.periods.back().seconds = 1 + upTo(40);
    value.periods.push_back({textFor(state, table, column), value.periods.back().seconds});
  }
  value.repeats = isTrue(50);
  value.start = second_;
  return value;
}

std::string RandomCommands::textFor(const State& state, const std::string& table,
                                    const ColumnPlan& column) {
  if (table == "orders" && column.name == "person") return keyOf(state, "people");
  if (table == "uses" && column.name == "code") return keyOf(state, "codes");
  if (table == "codes" && column.name == "code") return freshOrFreedCode(state);
  if (column.type == "bool") return isTrue(50) ? "true" : "false";
  if (column.type == "float") return std::to_string(upTo(9)) + (isTrue(50) ? ".5" : ".25");
  if (column.type == "string") return randomText();
  return std::to_string(upTo(20) - 5);
}

// The key of a live row of the table, sometimes one that there is not.
std::string RandomCommands::keyOf(const State& state, const std::string& table) {
  const auto found = state.tables.find(table);
  const std::string none = table == "people" ? "99999" : "none";
  if (found == state.tables.end() || isTrue(3)) return none;
  std::vector<std::string> keys;
  for (const ModelRow& row : found->second.rows) {
    if (!row.isDeleted) keys.push_back(row.cells[0].periods[0].text);
  }
  if (keys.empty()) return none;
  // Few parents get most children, so that others can go.
  return keys[static_cast<std::size_t>(upTo(static_cast<int>(keys.size()) - 1) / 2)];
}

// A deleted row's code may be taken again once the link has made the codes keys.
std::string RandomCommands::freshOrFreedCode(const State& state) {
  const auto found = state.tables.find("codes");
  if (found != state.tables.end() && state.links.contains(codesLink()) && isTrue(40)) {
    for (const ModelRow& row : found->second.rows) {
      const std::string& code = row.cells[0].periods[0].text;
      if (row.isDeleted && !state.hasKeys(codesLink(), {code})) return code;
    }
  }
  return "code" + std::to_string(++codes_);
}

std::string RandomCommands::randomText() {
  static const std::array<std::string, 9> texts = {
      "",
      "red",
      "green",
      "a text of some length, still under sixty bytes",
      "0123456789012345678901234567890123456789012345678901234567890123456789",
      "two\nlines",
      "x\nINSERT INTO people name = \"nobody\"\nDELETE FROM people\n",
      "it's\nCREATE TABLE ghost a int",
      "meet #TIME# unknown",
  };
  return texts[static_cast<std::size_t>(upTo(static_cast<int>(texts.size()) - 1))];
}

// A comparison that some row may satisfy, with a value that the files keep as it is.
std::optional<Comparison> RandomCommands::filterFor(const State& state, const std::string& table) {
  const auto found = state.tables.find(table);
  if (found == state.tables.end() || found->second.rows.empty()) return std::nullopt;
  const auto& rows = found->second.rows;
  const ModelRow& row = rows[static_cast<std::size_t>(upTo(static_cast<int>(rows.size()) - 1))];
  static const std::map<std::string, std::vector<std::string>> columns = {
      {"people", {"id"}}, {"orders", {"person"}},     {"codes", {"code", "worth"}},
      {"uses", {"code"}}, {"scratch", {"n", "mark"}}, {"spare", {"n"}}};
  const auto& names = columns.at(table);
  const std::string& name = names[static_cast<std::size_t>(upTo(9)) % names.size()];
  const std::string& value = row.cells[columnIndex(table, name)].at(second_);
  const bool isPlainText = value.size() <= 60 && value != "#/#?";
  if (!isPlainText) return std::nullopt;
  return Comparison{name, value};
}

}  // namespace velmora::crash
