// ResultSet: what one command answers, and its JSON form.
//
// The rows of an answer are only ever printed, so they are kept as the JSON text that they print
// as, written once, straight from the cells.
#pragma once

#include <cstdint>
#include <cstring>
#include <memory>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

#include "cell.h"
#include "text.h"

namespace velmora {

// One value of an answer. A text equal to "NULL" stands for no value.
using ResultValue = std::variant<std::int32_t, float, bool, Text>;

// The cell's value at the second `now` by its column's kind; "NULL" when none was given. Throws
// std::invalid_argument or std::out_of_range ("stoi", "stof") for a text that does not convert.
ResultValue resultValueOf(const Cell& cell, ValueKind kind, std::int64_t now);

// Bytes appended at the end: what std::string does, without ever filling memory with zeros first.
class TextBuffer {
 public:
  std::string_view view() const noexcept { return {bytes_.get(), size_}; }
  // Room for count bytes at the end, of which the caller then keeps some with setEnd. Throws
  // std::bad_alloc, leaving the buffer as it was.
  char* room(std::size_t count) {
    if (capacity_ - size_ < count) grow(count);
    return bytes_.get() + size_;
  }
  void setEnd(const char* end) noexcept { size_ = static_cast<std::size_t>(end - bytes_.get()); }

 private:
  struct Free {
    void operator()(char* bytes) const noexcept;
  };
  void grow(std::size_t count);

  std::unique_ptr<char, Free> bytes_;
  std::size_t size_ = 0;
  std::size_t capacity_ = 0;
};

// How an answer becomes JSON.
enum class JsonStyle : std::uint8_t {
  raw,   // texts as they are stored, floats as printf writes them
  valid  // as RFC 8259 wants it: texts escaped and made UTF-8, floats that are not finite null
};

// The data rows of one answer as JSON, one line a row. Values are added row by row, as many to a
// row as there are columns.
class JsonRows {
 public:
  JsonRows() = default;
  explicit JsonRows(const std::vector<std::string>& columns, JsonStyle style = JsonStyle::raw);

  bool empty() const noexcept { return buffer_.view().empty(); }
  void add(const ResultValue& value);
  // The same as adding resultValueOf the cell, without converting texts that print as they are.
  void add(const Cell& cell, ValueKind kind, std::int64_t now);
  // The lines, each ended by a line feed, all but the last with a comma.
  void appendTo(std::string& out) const;

 private:
  // Room for what stands before the next value and for `count` bytes more; returns where they go.
  char* beginValue(std::size_t count);
  void endValue(char* end);
  void addQuoted(std::string_view text);
  // Adds bytes that are a value's JSON already.
  void addPrinted(std::string_view json);

  TextBuffer buffer_;
  std::vector<std::string> leads_;  // by column: the brace or comma, and the member's name
  std::size_t column_ = 0;          // of the next value
  JsonStyle style_ = JsonStyle::raw;
};

struct ResultSet {
  bool success = true;
  std::string message;
  std::vector<std::string> columns;
  JsonRows rows;
  std::int32_t rowsAffected = 0;
};

ResultSet successful(std::string message, std::int32_t rowsAffected = 0);
// The answer to a command that failed with this text, which goes out as "Error: " + text.
ResultSet refused(std::string_view text);

// Replaces out by the answer as JSON; the text does not end with a line feed. The style is that of
// the message, and should be the one that the rows were made with. On std::bad_alloc out holds some
// beginning of it.
void renderJson(const ResultSet& result, std::string& out, JsonStyle style = JsonStyle::raw);

}  // namespace velmora
