// Files of one directory: the only room that makes file system calls.
//
// Every call is announced to a hook first, so that tests can stop the process or make the call fail
// at any of them. Failures come back as values; what a failure means is decided by the callers.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace velmora {

// Where an engine's files lie: a directory's open descriptor, or the process's current directory.
struct Directory {
  static constexpr int current = -100;  // AT_FDCWD
  int descriptor = current;
};

enum class FileOperation : std::uint8_t { open, read, write, sync, truncate, rename, remove, list };

// Called before each file operation with the file's name: 0 lets it happen, a positive errno value
// makes it fail with that, and shortWrite makes a write write half its bytes and fail.
using FileHook = int (*)(FileOperation operation, const char* name);
inline constexpr int shortWrite = -1;

// Sets the hook of the whole process; null takes it away.
void setFileHook(FileHook hook) noexcept;

// Which file it is that a name leads to, and what opening it depends on.
struct FileIdentity {
  std::uint64_t device = 0;
  std::uint64_t inode = 0;
  std::uint32_t mode = 0;
  std::uint32_t owner = 0;
  std::uint32_t group = 0;
  bool operator==(const FileIdentity&) const = default;
};

// An open file. All functions return false or nothing when the system refuses, or when the file is
// not open.
class File {
 public:
  enum class Mode : std::uint8_t {
    read,
    readWrite,  // must exist
    create,     // read and write, created when missing
    replace,    // created when missing, emptied when there
    append,     // created when missing; writes go to the end
  };

  File(const Directory& directory, const std::string& name, Mode mode);
  ~File();
  File(const File&) = delete;
  File& operator=(const File&) = delete;

  bool isOpen() const noexcept { return descriptor_ >= 0; }
  const std::string& name() const noexcept { return name_; }
  // Writes all bytes at the file position (or the end, for append). After a failure some may have
  // been written.
  bool write(std::string_view bytes);
  bool writeAt(std::int64_t offset, std::string_view bytes);
  // How many bytes the last write has written, all or not.
  std::size_t lastWritten() const noexcept { return lastWritten_; }
  // Reads up to count bytes at an offset; the number read, less than count only at the file's end.
  std::optional<std::size_t> readAt(std::int64_t offset, char* out, std::size_t count);
  std::optional<std::int64_t> size() const;
  std::optional<FileIdentity> identity() const;
  bool truncate(std::int64_t size);
  bool sync();

 private:
  int descriptor_ = -1;
  std::size_t lastWritten_ = 0;
  std::string name_;
};

// The whole file, or nothing when there is none. Throws std::runtime_error "Failed to read file:
// NAME" when it is there and cannot be opened or read.
std::optional<std::string> readFile(const Directory& directory, const std::string& name);

// The file that the name leads to; nothing when there is none, or when the system does not tell.
std::optional<FileIdentity> identityOf(const Directory& directory, const char* name);

// False when the file was there and could not be removed.
bool removeFile(const Directory& directory, const std::string& name);
// Puts a file in another's place. True also when there is no such file (any more).
bool renameFile(const Directory& directory, const std::string& from, const std::string& to);
// Makes renames, creations and removals in the directory durable.
bool syncDirectory(const Directory& directory);
// The names of the regular files that end in the suffix, sorted. Throws std::runtime_error
// "Failed to list directory" when it cannot be read.
std::vector<std::string> listFiles(const Directory& directory, std::string_view suffix);

// Holds the current directory, open and locked against every other holder, until destroyed. A
// process that dies lets go of it.
class DirectoryLock {
 public:
  // Throws std::runtime_error "Database directory is already in use", or "Failed to open the
  // database directory" when the current directory cannot be opened.
  DirectoryLock();
  ~DirectoryLock();
  DirectoryLock(const DirectoryLock&) = delete;
  DirectoryLock& operator=(const DirectoryLock&) = delete;

  Directory directory() const noexcept { return {descriptor_}; }

 private:
  int descriptor_;
};

}  // namespace velmora
