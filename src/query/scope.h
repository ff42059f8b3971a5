// What the names and operands of a command mean: columns of one table or of two joined ones, and
// the values of literals and parameters. Every failure that tells a place in the command is made
// here.
#pragma once

#include <cstdint>

#include "../failure.h"
#include "../strict/statement.h"
#include "../table.h"
#include "../typed_value.h"
#include "query.h"

namespace velmora::query {

// A column of one of the tables.
struct Place {
  bool isRight = false;
  std::size_t column = 0;
  bool operator==(const Place&) const = default;
};

class Scope {
 public:
  explicit Scope(const Table& left, const Table* right = nullptr)
      : left_(&left), right_(right != nullptr ? right : &left), isJoin_(right != nullptr) {}

  bool isJoin() const noexcept { return isJoin_; }
  const Table& table(bool isRight) const noexcept { return isRight ? *right_ : *left_; }
  const Table& table(const Place& place) const noexcept { return table(place.isRight); }
  const ColumnValues& values(const Place& place) const { return table(place).values(place.column); }
  const Column& column(const Place& place) const { return table(place).columns[place.column]; }
  bool canBeTimed(const Place& place) const { return column(place).maxStates > 0; }
  // A bare name is looked for in the left table first. Throws Failure: notFound.
  Place find(const strict::ColumnName& name) const;
  // The same in one of the two tables.
  Place findIn(bool isRight, const strict::ColumnName& name) const;
  // As an answer's column is called: with its table where there are two.
  std::string nameOf(const Place& place) const;

 private:
  const Table* left_;
  const Table* right_;  // the left one where there is no other
  bool isJoin_;
};

// Throws Failure: notFound.
const Table& tableNamed(const strict::Name& name, const Tables& tables);

// What a type is called in the strict language: "/long" is "long".
std::string_view typeName(const Column& column) noexcept;
AnswerType answerTypeOf(ValueKind kind) noexcept;

inline TypedValue valueOf(const strict::Operand& operand, const QueryContext& context) {
  if (!operand.isParameter()) return typedValue(operand.value);
  return typedValue(context.values[static_cast<std::size_t>(operand.parameter)]);
}
// Throws Failure: type for a value that is no whole number, range for one below 0. The word stands
// in front of the operand.
std::int64_t wholeNumber(const strict::Operand& operand, const QueryContext& context,
                         const std::string& word);
// Throws Failure: type for a value that cannot be compared with the column's.
void requireComparable(const TypedValue& value, const strict::Operand& operand, const Table& table,
                       std::size_t column);

}  // namespace velmora::query
