// The frame around every command: the clock marker is cut off, the text becomes tokens, the first
// of them chooses the command, failures become answers, and what changed something is logged. The
// commands themselves stand in the other sources of this room.
#include <algorithm>
#include <array>
#include <stdexcept>

#include "../clock.h"
#include "../number.h"
#include "parser.h"

namespace velmora {
namespace {

// An answer without success whose message goes out as it stands.
ResultSet failed(std::string message) {
  ResultSet result = successful(std::move(message));
  result.success = false;
  return result;
}

[[noreturn]] void throwInvalidClock() { throw std::runtime_error("Invalid #TIME# clock"); }

// In the log, what follows a marker on a further line would be read as another command.
bool hasTextOnFurtherLine(std::string_view text) {
  const std::size_t lineFeed = text.find('\n');
  if (lineFeed == std::string_view::npos) return false;
  for (const char c : text.substr(lineFeed)) {
    if (!isSpace(c)) return true;
  }
  return false;
}

}  // namespace

MarkedText cutAtClockMarker(std::string_view text) {
  // The '#' is rare in commands, so it is what is searched for.
  for (std::size_t hash = text.find('#'); hash != std::string_view::npos;
       hash = text.find('#', hash + 1)) {
    if (hash == 0) continue;
    const std::string_view rest = text.substr(hash - 1);
    if (rest.starts_with(clockMarker) && rest.size() > clockMarker.size() &&
        isDigit(rest[clockMarker.size()])) {
      return {text.substr(0, hash - 1), rest.substr(clockMarker.size())};
    }
  }
  return {text, std::nullopt};
}

// In the order in which they are tried.
std::span<const Parser::Rule> Parser::rules() {
  static constexpr std::array<Rule, 12> table = {{
      {"BEGIN", 1, "", &Parser::begin, false},
      {"CHECKPOINT", 1, "", &Parser::checkpoint, false},
      {"ROLLBACK", 1, "", &Parser::rollback, false},
      {"COMMIT", 1, "", &Parser::commit, false},
      {"CREATE", 4, "TABLE", &Parser::createTable, true},
      {"DROP", 3, "TABLE", &Parser::dropTable, false},
      {"INSERT", 4, "INTO", &Parser::insertInto, true},
      {"SELECT", 4, "", &Parser::select, false},
      {"UPDATE", 5, "", &Parser::update, true},
      {"DELETE", 3, "FROM", &Parser::deleteFrom, true},
      {"LISTEN", 6, "", &Parser::listen, false},
      {"LINK", 8, "", &Parser::link, true, &Parser::saveRelation},
  }};
  return table;
}

ResultSet Parser::handleCommand(const std::string& command, TextBuffer&& memory) {
  const std::int64_t now = clock::now();
  Command read{&command, {}, now, now, memory};
  ResultSet result = answerTo(read);
  result.rows.offerMemory(std::move(memory));
  return result;
}

ResultSet Parser::answerTo(Command& command) {
  try {
    readTokens(command);
    return isSelectionRead_ ? selectAgain(command) : dispatch(command);
  } catch (const std::runtime_error& error) {
    return refused(error.what());
  }
}

void Parser::replay(const ReplayedCommand& command) {
  TextBuffer memory;
  const std::int64_t second = command.second ? *command.second : clock::now();
  dispatch({nullptr, command.tokens, second, command.timedStart.value_or(second), memory});
}

void Parser::readTokens(Command& command) {
  const MarkedText text = cutAtClockMarker(*command.text);
  if (text.clock) {
    if (convertLong(*text.clock, command.timedStart) != Conversion::ok) throwInvalidClock();
    if (hasTextOnFurtherLine(*text.clock)) throwInvalidClock();
  }
  if (!readLastNumber(text.command)) {
    beginning_.clear();
    tokens_.clear();
    isSelectionRead_ = false;
    // The message of an ERROR goes with the lexer; nobody asks for it.
    Lexer(text.command).tokenize(tokens_);
    keepBeginning(text.command);
  }
  command.tokens = tokens_;
}

bool Parser::readLastNumber(std::string_view text) {
  const bool isSame = !beginning_.empty() && text.data() == beginningPlace_ &&
                      text.size() > beginning_.size() && text.starts_with(beginning_);
  if (!isSame) return false;
  const std::string_view number = text.substr(beginning_.size());
  if (!std::all_of(number.begin(), number.end(), isDigit)) return false;
  tokens_.back().value = number;
  return true;
}

void Parser::keepBeginning(std::string_view text) {
  if (tokens_.empty() || tokens_.back().type != TokenType::NUMBER) return;
  const std::string_view number = tokens_.back().value;
  // What stands in front of a sign may be another token in front of a digit.
  if (!isDigit(number.front())) return;
  beginning_.assign(text.data(), number.data());
  beginningPlace_ = text.data();
}

ResultSet Parser::dispatch(const Command& command) {
  if (command.tokens.empty()) return failed("Empty command");
  if (command.tokens.back().type == TokenType::ERROR) return failed("Lexer Error");
  const Rule& rule = ruleFor(command.tokens);
  ResultSet result = (this->*rule.handle)(command);
  if (!result.success || !rule.isLogged) return result;
  const bool isInLog = command.isReplayed() || db_->log.append(*command.text, command.second);
  if (isInLog && rule.afterLog != nullptr) (this->*rule.afterLog)(command);
  return result;
}

const Parser::Rule& Parser::ruleFor(std::span<const Token> tokens) {
  const std::string_view word = tokens.front().value;
  for (const Rule& rule : rules()) {
    // Most rules are passed by at the first letter.
    if (!word.starts_with(rule.word.front()) || word != rule.word) continue;
    if (tokens.size() < rule.leastTokens) continue;
    if (rule.secondToken.empty() || tokens[1].value == rule.secondToken) return rule;
  }
  throw std::runtime_error("Unknown command or missing parameters");
}

}  // namespace velmora
