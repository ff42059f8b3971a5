// Reading and writing files in blocks, so that what a start or a checkpoint needs beside the tables
// does not grow with the files.
#pragma once

#include <cstdint>
#include <functional>
#include <limits>
#include <string>
#include <string_view>

#include "files.h"
#include "page_bytes.h"

namespace velmora {

// What tells a file from any other.
struct Seal {
  std::int64_t size = 0;
  std::uint32_t crc = 0;
  bool operator==(const Seal&) const = default;
};
// Called with the number of bytes that have been read.
using CountBytes = std::function<void(std::size_t count)>;
// The seal of a file as far as it has been read, or of the part of it that ends there.
struct GrowingSeal {
  Seal seal;
  CountBytes count;
  std::int64_t end = std::numeric_limits<std::int64_t>::max();

  // Takes what is new in bytes that were read at the offset, if they go on with it.
  void add(std::int64_t offset, std::string_view bytes);
};

// Bytes of a file, read in large blocks as long as each place asked for is near the one before.
class BlockReader {
 public:
  // A seal grows with what is read.
  explicit BlockReader(File& file, GrowingSeal* growing = nullptr)
      : file_(file), growing_(growing) {}

  // The `count` bytes from the offset on, or as many as the file has; until the next call. Throws
  // std::runtime_error "Failed to read file: NAME".
  std::string_view at(std::int64_t offset, std::size_t count);

 private:
  static constexpr std::size_t blockSize = 256 * 1024;
  // What is read at first: most files have no more.
  static constexpr std::size_t pieceSize = 32 * 1024;

  void fill(std::int64_t offset, std::size_t count);

  File& file_;
  GrowingSeal* growing_;
  PageBytes buffer_;
  std::int64_t start_ = 0;  // of what is held
  std::size_t held_ = 0;
};

// A file that could not be created, written or synced; the text says which.
struct WriteFailure : std::runtime_error {
  using std::runtime_error::runtime_error;
};
struct CreateFailure : WriteFailure {
  using WriteFailure::WriteFailure;
};

// A new file, written in blocks; or one that is written over from its beginning, without seek().
// Every function but the destructor throws WriteFailure ("cannot create NAME", which is a
// CreateFailure, "cannot write NAME", "cannot sync NAME") and NotRegularFile.
class NewFile {
 public:
  NewFile(const Directory& directory, const std::string& fileName,
          File::Mode mode = File::Mode::create);

  // What the system is handed in one call, from a multiple of it to the next. It keeps a file in
  // such pieces of memory as it is written in, and aligned large ones cost half of small ones when
  // they are written over and synced; larger ones than these would leave the second cache.
  static constexpr std::size_t blockSize = 512 * 1024;
  // What room is asked for at a time, or less: most files have no more.
  static constexpr std::size_t pieceSize = 32 * 1024;

  // Room for `count` bytes, of which written() then takes what was used.
  char* room(std::size_t count) {
    if (buffer_.size() < used_ + count) makeRoom(count);
    return buffer_.data() + used_;
  }
  void written(const char* end) { used_ = static_cast<std::size_t>(end - buffer_.data()); }
  void write(std::string_view bytes);
  // Goes on writing there. What is passed over and never written is zero bytes.
  void seek(std::int64_t offset);
  std::int64_t position() const noexcept { return start_ + static_cast<std::int64_t>(used_); }
  // Hands all that was written to the system.
  void flush();
  // Makes all that was written durable.
  void finish();

 private:
  void makeRoom(std::size_t count);
  void writeThrough(std::string_view bytes);

  File file_;
  PageBytes buffer_;
  std::size_t used_ = 0;
  std::int64_t start_ = 0;    // where in the file the buffer's first byte belongs
  std::int64_t reached_ = 0;  // the size that the file is to have, but for the buffer
};

// Makes a file in one step, whole and durable, under the name that putInPlace takes it from.
void writeBeside(const Directory& directory, const std::string& fileName, std::string_view bytes);
// Puts the file that was made under unfinishedName in its place.
void putInPlace(const Directory& directory, const std::string& fileName);

}  // namespace velmora
