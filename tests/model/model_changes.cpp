// The model's changing side: the catalogue, rows and their keys.
//
// What a failing command has changed before it failed stays changed; only an insert is undone.
#include "model/model.h"
#include "model/values.h"

namespace model {

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

}  // namespace model
