// CREATE TABLE, DROP TABLE, CHECKPOINT, LINK, LISTEN, BEGIN, COMMIT, ROLLBACK: one function a
// command, under its grammar. What the files could not hold is refused here; everything else is
// checked by the operation that is called.
#include <set>
#include <stdexcept>

#include "../number.h"
#include "parser.h"

namespace velmora {
namespace {

constexpr std::int64_t largestLimit = 65535;

std::string textOf(const Token& token) { return std::string(token.value); }

// name type ["(" [length] ")"] [states], each parenthesis optional; the length only for "string".
Column columnDefinition(TokenCursor& cursor, const std::string& tableName) {
  Column column;
  column.name = textOf(cursor.take("Mismatched column name and type"));
  column.type = textOf(cursor.take("Mismatched column name and type"));
  const auto nextIsNumber = [&] {
    return !cursor.atEnd() && cursor.peek()->type == TokenType::NUMBER;
  };
  if (column.type == "string" && cursor.nextIs("(")) {
    ++cursor.position;
    if (nextIsNumber()) {
      try {
        column.stringSize = parseInt(cursor.peek()->value);
      } catch (FailedConversion& failure) {
        failure.table = tableName;
        failure.column = column.name;
        throw;
      }
      ++cursor.position;
    }
  }
  if (column.type == "string" && cursor.nextIs(")")) ++cursor.position;
  if (nextIsNumber()) {
    column.maxStates = static_cast<std::int32_t>(saturatedLong(cursor.peek()->value));
    ++cursor.position;
  }
  return column;
}

// Refuses columns that a table file could not hold.
void checkStorable(const std::vector<Column>& columns) {
  std::set<std::string_view> names;
  for (const Column& column : columns) {
    if (!Storage::isStorableColumn(column.name)) throw std::runtime_error("Forbidden column name");
    if (!names.insert(column.name).second) throw std::runtime_error("Duplicate column name");
    if (column.stringSize < 1 || column.stringSize > largestLimit) {
      throw std::runtime_error("Forbidden string length");
    }
    if (column.maxStates < 0 || column.maxStates > largestLimit) {
      throw std::runtime_error("Forbidden states limit");
    }
  }
}

}  // namespace

// "CREATE" "TABLE" name {column}
ResultSet Parser::createTable(const Command& command) {
  const std::span<const Token> tokens = command.tokens;
  const std::string name = textOf(tokens[2]);
  if (name == "webhooks" || name == "listeners" || !Storage::isStorableName(name)) {
    throw std::runtime_error("Forbidden table name");
  }
  std::vector<Column> columns;
  for (TokenCursor cursor(tokens, 3); !cursor.atEnd();) {
    columns.push_back(columnDefinition(cursor, name));
  }
  checkStorable(columns);
  const auto existing = db_->tables.find(name);
  if (!command.isReplayed() && existing != db_->tables.end() && !existing->second.columns.empty()) {
    // Hosts give their CREATE TABLE at every start; what is there must survive that.
    throw std::runtime_error("Column size error");
  }
  db_->createTable(name, columns);
  return successful("success!");
}

// "DROP" "TABLE" name
ResultSet Parser::dropTable(const Command& command) {
  const std::span<const Token> tokens = command.tokens;
  const std::string name = textOf(tokens[2]);
  db_->dropTable(name);
  return successful("success! Table " + name + " dropped from disk.");
}

// "CHECKPOINT"
ResultSet Parser::checkpoint(const Command& command) {
  if (!command.isReplayed()) db_->checkpoint(command.second);
  return successful("success! Engine frozen. WAL flushed securely to disk.");
}

// "LINK" table any column "-->" table any column. Deliberate: what stands in a dot's place is not
// looked at.
ResultSet Parser::link(const Command& command) {
  const std::span<const Token> tokens = command.tokens;
  if (tokens[4].value != "-->") throw std::runtime_error("Expected -->");
  db_->link(textOf(tokens[1]), textOf(tokens[3]), textOf(tokens[5]), textOf(tokens[7]),
            command.second);
  return successful("success!");
}

// Writes the link's file, behind its line in the log, and not without it: a file without its
// command would at the next start hold for the rows that were logged before it. The next checkpoint
// writes what is missing.
void Parser::saveRelation(const Command& command) {
  const std::span<const Token> tokens = command.tokens;
  db_->saveRelation(textOf(tokens[1]), textOf(tokens[3]), textOf(tokens[5]), command.second);
}

// "LISTEN" table "." event "-->" target ["WHERE" filter]
ResultSet Parser::listen(const Command& command) {
  const std::span<const Token> tokens = command.tokens;
  if (tokens[2].value != ".") throw std::runtime_error("Expected '.'");
  if (tokens[4].value != "-->") throw std::runtime_error("Expected '-->'");
  const std::string tableName = textOf(tokens[1]);
  const std::string event = textOf(tokens[3]);
  const std::string target = textOf(tokens[5]);
  db_->addListener({tableName, event, target, optionalFilter(TokenCursor(tokens, 6))}, false);
  return successful("success! Listener attached.");
}

// "BEGIN"
ResultSet Parser::begin(const Command& /*command*/) {
  db_->beginTransaction();
  return successful("Transaction Started. Sandbox active.");
}

// "COMMIT"
ResultSet Parser::commit(const Command& /*command*/) {
  db_->commitTransaction();
  return successful("success! Transaction permanently written to disk.");
}

// "ROLLBACK"
ResultSet Parser::rollback(const Command& command) {
  db_->rollbackTransaction(command.second);
  return successful("Disaster Averted. Memory restored.");
}

}  // namespace velmora
