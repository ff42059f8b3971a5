// Assignments and their values, timed ones included:
//
//   column "=" [symbol] value {"-->" value "@" amount unit} ["c"] [")"]
//
// The duration behind an "@" belongs to the value before its arrow; the last value repeats the last
// duration.
#include <optional>
#include <stdexcept>

#include "../number.h"
#include "parser.h"

namespace velmora {
namespace {

[[noreturn]] void throwUnmatchingType() { throw std::runtime_error("Unmatching type to column"); }

bool matchesKind(const Token& token, ValueKind kind) {
  switch (token.type) {
    case TokenType::STRING:
      return kind == ValueKind::text;
    case TokenType::NUMBER:
      return kind == ValueKind::integer || kind == ValueKind::real ||
             kind == ValueKind::longInteger || kind == ValueKind::doubleReal;
    case TokenType::IDENTIFIER:
      return kind == ValueKind::boolean && (token.value == "true" || token.value == "false");
    default:
      return false;
  }
}

// The seconds of a unit, or 0 for none.
std::uint64_t unitSeconds(std::string_view unit) {
  if (unit == "s") return 1;
  if (unit == "m") return 60;
  if (unit == "h") return 3600;
  if (unit == "d") return 86400;
  if (unit == "mo") return 2592000;
  return 0;
}

// amount unit, in seconds; a product that does not fit wraps like two's complement.
std::int64_t duration(TokenCursor& cursor) {
  const Token& amount = cursor.take(TokenType::NUMBER, "Expected time amount");
  const Token& unit = cursor.take(TokenType::IDENTIFIER, "Expected time unit");
  const std::uint64_t seconds = unitSeconds(unit.value);
  if (seconds == 0) throw std::runtime_error("Unknown time period");
  return static_cast<std::int64_t>(static_cast<std::uint64_t>(parseLong(amount.value)) * seconds);
}

// Where each column's value stands among those read so far, so that a column named again finds its
// earlier value. Columns named in ascending order need no search.
class PlaceOfColumn {
 public:
  GivenValue& place(std::vector<GivenValue>& values, std::size_t column, std::size_t columnCount) {
    if (places_.empty() && (values.empty() || values.back().column < column)) {
      return values.emplace_back();
    }
    if (places_.empty()) {
      places_.assign(columnCount, unused);
      for (std::size_t i = 0; i < values.size(); ++i) places_[values[i].column] = i;
    }
    if (places_[column] != unused) return values[places_[column]];
    places_[column] = values.size();
    return values.emplace_back();
  }

 private:
  static constexpr std::size_t unused = static_cast<std::size_t>(-1);
  std::vector<std::size_t> places_;
};

// Refuses a token that is no value for the column.
void checkValue(const Token& token, ValueKind kind) {
  if (!matchesKind(token, kind)) throwUnmatchingType();
}

// Reads the states that follow the first value, and gives the cell its rule.
void readStates(const Command& command, TokenCursor& cursor, const Column& column, Cell& cell) {
  const ValueKind kind = valueKind(column.type);
  auto rule = std::make_unique<TempRule>();
  rule->startTime = command.timedStart;
  Text pending = cell.value;
  std::int64_t seconds = 0;
  while (cursor.nextIs("-->")) {
    ++cursor.position;
    const Token& next = cursor.take("Expected value after -->");
    checkValue(next, kind);
    cursor.expect("@", "Expected '@'");
    seconds = duration(cursor);
    rule->states.push_back({std::move(pending), seconds});
    pending = next.value;
  }
  rule->states.push_back({std::move(pending), seconds});
  std::uint64_t total = 0;
  for (const TempState& state : rule->states) total += static_cast<std::uint64_t>(state.duration);
  rule->cycleLength = static_cast<std::int64_t>(total);
  if (cursor.nextIs(TokenType::IDENTIFIER, "c")) {
    rule->repeat = true;
    ++cursor.position;
  }
  const auto stateCount = static_cast<std::int64_t>(rule->states.size());
  if (stateCount > column.maxStates) {
    throw std::runtime_error("Exceeded maximum allowed states limit of " +
                             std::to_string(column.maxStates));
  }
  cell.tempRule = std::move(rule);
}

// Reads the value of one assignment to a column of the table.
void readValue(const Command& command, TokenCursor& cursor, const Table& table, std::size_t column,
               Cell& cell) {
  const Token& token = cursor.take("Expected value");
  checkValue(token, table.kind(column));
  cell.value = token.value;
  cell.tempRule.reset();
  if (cursor.nextIs(TokenType::OPERATOR, "-->")) {
    atPlace(table, column, std::nullopt,
            [&] { readStates(command, cursor, table.columns[column], cell); });
  }
}

}  // namespace

std::vector<GivenValue>& Parser::assignments(const Command& command, TokenCursor& cursor,
                                             std::string_view tableName, bool mayEndAtWhere) {
  values_.clear();
  PlaceOfColumn places;
  const Table* table = nullptr;
  std::size_t column = noColumn;
  while (!cursor.atEnd() && !(mayEndAtWhere && isWhere(cursor.peek()->value))) {
    const Token& name = cursor.take(TokenType::IDENTIFIER, "Expected column name");
    cursor.expect("=", "Expected '='");
    if (cursor.atEnd()) throw std::runtime_error("Expected value");
    const bool isWrapped = cursor.peek()->type == TokenType::SYMBOL;
    if (isWrapped) ++cursor.position;
    if (cursor.atEnd()) throw std::runtime_error("Expected value");

    if (table == nullptr) table = &db_->getTable(tableName);
    column = table->columnPosition(name.value, column + 1);
    if (column == noColumn || column >= table->typedColumns) throwUnmatchingType();
    GivenValue& given = places.place(values_, column, table->columns.size());
    given.column = column;
    readValue(command, cursor, *table, column, given.cell);
    if ((isWrapped || given.cell.tempRule != nullptr) && cursor.nextIs(TokenType::SYMBOL, ")")) {
      ++cursor.position;
    }
  }
  return values_;
}

}  // namespace velmora
