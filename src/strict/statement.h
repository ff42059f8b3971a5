// Statements of the strict language: plain records that the parser makes and everything behind it
// reads. Names are as written and not yet looked up; offsets are bytes into the text that was
// parsed, for messages.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <variant>
#include <vector>

#include "../value.h"

namespace velmora::strict {

// A literal, or the place of a bound value.
struct Operand {
  Value value;         // of a literal
  int parameter = -1;  // from 0; -1: a literal
  std::size_t offset = 0;
  std::size_t size = 0;  // bytes of it in the text
  bool isParameter() const noexcept { return parameter >= 0; }
};

struct Name {
  std::string text;
  std::size_t offset = 0;
};
struct ColumnName {
  Name table;  // an empty text where the column is written bare
  Name column;
};

enum class Operator : std::uint8_t {
  equal,
  notEqual,
  less,
  greater,
  lessOrEqual,
  greaterOrEqual,
  isNull,
  isNotNull
};
// One comparison of a filter. A filter is a list of them: those joined by && are a group, || begins
// another group, and a row passes that satisfies every comparison of some group.
struct Comparison {
  ColumnName column;
  Operator op = Operator::equal;
  Operand operand;          // none for isNull, isNotNull
  bool beginsGroup = true;  // the first one, and those behind ||
};
using Filter = std::vector<Comparison>;

// The most seconds that a state may last, and the last second at which timed values may start.
inline constexpr std::int64_t longestState = std::int64_t{1} << 40;
inline constexpr std::int64_t latestClock = std::int64_t{1} << 40;
// A state behind an arrow: the value, and how long the one before it lasts.
struct State {
  Operand value;
  Operand amount;                // > 0
  std::int64_t unitSeconds = 1;  // s, m, h, d, mo
};
struct Assignment {
  Name column;
  Operand value;
  std::vector<State> states;  // empty: the value is not timed
  bool cycles = false;
};

struct ColumnDefinition {
  Name name;
  Name type;                 // int, ApexInt, float, bool, string, long, double
  std::int32_t length = 60;  // of string
  std::int32_t states = 0;   // the most states of a timed value; 0: none may be timed
};

struct CreateTable {
  Name table;
  std::vector<ColumnDefinition> columns;
};
struct DropTable {
  Name table;
};
struct Insert {
  Name table;
  std::vector<Assignment> assignments;
};
struct Update {
  Name table;
  std::vector<Assignment> assignments;
  Filter filter;
};
struct Delete {
  Name table;
  Filter filter;
};

enum class Function : std::uint8_t { none, countRows, count, min, max, sum, avg };
struct Output {
  Function function = Function::none;
  ColumnName column;  // none for countRows
};
struct Order {
  Output output;
  bool descends = false;
};
struct Join {
  Name table;
  ColumnName first;
  ColumnName second;
};
struct Select {
  bool isStar = false;
  std::vector<Output> outputs;  // empty with isStar
  Name table;
  std::optional<Join> join;
  Filter filter;
  std::vector<ColumnName> groupBy;
  std::vector<Order> orderBy;
  std::optional<Operand> limit;
  std::optional<Operand> offset;
  std::optional<Operand> at;  // the second that the answer is of
};

struct Link {  // and Unlink
  Name childTable, childColumn, parentTable, parentColumn;
};
struct Unlink : Link {};
struct Listen {
  Name table;
  Name event;
  std::string target;
  Filter filter;
};
struct Unlisten {
  Name table;
  Name event;
  std::string target;
};
struct Vacuum {
  std::optional<Name> table;
};
struct Show {
  enum class What : std::uint8_t { tables, columns, links, listeners, schedule, storage, states };
  What what = What::tables;
  std::optional<Name> table;     // of columns and states, and of schedule if it is named
  std::optional<Operand> until;  // of schedule
};
struct Begin {};
struct Commit {};
struct Rollback {};
struct Checkpoint {};

using Command = std::variant<CreateTable, DropTable, Insert, Update, Delete, Select, Link, Unlink,
                             Listen, Unlisten, Vacuum, Show, Begin, Commit, Rollback, Checkpoint>;

struct Statement {
  std::string text;  // without the clock marker that may follow it
  Command command;
  int parameterCount = 0;        // that of a bound clock, the last one, among them
  std::optional<Operand> clock;  // behind " #TIME# ": the second at which timed values start
};

}  // namespace velmora::strict
