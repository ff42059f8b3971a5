// AnswerWriter: puts values and cells into an answer, and what becomes of the timed ones.
#pragma once

#include "../answer.h"
#include "../column.h"
#include "../typed_value.h"

namespace velmora::query {

class AnswerWriter {
 public:
  AnswerWriter(Answer& answer, std::int64_t now) : answer_(answer), now_(now) {}

  void add(const TypedValue& value) { addOne(value); }
  // The same inlined always, which spares putting the value together.
  [[gnu::always_inline]] void addOne(const TypedValue& value) {
    if (value.type == AnswerType::text) {
      answer_.addText(value.text);
      return;
    }
    if (value.type == AnswerType::real) {
      answer_.addReal(value.real);
      return;
    }
    AnswerValue& added = answer_.values.emplace_back();
    added.type = value.type;
    added.integer = value.integer;
  }
  // The value that the cell shows at this second.
  void addCell(const ColumnValues& values, std::size_t row, bool canBeTimed) {
    const ColumnValues::Chunk arrays = values.chunk(Rows::chunkOf(row));
    if (!arrays.isOdd(Rows::placeOf(row))) {
      add(values.toldValue(arrays, Rows::placeOf(row)));
      return;
    }
    add(values.value(row, now_));
    if (canBeTimed) addChange(values, row);
  }
  // Tells that the answer depends on the cell.
  void dependOn(const ColumnValues& values, std::size_t row);

 private:
  AnswerValue answered(const TypedValue& value);
  void addChange(const ColumnValues& values, std::size_t row);

  Answer& answer_;
  std::int64_t now_;
};

}  // namespace velmora::query
