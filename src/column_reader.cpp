// See column_reader.h.
#include "column_reader.h"

namespace velmora {
namespace {

// Adds a value whose text the arrays do not tell.
void printText(std::string_view text, ValueKind kind, JsonRows& answer) {
  if (text == missingValue) {
    answer.addNull();
  } else if (kind == ValueKind::integer) {
    answer.addInt(parseInt(text));
  } else if (kind == ValueKind::real) {
    answer.addFloat(parseFloat(text));
  } else if (kind == ValueKind::longInteger) {
    answer.addInt(parseLong(text));
  } else if (kind == ValueKind::doubleReal) {
    answer.addDouble(parseDouble(text));
  } else if (kind == ValueKind::boolean) {
    answer.addBool(isTrueText(text));
  } else {
    answer.addText(text);
  }
}

}  // namespace

void ColumnReader::printOther(std::size_t row, JsonRows& answer) {
  const ColumnValues::Chunk& values = chunkOf(row);
  const std::size_t place = Rows::placeOf(row);
  const ValueKind kind = values_->kind();
  if (values.isUnclear(place)) {
    printText(values_->oddCell(row).valueAt(now_), kind, answer);
    return;
  }
  switch (kind) {
    case ValueKind::integer:
      answer.addInt(values.numbers()[place]);
      break;
    case ValueKind::real:
      if (values.codes[place] == missingSpelling) {
        answer.addNull();
      } else if (values.codes[place] == shortestSpelling) {
        answer.addFloat(values.reals()[place]);
      } else {
        answer.addFloat(values.reals()[place], values.codes[place]);
      }
      break;
    case ValueKind::longInteger:
      answer.addInt(values.longs()[place]);
      break;
    case ValueKind::doubleReal:
      if (values.codes[place] == missingSpelling) {
        answer.addNull();
      } else {
        answer.addDouble(values.doubles()[place]);
      }
      break;
    case ValueKind::boolean:
      if (static_cast<BoolCode>(values.codes[place]) == BoolCode::missing) {
        answer.addNull();
      } else {
        answer.addBool(static_cast<BoolCode>(values.codes[place]) == BoolCode::isTrue);
      }
      break;
    case ValueKind::text:
    case ValueKind::unknown:
      if (values.texts()[place] == missingValue) {
        answer.addNull();
      } else {
        answer.addText(values.texts()[place]);
      }
      break;
  }
}

}  // namespace velmora
