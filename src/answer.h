// Answer: what a command of the strict language answers, as typed values. It stays as it is once
// it has been made, and belongs to nobody but its holder.
#pragma once

#include <cstdint>
#include <limits>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace velmora {

enum class AnswerType : std::uint8_t { null, integer, real, boolean, text };

struct AnswerColumn {
  std::string name;
  std::string declaredType;  // of the table's column; empty for what is computed
  AnswerType type = AnswerType::text;
  bool isFloat = false;  // 32-bit: written in the shortest form of a float
};

// One value; of a text the place among the answer's texts.
struct AnswerValue {
  union {
    std::int64_t integer = 0;  // of a bool 1 or 0
    double real;
    std::uint64_t textOffset;
  };
  std::uint32_t textSize = 0;
  AnswerType type = AnswerType::null;
};
static_assert(sizeof(AnswerValue) == 16);

// What becomes of a timed value. Kept beside the values, ascending by row and column.
struct TimedAnswer {
  std::uint32_t row = 0;
  std::uint32_t column = 0;
  std::int64_t changeSecond = 0;  // of the next change, or Answer::never
  AnswerValue next;               // from then on; null for never
  bool cycles = false;
};

class Answer {
 public:
  static constexpr std::int64_t never = std::numeric_limits<std::int64_t>::max();

  std::vector<AnswerValue> values;  // row by row
  std::string texts;
  std::vector<TimedAnswer> timed;
  std::string message;
  std::int64_t rowsAffected = 0;
  std::optional<std::int64_t> identity;  // that an INSERT was given
  std::int64_t second = 0;               // that the answer is of
  std::int64_t nextChange = never;       // when it changes by itself

  // To be called before the first value.
  void setColumns(const std::shared_ptr<const std::vector<AnswerColumn>>& columns) noexcept {
    columnCount_ = columns->size();
    if (columns_ != columns) columns_ = columns;
  }
  // Null: no rows are answered.
  const std::vector<AnswerColumn>* columns() const noexcept {
    return columnCount_ == 0 ? nullptr : columns_.get();
  }
  std::size_t columnCount() const noexcept { return columnCount_; }
  std::size_t rowCount() const noexcept {
    // A division takes as long as much of a look-up by key.
    if (values.size() == columnCount_) return columnCount_ == 0 ? 0 : 1;
    return columnCount_ == 0 ? 0 : values.size() / columnCount_;
  }
  const AnswerValue& at(std::size_t row, std::size_t column) const noexcept {
    return values[row * columnCount() + column];
  }
  std::string_view text(const AnswerValue& value) const noexcept {
    return std::string_view(texts).substr(value.textOffset, value.textSize);
  }
  // Makes it an empty one, which keeps the memory, and what described the columns: the next answer
  // is often of the same ones, and counting who holds these takes longer than comparing.
  void clear() noexcept {
    columnCount_ = 0;
    values.clear();
    texts.clear();
    timed.clear();
    message.clear();
    rowsAffected = 0;
    identity.reset();
    second = 0;
    nextChange = never;
  }
  // Null where the value is not timed.
  const TimedAnswer* timedAt(std::size_t row, std::size_t column) const noexcept;

  void addNull() { values.emplace_back(); }
  void addInteger(std::int64_t value) {
    AnswerValue& added = values.emplace_back();
    added.integer = value;
    added.type = AnswerType::integer;
  }
  void addReal(double value) {
    AnswerValue& added = values.emplace_back();
    added.real = value;
    added.type = AnswerType::real;
  }
  void addBoolean(bool value) {
    AnswerValue& added = values.emplace_back();
    added.integer = value ? 1 : 0;
    added.type = AnswerType::boolean;
  }
  void addText(std::string_view text) { values.push_back(textValue(text)); }
  // Puts the text among the answer's texts, for a value that is kept elsewhere.
  AnswerValue textValue(std::string_view text) {
    AnswerValue value;
    value.textOffset = texts.size();
    value.textSize = static_cast<std::uint32_t>(text.size());
    value.type = AnswerType::text;
    texts.append(text);
    return value;
  }

 private:
  std::shared_ptr<const std::vector<AnswerColumn>> columns_;  // where there are none, earlier ones
  std::size_t columnCount_ = 0;  // beside them, since each look at a value asks for it
};

// The whole as valid JSON (RFC 8259) in UTF-8: {"success": true, "message": ..., "rows_affected":
// N, "columns": [...], "data": [{...}, ...], "identity": N, "next_change": N or null}. Members that
// do not apply are left out. Floats stand in the shortest form that reads back as the same float.
std::string renderJson(const Answer& answer);

}  // namespace velmora
