// The commands about tables, links and listeners rather than rows, each under its grammar. Names
// and lengths that no file could hold are refused where they come into being.
#include <algorithm>
#include <array>
#include <utility>

#include "../failure.h"
#include "../record_io.h"
#include "commands.h"

namespace velmora::strict {
namespace {

constexpr std::array<std::string_view, 7> columnTypes = {"int",    "ApexInt", "float", "bool",
                                                         "string", "long",    "double"};
constexpr std::int64_t largestLimit = 65535;
constexpr std::size_t longestTarget = 100;

[[noreturn]] void refuseName(const Name& name, const std::string& why) {
  throw Failure(Code::syntax, "The name " + shown(name.text) + " " + why).at(name.offset);
}

Name checkedSize(Name name) {
  if (name.text.size() > nameWidth) {
    refuseName(name, "has more than " + std::to_string(nameWidth) + " bytes");
  }
  return name;
}

// The engine's own files are called so.
Name newTableName(Cursor& cursor) {
  Name name = checkedSize(cursor.tableName());
  if (name.text == "webhooks" || name.text == "listeners" || name.text == "velmora") {
    refuseName(name, "is not free for tables");
  }
  return name;
}

bool isColumnType(std::string_view word) {
  return std::find(columnTypes.begin(), columnTypes.end(), word) != columnTypes.end();
}

// A table's file could not tell a column that is called like a type from its type.
Name newColumnName(Cursor& cursor) {
  Name name = checkedSize(cursor.name("a column name"));
  if (isColumnType(name.text)) refuseName(name, "is a type and not free for columns");
  return name;
}

Name columnType(Cursor& cursor) {
  if (!isColumnType(cursor.token().text)) {
    cursor.refuse("a type (int, ApexInt, float, bool, string, long, double)");
  }
  return cursor.name("a type");
}

// A literal, since a table is not made anew for each value.
std::int32_t limit(Cursor& cursor, std::int64_t least) {
  if (cursor.nextIs("?")) cursor.refuse("a whole number");
  const Operand number = cursor.wholeNumber(least, largestLimit);
  return static_cast<std::int32_t>(std::get<std::int64_t>(number.value));
}

// name type ["(" [length] ")"] [states], the length only of a string
ColumnDefinition columnDefinition(Cursor& cursor) {
  ColumnDefinition column;
  column.name = newColumnName(cursor);
  column.type = columnType(cursor);
  if (column.type.text == "string" && cursor.skip("(") && !cursor.skip(")")) {
    column.length = limit(cursor, 1);
    cursor.expect(")");
  }
  if (cursor.token().type == TokenType::number) column.states = limit(cursor, 0);
  return column;
}

// table "." column "-->" table "." column
Link linkedColumns(Cursor& cursor) {
  Link link;
  link.childTable = cursor.tableName();
  cursor.expect(".");
  link.childColumn = cursor.name("a column name");
  cursor.expect("-->");
  link.parentTable = cursor.tableName();
  cursor.expect(".");
  link.parentColumn = cursor.name("a column name");
  return link;
}

// Any word: events are called like commands.
Name eventName(Cursor& cursor) {
  if (cursor.token().type != TokenType::word) cursor.refuse("an event");
  const std::size_t offset = cursor.offset();
  return checkedSize({std::string(cursor.take().text), offset});
}

// name | literal
std::string listenerTarget(Cursor& cursor) {
  if (cursor.token().type != TokenType::literal) return cursor.name("a target").text;
  const std::size_t offset = cursor.offset();
  std::string target = contentOf(cursor.take().text);
  if (target.size() <= longestTarget) return target;
  throw Failure(Code::range, "The target " + shown(target) + " has more than " +
                                 std::to_string(longestTarget) + " bytes")
      .at(offset);
}

// table "." event "-->" target
Unlisten listener(Cursor& cursor) {
  Unlisten listener;
  listener.table = cursor.tableName();
  cursor.expect(".");
  listener.event = eventName(cursor);
  cursor.expect("-->");
  listener.target = listenerTarget(cursor);
  return listener;
}

}  // namespace

// "CREATE" "TABLE" table column {column}
Command createTable(Cursor& cursor) {
  cursor.expectWord("TABLE");
  CreateTable create;
  create.table = newTableName(cursor);
  do {
    create.columns.push_back(columnDefinition(cursor));
  } while (!cursor.atEnd());
  return create;
}

// "DROP" "TABLE" table
Command dropTable(Cursor& cursor) {
  cursor.expectWord("TABLE");
  return DropTable{cursor.tableName()};
}

// "LINK" linked columns
Command link(Cursor& cursor) { return linkedColumns(cursor); }

// "UNLINK" linked columns
Command unlink(Cursor& cursor) { return Unlink{linkedColumns(cursor)}; }

// "LISTEN" listener [filter]
Command listen(Cursor& cursor) {
  Unlisten named = listener(cursor);
  return Listen{std::move(named.table), std::move(named.event), std::move(named.target),
                optionalFilter(cursor)};
}

// "UNLISTEN" listener
Command unlisten(Cursor& cursor) { return listener(cursor); }

// "VACUUM" [table]
Command vacuum(Cursor& cursor) {
  if (cursor.atEnd()) return Vacuum{};
  return Vacuum{cursor.tableName()};
}

// "SHOW" ("TABLES" | "COLUMNS" "FROM" table | "LINKS" | "LISTENERS"
//         | "SCHEDULE" ["FROM" table] ["UNTIL" second] | "STATES" "FROM" table | "STORAGE")
Command show(Cursor& cursor) {
  using enum Show::What;
  Show show;
  if (cursor.skipWord("TABLES")) return show;
  if (cursor.skipWord("LINKS")) return Show{links, {}, {}};
  if (cursor.skipWord("LISTENERS")) return Show{listeners, {}, {}};
  if (cursor.skipWord("STORAGE")) return Show{storage, {}, {}};
  const bool isOfColumns = cursor.skipWord("COLUMNS");
  if (isOfColumns || cursor.skipWord("STATES")) {
    cursor.expectWord("FROM");
    return Show{isOfColumns ? columns : states, cursor.tableName(), {}};
  }
  if (!cursor.skipWord("SCHEDULE")) {
    cursor.refuse("TABLES, COLUMNS, LINKS, LISTENERS, SCHEDULE, STATES or STORAGE");
  }
  show.what = schedule;
  if (cursor.skipWord("FROM")) show.table = cursor.tableName();
  if (cursor.skipWord("UNTIL")) show.until = cursor.second();
  return show;
}

}  // namespace velmora::strict
