// See fitting.h.
#include "fitting.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <string>
#include <utility>

#include "../query/scope.h"
#include "../strict/lexer.h"
#include "../strict/render.h"

namespace velmora {
namespace {

// A column that a value is given to, and where the command gives it.
struct Target {
  const Table& table;
  std::size_t column;
  std::size_t offset;

  const Column& definition() const { return table.columns[column]; }
};

std::string shown(const Value& value) {
  const auto* const text = std::get_if<std::string>(&value);
  return text != nullptr ? strict::shown(*text) : strict::literal(value);
}

[[noreturn]] void refuse(Code code, const std::string& what, const Target& target) {
  const Column& column = target.definition();
  throw Failure(code, what + " for column '" + column.name + "' of table '" +
                          target.table.tableName + "', which is " +
                          std::string(query::typeName(column)))
      .of(target.table.tableName, column.name)
      .at(target.offset);
}

[[noreturn]] void refuseType(const Value& value, const Target& target) {
  refuse(Code::type, shown(value) + " is no value", target);
}

[[noreturn]] void refuseRange(const Value& value, const Target& target) {
  refuse(Code::range, shown(value) + " is out of range", target);
}

std::int64_t fitInteger(const Value& value, bool isLong, const Target& target) {
  const auto* const number = std::get_if<std::int64_t>(&value);
  if (number == nullptr) {
    const bool isReal = std::holds_alternative<double>(value);
    const bool isWhole = isReal && std::trunc(std::get<double>(value)) == std::get<double>(value);
    // Digits that no 64 bits hold come as a float.
    if (isWhole && std::abs(std::get<double>(value)) >= 0x1p63) refuseRange(value, target);
    refuseType(value, target);
  }
  if (!isLong && !std::in_range<std::int32_t>(*number)) refuseRange(value, target);
  return *number;
}

double fitReal(const Value& value, bool isDouble, const Target& target) {
  double real = 0;
  if (const auto* const number = std::get_if<std::int64_t>(&value)) {
    real = static_cast<double>(*number);
  } else if (const auto* const given = std::get_if<double>(&value)) {
    real = *given;
  } else {
    refuseType(value, target);
  }
  if (isDouble) return real;
  // What lies between the largest float and what would round to more is the largest float.
  constexpr double tooLarge = 0x1.ffffffp127;
  if (std::abs(real) >= tooLarge) refuseRange(value, target);
  const auto narrowed = static_cast<float>(real);
  if (narrowed == 0 && real != 0) refuseRange(value, target);
  return static_cast<double>(narrowed);
}

std::string_view fitText(const Value& value, const Target& target) {
  const auto* const text = std::get_if<std::string>(&value);
  if (text == nullptr) refuseType(value, target);
  const auto most = static_cast<std::size_t>(target.definition().stringSize);
  if (text->size() > most) {
    refuse(Code::range,
           "A text of " + std::to_string(text->size()) + " bytes is longer than " +
               std::to_string(most),
           target);
  }
  return *text;
}

// Into a place that holds null. The members are set one by one, since a copy would wait for them.
void fitValue(const Value& value, const Target& target, TypedValue& fitted) {
  if (isNull(value)) return;
  const ValueKind kind = target.table.kind(target.column);
  switch (kind) {
    case ValueKind::integer:
    case ValueKind::longInteger:
      fitted.integer = fitInteger(value, kind == ValueKind::longInteger, target);
      fitted.type = AnswerType::integer;
      return;
    case ValueKind::real:
    case ValueKind::doubleReal:
      fitted.real = fitReal(value, kind == ValueKind::doubleReal, target);
      fitted.type = AnswerType::real;
      return;
    case ValueKind::boolean:
      if (!std::holds_alternative<bool>(value)) refuseType(value, target);
      fitted.integer = std::get<bool>(value) ? 1 : 0;
      fitted.type = AnswerType::boolean;
      return;
    case ValueKind::text:
    case ValueKind::unknown:
      break;
  }
  fitted.text = fitText(value, target);
  fitted.type = AnswerType::text;
}

// The seconds that a state's amount and unit are.
std::int64_t secondsOf(const strict::State& state, const RunContext& context,
                       const Target& target) {
  constexpr std::int64_t most = strict::longestState;
  const Value& amount = valueOf(state.amount, context.values);
  const auto* const number = std::get_if<std::int64_t>(&amount);
  if (number == nullptr || *number < 1 || *number > most / state.unitSeconds) {
    throw Failure(Code::range, "A duration has to be a positive whole number, and no longer than " +
                                   std::to_string(most) + " seconds: " + shown(amount))
        .of(target.table.tableName, target.definition().name)
        .at(state.amount.offset);
  }
  return *number * state.unitSeconds;
}

Text stateText(const strict::Operand& operand, const RunContext& context, Target target) {
  target.offset = operand.offset;
  TypedValue fitted;
  fitValue(valueOf(operand, context.values), target, fitted);
  if (fitted.type == AnswerType::null) refuse(Code::type, "NULL is no state", target);
  const std::string text = textOf(target.table.kind(target.column), fitted);
  if (text == missingValue) refuse(Code::range, "'#/#?' is no state", target);
  return Text(text);
}

// The rule of a timed value: each duration is that of the state in front of its arrow, and the last
// state takes over the last duration.
std::unique_ptr<TempRule> ruleOf(const strict::Assignment& assignment, const RunContext& context,
                                 const Target& target) {
  const Column& column = target.definition();
  const std::size_t count = assignment.states.size() + 1;
  if (count > static_cast<std::size_t>(column.maxStates)) {
    refuse(Code::range,
           std::to_string(count) + " states are more than " + std::to_string(column.maxStates),
           target);
  }
  auto rule = std::make_unique<TempRule>();
  rule->startTime = context.timedStart;
  rule->repeat = assignment.cycles;
  Text pending = stateText(assignment.value, context, target);
  std::int64_t seconds = 0;
  for (const strict::State& state : assignment.states) {
    seconds = secondsOf(state, context, target);
    rule->states.push_back({std::move(pending), seconds});
    pending = stateText(state.value, context, target);
  }
  rule->states.push_back({std::move(pending), seconds});
  for (const TempState& state : rule->states) rule->cycleLength += state.duration;
  return rule;
}

}  // namespace

const Value& valueOf(const strict::Operand& operand, std::span<const Value> values) {
  return operand.isParameter() ? values[static_cast<std::size_t>(operand.parameter)]
                               : operand.value;
}

Targets targetsOf(const std::vector<strict::Assignment>& assignments, const Table& table) {
  Targets targets;
  std::size_t hint = 0;
  for (const strict::Assignment& assignment : assignments) {
    const std::string& name = assignment.column.text;
    const std::size_t column = table.columnPosition(name, hint);
    const auto fail = [&](Code code, const std::string& text) {
      targets.fault = Failure(code, text).of(table.tableName, name).at(assignment.column.offset);
    };
    if (column == noColumn) {
      fail(Code::notFound, "Unknown column '" + name + "'");
    } else if (std::ranges::find(targets.columns, column) != targets.columns.end()) {
      fail(Code::syntax, "Column '" + name + "' is given twice");
    } else if (isNumbered(table.columns[column])) {
      fail(Code::type,
           "Column '" + name + "' of table '" + table.tableName + "' is numbered by the engine");
    }
    if (targets.fault) break;
    targets.columns.push_back(column);
    hint = column + 1;
  }
  return targets;
}

void fit(const std::vector<strict::Assignment>& assignments, const Targets& targets,
         const Table& table, const RunContext& context, std::vector<FittedValue>& fitted) {
  fitted.clear();
  for (std::size_t i = 0; i < targets.columns.size(); ++i) {
    const strict::Assignment& assignment = assignments[i];
    const Target target{table, targets.columns[i], assignment.value.offset};
    FittedValue& value = fitted.emplace_back();
    value.column = target.column;
    value.offset = target.offset;
    if (assignment.states.empty()) {
      fitValue(valueOf(assignment.value, context.values), target, value.value);
    } else {
      value.rule = ruleOf(assignment, context, target);
    }
  }
  if (targets.fault) throw Failure(*targets.fault);
}

}  // namespace velmora
