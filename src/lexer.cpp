// See lexer.h.
#include "lexer.h"

#include <algorithm>
#include <array>

#include "number.h"

namespace velmora {
namespace {

// "DROP" is not among them. Deliberate: hosts rely on DROP being written in capitals only.
constexpr std::array<std::string_view, 18> reservedWords = {
    "CREATE", "TABLE", "INSERT", "INTO",  "SELECT", "FROM",     "WHERE", "UPDATE", "SET",
    "DELETE", "LINK",  "LISTEN", "BEGIN", "COMMIT", "ROLLBACK", "JOIN",  "ON",     "CHECKPOINT"};

constexpr bool isWordStart(char c) { return isLetter(c) || c == '_'; }
constexpr bool isWordPart(char c) { return isWordStart(c) || isDigit(c); }
constexpr char toUpper(char c) { return c >= 'a' && c <= 'z' ? static_cast<char>(c - 32) : c; }

// The reserved word that the text is in any case, or an empty view.
std::string_view reservedWord(std::string_view text) {
  for (const std::string_view word : reservedWords) {
    if (word.size() == text.size() && word.front() == toUpper(text.front()) &&
        std::equal(text.begin(), text.end(), word.begin(),
                   [](char typed, char reserved) { return toUpper(typed) == reserved; })) {
      return word;
    }
  }
  return {};
}

}  // namespace

void Lexer::skipWhitespace() noexcept {
  while (pos_ < input_.size() && isSpace(input_[pos_])) ++pos_;
}

Token Lexer::getNextToken() {
  skipWhitespace();
  if (pos_ >= input_.size()) return {TokenType::END_OF_INPUT, {}};
  const char c = input_[pos_];
  if (isWordStart(c)) return word();
  if (c == '\'' || c == '"') return stringLiteral();
  if (isDigit(c) || (c == '-' && isDigit(peek(1)))) return number();
  return operatorOrSymbol();
}

std::vector<Token> Lexer::tokenize() {
  std::vector<Token> tokens;
  tokens.reserve(std::min<std::size_t>(input_.size() / 3 + 1, 32));
  while (true) {
    const Token token = getNextToken();
    if (token.type == TokenType::END_OF_INPUT) return tokens;
    tokens.push_back(token);
    if (token.type == TokenType::ERROR) return tokens;
  }
}

Token Lexer::stringLiteral() {
  const char quote = advance();
  const std::size_t start = pos_;
  while (pos_ < input_.size() && input_[pos_] != quote && input_[pos_] != '\0') ++pos_;
  if (peek(0) != quote) return {TokenType::ERROR, "Unterminated string literal"};
  const Token token{TokenType::STRING, textFrom(start)};
  advance();
  return token;
}

Token Lexer::number() {
  const std::size_t start = pos_;
  advance();
  bool hasPoint = false;
  while (isDigit(peek(0)) || (peek(0) == '.' && !hasPoint)) {
    if (advance() == '.') hasPoint = true;
  }
  return {TokenType::NUMBER, textFrom(start)};
}

Token Lexer::word() {
  const std::size_t start = pos_;
  while (pos_ < input_.size() && isWordPart(input_[pos_])) ++pos_;
  const std::string_view typed = textFrom(start);
  const std::string_view reserved = reservedWord(typed);
  if (!reserved.empty()) return {TokenType::KEYWORD, reserved};
  return {TokenType::IDENTIFIER, typed};
}

Token Lexer::operatorOrSymbol() {
  const std::size_t start = pos_;
  const char c = advance();
  switch (c) {
    case '(':
    case ')':
    case '*':
    case ',':
    case '.':
    case '@':
      return {TokenType::SYMBOL, textFrom(start)};
    case '!':
    case '<':
    case '=':
    case '>':
      if (peek(0) == '=') advance();
      return {TokenType::OPERATOR, textFrom(start)};
    case '&':
    case '|':
      if (peek(0) == c) {
        advance();
        return {TokenType::OPERATOR, textFrom(start)};
      }
      break;
    case '-':
      if (peek(0) == '-' && peek(1) == '>') {
        pos_ += 2;
        return {TokenType::OPERATOR, textFrom(start)};
      }
      break;
    default:
      break;
  }
  message_ = std::string("Unknown character: ") + c;
  return {TokenType::ERROR, message_};
}

}  // namespace velmora
