// The cursor: walks the tokens of one command with a token in sight, and reads what all commands
// are made of, names and values. What is not as the command needs it leaves as Failure, with the
// byte offset of the word at fault; a text that ends too early has the offset of its end.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "lexer.h"
#include "statement.h"

namespace velmora::strict {

class Cursor {
 public:
  // The text has to stay.
  explicit Cursor(std::string_view text) : lexer_(text), token_(lexer_.next()) {}

  const Token& token() const noexcept { return token_; }
  std::size_t offset() const noexcept { return lexer_.offsetOf(token_); }
  bool atEnd() const noexcept { return token_.type == TokenType::end; }
  bool nextIs(std::string_view sign) const noexcept { return token_.text == sign; }
  bool nextIsWord(std::string_view capitals) const noexcept {
    return isSameWord(token_.text, capitals);
  }
  Token take();
  // Takes the token if it is that sign, or that word in any case; whether it was.
  bool skip(std::string_view sign);
  bool skipWord(std::string_view capitals);
  // Takes the sign or word, or refuses what is there instead.
  void expect(std::string_view sign);
  void expectWord(std::string_view capitals);

  // What is expected goes into the message: "a column name".
  Name name(std::string_view expected);
  Name tableName() { return name("a table name"); }
  ColumnName columnName();  // [table "."] column
  Operand operand(std::string_view expected = "a value");
  // An operand that is a whole number between two limits if it is a literal.
  Operand wholeNumber(std::int64_t least, std::int64_t most);
  Operand second();

  // Throws the failure that tells what is expected and what is found.
  [[noreturn]] void refuse(std::string_view expected) const;

  // How many of the operands read so far are parameters.
  int parameterCount = 0;

 private:
  Lexer lexer_;
  Token token_;
};

}  // namespace velmora::strict
