// See answer_writer.h.
#include "answer_writer.h"

#include <algorithm>

namespace velmora::query {

AnswerValue AnswerWriter::answered(const TypedValue& value) {
  add(value);
  const AnswerValue made = answer_.values.back();
  answer_.values.pop_back();
  return made;
}

void AnswerWriter::addChange(const ColumnValues& values, std::size_t row) {
  const TempRule* const rule = values.rule(row);
  if (rule == nullptr) return;
  const std::size_t index = answer_.values.size() - 1;
  const std::size_t width = std::max<std::size_t>(answer_.columnCount(), 1);
  TimedAnswer& timed = answer_.timed.emplace_back();
  timed.row = static_cast<std::uint32_t>(index / width);
  timed.column = static_cast<std::uint32_t>(index % width);
  timed.changeSecond = rule->nextValueChange(now_);
  timed.cycles = rule->repeat;
  if (timed.changeSecond == Answer::never) return;
  timed.next = answered(typedValue(values.kind(), rule->valueAt(timed.changeSecond)));
  answer_.nextChange = std::min(answer_.nextChange, timed.changeSecond);
}

void AnswerWriter::dependOn(const ColumnValues& values, std::size_t row) {
  const TempRule* const rule = values.rule(row);
  if (rule == nullptr) return;
  answer_.nextChange = std::min(answer_.nextChange, rule->nextValueChange(now_));
}

}  // namespace velmora::query
