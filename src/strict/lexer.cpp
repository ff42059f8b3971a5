// See lexer.h. Nothing is allocated for a token that is in order.
#include "lexer.h"

#include <algorithm>
#include <array>

#include "../failure.h"
#include "../number.h"
#include "../text.h"

namespace velmora::strict {
namespace {

// By size. AT, UNTIL, ASC, DESC, the functions and what SHOW shows are not among them: no name can
// stand where they do, and columns are called so.
constexpr std::array<std::string_view, 33> reservedWords = {
    "BY",     "IS",     "ON",     "NOT",      "SET",      "DROP",      "FROM",   "INTO",   "JOIN",
    "LINK",   "NULL",   "SHOW",   "TRUE",     "BEGIN",    "FALSE",     "GROUP",  "LIMIT",  "ORDER",
    "TABLE",  "WHERE",  "COMMIT", "CREATE",   "DELETE",   "INSERT",    "LISTEN", "OFFSET", "SELECT",
    "UNLINK", "UPDATE", "VACUUM", "ROLLBACK", "UNLISTEN", "CHECKPOINT"};
constexpr std::size_t longestReserved = reservedWords.back().size();

// Where the reserved words of each size begin.
constexpr std::array<std::size_t, longestReserved + 2> placesOfSizes() {
  std::array<std::size_t, longestReserved + 2> first = {};
  for (std::size_t size = 1; size < first.size(); ++size) {
    first[size] = first[size - 1];
    while (first[size] < reservedWords.size() && reservedWords[first[size]].size() < size) {
      ++first[size];
    }
  }
  return first;
}
constexpr std::array<std::size_t, longestReserved + 2> firstOfSize = placesOfSizes();
static_assert(std::is_sorted(reservedWords.begin(), reservedWords.end(),
                             [](auto a, auto b) { return a.size() < b.size(); }));

// The size of the sign that a text begins with; 0 for none.
std::size_t signSize(std::string_view text) noexcept {
  const char second = text.size() > 1 ? text[1] : '\0';
  switch (text.front()) {
    case '(':
    case ')':
    case '*':
    case ',':
    case '.':
    case '@':
    case '?':
      return 1;
    case '=':
    case '<':
    case '>':
      return second == '=' ? 2 : 1;
    case '!':
      return second == '=' ? 2 : 0;
    case '&':
    case '|':
      return second == text.front() ? 2 : 0;
    case '-':
      return text.starts_with("-->") ? 3 : 0;
    case '#':
      return text.starts_with("#TIME#") ? 6 : 0;
    default:
      return 0;
  }
}

bool isWordStart(char c) noexcept { return isLetter(c) || c == '_'; }

// A letter in capitals; other characters become none.
char toCapital(char c) noexcept { return static_cast<char>(c & ~0x20); }

// The first bytes of a text, without half a character at the end.
std::string_view cut(std::string_view text, std::size_t size) {
  if (text.size() <= size) return text;
  while (size > 0 && (static_cast<unsigned char>(text[size]) & 0xC0U) == 0x80U) --size;
  return text.substr(0, size);
}

}  // namespace

bool isWordPart(char c) noexcept { return isWordStart(c) || isDigit(c); }

bool isSameWord(std::string_view word, std::string_view capitals) noexcept {
  if (word.size() != capitals.size()) return false;
  for (std::size_t i = 0; i < word.size(); ++i) {
    if (toCapital(word[i]) != capitals[i]) return false;
  }
  return true;
}

bool isReservedWord(std::string_view word) noexcept {
  if (word.size() > longestReserved) return false;
  for (std::size_t i = firstOfSize[word.size()]; i < firstOfSize[word.size() + 1]; ++i) {
    if (isSameWord(word, reservedWords[i])) return true;
  }
  return false;
}

std::string contentOf(std::string_view literal) {
  const char quote = literal.front();
  std::string content;
  content.reserve(literal.size() - 2);
  for (std::size_t i = 1; i + 1 < literal.size(); ++i) {
    if (literal[i] == quote) ++i;  // the first one of two
    content += literal[i];
  }
  return content;
}

std::string shown(std::string_view piece) {
  constexpr std::size_t mostBytes = 60;
  const std::string_view beginning = cut(piece, mostBytes);
  const bool isWhole = beginning.size() == piece.size();
  return "'" + printable(beginning) + (isWhole ? "'" : "...'");
}

Token Lexer::next() {
  while (isSpace(peek())) ++next_;
  const std::size_t start = next_;
  const char first = peek();
  TokenType type = TokenType::sign;
  if (start == text_.size()) {
    type = TokenType::end;
  } else if (isWordStart(first)) {
    type = TokenType::word;
    while (isWordPart(peek())) ++next_;
  } else if (isDigit(first) || (first == '-' && isDigit(peek(1)))) {
    type = TokenType::number;
    takeNumber();
  } else if (first == '\'' || first == '"') {
    type = TokenType::literal;
    takeLiteral();
  } else {
    takeSign();
  }
  return {type, text_.substr(start, next_ - start)};
}

bool Lexer::takeDigits() noexcept {
  const std::size_t start = next_;
  while (isDigit(peek())) ++next_;
  return next_ > start;
}

void Lexer::takeNumber() {
  const std::size_t start = next_;
  if (peek() == '-') ++next_;
  bool isComplete = takeDigits();
  if (peek() == '.') {
    ++next_;
    isComplete = takeDigits();
  }
  if (isComplete && (peek() == 'e' || peek() == 'E')) {
    ++next_;
    if (peek() == '+' || peek() == '-') ++next_;
    isComplete = takeDigits();
  }
  if (isComplete && !isWordPart(peek()) && peek() != '.') return;
  while (isWordPart(peek()) || peek() == '.') ++next_;
  const std::string_view number = text_.substr(start, next_ - start);
  throw Failure(Code::syntax, "Malformed number " + shown(number)).at(start);
}

void Lexer::takeLiteral() {
  const std::size_t start = next_;
  const char quote = text_[start];
  do {
    const std::size_t end = text_.find(quote, next_ + 1);
    if (end == std::string_view::npos) {
      throw Failure(Code::syntax, "A literal that begins here has no end").at(start);
    }
    next_ = end + 1;
  } while (peek() == quote);
}

void Lexer::takeSign() {
  const std::string_view rest = text_.substr(next_);
  const std::size_t size = signSize(rest);
  if (size == 0) {
    const bool isAscii = static_cast<unsigned char>(rest.front()) < 0x80;
    const std::size_t shownSize = isAscii ? 1 : firstUtf8Sequence(rest).size;
    throw Failure(Code::syntax, "Unknown character " + shown(rest.substr(0, shownSize))).at(next_);
  }
  next_ += size;
}

}  // namespace velmora::strict
