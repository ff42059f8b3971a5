// See totals.h.
#include "totals.h"

#include <bit>
#include <cmath>
#include <limits>
#include <utility>

#include "scope.h"
#include "value_order.h"

namespace velmora::query {

using strict::Function;

namespace {

// The number if the byte is 1, or 0 if it is 0, without a branch, which could not be foretold.
std::int64_t valueIf(std::uint8_t isTaken, std::int64_t value) {
  return value & -std::int64_t{isTaken};
}
double valueIf(std::uint8_t isTaken, double value) {
  return std::bit_cast<double>(valueIf(isTaken, std::bit_cast<std::int64_t>(value)));
}

}  // namespace

Totals::Totals(Function function, ValueKind kind, std::string name)
    : function_(function), kind_(kind), name_(std::move(name)) {
  const AnswerType type = answerTypeOf(kind);
  const bool isSum = function == Function::sum || function == Function::avg;
  if (isSum && type != AnswerType::integer && type != AnswerType::real) {
    throw Failure(Code::type, name_ + " takes numbers");
  }
}

AnswerType Totals::type() const noexcept {
  switch (function_) {
    case Function::countRows:
    case Function::count:
      return AnswerType::integer;
    case Function::avg:
      return AnswerType::real;
    default:
      return answerTypeOf(kind_);
  }
}

void Totals::growTo(std::size_t groups) {
  if (counts_.size() >= groups) return;
  counts_.resize(groups);
  if (isBest()) {
    bests_.resize(groups);
  } else if (answerTypeOf(kind_) == AnswerType::real) {
    reals_.resize(groups);
  } else {
    wholes_.resize(groups);
  }
}

void Totals::countRows(std::span<const std::uint32_t> groups) {
  for (const std::uint32_t group : groups) ++counts_[group];
}

void Totals::add(const ColumnBatch& batch, std::span<const std::uint16_t> places,
                 const std::uint32_t* groups) {
  const auto forEach = [&](auto use) {
    for (std::size_t i = 0; i < places.size(); ++i) use(std::size_t{places[i]}, groups[i]);
  };
  forEach([&](std::size_t i, std::size_t group) { counts_[group] += batch.given[i]; });
  if (function_ == Function::count) return;
  if (isBest()) {
    forEach([&](std::size_t i, std::size_t group) {
      if (batch.given[i] != 0) keepBest(batch.value(i), group);
    });
  } else if (batch.type == AnswerType::real) {
    forEach([&](std::size_t i, std::size_t group) {
      reals_[group] += valueIf(batch.given[i], batch.reals[i]);
    });
  } else {
    forEach([&](std::size_t i, std::size_t group) {
      wholes_[group] += valueIf(batch.given[i], batch.integers[i]);
    });
  }
}

void Totals::add(const ColumnBatch& batch, const RowMask& mask) {
  const auto isTaken = [&](std::size_t i) {
    return static_cast<std::uint8_t>(mask.passes[i] & batch.given[i]);
  };
  std::int64_t count = 0;
  for (std::size_t i = 0; i < mask.size; ++i) count += isTaken(i);
  counts_.front() += count;
  if (function_ == Function::count) return;
  if (isBest()) {
    for (std::size_t i = 0; i < mask.size; ++i) {
      if (isTaken(i) != 0) keepBest(batch.value(i), 0);
    }
  } else if (batch.type == AnswerType::real) {
    double sum = reals_.front();
    for (std::size_t i = 0; i < mask.size; ++i) sum += valueIf(isTaken(i), batch.reals[i]);
    reals_.front() = sum;
  } else if (kind_ == ValueKind::integer) {
    std::int64_t sum = 0;  // a chunk's fits
    for (std::size_t i = 0; i < mask.size; ++i) sum += valueIf(isTaken(i), batch.integers[i]);
    wholes_.front() += sum;
  } else {
    Wide sum = 0;
    for (std::size_t i = 0; i < mask.size; ++i) sum += valueIf(isTaken(i), batch.integers[i]);
    wholes_.front() += sum;
  }
}

void Totals::keepBest(const TypedValue& value, std::size_t group) {
  Value& best = bests_[group];
  const int order = isNull(best) ? 0 : compareGiven(value, typedValue(best));
  const bool isBetter = function_ == Function::min ? order < 0 : order > 0;
  if (isNull(best) || isBetter) best = ownedValue(value);
}

TypedValue Totals::result(std::size_t group) const {
  const std::int64_t count = counts_[group];
  if (function_ == Function::countRows || function_ == Function::count) {
    return TypedValue::ofInteger(count);
  }
  if (count == 0) return {};
  if (isBest()) return typedValue(bests_[group]);
  const bool isReal = answerTypeOf(kind_) == AnswerType::real;
  if (isReal && !std::isfinite(reals_[group])) {
    throw Failure(Code::range, name_ + " does not fit a double");
  }
  if (function_ == Function::avg) {
    const double sum = isReal ? reals_[group] : static_cast<double>(wholes_[group]);
    return TypedValue::ofReal(sum / static_cast<double>(count));
  }
  if (isReal) return TypedValue::ofReal(reals_[group]);
  const Wide sum = wholes_[group];
  const bool fits = sum >= std::numeric_limits<std::int64_t>::min() &&
                    sum <= std::numeric_limits<std::int64_t>::max();
  if (!fits) throw Failure(Code::range, name_ + " does not fit 64 bits");
  return TypedValue::ofInteger(static_cast<std::int64_t>(sum));
}

}  // namespace velmora::query
