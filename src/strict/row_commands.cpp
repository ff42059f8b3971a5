// INSERT, UPDATE, DELETE, and what they and others are made of: values, timed values and filters.
// Each function stands under its grammar; there are no commas between assignments.
#include <array>
#include <utility>

#include "../failure.h"
#include "commands.h"

namespace velmora::strict {
namespace {

// "s" | "m" | "h" | "d" | "mo"
std::int64_t unitSeconds(Cursor& cursor) {
  static constexpr std::array<std::pair<std::string_view, std::int64_t>, 5> units = {
      {{"s", 1}, {"m", 60}, {"h", 3600}, {"d", 86400}, {"mo", 2592000}}};
  for (const auto& [unit, seconds] : units) {
    if (cursor.skip(unit)) return seconds;
  }
  cursor.refuse("a time unit (s, m, h, d, mo)");
}

// value "@" amount unit
State state(Cursor& cursor) {
  State state;
  state.value = cursor.operand("a value after '-->'");
  cursor.expect("@");
  state.amount = cursor.wholeNumber(1, longestState);
  state.unitSeconds = unitSeconds(cursor);
  if (state.amount.isParameter()) return state;
  if (std::get<std::int64_t>(state.amount.value) > longestState / state.unitSeconds) {
    throw Failure(Code::range, "A state lasts at most " + std::to_string(longestState) + " seconds")
        .at(state.amount.offset);
  }
  return state;
}

// value {"-->" state} ["c"], the "c" only behind a state
void timedValue(Cursor& cursor, Assignment& assignment) {
  assignment.value = cursor.operand("a value after '='");
  while (cursor.skip("-->")) assignment.states.push_back(state(cursor));
  assignment.cycles = !assignment.states.empty() && cursor.skip("c");
}

// column "=" (timed value | "(" timed value ")")
void readAssignment(Cursor& cursor, Assignment& assignment) {
  assignment.column = cursor.name("a column name");
  cursor.expect("=");
  const bool isWrapped = cursor.skip("(");
  timedValue(cursor, assignment);
  if (isWrapped) cursor.expect(")");
}

// assignment {assignment}
std::vector<Assignment> assignments(Cursor& cursor) {
  std::vector<Assignment> assignments;
  assignments.reserve(4);
  do {
    readAssignment(cursor, assignments.emplace_back());
  } while (!cursor.atEnd() && !cursor.nextIs("#TIME#") && !cursor.nextIsWord("WHERE"));
  return assignments;
}

// "IS" ["NOT"] "NULL", behind the "IS"
Operator nullTest(Cursor& cursor) {
  const Operator op = cursor.skipWord("NOT") ? Operator::isNotNull : Operator::isNull;
  cursor.expectWord("NULL");
  return op;
}

// "=" | "==" | "!=" | "<" | "<=" | ">" | ">="
Operator comparisonSign(Cursor& cursor) {
  static constexpr std::array<std::pair<std::string_view, Operator>, 7> operators = {
      {{"=", Operator::equal},
       {"==", Operator::equal},
       {"!=", Operator::notEqual},
       {"<", Operator::less},
       {"<=", Operator::lessOrEqual},
       {">", Operator::greater},
       {">=", Operator::greaterOrEqual}}};
  for (const auto& [sign, op] : operators) {
    if (cursor.skip(sign)) return op;
  }
  cursor.refuse("an operator (=, !=, <, <=, >, >=, IS)");
}

// [table "."] column (null test | sign value)
void readComparison(Cursor& cursor, Comparison& comparison) {
  comparison.column = cursor.columnName();
  if (cursor.skipWord("IS")) {
    comparison.op = nullTest(cursor);
  } else {
    comparison.op = comparisonSign(cursor);
    comparison.operand = cursor.operand("a value to compare with");
  }
}

}  // namespace

// ["WHERE" comparison {("&&" | "||") comparison}]
Filter optionalFilter(Cursor& cursor) {
  Filter filter;
  if (!cursor.skipWord("WHERE")) return filter;
  bool beginsGroup = true;
  do {
    Comparison& comparison = filter.emplace_back();
    comparison.beginsGroup = beginsGroup;
    readComparison(cursor, comparison);
    beginsGroup = cursor.nextIs("||");
  } while (cursor.skip("||") || cursor.skip("&&"));
  return filter;
}

// "INSERT" "INTO" table assignments
Command insertInto(Cursor& cursor) {
  cursor.expectWord("INTO");
  Insert insert;
  insert.table = cursor.tableName();
  insert.assignments = assignments(cursor);
  return insert;
}

// "UPDATE" table "SET" assignments [filter]
Command update(Cursor& cursor) {
  Update update;
  update.table = cursor.tableName();
  cursor.expectWord("SET");
  update.assignments = assignments(cursor);
  update.filter = optionalFilter(cursor);
  return update;
}

// "DELETE" "FROM" table [filter]
Command deleteFrom(Cursor& cursor) {
  cursor.expectWord("FROM");
  Delete command;
  command.table = cursor.tableName();
  command.filter = optionalFilter(cursor);
  return command;
}

}  // namespace velmora::strict
