// See commands.h.
#include "commands.h"

#include <algorithm>
#include <stdexcept>

namespace velmora::crash {
namespace {

std::string literal(const std::string& type, const std::string& text) {
  if (type != "string") return text;
  const char quote = text.find('\'') == std::string::npos ? '\'' : '"';
  return quote + text + quote;
}

std::string literal(const std::string& type, const Value& value) {
  std::string text = literal(type, value.periods[0].text);
  for (std::size_t i = 1; i < value.periods.size(); ++i) {
    text += " --> " + literal(type, value.periods[i].text);
    text += " @ " + std::to_string(value.periods[i - 1].seconds) + " s";
  }
  return value.repeats ? text + " c" : text;
}

std::string filter(const Command& command) {
  if (!command.where) return "";
  const ColumnPlan& column = columnOf(command.table, command.where->column);
  return command.beforeWhere + "WHERE " + column.name + " = " +
         literal(column.type, command.where->value);
}

std::string definitions(const TablePlan& plan) {
  std::string text;
  for (const ColumnPlan& column : plan.columns) {
    text += " " + column.name + " " + column.type;
    if (column.width != 60) text += "(" + std::to_string(column.width) + ")";
    if (column.maxStates > 0) text += " " + std::to_string(column.maxStates);
  }
  return text;
}

// The conditions of a listener, which hold for every row.
std::string conditions(int count) {
  std::string text;
  for (int i = 0; i < count; ++i) text += (i == 0 ? " WHERE" : " &&") + std::string(" id > 0");
  return text;
}

std::vector<ColumnPlan> broadColumns() {
  constexpr int count = 100;
  std::vector<ColumnPlan> columns;
  for (int i = 0; i < count; ++i) columns.push_back({"c" + std::to_string(i), "int"});
  return columns;
}

std::string assignments(const Command& command) {
  std::string text;
  for (const auto& [column, value] : command.values) {
    text += " " + column + " = " + literal(columnOf(command.table, column).type, value);
  }
  return text;
}

}  // namespace

std::size_t Value::current(std::int64_t second) const {
  std::int64_t elapsed = second - start;
  std::int64_t total = 0;
  for (const Period& period : periods) total += period.seconds;
  if (repeats && total > 0) elapsed %= total;
  std::int64_t end = 0;
  for (std::size_t i = 0; i < periods.size(); ++i) {
    end += periods[i].seconds;
    if (elapsed < end) return i;
  }
  return periods.size() - 1;
}

std::vector<std::string> Value::coming(std::int64_t second) const {
  std::vector<std::string> texts;
  for (std::size_t i = repeats ? 0 : current(second); i < periods.size(); ++i) {
    texts.push_back(periods[i].text);
  }
  return texts;
}

int Value::changes() const {
  if (!isTimed()) return 0;
  return static_cast<int>(periods.size()) - (repeats ? 0 : 1);
}

bool Command::isLogged() const {
  return kind == Kind::createTable || kind == Kind::insert || kind == Kind::update ||
         kind == Kind::erase || kind == Kind::link;
}

std::string Command::text() const {
  switch (kind) {
    case Kind::createTable:
      return "CREATE TABLE " + table + definitions(planOf(table));
    case Kind::dropTable:
      return "DROP TABLE " + table;
    case Kind::insert:
      return "INSERT INTO " + table + assignments(*this);
    case Kind::update:
      return "UPDATE " + table + " SET" + assignments(*this) + filter(*this);
    case Kind::erase:
      return "DELETE FROM " + table + filter(*this);
    case Kind::link:
      return "LINK " + table + "." + column + " --> " + parent + "." + parentColumn;
    case Kind::listen:
      return "LISTEN " + table + ".INSERT --> '" + column + "'" + crash::conditions(conditions);
    case Kind::begin:
      return "BEGIN";
    case Kind::commit:
      return "COMMIT";
    case Kind::rollback:
      return "ROLLBACK";
    case Kind::checkpoint:
      return "CHECKPOINT";
  }
  throw std::logic_error("unknown kind");
}

// Two pairs of linked tables, by an identity and by a text that only the link makes a key; timed
// keys; one table whose rows overlap in its row file; and two that come and go. Then those whose
// files take several pages: by their rows, by their states, and by their columns.
const std::vector<TablePlan>& tablePlans() {
  static const std::vector<TablePlan> plans = {
      {"people", {{"id", "ApexInt"}, {"name", "string"}, {"weight", "float"}}},
      {"orders", {{"person", "int", 3}, {"item", "string", 2}, {"paid", "bool"}}},
      {"codes", {{"code", "string"}, {"worth", "int"}}},
      {"uses", {{"code", "string", 2}, {"note", "string", 0, 12}, {"lamp", "bool", 2}}},
      {"scratch", {{"n", "int"}, {"mark", "string", 3}}},
      {"spare", {{"n", "int", 2}, {"wide", "string", 0, 200}}},
      {"many", {{"owner", "int"}, {"buyer", "int"}}},
      {"slow", {{"n", "int"}, {"phase", "string", 70}}},
      {"broad", broadColumns()},
  };
  return plans;
}

const TablePlan& planOf(const std::string& table) {
  const auto& plans = tablePlans();
  const auto found = std::find_if(plans.begin(), plans.end(),
                                  [&](const TablePlan& plan) { return plan.name == table; });
  if (found == plans.end()) throw std::logic_error("no plan of " + table);
  return *found;
}

const ColumnPlan& columnOf(const std::string& table, const std::string& column) {
  const auto& columns = planOf(table).columns;
  const auto found = std::find_if(columns.begin(), columns.end(),
                                  [&](const ColumnPlan& plan) { return plan.name == column; });
  if (found == columns.end()) throw std::logic_error("no column " + column);
  return *found;
}

}  // namespace velmora::crash
