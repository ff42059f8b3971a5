// See tokens.h. The text is cut from the front, token by token.
#include "model/tokens.h"

#include <set>
#include <stdexcept>

#include "model/values.h"

namespace model {

namespace {

bool isDigit(char c) { return c >= '0' && c <= '9'; }
bool isLetter(char c) { return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z'); }
bool isBlank(char c) { return c == ' ' || (c >= '\t' && c <= '\r'); }

std::string upper(std::string text) {
  for (char& c : text) {
    if (c >= 'a' && c <= 'z') c = static_cast<char>(c - 'a' + 'A');
  }
  return text;
}

bool isReserved(const std::string& word) {
  static const std::set<std::string> words = {
      "CREATE", "TABLE", "INSERT", "INTO",  "SELECT", "FROM",     "WHERE", "UPDATE", "SET",
      "DELETE", "LINK",  "LISTEN", "BEGIN", "COMMIT", "ROLLBACK", "JOIN",  "ON",     "CHECKPOINT"};
  return words.count(word) == 1;
}

// The length of the number at the start of `text`: a sign, digits, one point.
std::size_t numberLength(const std::string& text) {
  std::size_t length = 1;
  bool point = false;
  while (length < text.size() && (isDigit(text[length]) || (text[length] == '.' && !point))) {
    point = point || text[length] == '.';
    ++length;
  }
  return length;
}

std::size_t wordLength(const std::string& text) {
  std::size_t length = 0;
  while (length < text.size() &&
         (isLetter(text[length]) || isDigit(text[length]) || text[length] == '_')) {
    ++length;
  }
  return length;
}

std::size_t operationLength(const std::string& text) {
  if (text.substr(0, 3) == "-->") return 3;
  const std::string two = text.substr(0, 2);
  if (two == "&&" || two == "||") return 2;
  if (std::string("!<=>").find(text[0]) == std::string::npos) return 0;
  return two.size() == 2 && two[1] == '=' ? 2 : 1;
}

// Cuts one token off the front of `text`, which begins with no blank; false for what is none.
bool takeToken(std::string& text, std::vector<Token>& tokens) {
  const char c = text[0];
  std::size_t length = 1;
  if (c == '\'' || c == '"') {
    const std::size_t end = text.find(c, 1);
    if (end == std::string::npos || text.substr(0, end).find('\0') != std::string::npos) {
      return false;
    }
    tokens.push_back({Kind::literal, text.substr(1, end - 1)});
    text = text.substr(end + 1);
    return true;
  }
  if (isDigit(c) || (c == '-' && text.size() > 1 && isDigit(text[1]))) {
    length = numberLength(text);
    tokens.push_back({Kind::number, text.substr(0, length)});
  } else if (isLetter(c) || c == '_') {
    length = wordLength(text);
    const std::string word = text.substr(0, length);
    const bool reserved = isReserved(upper(word));
    tokens.push_back({reserved ? Kind::reserved : Kind::word, reserved ? upper(word) : word});
  } else if (operationLength(text) > 0) {
    length = operationLength(text);
    tokens.push_back({Kind::operation, text.substr(0, length)});
  } else if (std::string("()*,.@").find(c) != std::string::npos && c != '\0') {
    tokens.push_back({Kind::symbol, std::string(1, c)});
  } else {
    return false;
  }
  text = text.substr(length);
  return true;
}

}  // namespace

std::optional<std::vector<Token>> tokenize(std::string text) {
  std::vector<Token> tokens;
  while (true) {
    while (!text.empty() && isBlank(text[0])) text = text.substr(1);
    if (text.empty()) return tokens;
    if (!takeToken(text, tokens)) return std::nullopt;
  }
}

std::int64_t takeClock(std::string& command, std::int64_t now) {
  const std::string marker = " #TIME# ";
  for (std::size_t at = command.find(marker); at != std::string::npos;
       at = command.find(marker, at + 1)) {
    const std::string digits = command.substr(at + marker.size());
    if (digits.empty() || !isDigit(digits[0])) continue;
    command = command.substr(0, at);
    try {
      return std::stoll(digits);
    } catch (const std::out_of_range&) {
      fail("Invalid #TIME# clock");
    }
  }
  return now;
}

}  // namespace model
