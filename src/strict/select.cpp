// SELECT: its list, its join, and the clauses behind the filter, each under its grammar. What
// belongs together (a bare column beside COUNT, say) is not checked here.
#include <array>
#include <limits>
#include <utility>

#include "../failure.h"
#include "commands.h"

namespace velmora::strict {
namespace {

Function functionOf(const Name& name) {
  static constexpr std::array<std::pair<std::string_view, Function>, 5> functions = {
      {{"COUNT", Function::count},
       {"MIN", Function::min},
       {"MAX", Function::max},
       {"SUM", Function::sum},
       {"AVG", Function::avg}}};
  for (const auto& [word, function] : functions) {
    if (isSameWord(name.text, word)) return function;
  }
  throw Failure(Code::syntax, "Unknown function " + shown(name.text)).at(name.offset);
}

// [table "."] column | function "(" [table "."] column ")" | "COUNT" "(" "*" ")"
Output output(Cursor& cursor) {
  Output output{Function::none, cursor.columnName()};
  if (!output.column.table.text.empty() || !cursor.skip("(")) return output;
  output.function = functionOf(output.column.column);
  output.column = {};
  if (output.function == Function::count && cursor.skip("*")) {
    output.function = Function::countRows;
  } else {
    output.column = cursor.columnName();
  }
  cursor.expect(")");
  return output;
}

// output {"," output}
std::vector<Output> outputs(Cursor& cursor) {
  std::vector<Output> outputs;
  do {
    outputs.push_back(output(cursor));
  } while (cursor.skip(","));
  return outputs;
}

// table "ON" column "=" column, behind the "JOIN"
Join join(Cursor& cursor) {
  Join join;
  join.table = cursor.tableName();
  cursor.expectWord("ON");
  join.first = cursor.columnName();
  cursor.expect("=");
  join.second = cursor.columnName();
  return join;
}

// ["GROUP" "BY" column {"," column}]
std::vector<ColumnName> optionalGroups(Cursor& cursor) {
  std::vector<ColumnName> columns;
  if (!cursor.skipWord("GROUP")) return columns;
  cursor.expectWord("BY");
  do {
    columns.push_back(cursor.columnName());
  } while (cursor.skip(","));
  return columns;
}

// ["ORDER" "BY" output ["ASC" | "DESC"] {"," output ["ASC" | "DESC"]}]
std::vector<Order> optionalOrder(Cursor& cursor) {
  std::vector<Order> orders;
  if (!cursor.skipWord("ORDER")) return orders;
  cursor.expectWord("BY");
  do {
    Order& order = orders.emplace_back();
    order.output = output(cursor);
    order.descends = cursor.skipWord("DESC");
    if (!order.descends) cursor.skipWord("ASC");
  } while (cursor.skip(","));
  return orders;
}

// ["LIMIT" count ["OFFSET" count]]
void readLimit(Cursor& cursor, Select& select) {
  constexpr std::int64_t most = std::numeric_limits<std::int64_t>::max();
  if (!cursor.skipWord("LIMIT")) return;
  select.limit = cursor.wholeNumber(0, most);
  if (cursor.skipWord("OFFSET")) select.offset = cursor.wholeNumber(0, most);
}

}  // namespace

// "SELECT" ("*" | outputs) "FROM" table ["JOIN" join] [filter] [groups] [order] [limit]
// ["AT" second]
Command select(Cursor& cursor) {
  Select select;
  select.isStar = cursor.skip("*");
  if (!select.isStar) select.outputs = outputs(cursor);
  cursor.expectWord("FROM");
  select.table = cursor.tableName();
  if (cursor.skipWord("JOIN")) select.join = join(cursor);
  select.filter = optionalFilter(cursor);
  select.groupBy = optionalGroups(cursor);
  select.orderBy = optionalOrder(cursor);
  readLimit(cursor, select);
  if (cursor.skipWord("AT")) select.at = cursor.second();
  return select;
}

}  // namespace velmora::strict
