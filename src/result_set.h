// ResultSet: what one command answers, and its JSON form.
//
// The rows of an answer are only ever printed, so they are kept as the JSON text that they print
// as, written once, straight from the cells.
#pragma once

#include <cstdint>
#include <cstring>
#include <memory>
#include <span>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "number.h"
#include "text.h"

namespace velmora {

// The text of an answer: bytes appended at the end, and room kept for what is put in front when the
// rest is known. Memory is never filled with zeros first, and clear() keeps it for the next answer.
class TextBuffer {
 public:
  TextBuffer() = default;
  TextBuffer(TextBuffer&& other) noexcept { swap(other); }
  // The other gets this one's text, and frees it with itself.
  TextBuffer& operator=(TextBuffer&& other) noexcept {
    swap(other);
    return *this;
  }

  std::string_view view() const noexcept {
    return bytes_ == nullptr ? std::string_view() : std::string_view(begin(), end_);
  }
  // The text with a zero byte behind it, valid until the buffer changes. Throws std::bad_alloc.
  const char* terminated() {
    *room(1) = '\0';
    return begin();
  }
  bool hasMemory() const noexcept { return bytes_ != nullptr; }
  void clear() noexcept {
    front_ = frontRoom;
    if (hasMemory()) end_ = begin();
  }

  // Room for count bytes at the end, of which the caller then keeps some with setEnd. Throws
  // std::bad_alloc, leaving the buffer as it was.
  char* room(std::size_t count) {
    if (static_cast<std::size_t>(limit_ - end_) < count) grow(count);
    return end_;
  }
  void setEnd(char* end) noexcept { end_ = end; }
  // Takes the last bytes off again.
  void drop(std::size_t count) noexcept { end_ -= count; }
  // The same as room, copying the bytes.
  void append(std::string_view text);
  // Makes the text longer by count bytes in front of it, which the caller then writes. Throws
  // std::bad_alloc, leaving the buffer as it was.
  char* prepend(std::size_t count);

 private:
  // What an answer has in front of its rows is shorter, unless its message is an unusual one.
  static constexpr std::size_t frontRoom = 128;
  struct Free {
    void operator()(char* bytes) const noexcept;
  };
  char* begin() const noexcept { return bytes_.get() + front_; }
  void swap(TextBuffer& other) noexcept {
    std::swap(bytes_, other.bytes_);
    std::swap(front_, other.front_);
    std::swap(end_, other.end_);
    std::swap(limit_, other.limit_);
  }
  void grow(std::size_t count);

  std::unique_ptr<char, Free> bytes_;
  std::size_t front_ = frontRoom;  // bytes in front of the text
  char* end_ = nullptr;            // of the text, in the memory
  char* limit_ = nullptr;          // of the memory
};

// The data rows of one answer as JSON, one line a row. Values are added row by row, as many to a
// row as there are columns; the columns' names are read where they are, and must stay there until
// the last value is added.
class JsonRows {
 public:
  // To be called before the first value; the memory is that of an earlier answer, or empty.
  void begin(std::span<const std::string> columns, TextBuffer&& memory = {});
  // Tells how many rows come, at least: many are prepared for.
  void expectRows(std::size_t count);
  void addNull() { addPrinted("null"); }
  void addInt(std::int64_t value) { endValue(writeInt(beginValue(maxNumberText), value)); }
  void addFloat(float value);
  // The same for one that prints as itself with so many decimals.
  void addFloat(float value, int decimals);
  // A double, in the shortest form that reads back as the same.
  void addDouble(double value);
  void addBool(bool value) { addPrinted(value ? "true" : "false"); }
  // A text; null for one that reads NULL.
  void addText(std::string_view text);
  // The same, quickly.
  void addText(const Text& text) {
    const std::string_view view = text;
    if (view == "NULL") return addText(view);
    char* const out = beginValue(view.size() + sizeof text + 2);
    *out = '"';
    char* const end = text.writeTo(out + 1);
    *end = '"';
    endValue(end + 1);
  }
  // Adds lines that another has made for the same columns.
  void append(std::string_view lines) { buffer_.append(lines); }
  // What ends a row.
  static constexpr std::string_view rowEnd = "},\n";
  // The lines added so far, each ended by that; they go to the caller.
  TextBuffer take() noexcept { return std::move(buffer_); }
  // Has the memory go to the caller of take, unless there is some already.
  void offerMemory(TextBuffer&& memory) noexcept;

 private:
  // Room for what stands before the next value and for `count` bytes more; returns where they go.
  char* beginValue(std::size_t count) {
    if (!arePrepared_ || prefixes_[column_].size > Prefix::capacity) {
      return beginUnpreparedValue(count);
    }
    const Prefix& prefix = prefixes_[column_];
    char* const out = buffer_.room(Prefix::capacity + count + rowEnd.size());
    std::memcpy(out, prefix.bytes, Prefix::capacity);
    return out + prefix.size;
  }
  char* beginUnpreparedValue(std::size_t count);
  void endValue(char* end) {
    if (++column_ == names_.size()) {
      column_ = 0;
      std::memcpy(end, rowEnd.data(), rowEnd.size());
      end += rowEnd.size();
      // A large answer's memory is not in the cache; the processor asks for it ahead of the writing
      // within a page only.
      constexpr std::size_t ahead = 1024;
      constexpr std::size_t lineSize = 64;
      __builtin_prefetch(end + ahead, 1);
      __builtin_prefetch(end + ahead + lineSize, 1);
    }
    buffer_.setEnd(end);
  }
  // Adds bytes that are a value's JSON already.
  void addPrinted(std::string_view json);

  // What stands before a value, ready to be copied in one piece, which lies in one cache line.
  struct alignas(64) Prefix {
    static constexpr std::size_t capacity = 32;
    char bytes[capacity];
    std::size_t size;  // more than fits: it is put together anew each time
  };

  TextBuffer buffer_;
  std::span<const std::string> names_;
  std::vector<Prefix> prefixes_;
  bool arePrepared_ = false;  // there are prefixes
  std::size_t column_ = 0;    // of the next value
};

struct ResultSet {
  bool success = true;
  std::string message;
  JsonRows rows;
  std::int32_t rowsAffected = 0;
};

ResultSet successful(std::string message, std::int32_t rowsAffected = 0);
// The answer to a command that failed with this text, which goes out as "Error: " + text.
ResultSet refused(std::string_view text);

// The answer as JSON, which does not end with a line feed; it takes the rows' memory. Texts stand
// in it as they are stored. Throws std::bad_alloc.
TextBuffer renderJson(ResultSet&& result);

}  // namespace velmora
