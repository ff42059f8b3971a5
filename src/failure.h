// Failure: what went wrong, as a number that programs can rely on, and where. Its text is what a
// person reads. The numbers are those of the public header and are never given another meaning.
#pragma once

#include <cstddef>
#include <cstdint>
#include <stdexcept>
#include <string>

namespace velmora {

enum class Code : std::int32_t {
  ok = 0,
  misuse = 1,         // a call that the header rules out
  busy = 2,           // the directory, or a transaction, is another's
  readOnly = 3,       // a change of a database that was opened to be read
  notFound = 4,       // an unknown table, column, prefix, link, listener or database
  exists = 5,         // what is to be created is there
  duplicate = 6,      // a key that another row has
  missingParent = 7,  // a link without its parent row
  restricted = 8,     // a change that would leave rows without their parents
  type = 9,           // a value of another type than its column's
  range = 10,         // a value that does not fit
  syntax = 11,
  full = 12,     // no room left: the disk, the identity numbers, a result's rows
  corrupt = 13,  // files that are not what was written
  io = 14,       // the system refused
  noMemory = 15,
  interrupted = 16,
  transaction = 17,  // a transaction is open that must not be, or none is
  inUse = 18,        // a database that still has statements
  internal = 19,     // a fault of the engine's own
};

struct Failure : std::runtime_error {
  Failure(Code code_, const std::string& text) : std::runtime_error(text), code(code_) {}

  Code code;
  std::ptrdiff_t offset = -1;  // of the word in the command, in bytes; -1: none
  std::string table;           // empty: none
  std::string column;
  int systemError = 0;       // errno; 0: none
  std::int64_t process = 0;  // who holds the directory; 0: nobody, or not known

  Failure&& at(std::size_t offset_) && {
    offset = static_cast<std::ptrdiff_t>(offset_);
    return std::move(*this);
  }
  Failure&& of(std::string table_, std::string column_ = {}) && {
    table = std::move(table_);
    column = std::move(column_);
    return std::move(*this);
  }
  Failure&& because(int systemError_) && {
    systemError = systemError_;
    return std::move(*this);
  }
};

}  // namespace velmora
