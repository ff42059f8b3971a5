// The JSON answer that velmora gives, for the other engines to build the way a careful host would:
// plain code, one reused buffer, the member names made once for a statement. Without it they would
// be timed doing less.
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace bench {

class AnswerText {
 public:
  // Names a column of the rows to come; it stays until it is named again.
  void setColumn(std::size_t column, std::string_view name);

  // A row is each of its values in order, then its end.
  void begin();
  void append(std::size_t column, int number);
  void append(std::size_t column, double number);
  void append(std::size_t column, std::string_view chars);
  void appendNull(std::size_t column);
  void endRow();

  // The finished answers: of rows, of a change, of a failure. They stay until the next begin.
  const char* finishRows();
  const char* finishChange(int rowsAffected);
  const char* finishFailure(std::string_view message);

 private:
  const char* putHead(bool isSuccess, std::string_view message, int rowsAffected, bool hasData);

  std::string text_;
  std::string head_;
  std::vector<std::string> members_;  // what stands before each value of a row
  int rowCount_ = 0;
};

}  // namespace bench
