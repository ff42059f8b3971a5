// velmora.ckpt, a checkpoint's journal: what is to be done once the checkpoint counts. It counts
// from the moment at which the journal has its last line.
//
// Lines of text, two of them followed by bytes:
//
//   NAME                     the file NAME.checkpoint takes the place of NAME
//   /spare NAME              the same, and what it replaces becomes NAME.spare
//   /piece OFFSET SIZE NAME  the SIZE bytes behind the line belong into NAME at the offset
//   /size SIZE NAME          NAME has that many bytes in the end
//   /remove NAME             there is no file NAME in the end
//   /end CRC                 the last line: the CRC-32 of all that stands before it, in hexadecimal
//
// No name has a '/' in it. A journal of names alone that ends with the line "end" counts as well:
// earlier versions wrote such.
//
// Whatever it says may be done any number of times.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "block_io.h"
#include "files.h"

namespace velmora {

// Writes the journal, piece by piece. All functions throw WriteFailure.
class CheckpointJournal {
 public:
  explicit CheckpointJournal(const Directory& directory);

  void addPiece(const std::string& name, std::int64_t offset, std::string_view bytes);
  void setSize(const std::string& name, std::int64_t size);
  // What it says so far, but for the bytes. The files to be replaced are written by finish.
  AwaitedFiles& awaited() noexcept { return awaited_; }
  // Hands the bytes to the system, so that what the journal says can be read as if it were done.
  void flush();
  // Writes the last line and makes everything durable. The journal's name has to be so before.
  void finish();
  // Whether the last line has been written, so that the journal counts unless it is taken back.
  bool isWhole() const noexcept { return isWhole_; }

 private:
  void put(std::string_view bytes);

  NewFile file_;
  bool isWhole_ = false;
  std::uint32_t crc_ = 0;
  AwaitedFiles awaited_;
};

// Whether a file can be changed in place: there, ours to write, without a second name.
bool isPatchable(const Directory& directory, const std::string& name);

// Finds out which bytes of a file change, and puts these in the journal.
class PatchWriter {
 public:
  PatchWriter(CheckpointJournal& journal, const Directory& directory, const std::string& name);

  // Whether there is such a file.
  bool isOpen() const noexcept { return old_.isOpen(); }
  // These bytes are to be there.
  void put(std::int64_t offset, std::string_view bytes);
  // The file is to have this size.
  void finish(std::int64_t size);

 private:
  void flush();

  CheckpointJournal& journal_;
  File old_;
  std::int64_t oldSize_;
  BlockReader reader_;
  std::int64_t start_ = 0;
  std::string pending_;  // of the piece that begins there
  bool isChanged_ = false;
};

// What the journal in the directory says, when it is there and has its last line. Throws
// std::runtime_error "Failed to read file: velmora.ckpt", and NotRegularFile.
std::optional<AwaitedFiles> readJournal(const Directory& directory);

// Changes the files as the journal in the directory says, and makes that durable. A file that is
// not there any more is left out. Throws WriteFailure.
void applyPatches(const AwaitedFiles& awaited, const Directory& directory);

}  // namespace velmora
