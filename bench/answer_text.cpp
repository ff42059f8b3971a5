// The number of rows stands in front of the rows but is known behind them, so room is left for the
// head, which is then written to end where the rows begin.
#include "answer_text.h"

#include <charconv>

namespace bench {

namespace {

constexpr std::size_t headRoom = 256;

void appendInt(std::string& text, int number) {
  char digits[16];
  text.append(digits, std::to_chars(digits, digits + sizeof digits, number).ptr);
}

}  // namespace

void AnswerText::setColumn(std::size_t column, std::string_view name) {
  if (column >= members_.size()) members_.resize(column + 1);
  std::string& member = members_[column];
  member = column == 0 ? "    {\"" : ", \"";
  member += name;
  member += "\": ";
}

void AnswerText::begin() {
  text_.resize(headRoom);
  rowCount_ = 0;
}

void AnswerText::append(std::size_t column, int number) {
  text_ += members_[column];
  appendInt(text_, number);
}

void AnswerText::append(std::size_t column, double number) {
  text_ += members_[column];
  char digits[32];
  const auto end =
      std::to_chars(digits, digits + sizeof digits, number, std::chars_format::general, 6);
  text_.append(digits, end.ptr);
}

void AnswerText::append(std::size_t column, std::string_view chars) {
  text_ += members_[column];
  text_ += '"';
  text_ += chars;
  text_ += '"';
}

void AnswerText::appendNull(std::size_t column) {
  text_ += members_[column];
  text_ += "null";
}

void AnswerText::endRow() {
  text_ += "},\n";
  ++rowCount_;
}

const char* AnswerText::finishRows() {
  if (rowCount_ == 0) return finishChange(0);
  text_.replace(text_.size() - 2, 2, "\n  ]\n}");
  return putHead(true, "", rowCount_, true);
}

const char* AnswerText::finishChange(int rowsAffected) {
  text_ += "\n}";
  return putHead(true, "success!", rowsAffected, false);
}

const char* AnswerText::finishFailure(std::string_view message) {
  text_.resize(headRoom);
  text_ += "\n}";
  return putHead(false, message.substr(0, headRoom / 2), 0, false);
}

const char* AnswerText::putHead(bool isSuccess, std::string_view message, int rowsAffected,
                                bool hasData) {
  head_ = isSuccess ? "{\n  \"success\": true,\n  \"message\": \""
                    : "{\n  \"success\": false,\n  \"message\": \"Error: ";
  head_ += message;
  head_ += "\",\n  \"rows_affected\": ";
  appendInt(head_, rowsAffected);
  if (hasData) head_ += ",\n  \"data\": [\n";
  text_.replace(headRoom - head_.size(), head_.size(), head_);
  return text_.data() + (headRoom - head_.size());
}

}  // namespace bench
