// The model's operations: catalogue, matching, rows, joins, links, transactions, restart.
//
// Relies on the records of model.h. Each operation is written for the reader: it walks everything
// it needs and keeps no index but the key map, whose entries can be seen from outside (a timed key
// stays under the text that it had when it was stored).
#include <algorithm>
#include <cstdio>
#include <stdexcept>

#include "model/model.h"

namespace model {

namespace {

const char* const missing = "#/#?";

[[noreturn]] void fail(const std::string& message) { throw std::runtime_error(message); }

[[noreturn]] void failNotFound(const std::string& column) {
  fail("Column '" + column + "' not found in either table.");
}

bool isWhole(const std::string& type) { return type == "int" || type == "ApexInt"; }

std::int64_t sum(std::int64_t left, std::int64_t right) {
  return static_cast<std::int64_t>(static_cast<std::uint64_t>(left) +
                                   static_cast<std::uint64_t>(right));
}

std::int64_t difference(std::int64_t left, std::int64_t right) {
  return static_cast<std::int64_t>(static_cast<std::uint64_t>(left) -
                                   static_cast<std::uint64_t>(right));
}

std::size_t currentState(const Schedule& schedule, std::int64_t now) {
  std::int64_t elapsed = difference(now, schedule.start);
  const std::size_t last = schedule.states.size() - 1;
  if (schedule.cycles && schedule.total > 0) elapsed %= schedule.total;
  if (!schedule.cycles && elapsed >= schedule.total) return last;
  std::int64_t end = 0;
  for (std::size_t i = 0; i <= last; ++i) {
    end = sum(end, schedule.states[i].seconds);
    if (elapsed < end) return i;
  }
  return last;
}

bool isLess(const std::string& left, const std::string& right, const std::string& type) {
  if (isWhole(type)) {
    const int leftNumber = std::stoi(left);
    return leftNumber < std::stoi(right);
  }
  if (type == "float") {
    const float leftNumber = std::stof(left);
    return leftNumber < std::stof(right);
  }
  if (type == "bool") return left == "false" && right == "true";
  return left < right;
}

bool isGreater(const std::string& left, const std::string& right, const std::string& type) {
  if (isWhole(type)) {
    const int leftNumber = std::stoi(left);
    return leftNumber > std::stoi(right);
  }
  if (type == "float") {
    const float leftNumber = std::stof(left);
    return leftNumber > std::stof(right);
  }
  if (type == "bool") return left == "true" && right == "false";
  return left > right;
}

std::string printed(const char* format, float number) {
  char text[64];
  std::snprintf(text, sizeof text, format, static_cast<double>(number));
  return text;
}

Result answer(const std::string& message, std::size_t rowsAffected) {
  Result result;
  result.message = message;
  result.rowsAffected = rowsAffected;
  return result;
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

// A key of a numeric column must be a number.
void checkKey(const KeyIndex& keys, const std::string& key) {
  if (keys.key_comp().numeric) static_cast<void>(std::stoi(key));
}

}  // namespace

bool KeyOrder::operator()(const std::string& left, const std::string& right) const {
  return isLess(left, right, numeric ? "int" : "string");
}

std::optional<std::size_t> Table::find(const std::string& column) const {
  for (std::size_t i = 0; i < columns.size(); ++i) {
    if (columns[i].name == column) return i;
  }
  return std::nullopt;
}

// The catalogue.

Result Model::create(const std::string& name, const std::vector<Column>& columns) {
  static const std::set<std::string> types = {"int", "float", "bool", "string", "ApexInt"};
  for (const Column& column : columns) {
    if (types.count(column.type) == 0) fail("Unknown type");
  }
  Table& table = tables[name] = Table();
  table.columns = columns;
  std::string key;
  for (const Column& column : columns) {
    ++table.typedColumns;
    if (column.type != "ApexInt") continue;
    if (!key.empty()) fail("A table can only have one ApexInt column");
    key = column.name;
  }
  if (!key.empty()) makeKey(table, key);
  return answer("success!", 0);
}

Result Model::drop(const std::string& name) {
  if (tables.erase(name) == 0) fail("Syntax Error: Table '" + name + "' does not exist.");
  forget(name, std::nullopt);
  std::erase_if(undoLog_, [&](const Undo& undo) { return undo.table == name; });
  std::erase_if(relations_, [&](const auto& relation) { return relation.second.first == name; });
  return answer("success! Table " + name + " dropped from disk.", 0);
}

// Deleted rows count too. Only at a start does a live row win its key over deleted ones.
void Model::makeKey(Table& table, const std::string& column) {
  const std::size_t position = *table.find(column);
  KeyIndex keys(KeyOrder{isWhole(table.columns[position].type)});
  std::vector<std::string> texts;
  for (std::size_t i = 0; i < table.rows.size(); ++i) {
    texts.push_back(current(table.rows[i].values[position]));
    checkKey(keys, texts[i]);
    const auto [entry, isNew] = keys.emplace(texts[i], i);
    if (isNew || (isStarting_ && table.rows[i].deleted)) continue;
    if (!isStarting_ || !table.rows[entry->second].deleted) {
      fail("Cannot create Primary Key: Duplicate value '" + texts[i] +
           "' already exists in column");
    }
    entry->second = i;
  }
  table.keyColumn = column;
  table.keys = keys;
  for (std::size_t i = 0; i < table.rows.size(); ++i)
    table.rows[i].values[position].text = texts[i];
}

// Reading values and finding rows.

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

// Changing rows.

Result Model::insert(const std::string& name, const Assignments& given) {
  Table& table = tables[name];
  Row row;
  for (std::size_t i = 0; i < table.columns.size(); ++i) {
    const Column& column = table.columns[i];
    Value value{missing, std::nullopt};
    for (const auto& [givenName, givenValue] : given) {
      if (givenName == column.name) value = givenValue;
    }
    if (column.type == "int" && value.text == missing) value.text = "0";
    if (column.type == "ApexInt") {
      value.text = "1";
      if (!table.rows.empty()) {
        const int last = std::stoi(current(table.rows.back().values[i]));
        if (last == 2147483647) fail("ApexInt is exhausted");
        value.text = std::to_string(last + 1);
      }
    }
    if (value.schedule && column.type != "ApexInt") value.text = current(value);
    row.values.push_back(value);
  }
  std::string key;
  if (!table.keyColumn.empty()) {
    key = current(row.values[*table.find(table.keyColumn)]);
    refuseDuplicate(table, key, table.rows.size());
  }
  table.rows.push_back(row);
  const std::size_t index = table.rows.size() - 1;
  try {
    linkRow(name, index);
  } catch (...) {
    table.rows.pop_back();
    throw;
  }
  if (!table.keyColumn.empty()) setKey(table, index, key);
  if (inTransaction_) undoLog_.push_back({"INSERT", name, index, table.rows[index]});
  return answer("success!", 1);
}

void Model::refuseDuplicate(const Table& table, const std::string& key,
                            std::size_t ownIndex) const {
  checkKey(table.keys, key);
  const auto found = table.keys.find(key);
  if (found == table.keys.end() || found->second == ownIndex) return;
  if (table.rows[found->second].deleted) return;
  fail("Duplicate entry '" + key + "' for primary key");
}

// The text under which the key map holds a row: of a timed key the one it showed when it was filed.
std::string& Model::filedKey(Table& table, std::size_t index) const {
  return table.rows[index].values[*table.find(table.keyColumn)].text;
}

// From now on the row is found under this key and under no other.
void Model::setKey(Table& table, std::size_t index, const std::string& key) {
  std::erase_if(table.keys, [&](const auto& entry) { return entry.second == index; });
  table.keys[key] = index;
  filedKey(table, index) = key;
}

Result Model::update(const std::string& name, const Assignments& given,
                     const Conditions& conditions) {
  Table& table = tables[name];
  const std::set<std::size_t> matched = matching(table, conditions);
  if (inTransaction_) {
    for (const std::size_t i : matched) undoLog_.push_back({"UPDATE", name, i, table.rows[i]});
  }
  for (const auto& [columnName, value] : given) {
    const std::size_t column = *table.find(columnName);
    if (table.columns[column].type == "ApexInt") {
      fail("ApexInt is an immutable identity column and cannot be updated");
    }
    for (const std::size_t index : matched) updateCell(name, index, column, value);
  }
  return answer("success!", matched.size());
}

void Model::updateCell(const std::string& name, std::size_t index, std::size_t column,
                       const Value& value) {
  Table& table = tables[name];
  Row& row = table.rows[index];
  const bool isKey = table.columns[column].name == table.keyColumn;
  if (isKey && row.referenced) {
    const std::string key = current(row.values[column]);
    if (key != current(value) && isRestricted(row, key)) {
      fail("Cannot update a primary key that is referenced by an active foreign table");
    }
  }
  if (isKey) refuseDuplicate(table, current(value), index);
  row.values[column] = value;
  if (isKey) setKey(table, index, current(value));
  linkRow(name, index);
}

Result Model::erase(const std::string& name, const Conditions& conditions) {
  Table& table = tables[name];
  const std::set<std::size_t> matched = matching(table, conditions);
  for (const std::size_t index : matched) {
    Row& row = table.rows[index];
    if (row.referenced) {
      const auto column = table.find(table.keyColumn);
      if (isRestricted(row, column ? current(row.values[*column]) : "")) {
        fail("Foreign key points at rows that were meant for deletion");
      }
    }
    row.deleted = true;
  }
  if (inTransaction_) {
    for (const std::size_t i : matched) undoLog_.push_back({"DELETE", name, i, table.rows[i]});
  }
  return answer("success!", matched.size());
}

// Reading rows.

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

// Links.

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

// Transactions.

Result Model::begin() {
  if (inTransaction_) fail("Transaction is already active!");
  inTransaction_ = true;
  undoLog_.clear();
  return answer("Transaction Started. Sandbox active.", 0);
}

Result Model::commit() {
  if (!inTransaction_) fail("No active transaction to commit!");
  inTransaction_ = false;
  return answer("success! Transaction permanently written to disk.", 0);
}

Result Model::rollback() {
  if (!inTransaction_) fail("No active transaction to rollback!");
  while (!undoLog_.empty()) {
    const Undo undo = undoLog_.back();
    undoLog_.pop_back();
    const auto found = tables.find(undo.table);
    if (found == tables.end() || undo.index >= found->second.rows.size()) continue;
    Table& table = found->second;
    if (undo.kind == "INSERT") {
      undoInsert(undo.table, undo.index);
      continue;
    }
    Row& row = table.rows[undo.index];
    if (undo.kind == "DELETE") row.deleted = false;
    if (undo.kind == "UPDATE") {
      row.values = undo.row.values;
    }
    if (!table.keyColumn.empty()) refile(table, undo.index);
    relink(undo.table, undo.index);
  }
  inTransaction_ = false;
  return answer("Disaster Averted. Memory restored.", 0);
}

// The row is always the last one. An earlier row whose key it had taken over gets the key back.
void Model::undoInsert(const std::string& name, std::size_t index) {
  Table& table = tables[name];
  forget(name, index);
  const std::string key = table.keyColumn.empty() ? "" : filedKey(table, index);
  table.rows.pop_back();
  std::erase_if(table.keys, [&](const auto& entry) { return entry.second == index; });
  for (std::size_t i = 0; !table.keyColumn.empty() && i < table.rows.size(); ++i) {
    if (isSameKey(table, key, filedKey(table, i))) refile(table, i);
  }
}

bool Model::isSameKey(const Table& table, const std::string& left, const std::string& right) {
  const KeyOrder& order = table.keys.key_comp();
  try {
    return !order(left, right) && !order(right, left);
  } catch (const std::exception&) {
    return false;
  }
}

// A text that is no number may come back to a column that was made a numeric key meanwhile; the
// row is then in no map.
void Model::refile(Table& table, std::size_t index) {
  try {
    const std::string key = filedKey(table, index);
    checkKey(table.keys, key);
    setKey(table, index, key);
  } catch (const std::exception&) {
    std::erase_if(table.keys, [&](const auto& entry) { return entry.second == index; });
  }
}

// The links of a restored row are made again where they can be.
void Model::relink(const std::string& name, std::size_t index) {
  try {
    linkRow(name, index);
  } catch (const std::exception&) {
  }
}

// Stopping and starting.

// What a table file keeps of a text; throws for what it cannot.
std::string Model::stored(const std::string& text, const std::string& type) const {
  if (isWhole(type)) return std::to_string(std::stoi(text));
  if (type == "float") return text == missing ? text : printed("%f", std::stof(text));
  if (type == "bool") return text == "true" || text == "1" ? "true" : "false";
  return text.substr(0, 60);
}

Result Model::checkpoint() {
  for (const auto& [name, table] : tables) {
    for (const Row& row : table.rows) {
      for (std::size_t i = 0; !row.deleted && i < table.columns.size(); ++i) {
        if (!row.values[i].schedule) stored(row.values[i].text, table.columns[i].type);
      }
    }
  }
  return answer("success! Engine frozen. WAL flushed securely to disk.", 0);
}

bool Model::canStop() {
  try {
    checkpoint();
    return true;
  } catch (const std::exception&) {
    return false;
  }
}

// Tables without columns are in no file. Links are made again from their relation files.
void Model::restart() {
  std::erase_if(tables, [](const auto& entry) { return entry.second.columns.empty(); });
  inTransaction_ = false;
  undoLog_.clear();
  isStarting_ = true;
  for (auto& [name, table] : tables) reload(table);
  const auto relations = relations_;
  for (const auto& [file, relation] : relations) {
    try {
      link(relation.first, relation.second);
    } catch (const std::exception&) {
    }
  }
  isStarting_ = false;
}

void Model::reload(Table& table) {
  table.typedColumns = table.columns.size();
  table.links.clear();
  table.keyColumn.clear();
  for (Row& row : table.rows) {
    row.dependents.clear();
    row.referenced = false;
    for (std::size_t i = 0; i < table.columns.size(); ++i) {
      reload(row.values[i], table.columns[i].type, row.deleted);
    }
  }
  for (const Column& column : table.columns) {
    if (column.type != "ApexInt" || !table.keyColumn.empty()) continue;
    makeKey(table, column.name);
  }
}

void Model::reload(Value& value, const std::string& type, bool deleted) const {
  if (value.schedule) {
    for (State& state : value.schedule->states) state.text = state.text.substr(0, 60);
    return;
  }
  try {
    value.text = stored(value.text, type);
  } catch (const std::exception&) {
    if (!deleted) throw;
    value.text = type == "float" ? "0.000000" : "0";
  }
}

}  // namespace model
