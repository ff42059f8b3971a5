// The model's reading side: values, matching, select and join.
//
// Everything is a walk. Only the key map is consulted where a condition names the key, because a
// timed key stays in it under the text that it had when it was filed, and that can be seen.
#include "model/model.h"
#include "model/values.h"

namespace model {

namespace {

[[noreturn]] void failNotFound(const std::string& column) {
  fail("Column '" + column + "' not found in either table.");
}

// An OR of ANDs: "&&" binds tighter than "||".
std::vector<std::vector<Condition>> groupsOf(const std::vector<Condition>& conditions) {
  std::vector<std::vector<Condition>> groups(1);
  for (std::size_t i = 0; i < conditions.size(); ++i) {
    if (i > 0 && conditions[i].opensGroup) groups.emplace_back();
    groups.back().push_back(conditions[i]);
  }
  return groups;
}

bool isRangeEnd(const std::string& operation) {
  const std::set<std::string> operations = {"=", "==", "<", ">", "<=", ">="};
  return operations.count(operation) == 1;
}

}  // namespace

std::string Model::current(const Value& value) const {
  if (!value.schedule) return value.text;
  return value.schedule->states[currentState(*value.schedule, now)].text;
}

std::string Model::shown(const Table& table, const Row& row, std::size_t column) const {
  const std::string text = current(row.values[column]);
  const std::string& type = table.columns[column].type;
  if (text == missing) return "null";
  if (isWhole(type)) return std::to_string(std::stoi(text));
  if (type == "float") return printed("%g", std::stof(text));
  if (type == "bool") return text == "true" || text == "1" ? "true" : "false";
  return text == "NULL" ? "null" : "\"" + text + "\"";
}

std::set<std::size_t> Model::matching(const Table& table, const Conditions& conditions) const {
  std::set<std::size_t> matched;
  for (const Conditions& group : groupsOf(conditions)) {
    for (const std::size_t index : candidates(table, group)) {
      const Row& row = table.rows[index];
      bool all = !row.deleted;
      for (std::size_t i = 0; all && i < group.size(); ++i) all = satisfies(table, row, group[i]);
      if (all) matched.insert(index);
    }
  }
  return matched;
}

// The rows that the key conditions of a group leave, in the order in which they are visited.
std::vector<std::size_t> Model::candidates(const Table& table, const Conditions& group) const {
  bool keyed = false;
  const KeyIndex& keys = table.keys;
  auto first = keys.begin();
  auto last = keys.end();
  std::optional<std::string> equal;
  for (const Condition& condition : group) {
    if (table.keyColumn.empty() || condition.column != table.keyColumn) continue;
    keyed = true;
    const std::string& literal = condition.literal;
    if (condition.operation == "=" || condition.operation == "==") {
      if (equal && *equal != literal) return {};
      equal = literal;
    }
    if (isRangeEnd(condition.operation)) checkKey(keys, literal);
    if (condition.operation == "=" || condition.operation == "==") {
      first = keys.lower_bound(literal);
      if (first == keys.end() || keys.key_comp()(literal, first->first)) return {};
      last = std::next(first);
    }
    if (condition.operation == ">") first = keys.upper_bound(literal);
    if (condition.operation == ">=") first = keys.lower_bound(literal);
    if (condition.operation == "<") last = keys.lower_bound(literal);
    if (condition.operation == "<=") last = keys.upper_bound(literal);
  }
  std::vector<std::size_t> found;
  if (!keyed) {
    for (std::size_t i = 0; i < table.rows.size(); ++i) found.push_back(i);
    return found;
  }
  const auto start = std::distance(keys.begin(), first);
  const auto end = std::distance(keys.begin(), last);
  for (auto i = start; i < end; ++i) found.push_back(std::next(keys.begin(), i)->second);
  return found;
}

bool Model::satisfies(const Table& table, const Row& row, const Condition& condition) const {
  const auto column = table.find(condition.column);
  if (!column) return false;
  const std::string& type = table.columns[*column].type;
  const std::string text = current(row.values[*column]);
  const std::string& literal = condition.literal;
  const std::string& operation = condition.operation;
  if (operation == "=" || operation == "==") return text == literal;
  if (operation == "!=") return text != literal;
  if (operation == "<") return isLess(text, literal, type);
  if (operation == ">") return isGreater(text, literal, type);
  if (operation == "<=") return isLess(text, literal, type) || text == literal;
  if (operation == ">=") return isGreater(text, literal, type) || text == literal;
  return false;
}

Result Model::select(const std::string& name, const std::vector<std::string>& list,
                     const Conditions& conditions) {
  const Table& table = tables[name];
  Result result;
  std::vector<std::size_t> columns;
  for (const std::string& wanted : list) {
    const auto column = table.find(wanted);
    if (!column) fail("Requested column not found");
    columns.push_back(*column);
    result.columns.push_back(wanted);
  }
  for (const std::size_t index : matching(table, conditions)) {
    result.rows.emplace_back();
    for (const std::size_t column : columns) {
      result.rows.back().push_back(shown(table, table.rows[index], column));
    }
  }
  result.rowsAffected = result.rows.size();
  return result;
}

Result Model::join(const std::string& left, const std::string& right, const QualifiedColumns& on,
                   const QualifiedColumns& list, const Conditions& conditions) {
  tables[left];
  tables[right];
  const Table& leftTable = tables[left];
  const Table& rightTable = tables[right];
  Conditions leftConditions;
  Conditions rightConditions;
  for (const Condition& condition : conditions) {
    const QualifiedColumn column = {condition.table, condition.column};
    const bool toLeft = isLeft(column, left, right, "WHERE clause.");
    (toLeft ? leftConditions : rightConditions).push_back(condition);
  }
  const auto [leftKey, rightKey] = joinColumns(left, right, on);
  Result result = answer("success!", 0);
  std::vector<bool> fromLeft;
  for (const QualifiedColumn& column : list) {
    fromLeft.push_back(isLeft(column, left, right, "SELECT list."));
    const std::string& side = fromLeft.back() ? left : right;
    if (!tables[side].find(column.name)) failNotFound(column.name);
    result.columns.push_back(side + "." + column.name);
  }
  const std::set<std::size_t> leftRows = matching(leftTable, leftConditions);
  const std::set<std::size_t> rightRows = matching(rightTable, rightConditions);
  std::map<std::string, std::vector<std::size_t>> rightRowsOf;
  for (const std::size_t r : rightRows) {
    rightRowsOf[current(rightTable.rows[r].values[rightKey])].push_back(r);
  }
  for (const std::size_t l : leftRows) {
    const Row& leftRow = leftTable.rows[l];
    for (const std::size_t r : rightRowsOf[current(leftRow.values[leftKey])]) {
      const Row& rightRow = rightTable.rows[r];
      result.rows.emplace_back();
      for (std::size_t i = 0; i < list.size(); ++i) {
        const Table& table = fromLeft[i] ? leftTable : rightTable;
        const Row& row = fromLeft[i] ? leftRow : rightRow;
        result.rows.back().push_back(shown(table, row, *table.find(list[i].name)));
      }
    }
  }
  result.rowsAffected = result.rows.size();
  return result;
}

// Which table of a join a column belongs to; `place` says where it was written.
bool Model::isLeft(const QualifiedColumn& column, const std::string& left, const std::string& right,
                   const std::string& place) {
  if (column.table == left) return true;
  if (column.table == right) return false;
  if (!column.table.empty()) fail("Unknown table prefix '" + column.table + "' in " + place);
  if (tables[left].find(column.name)) return true;
  if (tables[right].find(column.name)) return false;
  failNotFound(column.name);
}

// The positions of the two columns of ON, left one first.
std::pair<std::size_t, std::size_t> Model::joinColumns(const std::string& left,
                                                       const std::string& right,
                                                       QualifiedColumns on) {
  for (const QualifiedColumn& column : on) {
    if (!column.table.empty()) isLeft(column, left, right, "JOIN ON clause.");
  }
  if (left != right && !on[0].table.empty() && on[0].table == on[1].table) {
    fail("JOIN ON needs a column of each table");
  }
  const bool swapped = left != right && (on[0].table == right || on[1].table == left);
  const auto first = tables[swapped ? right : left].find(on[0].name);
  if (!first) failNotFound(on[0].name);
  const auto second = tables[swapped ? left : right].find(on[1].name);
  if (!second) failNotFound(on[1].name);
  if (swapped) return {*second, *first};
  return {*first, *second};
}

}  // namespace model
