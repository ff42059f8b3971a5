// See totals.h.
#include "totals.h"

#include <cmath>
#include <limits>
#include <utility>

#include "scope.h"
#include "value_order.h"

namespace velmora::query {

using strict::Function;

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
  const auto forEach = [&](auto add) {
    for (std::size_t i = 0; i < places.size(); ++i) {
      const std::size_t given = batch.given[places[i]];
      counts_[groups[i]] += static_cast<std::int64_t>(given);
      if (given != 0) add(places[i], groups[i]);
    }
  };
  if (function_ == Function::count) {
    forEach([](std::size_t, std::size_t) {});
  } else if (isBest()) {
    forEach([&](std::size_t i, std::size_t group) { keepBest(batch.value(i), group); });
  } else if (batch.type == AnswerType::real) {
    forEach([&](std::size_t i, std::size_t group) { reals_[group] += batch.reals[i]; });
  } else {
    forEach([&](std::size_t i, std::size_t group) { wholes_[group] += batch.integers[i]; });
  }
}

void Totals::add(const ColumnBatch& batch, const RowMask& mask) {
  std::int64_t count = 0;
  const auto isTaken = [&](std::size_t i) { return (mask.passes[i] & batch.given[i]) != 0; };
  for (std::size_t i = 0; i < mask.size; ++i) count += mask.passes[i] & batch.given[i];
  counts_.front() += count;
  if (isBest()) {
    for (std::size_t i = 0; i < mask.size; ++i) {
      if (isTaken(i)) keepBest(batch.value(i), 0);
    }
  } else if (function_ == Function::count) {
    return;
  } else if (batch.type == AnswerType::real) {
    double sum = reals_.front();
    for (std::size_t i = 0; i < mask.size; ++i) sum += isTaken(i) ? batch.reals[i] : 0.0;
    reals_.front() = sum;
  } else if (kind_ == ValueKind::integer) {
    std::int64_t sum = 0;  // a chunk's fits
    for (std::size_t i = 0; i < mask.size; ++i) sum += isTaken(i) ? batch.integers[i] : 0;
    wholes_.front() += sum;
  } else {
    for (std::size_t i = 0; i < mask.size; ++i) {
      wholes_.front() += isTaken(i) ? batch.integers[i] : 0;
    }
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
