// The lexer of the strict language: cuts a text into tokens, one at a time, and refuses what is no
// token with the byte offset of it. It knows the reserved words, which are no names; what else
// words mean is the parser's affair.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace velmora::strict {

enum class TokenType : std::uint8_t {
  word,     // [A-Za-z_][A-Za-z0-9_]*
  number,   // digits, with "-" before, a fraction and an exponent behind
  literal,  // with its quotes; a quote inside stands doubled
  sign,     // ( ) * , . @ ? = == != < <= > >= && || --> #TIME#
  end
};
// The text is a view into the command's; that of the end is empty and lies there.
struct Token {
  TokenType type = TokenType::end;
  std::string_view text;
};

class Lexer {
 public:
  // The text has to stay for as long as the tokens are used.
  explicit Lexer(std::string_view text) : text_(text) {}

  // The next token; the end again behind the end. Throws Failure with Code::syntax.
  Token next();
  std::size_t offsetOf(const Token& token) const noexcept {
    return static_cast<std::size_t>(token.text.data() - text_.data());
  }

 private:
  // The character `distance` behind the next one; 0 past the end.
  char peek(std::size_t distance = 0) const noexcept {
    return distance < text_.size() - next_ ? text_[next_ + distance] : '\0';
  }
  // Each takes one token.
  void takeNumber();
  void takeLiteral();
  void takeSign();
  // Takes digits; whether there are any.
  bool takeDigits() noexcept;

  std::string_view text_;
  std::size_t next_ = 0;
};

// Whether a character goes on with a word, or with a number.
bool isWordPart(char c) noexcept;
// Whether two words are the same but for their case; the second one is in capitals.
bool isSameWord(std::string_view word, std::string_view capitals) noexcept;
// Whether a word, in any case, can be no name.
bool isReservedWord(std::string_view word) noexcept;
// What the characters of a literal token are without its quotes.
std::string contentOf(std::string_view literal);
// A piece of a command in quotes, as messages show it: printable, and cut if it is long.
std::string shown(std::string_view piece);

}  // namespace velmora::strict
