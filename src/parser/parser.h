// The parser: the one entry from a command's text to the engine. It cuts the text into tokens,
// chooses the command by the first one, checks the command's shape, calls one operation of the
// Database, and logs what changed something.
//
//   dispatcher.cpp       the frame and the table of commands
//   row_commands.cpp     INSERT, SELECT, UPDATE, DELETE
//   timed_literals.cpp   values and timed values
//   filter.cpp           WHERE
//   other_commands.cpp   CREATE, DROP, CHECKPOINT, LINK, LISTEN, transactions
#pragma once

#include <cstdint>
#include <span>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "../database/database.h"
#include "../lexer.h"

namespace velmora {

// Walks the tokens of one command.
class TokenCursor {
 public:
  TokenCursor(const std::vector<Token>& tokens, std::size_t start)
      : position(start), tokens_(&tokens) {}

  const std::vector<Token>& tokens() const noexcept { return *tokens_; }
  bool atEnd() const noexcept { return position >= tokens_->size(); }
  // The token `offset` further on, or null past the end.
  const Token* peek(std::size_t offset = 0) const noexcept {
    return position + offset < tokens_->size() ? &(*tokens_)[position + offset] : nullptr;
  }
  // Whether the next token has this text, whatever its type; or this type and text.
  bool nextIs(std::string_view text) const noexcept {
    return !atEnd() && (*tokens_)[position].value == text;
  }
  bool nextIs(TokenType type, std::string_view text) const noexcept {
    return nextIs(text) && (*tokens_)[position].type == type;
  }
  // Takes the next token; throws std::runtime_error with the message if there is none, or if it has
  // not this text or type.
  const Token& take(const char* message) {
    require(!atEnd(), message);
    return (*tokens_)[position++];
  }
  const Token& take(TokenType type, const char* message) {
    require(!atEnd() && (*tokens_)[position].type == type, message);
    return (*tokens_)[position++];
  }
  void expect(std::string_view text, const char* message) {
    require(nextIs(text), message);
    ++position;
  }

  std::size_t position;

 private:
  static void require(bool isThere, const char* message) {
    if (!isThere) throw std::runtime_error(message);
  }

  const std::vector<Token>* tokens_;
};

// A float that was bound to a command: where its digits begin in the text, and its number among the
// values, counted from 1.
struct BoundFloat {
  std::size_t offset = 0;
  std::size_t parameter = 0;
};

class Parser {
 public:
  // The database is not owned and must outlive the parser.
  explicit Parser(Database* db) : db_(db) {}

  // Runs one command, at the second that the clock shows. Every std::runtime_error becomes an
  // answer with success false and the message "Error: " + its text; other exceptions pass. The
  // answer's rows hold the target's memory. Callers run one command at a time. The floats, in
  // ascending order, are refused where an integer column cannot hold them; numbers that were typed
  // are not.
  ResultSet handleCommand(const std::string& command, JsonTarget&& target = {},
                          std::span<const BoundFloat> floats = {});
  // The same for a command of the log, at the second at which it first ran. Nothing is logged, a
  // CREATE TABLE does not refuse a table that is there, and a CHECKPOINT, which no log of the
  // engine's own holds, does nothing: it would empty the log that is being read.
  ResultSet replay(const std::string& command, std::int64_t second);

  // The conditions from the token behind WHERE to the end; none if there is no such token. Throws
  // std::runtime_error with a message that begins "Syntax Error: ".
  static std::vector<Condition> parseFiltering(const std::vector<Token>& tokens, std::size_t start);

 private:
  struct Rule {
    std::string_view word;
    std::size_t leastTokens;
    std::string_view secondToken;  // empty: any
    ResultSet (Parser::*handle)(const std::vector<Token>& tokens);
    bool isLogged;
    // What is done only once the command stands in the log.
    void (Parser::*afterLog)(const std::vector<Token>& tokens) = nullptr;
  };
  static std::span<const Rule> rules();

  // What handleCommand does, but for the memory of an answer without rows.
  ResultSet run(const std::string& command, std::int64_t second);
  // Reads the command's clock, and its text in front of the marker as tokens.
  void readTokens();
  // Runs the command that the tokens are, and logs it if it has changed something.
  ResultSet dispatch();
  // The rule for the tokens; throws if there is none.
  static const Rule& ruleFor(const std::vector<Token>& tokens);
  // Appends the command being run to the log, unless that is what is being replayed.
  void logCommand(const Rule& rule);

  // One function a command; each is called with enough tokens for its rule.
  ResultSet createTable(const std::vector<Token>& tokens);
  ResultSet dropTable(const std::vector<Token>& tokens);
  ResultSet checkpoint(const std::vector<Token>& tokens);
  ResultSet insertInto(const std::vector<Token>& tokens);
  ResultSet select(const std::vector<Token>& tokens);
  ResultSet selectJoin(TokenCursor cursor, const std::string& leftTable, std::size_t listEnd);
  ResultSet update(const std::vector<Token>& tokens);
  ResultSet deleteFrom(const std::vector<Token>& tokens);
  ResultSet link(const std::vector<Token>& tokens);
  void saveRelation(const std::vector<Token>& tokens);
  ResultSet listen(const std::vector<Token>& tokens);
  ResultSet begin(const std::vector<Token>& tokens);
  ResultSet commit(const std::vector<Token>& tokens);
  ResultSet rollback(const std::vector<Token>& tokens);

  // When the command ends in a filter that asks for one value, has the row that it may name brought
  // into the cache while the rest of the command is read: waiting for it takes as long as that.
  void prefetchRow(const std::vector<Token>& tokens, std::string_view tableName) const;
  // What parseFiltering gives, replacing the content of a list whose memory is used again.
  static void readConditions(const std::vector<Token>& tokens, std::size_t start,
                             std::vector<Condition>& conditions);
  // The conditions of the WHERE at the cursor, or none if there is none; until the next call.
  const std::vector<Condition>& optionalFilter(const TokenCursor& cursor);
  // Reads "column = value" up to the end, or up to a WHERE if that may follow; the values are there
  // until the next call.
  std::vector<GivenValue>& assignments(TokenCursor& cursor, std::string_view tableName,
                                       bool mayEndAtWhere);
  // Reads the value of one assignment to a column of the table.
  void assignedValue(TokenCursor& cursor, const Table& table, std::size_t column, Cell& cell) const;
  // Refuses a token that is no value for the column, or a bound float that it cannot hold.
  void checkValue(const Token& token, const Column& column, ValueKind kind) const;
  // Reads the states that follow the first value, if any, and gives the cell its rule.
  void timedLiteral(TokenCursor& cursor, const Column& column, Cell& cell) const;

  Database* db_;
  std::vector<Token> tokens_;             // of the command being run; keeps its memory for the next
  std::vector<Condition> conditions_;     // the same
  std::vector<GivenValue> values_;        // the same
  const std::string* command_ = nullptr;  // the text of the command being run
  std::span<const BoundFloat> floats_;    // those of this command
  std::int64_t now_ = 0;                  // the second at which it runs
  std::int64_t timedStart_ = 0;           // the second at which its timed values start
  bool isReplaying_ = false;
  JsonTarget* target_ = nullptr;  // of this command's answer
};

// The position of a command text's first clock marker that digits follow, or npos. What stands
// behind it is no part of the command, wherever it stands: a literal cannot hold one.
std::size_t findClockMarker(std::string_view text);

// Whether a token's text introduces a filter.
inline bool isWhere(std::string_view text) { return text == "WHERE" || text == "#where#"; }

}  // namespace velmora
