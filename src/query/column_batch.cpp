// See column_batch.h.
#include "column_batch.h"

#include <algorithm>

#include "row_mask.h"
#include "scope.h"

namespace velmora::query {
namespace {

template <typename From, typename To>
void convert(const From* from, std::size_t size, To* to, std::uint8_t* given) {
  for (std::size_t i = 0; i < size; ++i) {
    to[i] = static_cast<To>(from[i]);
    given[i] = static_cast<std::uint8_t>(from[i] == from[i]);  // but for NaN, which is null
  }
}

}  // namespace

void ColumnBatch::load(const ColumnValues& values, std::size_t chunk, std::int64_t now,
                       std::size_t size) {
  type = answerTypeOf(values.kind());
  chunk_ = values.chunkAt(chunk, now);
  const ColumnValues::Chunk& arrays = chunk_.arrays;
  switch (values.kind()) {
    case ValueKind::integer:
      convert(arrays.numbers(), size, integers, given);
      break;
    case ValueKind::longInteger:
      convert(arrays.longs(), size, integers, given);
      break;
    case ValueKind::real:
      convert(arrays.reals(), size, reals, given);
      break;
    case ValueKind::doubleReal:
      convert(arrays.doubles(), size, reals, given);
      break;
    case ValueKind::boolean:
      for (std::size_t i = 0; i < size; ++i) {
        integers[i] = arrays.codes[i];
        given[i] = static_cast<std::uint8_t>(arrays.codes[i] <= 1);
      }
      break;
    case ValueKind::text:
    case ValueKind::unknown:
      loadTexts(size);
      return;
  }
  if (arrays.odd == nullptr) return;
  forEachSet(arrays.odd, size, [&](std::size_t place) {
    if (!arrays.isUnclear(place)) return;
    set(place, values.value(arrays, chunk * Rows::chunkRows + place, now));
  });
}

void ColumnBatch::loadTexts(std::size_t size) {
  static const std::uint8_t missingCode = Text(missingValue).fingerprint();
  const ColumnValues::Chunk& arrays = chunk_.arrays;
  texts = arrays.texts();
  for (std::size_t i = 0; i < size; ++i) {
    given[i] = static_cast<std::uint8_t>(arrays.codes[i] != missingCode || !arrays.isNullText(i));
  }
}

void ColumnBatch::gather(const ColumnValues& values, std::span<const std::int32_t> rows,
                         std::int64_t now) {
  type = answerTypeOf(values.kind());
  if (type == AnswerType::text) gathered_.resize(rows.size());
  for (std::size_t i = 0; i < rows.size(); ++i) {
    set(i, values.value(static_cast<std::size_t>(rows[i]), now));
  }
  texts = gathered_.data();
}

void ColumnBatch::set(std::size_t place, const TypedValue& value) {
  given[place] = static_cast<std::uint8_t>(value.type != AnswerType::null);
  switch (value.type) {
    case AnswerType::null:
      break;
    case AnswerType::integer:
      integers[place] = value.integer;
      break;
    case AnswerType::real:
      reals[place] = value.real;
      break;
    case AnswerType::boolean:
      integers[place] = value.isTrue ? 1 : 0;
      break;
    case AnswerType::text:
      gathered_[place] = value.text;
      break;
  }
}

TypedValue ColumnBatch::value(std::size_t place) const {
  if (given[place] == 0) return {};
  switch (type) {
    case AnswerType::integer:
      return TypedValue::ofInteger(integers[place]);
    case AnswerType::real:
      return TypedValue::ofReal(reals[place]);
    case AnswerType::boolean:
      return TypedValue::ofBoolean(integers[place] != 0);
    case AnswerType::null:
    case AnswerType::text:
      break;
  }
  return TypedValue::ofText(texts[place]);
}

}  // namespace velmora::query
