// See catalogue.h.
#include "copy/catalogue.h"

#include <algorithm>
#include <charconv>

namespace tool {
namespace {

std::string textOf(const velmora::Row& row, std::string_view column) {
  return row.get<std::optional<std::string>>(column).value_or("");
}

std::vector<TableColumn> readColumns(velmora::Database& database, const std::string& table) {
  std::vector<TableColumn> columns;
  for (const velmora::Row& row : database.run("SHOW COLUMNS FROM " + table)) {
    TableColumn& column = columns.emplace_back();
    column.name = textOf(row, "column");
    column.type = textOf(row, "type");
    column.length = row.get<std::optional<std::int64_t>>("length").value_or(0);
    column.states = row.get<std::int64_t>("states");
    column.isKey = row.get<bool>("key");
    column.nextNumber = row.get<std::optional<std::int64_t>>("next_number").value_or(0);
  }
  return columns;
}

template <typename Number>
velmora::Value numberOf(const std::string& text) {
  Number number = 0;
  std::from_chars(text.data(), text.data() + text.size(), number);
  return number;
}

// A state's value from the text in which it is told.
velmora::Value stateValue(const TableColumn& column, std::optional<std::string> text) {
  if (!text) return {};
  if (column.isText()) return *std::move(text);
  if (column.type == "bool") return *text == "true" || *text == "1";
  if (column.type == "double") return numberOf<double>(*text);
  if (column.type != "float") return numberOf<std::int64_t>(*text);
  float number = 0;
  std::from_chars(text->data(), text->data() + text->size(), number);
  return static_cast<double>(number);
}

}  // namespace

const TableColumn* TableShape::key() const {
  const auto found = std::find_if(columns.begin(), columns.end(),
                                  [](const TableColumn& column) { return column.isKey; });
  return found == columns.end() ? nullptr : &*found;
}

const TableColumn* TableShape::column(const std::string& called) const {
  const auto found = std::find_if(columns.begin(), columns.end(),
                                  [&](const TableColumn& column) { return column.name == called; });
  return found == columns.end() ? nullptr : &*found;
}

std::size_t TableShape::position(const TableColumn& column) const {
  return static_cast<std::size_t>(&column - columns.data());
}

bool TableShape::mayBeTimed() const {
  return std::any_of(columns.begin(), columns.end(),
                     [](const TableColumn& column) { return column.states > 0; });
}

const TableShape* Catalogue::table(const std::string& name) const {
  const auto found = std::find_if(tables.begin(), tables.end(),
                                  [&](const TableShape& table) { return table.name == name; });
  return found == tables.end() ? nullptr : &*found;
}

Catalogue readCatalogue(velmora::Database& database) {
  Catalogue catalogue;
  for (const velmora::Row& row : database.run("SHOW TABLES")) {
    const std::string name = textOf(row, "table");
    catalogue.tables.push_back({name, row.get<std::int64_t>("rows"), readColumns(database, name)});
  }
  for (const velmora::Row& row : database.run("SHOW LINKS")) {
    catalogue.links.push_back({textOf(row, "child_table"), textOf(row, "child_column"),
                               textOf(row, "parent_table"), textOf(row, "parent_column")});
  }
  for (const velmora::Row& row : database.run("SHOW LISTENERS")) {
    catalogue.listeners.push_back(
        {textOf(row, "table"), textOf(row, "event"), textOf(row, "target"), textOf(row, "filter")});
  }
  return catalogue;
}

std::int64_t Plan::length() const {
  std::int64_t length = 0;
  for (const PlannedState& state : states) length += state.seconds;
  return length;
}

bool Plan::canBeWritten() const {
  if (states.size() < 2 || start < 0) return false;
  const bool isSound = std::all_of(states.begin(), states.end(), [](const PlannedState& state) {
    return state.seconds > 0 && state.value.index() != 0;
  });
  return isSound && states.back().seconds == states[states.size() - 2].seconds;
}

std::vector<Plan> readPlans(velmora::Database& database, const TableShape& table) {
  std::vector<Plan> plans;
  if (!table.mayBeTimed()) return plans;
  for (const velmora::Row& row : database.run("SHOW STATES FROM " + table.name)) {
    const TableColumn* const column = table.column(row.get<std::string>("column"));
    if (row.get<std::int64_t>("number") == 1) {
      plans.push_back({row.get<std::size_t>("ordinal"),
                       table.position(*column),
                       row.get<std::int64_t>("start"),
                       row.get<bool>("cycles"),
                       {}});
    }
    plans.back().states.push_back(
        {stateValue(*column, row.get<std::optional<std::string>>("value")),
         row.get<std::int64_t>("seconds")});
  }
  return plans;
}

const Plan* PlannedRow::plan(std::size_t column) const {
  const Plan* const found =
      std::find_if(begin, end, [column](const Plan& plan) { return plan.column == column; });
  return found == end ? nullptr : found;
}

}  // namespace tool
