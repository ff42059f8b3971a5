// See lexer.h.
#include "lexer.h"

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

// Whether two texts of the same size are the same word but for its case.
bool isSameWord(std::string_view typed, std::string_view reserved) {
  for (std::size_t i = 0; i < typed.size(); ++i) {
    if (toUpper(typed[i]) != reserved[i]) return false;
  }
  return true;
}

// The reserved word that a text of word characters is in any case, or an empty view.
std::string_view reservedWord(std::string_view text) {
  if (!isLetter(text.front())) return {};
  const auto letter = static_cast<std::size_t>(toUpper(text.front()) - 'A');
  for (std::size_t i = tables.firstReserved[letter]; i < tables.firstReserved[letter + 1]; ++i) {
    const std::string_view word = reservedWords[i];
    if (word.size() == text.size() && isSameWord(text, word)) return word;
  }
  return {};
}

}  // namespace

void Lexer::skipWhitespace() noexcept {
  while (next_ < end_ && isOf(space, *next_)) ++next_;
}

Token Lexer::getNextToken() {
  Token token;
  scan(token);
  return token;
}

std::vector<Token> Lexer::tokenize() {
  std::vector<Token> tokens;
  tokenize(tokens);
  return tokens;
}

void Lexer::tokenize(std::vector<Token>& tokens) {
  tokens.clear();
  while (true) {
    Token& token = tokens.emplace_back();
    scan(token);
    if (token.type == TokenType::ERROR) return;
    if (token.type == TokenType::END_OF_INPUT) break;
  }
  tokens.pop_back();
}

void Lexer::scan(Token& token) {
  skipWhitespace();
  if (next_ == end_) {
    token.type = TokenType::END_OF_INPUT;
    return;
  }
  const char c = *next_;
  if (isOf(wordPart, c) && !isDigit(c)) {
    word(token);
  } else if (c == '\'' || c == '"') {
    stringLiteral(token);
  } else if (isDigit(c) || (c == '-' && isDigit(peek(1)))) {
    number(token);
  } else {
    operatorOrSymbol(token);
  }
}

void Lexer::stringLiteral(Token& token) {
  const char quote = advance();
  const char* const start = next_;
  while (next_ < end_ && *next_ != quote && *next_ != '\0') ++next_;
  if (peek(0) != quote) {
    token.type = TokenType::ERROR;
    token.value = "Unterminated string literal";
    return;
  }
  token.type = TokenType::STRING;
  token.value = textFrom(start);
  advance();
}

void Lexer::number(Token& token) {
  const char* const start = next_;
  advance();
  bool hasPoint = false;
  while (isDigit(peek(0)) || (peek(0) == '.' && !hasPoint)) {
    if (advance() == '.') hasPoint = true;
  }
  token.type = TokenType::NUMBER;
  token.value = textFrom(start);
}

void Lexer::word(Token& token) {
  const char* end = next_ + 1;
  while (end < end_ && isOf(wordPart, *end)) ++end;
  const std::string_view typed(next_, static_cast<std::size_t>(end - next_));
  next_ = end;
  const std::string_view reserved = reservedWord(typed);
  token.type = reserved.empty() ? TokenType::IDENTIFIER : TokenType::KEYWORD;
  token.value = reserved.empty() ? typed : reserved;
}

void Lexer::operatorOrSymbol(Token& token) {
  const char* const start = next_;
  token.type = TokenType::OPERATOR;
  const char c = advance();
  switch (c) {
    case '(':
    case ')':
    case '*':
    case ',':
    case '.':
    case '@':
      token.type = TokenType::SYMBOL;
      break;
    case '!':
    case '<':
    case '=':
    case '>':
      if (peek(0) == '=') advance();
      break;
    case '&':
    case '|':
      if (peek(0) != c) return unknownCharacter(c, token);
      advance();
      break;
    case '-':
      if (peek(0) != '-' || peek(1) != '>') return unknownCharacter(c, token);
      next_ += 2;
      break;
    default:
      return unknownCharacter(c, token);
  }
  token.value = textFrom(start);
}

void Lexer::unknownCharacter(char c, Token& token) {
  message_ = std::string("Unknown character: ") + c;
  token.type = TokenType::ERROR;
  token.value = message_;
}

}  // namespace velmora
