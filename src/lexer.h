// The lexer: cuts a command text into tokens in one pass. It knows the reserved words and nothing
// else of the grammar. There are no escapes in literals: a quote ends with the next one of its
// kind.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace velmora {

enum class TokenType : std::int32_t {
  KEYWORD,     // a reserved word in any case; value in capitals
  IDENTIFIER,  // any other word, as typed
  STRING,      // a quoted literal, without its quotes
  NUMBER,      // as typed, with a leading "-"
  OPERATOR,    // = < > ! == <= >= != && || -->
  SYMBOL,      // ( ) * , . @
  END_OF_INPUT,
  ERROR,  // value is the message
};

// A token's value is a view: into the command text, into the program's own constants, or (for
// ERROR) into the lexer. It lives as long as both the text and the lexer.
struct Token {
  TokenType type = TokenType::END_OF_INPUT;
  std::string_view value;
};

class Lexer {
 public:
  // The text is not copied and must outlive the lexer and its tokens.
  explicit Lexer(std::string_view input) : next_(input.data()), end_(input.data() + input.size()) {}

  // The character `offset` behind the next unread one; 0 past the end.
  char peek(std::size_t offset) const noexcept {
    return offset < static_cast<std::size_t>(end_ - next_) ? next_[offset] : '\0';
  }
  // Takes one character; 0 at the end.
  char advance() noexcept { return next_ < end_ ? *next_++ : '\0'; }
  void skipWhitespace() noexcept;
  // Takes one token.
  Token getNextToken();
  // Takes all tokens. No END_OF_INPUT is stored; an ERROR is the last one and ends the list. Bad
  // input never throws.
  std::vector<Token> tokenize();
  // The same, behind the tokens of a list.
  void tokenize(std::vector<Token>& tokens);

 private:
  // Each takes one token, into its place: tokens are many, and copying one stalls on its fields.
  void scan(Token& token);
  void stringLiteral(Token& token);
  void number(Token& token);
  void word(Token& token);
  // A negative number, or an operator that is not a comparison.
  void otherOperator(Token& token);
  void unknownCharacter(char c, Token& token);
  // The text from `start` up to the next unread character.
  std::string_view textFrom(const char* start) const {
    return {start, static_cast<std::size_t>(next_ - start)};
  }

  const char* next_;  // the next unread character
  const char* end_;
  std::string message_;
};

}  // namespace velmora
