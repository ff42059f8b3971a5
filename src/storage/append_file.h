// A file that only grows, record by record: the log, the listeners, the scheduled changes.
//
// It stays open from one append to the next, since opening and closing a file takes longer than
// writing a line to it, as long as its name leads to it. What an append that failed has left of its
// record is cut off again, at once or, when that fails as well, before the next append: a record
// behind half another one would be lost with it.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "files.h"

namespace velmora {

class AppendFile {
 public:
  AppendFile(const Directory& directory, std::string name)
      : directory_(directory), name_(std::move(name)) {}

  // Looks at what the name leads to, unless the file is known to be untouched; changes nothing. To
  // be called before each append, and before anything is done that must not go without it. Throws
  // NotRegularFile.
  void check();
  // Appends the bytes, to a new file when there is none; false when they could not be written.
  bool append(std::string_view bytes);
  // Makes what was appended durable; false when the file is not open.
  bool sync();
  // Where the next append's bytes will begin; nothing when the file cannot be opened.
  std::optional<std::int64_t> end();

  // Cuts off what lies behind the last whole record; never makes the file longer. Throws
  // std::runtime_error "Failed to repair file: NAME".
  void cutTo(std::int64_t completeSize);

  // The name that the next append goes to.
  void setName(const std::string& name);
  // Forgets the file that the name led to, its torn end included: another one has taken its place.
  void forget();

 private:
  bool open();
  void close();
  bool cutTear();

  Directory directory_;
  std::string name_;
  std::optional<File> file_;
  std::optional<FileIdentity> identity_;  // when it was opened; nothing unless it is open
  bool isCurrent_ = false;                // whether the name led to it when it was last checked
  // Where a record that could not be taken back begins, and in which file.
  struct Tear {
    std::uint64_t inode;
    std::int64_t size;
  };
  std::optional<Tear> tear_;
};

}  // namespace velmora
