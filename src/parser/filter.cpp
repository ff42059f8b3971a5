// The filter behind WHERE: condition {("&&" | "||") condition}, to the end of the command, where
//
//   condition = [table "."] column operator value
//
// Only the shape is checked here; a bare word is a literal, never a column.
#include <stdexcept>

#include "parser.h"

namespace velmora {
namespace {

bool isOperator(const Token* token) {
  return token != nullptr && token->type == TokenType::OPERATOR;
}

bool isLiteral(const Token* token) {
  return token != nullptr && (token->type == TokenType::IDENTIFIER ||
                              token->type == TokenType::STRING || token->type == TokenType::NUMBER);
}

void parseCondition(TokenCursor& cursor, char logic, Condition& condition) {
  condition.logic = logic;
  condition.column =
      cursor.take(TokenType::IDENTIFIER, "Syntax Error: Expected column name in WHERE clause")
          .value;
  if (cursor.nextIs(".")) {
    ++cursor.position;
    condition.tableName = std::move(condition.column);
    condition.column =
        cursor.take(TokenType::IDENTIFIER, "Syntax Error: Expected column name after '.'").value;
  }
  if (!isOperator(cursor.peek())) {
    throw std::runtime_error("Syntax Error: Expected operator (=, >, <, >=, <=) after column");
  }
  condition.op = cursor.peek()->value;
  if (!isLiteral(cursor.peek(1))) {
    throw std::runtime_error("Syntax Error: Expected value to compare against");
  }
  condition.value = cursor.peek(1)->value;
  cursor.position += 2;
}

}  // namespace

void Parser::parseFiltering(std::span<const Token> tokens, std::size_t start,
                            std::vector<Condition>& conditions) {
  conditions.clear();
  TokenCursor cursor(tokens, start);
  char logic = 'o';
  while (!cursor.atEnd()) {
    // Made here and moved: a vector would fill a new one with zeros first.
    Condition condition;
    parseCondition(cursor, logic, condition);
    conditions.push_back(std::move(condition));
    if (cursor.atEnd()) break;
    const bool isOr = cursor.nextIs(TokenType::OPERATOR, "||");
    if (!isOr && !cursor.nextIs(TokenType::OPERATOR, "&&")) {
      throw std::runtime_error("Syntax Error: Unexpected token '" +
                               std::string(cursor.peek()->value) + "' after condition");
    }
    if (cursor.peek(1) == nullptr) {
      throw std::runtime_error(isOr ? "Syntax Error: Dangling '||' at end of query"
                                    : "Syntax Error: Dangling '&&' at end of query");
    }
    logic = isOr ? 'o' : 'a';
    ++cursor.position;
  }
}

const std::vector<Condition>& Parser::optionalFilter(const TokenCursor& cursor) {
  const bool hasFilter = !cursor.atEnd() && isWhere(cursor.peek()->value);
  const std::size_t start = hasFilter ? cursor.position + 1 : cursor.tokens().size();
  parseFiltering(cursor.tokens(), start, conditions_);
  return conditions_;
}

void Parser::prefetchRow(std::span<const Token> tokens, std::string_view tableName) const {
  if (tokens.size() < 4) return;
  const Token* const filter = tokens.data() + tokens.size() - 4;
  if (!isWhere(filter[0].value) || filter[2].value != "=") return;
  db_->prefetchRow(tableName, filter[1].value, filter[3].value);
}

}  // namespace velmora
