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

constexpr std::size_t longestReserved = 10;

// What a token that begins with a character is.
enum class Start : std::uint8_t {
  unknown,
  space,
  word,
  number,
  literal,
  symbol,
  comparison,
  other
};

constexpr Start startOf(char c) {
  if (isSpace(c)) return Start::space;
  if (isLetter(c) || c == '_') return Start::word;
  if (isDigit(c)) return Start::number;
  if (c == '\'' || c == '"') return Start::literal;
  if (std::string_view("()*,.@").find(c) != std::string_view::npos) return Start::symbol;
  if (std::string_view("!<=>").find(c) != std::string_view::npos) return Start::comparison;
  if (std::string_view("-&|").find(c) != std::string_view::npos) return Start::other;
  return Start::unknown;
}

// By character: what begins with it, and whether it goes on with a word. By letter: where the
// reserved words begin that begin with it, and their sizes.
struct Tables {
  std::array<Start, 256> starts = {};
  std::array<bool, 256> isWordPart = {};
  std::array<std::uint8_t, 27> firstReserved = {};
  std::array<std::uint16_t, 26> reservedSizes = {};  // a bit for each size

  constexpr Tables() {
    for (std::size_t i = 0; i < starts.size(); ++i) {
      starts[i] = startOf(static_cast<char>(i));
      isWordPart[i] = starts[i] == Start::word || starts[i] == Start::number;
    }
    std::size_t word = 0;
    for (std::size_t letter = 0; letter < firstReserved.size(); ++letter) {
      firstReserved[letter] = static_cast<std::uint8_t>(word);
      const auto first = static_cast<char>('A' + letter);
      while (word < reservedWords.size() && reservedWords[word].front() == first) {
        reservedSizes[letter] |= static_cast<std::uint16_t>(1U << reservedWords[word].size());
        ++word;
      }
    }
  }
};
constexpr Tables tables;
static_assert(tables.firstReserved[26] == reservedWords.size(), "sorted by first letter");
static_assert(std::all_of(reservedWords.begin(), reservedWords.end(),
                          [](std::string_view word) { return word.size() <= longestReserved; }));

Start startAt(const char* at) { return tables.starts[static_cast<unsigned char>(*at)]; }
bool isWordPart(char c) { return tables.isWordPart[static_cast<unsigned char>(c)]; }

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
  if (!isLetter(text.front()) || text.size() > longestReserved) return {};
  const auto letter = static_cast<std::size_t>(toUpper(text.front()) - 'A');
  if ((tables.reservedSizes[letter] >> text.size() & 1U) == 0) return {};
  for (std::size_t i = tables.firstReserved[letter]; i < tables.firstReserved[letter + 1]; ++i) {
    const std::string_view word = reservedWords[i];
    if (word.size() == text.size() && isSameWord(text, word)) return word;
  }
  return {};
}

}  // namespace

void Lexer::skipWhitespace() noexcept {
  const char* next = next_;
  while (next < end_ && startAt(next) == Start::space) ++next;
  next_ = next;
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
  const char* const start = next_;
  switch (startAt(start)) {
    case Start::word:
      word(token);
      break;
    case Start::number:
      number(token);
      break;
    case Start::literal:
      stringLiteral(token);
      break;
    case Start::symbol:
      advance();
      token.type = TokenType::SYMBOL;
      token.value = textFrom(start);
      break;
    case Start::comparison:
      advance();
      if (peek(0) == '=') advance();
      token.type = TokenType::OPERATOR;
      token.value = textFrom(start);
      break;
    default:
      otherOperator(token);
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
  while (end < end_ && isWordPart(*end)) ++end;
  const std::string_view typed(next_, static_cast<std::size_t>(end - next_));
  next_ = end;
  const std::string_view reserved = reservedWord(typed);
  token.type = reserved.empty() ? TokenType::IDENTIFIER : TokenType::KEYWORD;
  token.value = reserved.empty() ? typed : reserved;
}

void Lexer::otherOperator(Token& token) {
  const char* const start = next_;
  const char c = advance();
  if (c == '-' && isDigit(peek(0))) {
    next_ = start;
    number(token);
    return;
  }
  const bool isArrow = c == '-' && peek(0) == '-' && peek(1) == '>';
  const bool isLogic = (c == '&' || c == '|') && peek(0) == c;
  if (!isArrow && !isLogic) return unknownCharacter(c, token);
  next_ += isArrow ? 2 : 1;
  token.type = TokenType::OPERATOR;
  token.value = textFrom(start);
}

void Lexer::unknownCharacter(char c, Token& token) {
  message_ = std::string("Unknown character: ") + c;
  token.type = TokenType::ERROR;
  token.value = message_;
}

}  // namespace velmora
