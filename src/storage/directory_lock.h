// An engine's directory, open, and locked against other engines until it is let go of. A process
// that dies lets go of it.
#pragma once

#include <cstdint>
#include <stdexcept>
#include <string>

#include "files.h"

namespace velmora {

struct DirectoryInUse : std::runtime_error {
  explicit DirectoryInUse(std::int64_t process_)
      : std::runtime_error("Database directory is already in use"), process(process_) {}
  std::int64_t process;  // who holds it; 0: not known
};
// The directory is not there, or cannot be opened.
struct DirectoryFailure : std::runtime_error {
  explicit DirectoryFailure(int systemError_)
      : std::runtime_error("Failed to open the database directory"), systemError(systemError_) {}
  int systemError;
};

class DirectoryLock {
 public:
  enum class Mode : std::uint8_t {
    alone,
    shared,  // beside others that ask for the same
    none,    // for who only looks, whatever others do
  };
  // Throws DirectoryInUse, DirectoryFailure.
  explicit DirectoryLock(const std::string& path = ".", Mode mode = Mode::alone);
  ~DirectoryLock();
  DirectoryLock(const DirectoryLock&) = delete;
  DirectoryLock& operator=(const DirectoryLock&) = delete;

  Directory directory() const noexcept { return {descriptor_}; }

 private:
  int descriptor_;
};

// Who has locked the directory; 0: nobody, or not known.
std::int64_t holderOf(const Directory& directory);

// Makes the directory, within one that is there; false when it cannot be, unless it is there.
bool makeDirectory(const std::string& path);

}  // namespace velmora
