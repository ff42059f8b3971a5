// The file that is loaded, as one piece of memory, and the places in it that messages name.
#ifndef VELMORA_TOOLS_LOAD_INPUT_H
#define VELMORA_TOOLS_LOAD_INPUT_H

#include <cstddef>
#include <memory_resource>
#include <stdexcept>
#include <string>
#include <string_view>

namespace tool {

// What is wrong at a byte of the input.
struct BadInput : std::runtime_error {
  BadInput(std::size_t offset_, const std::string& text)
      : std::runtime_error(text), offset(offset_) {}
  std::size_t offset;
};

class Input {
 public:
  // A file's name, or "-" for standard input. Throws Failure where it cannot be read, is empty, or
  // holds what no text of the database can: zero bytes, or bytes that are not UTF-8.
  explicit Input(const std::string& name);
  ~Input();
  Input(const Input&) = delete;
  Input& operator=(const Input&) = delete;

  // Without a byte order mark.
  std::string_view content() const { return content_; }
  // "FILE:LINE:COLUMN", the column in bytes, both from 1. Quick where places are asked for in
  // order.
  std::string place(std::size_t offset) const;
  std::size_t line(std::size_t offset) const;
  const std::string& name() const { return name_; }

 private:
  void readStandardInput();
  void mapFile(const std::string& name);
  void check() const;

  std::string name_;
  std::string read_;        // of standard input
  void* mapped_ = nullptr;  // of a file
  std::size_t mappedSize_ = 0;
  std::string_view content_;
  mutable std::size_t knownOffset_ = 0;  // a place whose line is known
  mutable std::size_t knownLine_ = 1;
};

// Texts that are not in the input as they are, kept until they are all let go.
class TextRoom {
 public:
  std::string_view keep(std::string_view text);
  void clear() { memory_.release(); }

 private:
  std::pmr::monotonic_buffer_resource memory_;
};

// A value of a record, of which no type is known yet.
struct Field {
  std::string_view text;
  std::size_t offset = 0;
  bool isNull = false;
  bool isText = false;  // a JSON text, which is no number even if it reads like one
};

}  // namespace tool

#endif
