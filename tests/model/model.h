// A second, slow and obvious database with the answers velmora must give.
//
// Everything is kept as texts in plain vectors and maps; every look-up is a walk, every number is
// converted anew by the standard functions. It shares no code with the engine, so an agreement of
// the two means something. It keeps nothing in files; restart() says what a stop and a start leave.
// How the answers of both are compared is left to driver.h.
#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <utility>
#include <vector>

namespace model {

struct State {
  std::string text;
  std::int64_t seconds = 0;
};

// A timed value: the states it passes through, from its start on.
struct Schedule {
  std::vector<State> states;
  std::int64_t start = 0;
  std::int64_t total = 0;
  bool cycles = false;
};

struct Value {
  std::string text;
  std::optional<Schedule> schedule;
};

struct Column {
  std::string name;
  std::string type;
  int statesLimit = 0;
};

struct Condition {
  std::string table;
  std::string column;
  std::string operation;
  std::string literal;
  bool opensGroup = false;
};

// A column as a join names it; the table is empty where it is written bare.
struct QualifiedColumn {
  std::string table;
  std::string name;
};

using QualifiedColumns = std::vector<QualifiedColumn>;
using ChildColumn = std::pair<std::string, std::string>;

struct Row {
  std::vector<Value> values;
  bool deleted = false;
  bool referenced = false;
  std::map<ChildColumn, std::set<std::size_t>> dependents;
};

struct KeyOrder {
  bool numeric = false;
  bool operator()(const std::string& left, const std::string& right) const;
};

using KeyIndex = std::map<std::string, std::size_t, KeyOrder>;

struct Link {
  std::string column;
  std::string parent;
  std::string parentColumn;

  bool operator==(const Link&) const = default;
};

struct Table {
  std::vector<Column> columns;
  std::size_t typedColumns = 0;  // a creation that failed half-way knows fewer types than columns
  std::vector<Row> rows;
  std::string keyColumn;
  KeyIndex keys;
  std::vector<Link> links;

  std::optional<std::size_t> find(const std::string& column) const;
};

// What one command gave its host: a text, or an exception that left the call.
struct Answer {
  std::string text;
  std::string exception;  // "type: what", empty when there was none

  bool operator==(const Answer&) const = default;
};

struct Result {
  bool success = true;
  std::string message;
  std::size_t rowsAffected = 0;
  std::vector<std::string> columns;
  std::vector<std::vector<std::string>> rows;  // each value as it stands in the answer
};

struct Token;
class Cursor;

class Model {
 public:
  Answer run(const std::string& command);
  // Whether a stop could write everything; the engine refuses to stop otherwise.
  bool canStop();
  // What a stop and a start leave of the tables.
  void restart();

  std::int64_t now = 0;
  std::map<std::string, Table> tables;

 private:
  using Conditions = std::vector<Condition>;
  // In written order; a column named again keeps its first place and takes the later value.
  using Assignments = std::vector<std::pair<std::string, Value>>;
  struct Undo {
    std::string kind;
    std::string table;
    std::size_t index = 0;
    Row row;
  };

  // model_commands.cpp: from the text of a command to one operation.
  Result handle(const std::string& command);
  Result dispatch(const std::vector<Token>& tokens);
  Result parseCreate(const std::vector<Token>& tokens);
  Result parseInsert(const std::vector<Token>& tokens);
  Result parseUpdate(const std::vector<Token>& tokens);
  Result parseDelete(const std::vector<Token>& tokens);
  Result parseSelect(const std::vector<Token>& tokens);
  Result parseJoin(Cursor& cursor, const std::string& left, const QualifiedColumns& list);
  Result parseListen(const std::vector<Token>& tokens);
  Result parseLink(const std::vector<Token>& tokens);
  Assignments parseAssignments(Cursor& cursor, const std::string& table, bool endsAtWhere);
  Value parseValue(Cursor& cursor, const std::string& table, const std::string& column);
  Schedule parseSchedule(Cursor& cursor, const std::string& first, const std::string& type);
  Table& existing(const std::string& name);

  // model_changes.cpp, model_links.cpp, model_states.cpp, model_reading.cpp: the operations.
  Result create(const std::string& name, const std::vector<Column>& columns);
  Result drop(const std::string& name);
  Result insert(const std::string& name, const Assignments& given);
  Result update(const std::string& name, const Assignments& given, const Conditions& conditions);
  Result erase(const std::string& name, const Conditions& conditions);
  Result select(const std::string& name, const std::vector<std::string>& list,
                const Conditions& conditions);
  Result join(const std::string& left, const std::string& right, const QualifiedColumns& on,
              const QualifiedColumns& list, const Conditions& conditions);
  Result link(const std::string& child, const Link& wanted);
  Result begin();
  Result commit();
  Result rollback();
  Result checkpoint();

  std::string current(const Value& value) const;
  std::string shown(const Table& table, const Row& row, std::size_t column) const;
  std::set<std::size_t> matching(const Table& table, const Conditions& conditions) const;
  std::vector<std::size_t> candidates(const Table& table, const Conditions& group) const;
  bool satisfies(const Table& table, const Row& row, const Condition& condition) const;
  std::set<std::size_t> partners(const Link& link, const std::string& key) const;
  std::vector<std::string> keyTexts(const Value& value) const;
  void linkRow(const std::string& name, std::size_t index);
  bool isRestricted(Row& parent, const std::string& key);
  void makeKey(Table& table, const std::string& column);
  std::string& filedKey(Table& table, std::size_t index) const;
  void setKey(Table& table, std::size_t index, const std::string& key);
  void refuseDuplicate(const Table& table, const std::string& key, std::size_t ownIndex) const;
  void updateCell(const std::string& name, std::size_t index, std::size_t column,
                  const Value& value);
  bool isLeft(const QualifiedColumn& column, const std::string& left, const std::string& right,
              const std::string& place);
  std::pair<std::size_t, std::size_t> joinColumns(const std::string& left, const std::string& right,
                                                  QualifiedColumns on);
  void refer(const ChildColumn& child, std::size_t row, const Link& link, std::size_t parent);
  void forget(const std::string& child, std::optional<std::size_t> index);
  void undoInsert(const std::string& name, std::size_t index);
  static bool isSameKey(const Table& table, const std::string& left, const std::string& right);
  void refile(Table& table, std::size_t index);
  void relink(const std::string& name, std::size_t index);
  std::string stored(const std::string& text, const std::string& type) const;
  void reload(Table& table);
  void reload(Value& value, const std::string& type, bool deleted) const;

  bool inTransaction_ = false;
  std::vector<Undo> undoLog_;
  std::int64_t commandClock_ = 0;
  std::map<std::string, std::pair<std::string, Link>> relations_;  // by file name
  bool isStarting_ = false;
};

}  // namespace model
