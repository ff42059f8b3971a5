// What the strict language means, told without any of the engine's means: tables are lists of live
// rows, a question walks over all of them, a link is looked for row by row, and what fails or is
// rolled back is undone by a copy of everything. Commands come as records, not as texts.
#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <utility>
#include <variant>
#include <vector>

namespace model::strict {

using Value = std::variant<std::monostate, std::int64_t, double, bool, std::string>;
inline bool isNull(const Value& value) { return value.index() == 0; }
std::string shown(const Value& value);

// A value, or states with their seconds.
struct Cell {
  std::vector<std::pair<Value, std::int64_t>> states = {{{}, 1}};
  std::int64_t start = 0;
  bool cycles = false;
  bool isTimed() const { return states.size() > 1; }
  const Value& at(std::int64_t second) const;
  // The states that are still to be seen, with the one in force.
  std::vector<Value> coming(std::int64_t second) const;
};

struct Column {
  std::string name;
  std::string type;
  std::size_t states = 0;
};
struct Table {
  std::vector<Column> columns;
  std::vector<std::vector<Cell>> rows;  // live ones
  std::int64_t lastNumber = 0;
  std::size_t position(const std::string& column) const;
};
struct Link {
  std::string child, childColumn, parent, parentColumn;
  bool operator==(const Link&) const = default;
};

struct Comparison {
  std::size_t column = 0;
  bool isRight = false;
  std::string op;  // with IS NULL and IS NOT NULL
  Value wanted;
  bool beginsGroup = true;
};
using Filter = std::vector<Comparison>;
struct Output {
  std::string function;  // empty, or COUNT(*), COUNT, MIN, MAX, SUM, AVG
  bool isRight = false;
  std::size_t column = 0;
};
struct Select {
  std::string table;
  std::string joined;  // or empty
  std::size_t leftOn = 0, rightOn = 0;
  std::vector<Output> outputs;
  Filter filter;
  std::vector<Output> groupBy;
  std::vector<std::pair<Output, bool>> orderBy;  // whether it descends
  std::optional<std::size_t> limit;
  std::size_t offset = 0;
};
using Assignments = std::vector<std::pair<std::size_t, Cell>>;

// How commands fail: "! CODE", as the answers that the test compares with begin.
struct Refused {
  int code;
};

class Model {
 public:
  std::int64_t now = 0;
  std::map<std::string, Table> tables;
  std::vector<Link> links;

  // What a command answers. Refused leaves nothing behind.
  std::string insert(const std::string& table, const Assignments& given);
  std::string update(const std::string& table, const Assignments& given, const Filter& filter);
  std::string remove(const std::string& table, const Filter& filter);
  std::string select(const Select& select, std::int64_t second) const;
  // Lines of second, table, key, column, value and whether it cycles.
  std::string schedule(std::int64_t until) const;
  void link(const Link& link);
  void unlink(const Link& link);
  void drop(const std::string& table);
  std::optional<std::size_t> keyOf(const std::string& table) const;

 private:
  bool isReferred(const std::string& table, const Value& key) const;
  void checkParents(const std::string& table, const std::vector<Cell>& row) const;
  void checkKeys(const std::string& table) const;
};

// Below, at or above 0; null is below all.
int compare(const Value& a, const Value& b);

}  // namespace model::strict
