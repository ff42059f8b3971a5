// See lexer.h.
#include "lexer.h"

#include <algorithm>
#include <array>
#include <cstdint>

#include "number.h"

namespace velmora {
namespace {

// By first letter. "DROP" is not among them. Deliberate: hosts rely on DROP being written in
// capitals only.
constexpr std::array<std::string_view, 18> reservedWords = {
    "BEGIN", "CHECKPOINT", "COMMIT", "CREATE",   "DELETE", "FROM", "INSERT", "INTO",   "JOIN",
    "LINK",  "LISTEN",     "ON",     "ROLLBACK", "SELECT", "SET",  "TABLE",  "UPDATE", "WHERE"};

enum CharacterClass : std::uint8_t { wordPart = 1, space = 2 };

// The classes of each byte, and where the reserved words of each letter begin.
struct Tables {
  std::array<std::uint8_t, 256> classes = {};
  std::array<std::uint8_t, 27> firstReserved = {};

  constexpr Tables() {
    for (std::size_t i = 0; i < classes.size(); ++i) {
      const auto c = static_cast<char>(i);
      if (isLetter(c) || isDigit(c) || c == '_') classes[i] |= wordPart;
      if (isSpace(c)) classes[i] |= space;
    }
    std::size_t word = 0;
    for (std::size_t letter = 0; letter < firstReserved.size(); ++letter) {
      firstReserved[letter] = static_cast<std::uint8_t>(word);
      const auto first = static_cast<char>('A' + letter);
      while (word < reservedWords.size() && reservedWords[word].front() == first) ++word;
    }
  }
};
constexpr Tables tables;
static_assert(tables.firstReserved[26] == reservedWords.size(), "sorted by first letter");

bool isOf(CharacterClass characterClass, char c) {
  return (tables.classes[static_cast<unsigned char>(c)] & characterClass) != 0;
}

// A letter in capitals; other characters of a word become something that is no capital.
char toUpper(char c) { return static_cast<char>(c & ~0x20); }

// The reserved word that a text of word characters is in any case, or an empty view.
std::string_view reservedWord(std::string_view text) {
  if (!isLetter(text.front())) return {};
  const auto letter = static_cast<std::size_t>(toUpper(text.front()) - 'A');
  for (std::size_t i = tables.firstReserved[letter]; i < tables.firstReserved[letter + 1]; ++i) {
    const std::string_view word = reservedWords[i];
    if (word.size() == text.size() &&
        std::equal(text.begin(), text.end(), word.begin(),
                   [](char typed, char reserved) { return toUpper(typed) == reserved; })) {
      return word;
    }
  }
  return {};
}

}  // namespace

void Lexer::skipWhitespace() noexcept {
  while (pos_ < input_.size() && isOf(space, input_[pos_])) ++pos_;
}

Token Lexer::getNextToken() {
  skipWhitespace();
  if (pos_ >= input_.size()) return {TokenType::END_OF_INPUT, {}};
  const char c = input_[pos_];
  if (isOf(wordPart, c) && !isDigit(c)) return word();
  if (c == '\'' || c == '"') return stringLiteral();
  if (isDigit(c) || (c == '-' && isDigit(peek(1)))) return number();
  return operatorOrSymbol();
}

std::vector<Token> Lexer::tokenize() {
  std::vector<Token> tokens;
  tokenize(tokens);
  return tokens;
}

void Lexer::tokenize(std::vector<Token>& tokens) {
  tokens.clear();
  while (true) {
    const Token token = getNextToken();
    if (token.type == TokenType::END_OF_INPUT) return;
    tokens.push_back(token);
    if (token.type == TokenType::ERROR) return;
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
  while (pos_ < input_.size() && isOf(wordPart, input_[pos_])) ++pos_;
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
