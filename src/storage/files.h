// Files of one directory: the only room that makes file system calls.
//
// A file is opened in one place, which follows no symbolic link, takes nothing but regular files,
// and never changes a file that has a second name. Every call is announced to a hook first, so that
// tests can stop the process or make the call fail at any of them. Failures come back as values;
// what a failure means is decided by the callers.
#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "file_watch.h"

namespace velmora {

// A part of a file that a checkpoint changes: where it is, and where the checkpoint's journal has
// its bytes.
struct Piece {
  std::int64_t offset = 0;
  std::int64_t size = 0;
  std::int64_t source = 0;
};
struct Patch {
  std::int64_t fileSize = -1;  // what the file is to have in the end
  std::vector<Piece> pieces;   // by ascending offsets, none over another
};

// What a checkpoint has to do once it cannot be taken back, by the files' names.
struct AwaitedFiles {
  // New files that take their places; whether the old one is kept as the spare file.
  std::map<std::string, bool, std::less<>> replaced;
  std::map<std::string, Patch, std::less<>> patched;
  std::set<std::string, std::less<>> removed;
};

// Where an engine's files lie: a directory's open descriptor, or the process's current directory.
struct Directory {
  static constexpr int current = -100;  // AT_FDCWD
  int descriptor = current;
  // While a start reads the files of a checkpoint that was interrupted behind its marker: what that
  // has still to do. What is opened to be read reads as if it had been done.
  const AwaitedFiles* awaited = nullptr;
};

// What bears a file's name is a link, a pipe, a socket or a device.
struct NotRegularFile : std::runtime_error {
  explicit NotRegularFile(std::string_view name);
};

// The system has refused to read what is there.
struct Unreadable : std::runtime_error {
  using std::runtime_error::runtime_error;
};

enum class FileOperation : std::uint8_t { open, read, write, sync, truncate, rename, remove, list };

struct FileEvent {
  FileOperation operation;
  const char* name;              // "." for the directory itself
  const char* target = nullptr;  // what a renamed file is called from then on
};

// Called before each file operation: 0 lets it happen, a positive errno value makes it fail with
// that, and shortWrite makes a write write half its bytes and fail.
using FileHook = int (*)(const FileEvent& event);
inline constexpr int shortWrite = -1;

// Sets the hook of the whole process; null takes it away. With a hook every write is announced and
// made page by page, since that is where the system stops the write of a process that is killed.
void setFileHook(FileHook hook) noexcept;
bool hasFileHook() noexcept;

// Which file it is that a name leads to, and what opening it depends on.
struct FileIdentity {
  std::uint64_t device = 0;
  std::uint64_t inode = 0;
  std::uint32_t mode = 0;
  std::uint32_t owner = 0;
  std::uint32_t group = 0;
  std::uint32_t nameCount = 0;
  bool operator==(const FileIdentity&) const = default;
  // Whether it is a link, a pipe, a socket or a device. A directory is none of them: it fails by
  // itself when it is opened to be written, or read.
  bool isForeign() const noexcept;
};

// An open file. All functions return false or nothing when the system refuses, or when the file is
// not open.
class File {
 public:
  enum class Mode : std::uint8_t {
    read,
    change,     // read and write; must exist
    append,     // created when missing; writes go to the end
    create,     // write; a new file in the place of what bore the name
    overwrite,  // write; what bore the name as it is, if that can be and it has no second name
  };

  // Throws NotRegularFile. A file to change or append to that has a second name is replaced by a
  // copy first, so that the other name keeps what it had.
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
  // How many bytes the last write has written, all or not, and the position behind them.
  std::size_t lastWritten() const noexcept { return lastWritten_; }
  std::int64_t position() const;
  // Reads up to count bytes at an offset; the number read, less than count only at the file's end.
  std::optional<std::size_t> readAt(std::int64_t offset, char* out, std::size_t count);
  std::optional<std::int64_t> size() const;
  // Where the file's content ends: a hole behind it holds nothing but zero bytes, and costs nothing
  // until it is read.
  std::optional<std::int64_t> contentEnd() const;
  std::optional<FileIdentity> identity() const;
  // Whether its name still leads to it, and its identity is what it was, since the last call; false
  // the first ten thousand times, and wherever the system cannot tell: see FileWatch.
  bool isUntouched() { return watch_.isQuiet(descriptor_); }
  // Gives the file the permissions of another.
  bool takeModeOf(const File& other);
  bool truncate(std::int64_t size);
  bool sync();

 private:
  void open(const Directory& directory, Mode mode);
  void openAwaited(const Directory& directory);
  bool hasSecondName() const;
  std::optional<std::size_t> readStored(std::int64_t offset, char* out, std::size_t count);
  std::optional<std::size_t> readPatched(std::int64_t offset, char* out, std::size_t count);
  bool writePiece(std::string_view bytes, std::int64_t offset, int wish);
  bool writePages(std::string_view bytes, std::int64_t offset, bool isPlaced);

  int descriptor_ = -1;
  FileWatch watch_;
  std::size_t lastWritten_ = 0;
  std::string name_;
  const Patch* patch_ = nullptr;   // what a checkpoint is still to change in it, if not null
  std::unique_ptr<File> journal_;  // where the bytes of that are
};

// The whole file, or nothing when there is none. Throws Unreadable "Failed to read file: NAME"
// when it is there and cannot be opened or read, and NotRegularFile.
std::optional<std::string> readFile(const Directory& directory, const std::string& name);
[[noreturn]] void throwUnreadable(std::string_view name);

// The file's size, 0 when there is none. Throws as readFile does.
std::int64_t sizeOf(const Directory& directory, const std::string& name);

// Throws NotRegularFile when the name leads to a link, a pipe, a socket or a device.
void requireRegular(const Directory& directory, const std::string& name);

// What the name itself stands for; nothing when there is no such name, or when the system does not
// tell.
std::optional<FileIdentity> identityOf(const Directory& directory, const char* name);

// False when the file was there and could not be removed.
bool removeFile(const Directory& directory, const std::string& name);
// Puts a file in another's place. True also when there is no such file (any more).
bool renameFile(const Directory& directory, const std::string& from, const std::string& to);
// Makes renames, creations and removals in the directory durable.
bool syncDirectory(const Directory& directory);

// What lies in the directory under a name that ends in the suffix, sorted by name, but for other
// directories. Throws Unreadable "Failed to list directory".
struct DirectoryEntry {
  std::string name;
  bool isRegular = true;
};
std::vector<DirectoryEntry> listFiles(const Directory& directory, std::string_view suffix);

}  // namespace velmora
