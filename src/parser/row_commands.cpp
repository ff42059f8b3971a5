// INSERT, SELECT, UPDATE and DELETE: one function a command, under its grammar. Their values are
// read in timed_literals.cpp, their filters in filter.cpp.
// There are no commas between assignments; those in a SELECT list are passed over.
#include <stdexcept>

#include "parser.h"

namespace velmora {
namespace {

std::string textOf(const Token& token) { return std::string(token.value); }

constexpr const char* missingParameters = "Unknown command or missing parameters";

// The columns of a SELECT list without JOIN: every word, so that "t.c" asks for two columns.
// Deliberate: a name without its table is all that a single table needs.
std::vector<std::string> bareColumns(std::span<const Token> tokens, std::size_t end) {
  std::vector<std::string> columns;
  columns.reserve(end);
  for (std::size_t i = 1; i < end; ++i) {
    if (tokens[i].type == TokenType::IDENTIFIER) columns.emplace_back(tokens[i].value);
  }
  return columns;
}

// The columns of a SELECT list with JOIN: "t.c" is one qualified column.
std::vector<ColumnReference> joinedColumns(std::span<const Token> tokens, std::size_t end) {
  const auto isWord = [&](std::size_t i) {
    return i < end && tokens[i].type == TokenType::IDENTIFIER;
  };
  std::vector<ColumnReference> columns;
  for (std::size_t i = 1; i < end; ++i) {
    if (!isWord(i)) continue;
    if (isWord(i + 2) && tokens[i + 1].value == ".") {
      columns.push_back({textOf(tokens[i]), textOf(tokens[i + 2])});
      i += 2;
    } else {
      columns.push_back({"", textOf(tokens[i])});
    }
  }
  return columns;
}

// [table "."] column
ColumnReference columnReference(TokenCursor& cursor) {
  const std::string first = textOf(cursor.take("Expected column name"));
  if (!cursor.nextIs(".")) return {"", first};
  ++cursor.position;
  return {first, textOf(cursor.take("Expected column name"))};
}

}  // namespace

// "INSERT" "INTO" table {column "=" value}
ResultSet Parser::insertInto(const Command& command) {
  const std::span<const Token> tokens = command.tokens;
  const std::string tableName = textOf(tokens[2]);
  TokenCursor cursor(tokens, 3);
  std::vector<GivenValue>& values = assignments(command, cursor, tableName, false);
  return db_->insertInto(tableName, values, command.second);
}

// "UPDATE" table "SET" {column "=" value} ["WHERE" filter]
ResultSet Parser::update(const Command& command) {
  const std::span<const Token> tokens = command.tokens;
  prefetchRow(tokens, tokens[1].value);
  const std::string tableName = textOf(tokens[1]);
  TokenCursor cursor(tokens, 2);
  cursor.expect("SET", "Expected SET");
  std::vector<GivenValue>& values = assignments(command, cursor, tableName, true);
  const std::vector<Condition>& conditions = optionalFilter(cursor);
  return db_->update(tableName, values, conditions, command.second);
}

// "DELETE" "FROM" table ["WHERE" filter]
ResultSet Parser::deleteFrom(const Command& command) {
  const std::span<const Token> tokens = command.tokens;
  prefetchRow(tokens, tokens[2].value);
  return db_->deleteRows(textOf(tokens[2]), optionalFilter(TokenCursor(tokens, 3)), command.second);
}

// "SELECT" ("*" | columns) "FROM" table ["JOIN" table "ON" column "=" column] ["WHERE" filter]
ResultSet Parser::select(const Command& command) {
  const std::span<const Token> tokens = command.tokens;
  const bool isStar = tokens[1].value == "*";
  std::size_t listEnd = 2;
  if (isStar) {
    selectedColumns_.clear();
    for (const Column& column : db_->getTable(tokens[3].value).columns) {
      selectedColumns_.push_back(column.name);
    }
  } else {
    listEnd = 1;
    while (listEnd < tokens.size() && tokens[listEnd].value != "FROM") ++listEnd;
  }
  TokenCursor cursor(tokens, listEnd);
  cursor.expect("FROM", "Expected FROM");
  selectedTable_ = cursor.take(missingParameters).value;
  prefetchRow(tokens, selectedTable_);
  if (cursor.nextIs("JOIN")) return selectJoin(command, cursor, selectedTable_, listEnd);
  if (!isStar) selectedColumns_ = bareColumns(tokens, listEnd);
  optionalFilter(cursor);
  // A filter ends the command, so that its last value is the last token.
  isSelectionRead_ = !conditions_.empty();
  return runSelection(command);
}

ResultSet Parser::selectAgain(const Command& command) {
  prefetchRow(command.tokens, selectedTable_);
  conditions_.back().value = command.tokens.back().value;
  return runSelection(command);
}

ResultSet Parser::runSelection(const Command& command) {
  return db_->select(selectedTable_, selectedColumns_, conditions_, command.second,
                     std::move(command.memory));
}

ResultSet Parser::selectJoin(const Command& command, TokenCursor cursor,
                             const std::string& leftTable, std::size_t listEnd) {
  constexpr const char* expectedTable = "Expected table name after JOIN";
  cursor.expect("JOIN", expectedTable);
  if (cursor.nextIs(TokenType::KEYWORD, "ON")) throw std::runtime_error(expectedTable);
  const std::string rightTable = textOf(cursor.take(expectedTable));
  cursor.expect("ON", "Expected ON");
  const ColumnReference first = columnReference(cursor);
  cursor.expect("=", "Expected '=' in JOIN ON");
  const ColumnReference second = columnReference(cursor);
  std::vector<ColumnReference> columns;
  if (cursor.tokens()[1].value == "*") {
    // The star means the left table's columns.
    for (const Column& column : db_->getTable(leftTable).columns) {
      columns.push_back({"", column.name});
    }
  } else {
    columns = joinedColumns(cursor.tokens(), listEnd);
  }
  return db_->selectJoin(leftTable, rightTable, first, second, columns, optionalFilter(cursor),
                         command.second, std::move(command.memory));
}

}  // namespace velmora
