// What a command gives, made fit for the columns that it is given to: literals and bound values as
// values of the columns' types, timed values as rules. What does not fit is refused, with the name
// of the column and the place in the command.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <string_view>
#include <vector>

#include "../failure.h"
#include "../interrupt.h"
#include "../strict/statement.h"
#include "../table.h"
#include "../typed_value.h"
#include "../value.h"

namespace velmora {

// What a command is run with.
struct RunContext {
  std::span<const Value> values;  // bound to its parameters
  std::int64_t now = 0;
  std::int64_t timedStart = 0;  // the second at which its timed values start
  Interrupt interrupt;
};

// What a column is to hold: a value, or the states of a timed one.
struct FittedValue {
  std::size_t column = 0;
  std::size_t offset = 0;          // of the value in the command; -1: it is not there
  TypedValue value;                // its text is the literal's or the bound one's
  std::unique_ptr<TempRule> rule;  // null: not timed
};

// The operand's value: the literal's, or the one bound.
const Value& valueOf(const strict::Operand& operand, std::span<const Value> values);

// The columns of assignments, up to the first that is for none, and what is wrong with that one:
// notFound for an unknown column, syntax for one named twice, type for one that the engine numbers.
struct Targets {
  std::vector<std::size_t> columns;
  std::optional<Failure> fault;
};
Targets targetsOf(const std::vector<strict::Assignment>& assignments, const Table& table);

// The assignments' values, each fit for its column, in the place of what `fitted` holds. Throws
// Failure: type, range, and the targets' fault once all in front of it fit.
void fit(const std::vector<strict::Assignment>& assignments, const Targets& targets,
         const Table& table, const RunContext& context, std::vector<FittedValue>& fitted);

}  // namespace velmora
