// See column_batch.h.
#include "column_batch.h"

#include <algorithm>

#include "row_mask.h"
#include "scope.h"

namespace velmora::query {

// The numbers of an array that tells them all, but for nulls, which are NaN there.
template <typename Number>
void ColumnBatch::take(const Number* numbers, std::size_t size) {
  numbers_ = numbers;
  isNarrow_ = sizeof(Number) == sizeof(std::int32_t);
  std::uint8_t areGiven = 1;
  for (std::size_t i = 0; i < size; ++i) {
    given_[i] = static_cast<std::uint8_t>(numbers[i] == numbers[i]);
    areGiven = static_cast<std::uint8_t>(areGiven & given_[i]);
  }
  hasNulls_ = areGiven == 0;
}

// Copies them, so that single ones can be set.
void ColumnBatch::widen(std::size_t size) {
  if (numbers_ == integers_) return;
  if (type_ == AnswerType::integer) {
    withIntegers([&](const auto* values) { std::copy_n(values, size, integers_); });
  } else {
    withReals([&](const auto* values) { std::copy_n(values, size, reals_); });
  }
  numbers_ = integers_;
  isNarrow_ = false;
}

void ColumnBatch::load(const ColumnValues& values, std::size_t chunk, std::int64_t now,
                       std::size_t size) {
  type_ = answerTypeOf(values.kind());
  chunk_ = values.chunkAt(chunk, now);
  const ColumnValues::Chunk& arrays = chunk_.arrays;
  switch (values.kind()) {
    case ValueKind::integer:
      take(arrays.numbers(), size);
      break;
    case ValueKind::longInteger:
      take(arrays.longs(), size);
      break;
    case ValueKind::real:
      take(arrays.reals(), size);
      break;
    case ValueKind::doubleReal:
      take(arrays.doubles(), size);
      break;
    case ValueKind::boolean:
      loadTruths(size);
      break;
    case ValueKind::text:
    case ValueKind::unknown:
      loadTexts(size);
      return;
  }
  if (arrays.odd == nullptr) return;
  forEachSet(arrays.odd, size, ColumnValues::unclear, [&](std::size_t place) {
    widen(size);
    set(place, values.value(arrays, chunk * Rows::chunkRows + place, now));
  });
}

void ColumnBatch::loadTruths(std::size_t size) {
  const std::uint8_t* const codes = chunk_.arrays.codes;
  for (std::size_t i = 0; i < size; ++i) {
    integers_[i] = codes[i];
    given_[i] = static_cast<std::uint8_t>(codes[i] <= 1);
  }
  numbers_ = integers_;
  isNarrow_ = false;
  hasNulls_ = true;  // perhaps
}

void ColumnBatch::loadTexts(std::size_t size) {
  static const std::uint8_t missingCode = Text(missingValue).fingerprint();
  const ColumnValues::Chunk& arrays = chunk_.arrays;
  texts_ = arrays.texts();
  for (std::size_t i = 0; i < size; ++i) {
    given_[i] = static_cast<std::uint8_t>(arrays.codes[i] != missingCode || !arrays.isNullText(i));
  }
  hasNulls_ = true;  // perhaps
}

void ColumnBatch::gather(const ColumnValues& values, std::span<const std::int32_t> rows,
                         std::int64_t now) {
  type_ = answerTypeOf(values.kind());
  numbers_ = integers_;
  isNarrow_ = false;
  hasNulls_ = false;
  if (type_ == AnswerType::text) gathered_.resize(rows.size());
  for (std::size_t i = 0; i < rows.size(); ++i) {
    set(i, values.value(static_cast<std::size_t>(rows[i]), now));
  }
  texts_ = gathered_.data();
}

void ColumnBatch::set(std::size_t place, const TypedValue& value) {
  const bool isNull = value.type == AnswerType::null;
  given_[place] = static_cast<std::uint8_t>(!isNull);
  hasNulls_ = hasNulls_ || isNull;
  switch (value.type) {
    case AnswerType::null:
      break;
    case AnswerType::integer:
    case AnswerType::boolean:
      integers_[place] = value.integer;
      break;
    case AnswerType::real:
      reals_[place] = value.real;
      break;
    case AnswerType::text:
      gathered_[place] = value.text;
      break;
  }
}

TypedValue ColumnBatch::value(std::size_t place) const {
  if (!isGiven(place)) return {};
  switch (type_) {
    case AnswerType::integer:
      return TypedValue::ofInteger(integer(place));
    case AnswerType::real:
      return TypedValue::ofReal(real(place));
    case AnswerType::boolean:
      return TypedValue::ofBoolean(integer(place) != 0);
    case AnswerType::null:
    case AnswerType::text:
      break;
  }
  return TypedValue::ofText(texts_[place]);
}

}  // namespace velmora::query
