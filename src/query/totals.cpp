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
std::int32_t valueIf(std::uint8_t isTaken, std::int32_t value) {
  return value & -std::int32_t{isTaken};
}
std::int64_t valueIf(std::uint8_t isTaken, std::int64_t value) {
  return value & -std::int64_t{isTaken};
}
double valueIf(std::uint8_t isTaken, double value) {
  return std::bit_cast<double>(valueIf(isTaken, std::bit_cast<std::int64_t>(value)));
}
double valueIf(std::uint8_t isTaken, float value) {
  return valueIf(isTaken, static_cast<double>(value));
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
  if (nulls_.size() >= groups) return;
  nulls_.resize(groups);
  if (isBest()) {
    bests_.resize(groups);
  } else if (answerTypeOf(kind_) == AnswerType::real) {
    reals_.resize(groups);
  } else {
    wholes_.resize(groups);
  }
}

void Totals::add(const ColumnBatch& batch, std::span<const std::uint16_t> places,
                 const std::uint32_t* groups) {
  const std::uint8_t* const given = batch.given();
  const auto forEach = [&](auto use) {
    for (std::size_t i = 0; i < places.size(); ++i) use(std::size_t{places[i]}, groups[i]);
  };
  if (batch.hasNulls()) {
    forEach([&](std::size_t i, std::size_t group) { nulls_[group] += given[i] ^ 1; });
  }
  if (function_ == Function::count) return;
  if (isBest()) {
    forEach([&](std::size_t i, std::size_t group) {
      if (batch.isGiven(i)) keepBest(batch.value(i), group);
    });
    return;
  }
  const auto addAll = [&](auto& sums) {
    return [&](const auto* values) {
      if (!batch.hasNulls()) {
        forEach([&](std::size_t i, std::size_t group) { sums[group] += values[i]; });
        return;
      }
      forEach(
          [&](std::size_t i, std::size_t group) { sums[group] += valueIf(given[i], values[i]); });
    };
  };
  if (batch.type() == AnswerType::real) {
    batch.withReals(addAll(reals_));
  } else {
    batch.withIntegers(addAll(wholes_));
  }
}

void Totals::add(const ColumnBatch& batch, const RowMask& mask) {
  const std::uint8_t* const given = batch.given();
  const auto isTaken = [&](std::size_t i) {
    return static_cast<std::uint8_t>(mask.passes[i] & given[i]);
  };
  if (batch.hasNulls()) {
    for (std::size_t i = 0; i < mask.size; ++i) nulls_.front() += mask.passes[i] & (given[i] ^ 1);
  }
  if (function_ == Function::count) return;
  if (isBest()) {
    for (std::size_t i = 0; i < mask.size; ++i) {
      if (isTaken(i) != 0) keepBest(batch.value(i), 0);
    }
  } else if (batch.type() == AnswerType::real) {
    batch.withReals([&](const auto* values) {
      double sum = reals_.front();
      for (std::size_t i = 0; i < mask.size; ++i) sum += valueIf(isTaken(i), values[i]);
      reals_.front() = sum;
    });
  } else {
    batch.withIntegers([&](const auto* values) {
      // Of 32-bit numbers the halves are added up, which fit 32 bits and are quicker together.
      if constexpr (sizeof *values == sizeof(std::int32_t)) {
        std::int32_t low = 0;
        std::int32_t high = 0;
        for (std::size_t i = 0; i < mask.size; ++i) {
          const std::int32_t value = valueIf(isTaken(i), values[i]);
          low += value & 0xFFFF;
          high += value >> 16;
        }
        wholes_.front() += std::int64_t{high} * 0x10000 + low;
      } else {
        Wide sum = 0;
        for (std::size_t i = 0; i < mask.size; ++i) sum += valueIf(isTaken(i), values[i]);
        wholes_.front() += sum;
      }
    });
  }
}

void Totals::keepBest(const TypedValue& value, std::size_t group) {
  Value& best = bests_[group];
  const int order = isNull(best) ? 0 : compareGiven(value, typedValue(best));
  const bool isBetter = function_ == Function::min ? order < 0 : order > 0;
  if (isNull(best) || isBetter) best = ownedValue(value);
}

TypedValue Totals::result(std::size_t group, std::int64_t rows) const {
  const std::int64_t count = rows - nulls_[group];
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
