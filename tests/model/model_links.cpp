// The model's links: a child's keys must be keys of the parent, and keep its rows from going.
//
// Relies on matching to find parents; a parent row remembers the child rows that were linked to it,
// and asks them anew each time whether they still refer to it.
#include <algorithm>

#include "model/model.h"
#include "model/values.h"

namespace model {

Result Model::link(const std::string& child, const Link& wanted) {
  if (tables.count(child) == 0 || tables.count(wanted.parent) == 0) fail("None existant table");
  Table& childTable = tables[child];
  Table& parentTable = tables[wanted.parent];
  const auto childColumn = childTable.find(wanted.column);
  const auto parentColumn = parentTable.find(wanted.parentColumn);
  if (!childColumn || !parentColumn) fail("Key does not exist");
  const std::string& childType = childTable.columns[*childColumn].type;
  const std::string& parentType = parentTable.columns[*parentColumn].type;
  if (childType != parentType && !(isWhole(childType) && isWhole(parentType))) {
    fail("Type mismatch: Cannot link different data types");
  }
  for (const std::string& type : {childType, parentType}) {
    if (type != "float" && type != "bool") continue;
    fail("Error: Floats and Booleans are volatile and cannot be used as Primary or Foreign Keys.");
  }
  if (parentTable.keyColumn != wanted.parentColumn) {
    if (!parentTable.keyColumn.empty()) fail("Can't have two primary keys at once");
    makeKey(parentTable, wanted.parentColumn);
  }
  std::vector<std::pair<std::size_t, std::size_t>> pairs;
  for (std::size_t i = 0; i < childTable.rows.size(); ++i) {
    if (childTable.rows[i].deleted) continue;
    for (const std::string& key : keyTexts(childTable.rows[i].values[*childColumn])) {
      const auto parents = partners(wanted, key);
      if (parents.empty()) fail("CRITICAL CORRUPTION: Missing active parent key: " + key);
      for (const std::size_t parent : parents) pairs.emplace_back(i, parent);
    }
  }
  for (const auto& [row, parent] : pairs) refer({child, wanted.column}, row, wanted, parent);
  relations_[child + "-" + wanted.column + "_" + wanted.parent + "-" + wanted.parentColumn] = {
      child, wanted};
  const auto& known = childTable.links;
  if (std::find(known.begin(), known.end(), wanted) == known.end()) {
    childTable.links.push_back(wanted);
  }
  return answer("success!", 0);
}

// Every key that a value holds now or in a later state.
std::vector<std::string> Model::keyTexts(const Value& value) const {
  if (!value.schedule) return {value.text};
  const Schedule& schedule = *value.schedule;
  std::vector<std::string> texts;
  const std::size_t first = schedule.cycles ? 0 : currentState(schedule, now);
  for (std::size_t i = first; i < schedule.states.size(); ++i) {
    texts.push_back(schedule.states[i].text);
  }
  return texts;
}

std::set<std::size_t> Model::partners(const Link& link, const std::string& key) const {
  Condition condition;
  condition.column = link.parentColumn;
  condition.operation = "=";
  condition.literal = key;
  return matching(tables.at(link.parent), {condition});
}

void Model::refer(const ChildColumn& child, std::size_t row, const Link& link, std::size_t parent) {
  Row& parentRow = tables[link.parent].rows[parent];
  parentRow.dependents[child].insert(row);
  parentRow.referenced = true;
}

// Checks every link of a row before it records any.
void Model::linkRow(const std::string& name, std::size_t index) {
  const Table& table = tables[name];
  std::vector<std::pair<Link, std::size_t>> found;
  for (const Link& link : table.links) {
    const auto parent = tables.find(link.parent);
    if (parent == tables.end() || parent->second.rows.empty()) fail("Primary table is empty");
    for (const std::string& key : keyTexts(table.rows[index].values[*table.find(link.column)])) {
      const auto parents = partners(link, key);
      if (parents.empty()) fail("Primary table is missing required future key: " + key);
      for (const std::size_t row : parents) found.emplace_back(link, row);
    }
  }
  for (const auto& [link, parent] : found) refer({name, link.column}, index, link, parent);
}

bool Model::isRestricted(Row& parent, const std::string& key) {
  if (parent.dependents.empty()) parent.referenced = false;
  for (const auto& [child, rows] : parent.dependents) {
    const auto table = tables.find(child.first);
    if (table == tables.end()) continue;
    const auto column = table->second.find(child.second);
    if (!column) continue;
    for (const std::size_t index : rows) {
      if (index >= table->second.rows.size() || table->second.rows[index].deleted) continue;
      for (const std::string& text : keyTexts(table->second.rows[index].values[*column])) {
        if (text == key) return true;
      }
    }
  }
  return false;
}

// Takes one row of a child table, or all of them, out of what its parents remember.
void Model::forget(const std::string& child, std::optional<std::size_t> index) {
  for (auto& [name, table] : tables) {
    for (Row& row : table.rows) {
      for (auto& [column, rows] : row.dependents) {
        if (column.first == child && index) rows.erase(*index);
        if (column.first == child && !index) rows.clear();
      }
      std::erase_if(row.dependents, [](const auto& entry) { return entry.second.empty(); });
    }
  }
}

}  // namespace model
