// See cursor.h.
#include "cursor.h"

#include <charconv>
#include <limits>
#include <utility>

#include "../failure.h"

namespace velmora::strict {
namespace {

// Of digits that fit 64 bits a whole number, of all others a float.
Value numberOf(std::string_view text, std::size_t offset) {
  const char* const end = text.data() + text.size();
  std::int64_t whole = 0;
  const auto [wholeEnd, wholeError] = std::from_chars(text.data(), end, whole);
  if (wholeError == std::errc() && wholeEnd == end) return whole;
  double real = 0;
  if (std::from_chars(text.data(), end, real).ec != std::errc()) {
    throw Failure(Code::range, "No double can hold " + shown(text)).at(offset);
  }
  return real;
}

}  // namespace

void Cursor::refuse(std::string_view expected) const {
  const bool isReserved = token_.type == TokenType::word && isReservedWord(token_.text);
  const std::string found =
      atEnd() ? "the end of the command" : (isReserved ? "the word " : "") + shown(token_.text);
  throw Failure(Code::syntax, "Expected " + std::string(expected) + ", found " + found)
      .at(offset());
}

Token Cursor::take() { return std::exchange(token_, lexer_.next()); }

bool Cursor::skip(std::string_view sign) {
  if (!nextIs(sign)) return false;
  take();
  return true;
}

bool Cursor::skipWord(std::string_view capitals) {
  if (!nextIsWord(capitals)) return false;
  take();
  return true;
}

void Cursor::expect(std::string_view sign) {
  if (!skip(sign)) refuse("'" + std::string(sign) + "'");
}

void Cursor::expectWord(std::string_view capitals) {
  if (!skipWord(capitals)) refuse(capitals);
}

Name Cursor::name(std::string_view expected) {
  if (token_.type != TokenType::word || isReservedWord(token_.text)) refuse(expected);
  const std::size_t start = offset();
  return {std::string(take().text), start};
}

ColumnName Cursor::columnName() {
  ColumnName name;
  name.column = this->name("a column name");
  if (!skip(".")) return name;
  name.table = std::move(name.column);
  name.column = this->name("a column name");
  return name;
}

Operand Cursor::operand(std::string_view expected) {
  Operand operand;
  operand.offset = offset();
  operand.size = token_.text.size();
  if (token_.type == TokenType::number) {
    operand.value = numberOf(token_.text, operand.offset);
  } else if (token_.type == TokenType::literal) {
    operand.value = contentOf(token_.text);
  } else if (nextIs("?")) {
    operand.parameter = parameterCount++;
  } else if (nextIs("true") || nextIs("false")) {
    operand.value = nextIs("true");
  } else if (!nextIsWord("NULL")) {
    refuse(expected);
  }
  take();
  return operand;
}

Operand Cursor::wholeNumber(std::int64_t least, std::int64_t most) {
  const Token token = token_;
  Operand number = operand("a whole number");
  if (number.isParameter()) return number;
  const auto* whole = std::get_if<std::int64_t>(&number.value);
  if (whole != nullptr && *whole >= least && *whole <= most) return number;
  throw Failure(whole == nullptr ? Code::type : Code::range,
                "Expected a whole number from " + std::to_string(least) + " to " +
                    std::to_string(most) + ", found " + shown(token.text))
      .at(number.offset);
}

Operand Cursor::second() { return wholeNumber(0, std::numeric_limits<std::int64_t>::max()); }

}  // namespace velmora::strict
