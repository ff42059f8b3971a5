// The parser: the one entry from a command's text to the engine. It cuts the text into tokens,
// chooses the command by the first one, checks the command's shape, calls one operation of the
// Database, and logs what changed something.
//
//   dispatcher.cpp       the frame and the table of commands
//   row_commands.cpp     INSERT, SELECT, UPDATE, DELETE
//   timed_literals.cpp   values and timed values
//   filter.cpp           WHERE
//   other_commands.cpp   CREATE, DROP, CHECKPOINT, LINK, LISTEN, transactions
//   replayed_commands    the log's commands, cut into tokens for a start
#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "../database/database.h"
#include "../lexer.h"
#include "replayed_commands.h"

namespace velmora {

// Walks the tokens of one command.
class TokenCursor {
 public:
  TokenCursor(std::span<const Token> tokens, std::size_t start)
      : position(start), tokens_(tokens) {}

  std::span<const Token> tokens() const noexcept { return tokens_; }
  bool atEnd() const noexcept { return position >= tokens_.size(); }
  // The token `offset` further on, or null past the end.
  const Token* peek(std::size_t offset = 0) const noexcept {
    return position + offset < tokens_.size() ? &tokens_[position + offset] : nullptr;
  }
  // Whether the next token has this text, whatever its type; or this type and text.
  bool nextIs(std::string_view text) const noexcept {
    return !atEnd() && tokens_[position].value == text;
  }
  bool nextIs(TokenType type, std::string_view text) const noexcept {
    return nextIs(text) && tokens_[position].type == type;
  }
  // Takes the next token; throws std::runtime_error with the message if there is none, or if it has
  // not this text or type.
  const Token& take(const char* message) {
    require(!atEnd(), message);
    return tokens_[position++];
  }
  const Token& take(TokenType type, const char* message) {
    require(!atEnd() && tokens_[position].type == type, message);
    return tokens_[position++];
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

  std::span<const Token> tokens_;
};

// One command on its way through the parser.
struct Command {
  const std::string* text;        // as it was given; null if it comes from the log
  std::span<const Token> tokens;  // of what stands in front of its clock marker
  std::int64_t second;            // at which it runs
  std::int64_t timedStart;        // at which its timed values start
  TextBuffer& memory;             // of an earlier answer, for its own

  // Whether it comes from the log, and does not go there.
  bool isReplayed() const noexcept { return text == nullptr; }
};

class Parser {
 public:
  // The database is not owned and must outlive the parser.
  explicit Parser(Database* db) : db_(db) {}

  // Runs one command, at the second that the clock shows. Every std::runtime_error becomes an
  // answer with success false and the message "Error: " + its text; other exceptions pass. The
  // answer's rows hold the memory, which may be an earlier answer's. Callers run one command at a
  // time.
  ResultSet handleCommand(const std::string& command, TextBuffer&& memory = {});
  // Runs a command of the log, at the second at which it first ran; throws what it fails with.
  // Nothing is logged, a CREATE TABLE does not refuse a table that is there, and a CHECKPOINT,
  // which no log of the engine's own holds, does nothing: it would empty the log that is being
  // read.
  void replay(const ReplayedCommand& command);

  // Replaces the list, whose memory is used again, by the conditions from the token behind WHERE to
  // the end; none if there is no such token. Throws std::runtime_error with a message that begins
  // "Syntax Error: ".
  static void parseFiltering(std::span<const Token> tokens, std::size_t start,
                             std::vector<Condition>& conditions);

 private:
  struct Rule {
    std::string_view word;
    std::size_t leastTokens;
    std::string_view secondToken;  // empty: any
    ResultSet (Parser::*handle)(const Command& command);
    bool isLogged;
    // What is done only once the command stands in the log.
    void (Parser::*afterLog)(const Command& command) = nullptr;
  };
  static std::span<const Rule> rules();

  // Runs a command; every std::runtime_error becomes an answer.
  ResultSet answerTo(Command& command);
  // Reads the command's clock marker, and its text in front of that as tokens.
  void readTokens(Command& command);
  // The same where the text goes on with another number than the one before; false if it does not.
  bool readLastNumber(std::string_view text);
  // To be called with the text that the tokens were read from.
  void keepBeginning(std::string_view text);
  // Runs the command that the tokens are, and logs it if it has changed something. Throws
  // std::runtime_error.
  ResultSet dispatch(const Command& command);
  // The rule for the tokens; throws if there is none.
  static const Rule& ruleFor(std::span<const Token> tokens);

  // One function a command; each is called with enough tokens for its rule.
  ResultSet createTable(const Command& command);
  ResultSet dropTable(const Command& command);
  ResultSet checkpoint(const Command& command);
  ResultSet insertInto(const Command& command);
  ResultSet select(const Command& command);
  // The same for one that differs from the one before in the last value of its filter alone.
  ResultSet selectAgain(const Command& command);
  // Runs a SELECT of one table that has been read.
  ResultSet runSelection(const Command& command);
  ResultSet selectJoin(const Command& command, TokenCursor cursor, const std::string& leftTable,
                       std::size_t listEnd);
  ResultSet update(const Command& command);
  ResultSet deleteFrom(const Command& command);
  ResultSet link(const Command& command);
  void saveRelation(const Command& command);
  ResultSet listen(const Command& command);
  ResultSet begin(const Command& command);
  ResultSet commit(const Command& command);
  ResultSet rollback(const Command& command);

  // When the command ends in a filter that asks for one value, has the row that it may name brought
  // into the cache while the rest of the command is read: waiting for it takes as long as that.
  void prefetchRow(std::span<const Token> tokens, std::string_view tableName) const;
  // The conditions of the WHERE at the cursor, or none if there is none; until the next call.
  const std::vector<Condition>& optionalFilter(const TokenCursor& cursor);
  // Reads "column = value" up to the end, or up to a WHERE if that may follow; the values are there
  // until the next call.
  std::vector<GivenValue>& assignments(const Command& command, TokenCursor& cursor,
                                       std::string_view tableName, bool mayEndAtWhere);

  Database* db_;
  // Of the command being run; they keep their memory for the next.
  std::vector<Token> tokens_;
  std::vector<Condition> conditions_;
  std::vector<GivenValue> values_;
  // What stood in front of the last token where that was a number, else empty, and where it lay,
  // which the tokens refer to. Who asks for one row after another changes nothing but that number.
  std::string beginning_;
  const char* beginningPlace_ = nullptr;
  // The table and the columns that a SELECT asks for, beside its conditions. Where the last value
  // of these is all that the next one changes, nothing else is read anew.
  std::string selectedTable_;
  std::vector<std::string> selectedColumns_;
  bool isSelectionRead_ = false;
};

// A command text up to its first clock marker that digits follow, and what stands behind that,
// which is no part of the command, wherever it stands: a literal cannot hold one.
struct MarkedText {
  std::string_view command;
  std::optional<std::string_view> clock;
};
MarkedText cutAtClockMarker(std::string_view text);

// Whether a token's text introduces a filter.
inline bool isWhere(std::string_view text) { return text == "WHERE" || text == "#where#"; }

}  // namespace velmora
