// Schemas, statements and reproducible values.
#include "data.h"

namespace bench {

const Statement createItems = {
    "CREATE TABLE items id ApexInt name string age int score float",
    "CREATE TABLE items (id INTEGER PRIMARY KEY, name TEXT, age INT, score REAL)"};
const Statement insertItem = {"INSERT INTO items name = ?1 age = ?2 score = ?3",
                              "INSERT INTO items (name, age, score) VALUES (?1, ?2, ?3)"};
const Statement selectItemByKey = {"SELECT id, name, age, score FROM items WHERE id = ?1",
                                   "SELECT id, name, age, score FROM items WHERE id = ?1"};
const Statement updateItemByKey = {"UPDATE items SET score = ?1 WHERE id = ?2",
                                   "UPDATE items SET score = ?1 WHERE id = ?2"};
const Statement deleteItemByKey = {"DELETE FROM items WHERE id = ?1",
                                   "DELETE FROM items WHERE id = ?1"};
const Statement noAutomaticCheckpoint = {"", "PRAGMA wal_autocheckpoint = 0", false,
                                         "SET checkpoint_threshold = '1TB'"};
const Statement insertChild = {"INSERT INTO children parent_id = ?1 name = ?2",
                               "INSERT INTO children (parent_id, name) VALUES (?1, ?2)"};

std::uint64_t scatter(std::uint64_t index, std::uint64_t series) {
  // The finishing steps of splitmix64.
  std::uint64_t bits = (index + 1) * 0x9e3779b97f4a7c15U + series * 0xd1342543de82ef95U;
  bits = (bits ^ (bits >> 30U)) * 0xbf58476d1ce4e5b9U;
  bits = (bits ^ (bits >> 27U)) * 0x94d049bb133111ebU;
  return bits ^ (bits >> 31U);
}

int scatterBelow(int count, int index, int series) {
  const auto bits = scatter(static_cast<std::uint64_t>(index), static_cast<std::uint64_t>(series));
  return static_cast<int>(bits % static_cast<std::uint64_t>(count));
}

namespace {

// Scores are quarters, which a 32-bit and a 64-bit float hold alike.
Values itemNamed(std::string name, int index) {
  return {std::move(name), scatterBelow(100, index, 1), 0.25 * scatterBelow(4000, index, 2)};
}

}  // namespace

Values itemValues(int index) { return itemNamed("name" + std::to_string(index), index); }

Values itemValuesWithFewNames(int index) {
  return itemNamed("name" + std::to_string(scatterBelow(1000, index, 3)), index);
}

void fillItems(Engine& engine, int count, Values (*values)(int), const std::string& suffix) {
  engine.execute(onTables(createItems, suffix));
  engine.fill(onTables(insertItem, suffix), count, values);
}

std::shared_ptr<Engine> openItems(Mode mode, int count, Values (*values)(int)) {
  std::shared_ptr<Engine> engine = openEngine(mode);
  fillItems(*engine, count, values);
  return engine;
}

void fillParents(Engine& engine, int count, const std::string& suffix) {
  const Statement create = {
      "CREATE TABLE parents id ApexInt name string age int score float",
      "CREATE TABLE parents (id INTEGER PRIMARY KEY, name TEXT, age INT, score REAL)"};
  const Statement insert = {"INSERT INTO parents name = ?1 age = ?2 score = ?3",
                            "INSERT INTO parents (name, age, score) VALUES (?1, ?2, ?3)"};
  engine.execute(onTables(create, suffix));
  engine.fill(onTables(insert, suffix), count, itemValues);
}

Statement onTables(Statement statement, const std::string& suffix) {
  if (suffix.empty()) return statement;
  for (const std::string name : {"items", "parents", "children"}) {
    for (std::string* text : {&statement.velmora, &statement.sqlite}) {
      std::size_t position = text->find(name);
      while (position != std::string::npos) {
        text->insert(position + name.size(), suffix);
        position = text->find(name, position + name.size());
      }
    }
  }
  return statement;
}

Batch makeBatch(int count, const std::function<Values(int)>& values) {
  Batch batch;
  batch.reserve(static_cast<std::size_t>(count));
  for (int index = 0; index < count; ++index) batch.push_back(values(index));
  return batch;
}

double timeOne(Engine& engine, const Statement& statement, const Batch& batch) {
  return engine.time(statement, batch) / static_cast<double>(batch.size());
}

std::string answersOf(Engine& engine, const Statement& statement, const Batch& batch) {
  std::string answers;
  for (const Values& values : batch) {
    answers += engine.execute(statement, values);
    answers += '\n';
  }
  return answers;
}

}  // namespace bench
