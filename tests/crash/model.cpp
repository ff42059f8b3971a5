// See model.h.
#include "model.h"

#include <algorithm>
#include <span>

namespace velmora::crash {
namespace {

const std::string missing = "#/#?";

bool matches(const Command& command, const ModelRow& row) {
  if (row.isDeleted) return false;
  if (!command.where) return true;
  const std::size_t index = columnIndex(command.table, command.where->column);
  return row.cells[index].at(command.second) == command.where->value;
}

bool hasRow(const ModelTable& table, std::size_t column, const std::string& text,
            std::int64_t second) {
  return std::any_of(table.rows.begin(), table.rows.end(), [&](const ModelRow& row) {
    return !row.isDeleted && row.cells[column].at(second) == text;
  });
}

std::string json(const ColumnPlan& column, const std::string& text) {
  if (text == missing) return "null";
  return column.type == "string" ? "\"" + text + "\"" : text;
}

std::string joined(const std::vector<std::string>& parts, const std::string& separator) {
  std::string text;
  for (const std::string& part : parts) text += (text.empty() ? "" : separator) + part;
  return text;
}

// A relation whose LINK command stands in the log is left to that command, and made again behind
// the log where that command could not.
State replayed(State state, const std::set<ModelLink>& relations, std::span<const Command> log,
               std::int64_t second) {
  std::vector<ModelLink> leftToLog;
  for (const ModelLink& link : relations) {
    const bool isLogged = std::any_of(log.begin(), log.end(), [&](const Command& command) {
      return command.kind == Kind::link && linkOf(command) == link;
    });
    if (isLogged) {
      leftToLog.push_back(link);
    } else {
      state.apply(commandOf(link, second), true);
    }
  }
  for (const Command& command : log) state.apply(command, true);
  for (const ModelLink& link : leftToLog) {
    if (!state.links.contains(link)) state.apply(commandOf(link, second), true);
  }
  return state;
}

}  // namespace

ModelLink linkOf(const Command& command) {
  return {command.table, command.column, command.parent, command.parentColumn};
}

Command commandOf(const ModelLink& link, std::int64_t second) {
  Command command;
  command.kind = Kind::link;
  command.table = link.child;
  command.column = link.childColumn;
  command.parent = link.parent;
  command.parentColumn = link.parentColumn;
  command.second = second;
  return command;
}

std::size_t columnIndex(const std::string& table, const std::string& column) {
  return static_cast<std::size_t>(&columnOf(table, column) - planOf(table).columns.data());
}

std::string ModelLink::fileName() const {
  return child + "-" + childColumn + "_" + parent + "-" + parentColumn + ".rel";
}

Effect State::apply(const Command& command, bool isReplayed) {
  switch (command.kind) {
    case Kind::createTable:
      return create(command, isReplayed);
    case Kind::dropTable:
      return {tables.erase(command.table) == 1, 0, 0};
    case Kind::insert:
      return insert(command);
    case Kind::update:
      return update(command);
    case Kind::erase:
      return erase(command);
    case Kind::link:
      return link(command, isReplayed);
    default:
      return {true, 0, 0};
  }
}

Effect State::create(const Command& command, bool isReplayed) {
  if (!isReplayed && tables.contains(command.table)) return {};
  ModelTable table;
  for (const ColumnPlan& column : planOf(command.table).columns) {
    if (column.type == "ApexInt") table.key = column.name;
  }
  tables[command.table] = table;
  return {true, 0, 0};
}

Effect State::insert(const Command& command) {
  const auto found = tables.find(command.table);
  if (found == tables.end()) return {};
  ModelTable& table = found->second;
  const auto& columns = planOf(command.table).columns;
  ModelRow row;
  Effect effect{true, 1, 0};
  for (std::size_t i = 0; i < columns.size(); ++i) {
    Value value = Value::plain(columns[i].type == "int" ? "0" : missing);
    for (const auto& [name, given] : command.values) {
      if (name == columns[i].name) value = given;
    }
    if (columns[i].type == "ApexInt") {
      const int last = table.rows.empty() ? 0 : std::stoi(table.rows.back().cells[i].at(0));
      value = Value::plain(std::to_string(last + 1));
    }
    value.start = command.second;
    effect.changes += value.changes();
    row.cells.push_back(value);
  }
  if (!table.key.empty()) {
    const std::size_t key = columnIndex(command.table, table.key);
    if (hasRow(table, key, row.cells[key].at(command.second), command.second)) return {};
  }
  if (!linkRow(command.table, row, command.second)) return {};
  table.rows.push_back(row);
  return effect;
}

Effect State::update(const Command& command) {
  const auto found = tables.find(command.table);
  if (found == tables.end()) return {};
  const auto& [column, value] = command.values[0];
  const std::size_t index = columnIndex(command.table, column);
  std::vector<ModelRow*> matched;
  for (ModelRow& row : found->second.rows) {
    if (matches(command, row)) matched.push_back(&row);
  }
  Effect effect{true, 0, 0};
  for (ModelRow* row : matched) {
    const std::string old = row->cells[index].at(command.second);
    if (column == found->second.key && old != value.at(command.second) &&
        (isNeeded(command.table, old, command.second) ||
         hasRow(found->second, index, value.at(command.second), command.second))) {
      return {};
    }
    row->cells[index] = value;
    row->cells[index].start = command.second;
    if (!linkRow(command.table, *row, command.second)) return {};
    ++effect.rowsAffected;
    effect.changes += value.changes();
  }
  return effect;
}

Effect State::erase(const Command& command) {
  const auto found = tables.find(command.table);
  if (found == tables.end()) return {true, 0, 0};
  std::vector<ModelRow*> matched;
  for (ModelRow& row : found->second.rows) {
    if (matches(command, row)) matched.push_back(&row);
  }
  Effect effect{true, 0, 0};
  for (ModelRow* row : matched) {
    if (!found->second.key.empty()) {
      const std::size_t key = columnIndex(command.table, found->second.key);
      if (isNeeded(command.table, row->cells[key].at(command.second), command.second)) return {};
    }
    row->isDeleted = true;
    ++effect.rowsAffected;
  }
  return effect;
}

// A key is made of all rows, deleted ones included; at a start a live row wins over those.
Effect State::link(const Command& command, bool isReplayed) {
  const ModelLink made = linkOf(command);
  if (!tables.contains(made.child) || !tables.contains(made.parent)) return {};
  ModelTable& parent = tables[made.parent];
  if (!parent.key.empty() && parent.key != made.parentColumn) return {};
  if (parent.key.empty()) {
    std::set<std::string> keys;
    for (const ModelRow& row : parent.rows) {
      if (row.isDeleted && isReplayed) continue;
      const std::size_t column = columnIndex(made.parent, made.parentColumn);
      if (!keys.insert(row.cells[column].periods[0].text).second) return {};
    }
  }
  parent.key = made.parentColumn;
  if (!holds(made, command.second)) return {};
  links.insert(made);
  for (ModelRow& row : tables[made.child].rows) {
    row.linkedSecond = std::min(row.linkedSecond, command.second);
  }
  return {true, 0, 0};
}

bool State::holds(const ModelLink& link, std::int64_t second) const {
  const auto child = tables.find(link.child);
  if (child == tables.end()) return true;
  const std::size_t index = columnIndex(link.child, link.childColumn);
  const auto& rows = child->second.rows;
  return std::all_of(rows.begin(), rows.end(), [&](const ModelRow& row) {
    return row.isDeleted || hasKeys(link, row.cells[index].coming(second));
  });
}

bool State::hasKeys(const ModelLink& link, const std::vector<std::string>& keys) const {
  const auto parent = tables.find(link.parent);
  if (parent == tables.end()) return false;
  const std::size_t index = columnIndex(link.parent, link.parentColumn);
  return std::all_of(keys.begin(), keys.end(),
                     [&](const std::string& key) { return hasRow(parent->second, index, key, 0); });
}

bool State::linkRow(const std::string& table, ModelRow& row, std::int64_t second) const {
  for (const ModelLink& link : links) {
    const bool isFound =
        link.child != table ||
        hasKeys(link, row.cells[columnIndex(table, link.childColumn)].coming(second));
    if (!isFound) return false;
  }
  row.linkedSecond = std::min(row.linkedSecond, second);
  return true;
}

bool State::isNeeded(const std::string& table, const std::string& key, std::int64_t second) const {
  for (const ModelLink& link : links) {
    const auto child = tables.find(link.child);
    if (link.parent != table || child == tables.end()) continue;
    const std::size_t index = columnIndex(link.child, link.childColumn);
    for (const ModelRow& row : child->second.rows) {
      const auto keys = row.cells[index].coming(std::max(second, row.linkedSecond));
      if (!row.isDeleted && std::find(keys.begin(), keys.end(), key) != keys.end()) return true;
    }
  }
  return false;
}

State State::fromFiles() const {
  State read = *this;
  for (auto& [name, table] : read.tables) {
    const auto& columns = planOf(name).columns;
    for (ModelRow& row : table.rows) {
      row.linkedSecond = ModelRow().linkedSecond;
      for (std::size_t i = 0; i < columns.size(); ++i) {
        for (Value::Period& period : row.cells[i].periods) {
          if (columns[i].type == "string" && period.text.size() > 60) period.text.resize(60);
          if (columns[i].type == "bool" && period.text == missing) period.text = "false";
        }
      }
    }
    table.key = columns[0].type == "ApexInt" ? columns[0].name : "";
  }
  read.links.clear();
  return read;
}

std::optional<std::string> State::select(const std::string& table, std::int64_t second) const {
  const auto found = tables.find(table);
  if (found == tables.end()) return std::nullopt;
  const auto& columns = planOf(table).columns;
  std::vector<std::string> rows;
  for (const ModelRow& row : found->second.rows) {
    if (row.isDeleted) continue;
    std::vector<std::string> members;
    for (std::size_t i = 0; i < columns.size(); ++i) {
      members.push_back("\"" + columns[i].name +
                        "\": " + json(columns[i], row.cells[i].at(second)));
    }
    rows.push_back("    {" + joined(members, ", ") + "}");
  }
  const std::string head = "{\n  \"success\": true,\n  \"message\": \"\",\n  \"rows_affected\": " +
                           std::to_string(rows.size());
  if (rows.empty()) return head + "\n}";
  return head + ",\n  \"data\": [\n" + joined(rows, ",\n") + "\n  ]\n}";
}

Effect Model::run(const Command& command) {
  switch (command.kind) {
    case Kind::checkpoint:
      checkpoint();
      return {true, 0, 0};
    case Kind::begin:
      if (sandbox_) return {};
      sandbox_ = live_;
      return {true, 0, 0};
    case Kind::commit:
    case Kind::rollback:
      if (!sandbox_) return {};
      if (command.kind == Kind::rollback) live_ = *sandbox_;
      sandbox_.reset();
      return {true, 0, 0};
    case Kind::listen:
      listeners.emplace(command.column, command.conditions);
      return {true, 0, 0};
    default:
      break;
  }
  const Effect effect = live_.apply(command, false);
  if (command.kind == Kind::dropTable) dropped_.insert(base_.tables.extract(command.table));
  if (command.isLogged() && effect.succeeded) log_.push_back(command);
  if (command.kind == Kind::link && effect.succeeded) relationFiles_.insert(linkOf(command));
  pendingChanges += effect.changes;
  return effect;
}

void Model::createUnlogged(const Command& command) {
  base_.apply(command, false);
  live_.apply(command, false);
}

void Model::linkUnfiled(const Command& command) {
  std::set<ModelLink> files = relationFiles_;
  run(command);
  relationFiles_ = std::move(files);
}

State Model::afterRestart(std::int64_t second) const {
  return replayed(base_, relationFiles_, log_, second);
}

State Model::afterPowerFailure(std::size_t records, const std::set<std::string>& comeBack,
                               std::int64_t second) const {
  const std::span<const Command> logged = std::span(log_).first(records);
  State state = base_;
  for (const std::string& table : comeBack) state.tables[table] = dropped_.at(table);
  return replayed(std::move(state), durableRelations_, logged, second);
}

std::set<std::string> Model::droppedTables() const {
  std::set<std::string> names;
  for (const auto& [name, table] : dropped_) names.insert(name);
  return names;
}

std::set<std::string> Model::createdTables() const {
  std::set<std::string> names;
  for (const Command& command : log_) {
    if (command.kind == Kind::createTable) names.insert(command.table);
  }
  return names;
}

void Model::checkpoint() {
  base_ = live_.fromFiles();
  log_.clear();
  dropped_.clear();
  relationFiles_.insert(live_.links.begin(), live_.links.end());
  durableRelations_ = relationFiles_;
}

}  // namespace velmora::crash
