// The model's transactions, and what a stop and a start leave of its tables.
//
// A rollback undoes change after change, newest first, and goes on over whatever cannot be
// restored. A restart changes the texts as fixed-width files do.
#include <stdexcept>

#include "model/model.h"
#include "model/values.h"

namespace model {

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
    // The row is back in any case.
  }
}

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
      // It is skipped, and tried again at the next start.
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
