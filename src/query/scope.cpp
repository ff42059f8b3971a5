// See scope.h.
#include "scope.h"

namespace velmora::query {
namespace {

std::string quoted(const std::string& name) { return "'" + name + "'"; }

Failure unknown(const std::string& what, const strict::Name& name) {
  return Failure(Code::notFound, "Unknown " + what + " " + quoted(name.text)).at(name.offset);
}

const char* wordFor(AnswerType type) {
  switch (type) {
    case AnswerType::null:
      break;
    case AnswerType::integer:
    case AnswerType::real:
      return "a number";
    case AnswerType::boolean:
      return "a bool";
    case AnswerType::text:
      return "a text";
  }
  return "null";
}

}  // namespace

Place Scope::findIn(bool isRight, const strict::ColumnName& name) const {
  const std::size_t position = table(isRight).columnPosition(name.column.text);
  if (position != noColumn) return {isRight, position};
  throw unknown("column", name.column).of(table(isRight).tableName, name.column.text);
}

Place Scope::find(const strict::ColumnName& name) const {
  const std::string& prefix = name.table.text;
  const bool isRight = isJoin() && prefix == right_->tableName;
  if (prefix == left_->tableName) return findIn(false, name);
  if (isRight) return findIn(true, name);
  if (!prefix.empty()) throw unknown("table", name.table).of(prefix);
  const bool isInLeft = left_->columnPosition(name.column.text) != noColumn;
  return findIn(isJoin() && !isInLeft, name);
}

std::string Scope::nameOf(const Place& place) const {
  const std::string& name = column(place).name;
  return isJoin() ? table(place).tableName + "." + name : name;
}

const Table& tableNamed(const strict::Name& name, const Tables& tables) {
  const auto found = tables.find(name.text);
  if (found == tables.end()) throw unknown("table", name).of(name.text);
  return found->second;
}

std::string_view typeName(const Column& column) noexcept {
  std::string_view name = column.type;
  if (name.starts_with('/')) name.remove_prefix(1);
  return name;
}

AnswerType answerTypeOf(ValueKind kind) noexcept {
  switch (kind) {
    case ValueKind::integer:
    case ValueKind::longInteger:
      return AnswerType::integer;
    case ValueKind::real:
    case ValueKind::doubleReal:
      return AnswerType::real;
    case ValueKind::boolean:
      return AnswerType::boolean;
    case ValueKind::text:
    case ValueKind::unknown:
      break;
  }
  return AnswerType::text;
}

std::int64_t wholeNumber(const strict::Operand& operand, const QueryContext& context,
                         const std::string& word) {
  const TypedValue value = valueOf(operand, context);
  if (value.type != AnswerType::integer) {
    throw Failure(Code::type, word + " takes a whole number").at(operand.offset);
  }
  if (value.integer < 0) {
    throw Failure(Code::range, word + " must not be below 0").at(operand.offset);
  }
  return value.integer;
}

void requireComparable(const TypedValue& value, const strict::Operand& operand, const Table& table,
                       std::size_t column) {
  const AnswerType wanted = answerTypeOf(table.kind(column));
  if (value.type == wanted || value.type == AnswerType::null) return;
  const auto isNumber = [](AnswerType type) {
    return type == AnswerType::integer || type == AnswerType::real;
  };
  if (isNumber(value.type) && isNumber(wanted)) return;
  const Column& named = table.columns[column];
  throw Failure(Code::type, "Column " + quoted(named.name) + " of type " +
                                std::string(typeName(named)) + " cannot be compared with " +
                                wordFor(value.type))
      .at(operand.offset)
      .of(table.tableName, named.name);
}

}  // namespace velmora::query
