// See checkpoint_journal.h.
#include "checkpoint_journal.h"

#include <algorithm>
#include <cerrno>
#include <charconv>

#include "../number.h"
#include "../text.h"
#include "checksum.h"
#include "file_names.h"

namespace velmora {
namespace {

constexpr std::int64_t blockSize = 64 * 1024;
constexpr std::size_t longestLine = 256;
constexpr std::string_view endOfNames = "end";
constexpr std::string_view spareWord = "/spare ";
constexpr std::string_view pieceWord = "/piece ";
constexpr std::string_view sizeWord = "/size ";
constexpr std::string_view removeWord = "/remove ";
constexpr std::string_view endWord = "/end ";

std::string lastLine(std::uint32_t crc) {
  char digits[8];
  const auto end = std::to_chars(digits, digits + sizeof digits, crc, 16).ptr;
  return std::string(endWord).append(digits, end);
}

void sortPieces(AwaitedFiles& awaited) {
  for (auto& [name, patch] : awaited.patched) {
    std::sort(patch.pieces.begin(), patch.pieces.end(),
              [](const Piece& a, const Piece& b) { return a.offset < b.offset; });
  }
}

class JournalReader {
 public:
  explicit JournalReader(File& file) : reader_(file), fileSize_(file.size().value_or(0)) {}

  std::optional<AwaitedFiles> read() {
    while (const auto line = nextLine()) {
      const bool isLast = position_ == fileSize_;
      if (isLast && (*line == lastLine(crc_) || (!hasWords_ && *line == endOfNames))) {
        return complete();
      }
      crc_ = crc32c(crc32c(crc_, *line), "\n");
      if (!take(std::string(*line))) break;
    }
    return std::nullopt;
  }

 private:
  std::optional<std::string_view> nextLine() {
    const std::string_view bytes = reader_.at(position_, longestLine);
    const std::size_t lineFeed = bytes.find('\n');
    if (lineFeed == std::string_view::npos) return std::nullopt;
    position_ += static_cast<std::int64_t>(lineFeed) + 1;
    return bytes.substr(0, lineFeed);
  }

  bool take(std::string_view line) {
    const bool isName = !line.starts_with('/');
    hasWords_ = hasWords_ || !isName;
    if (takeWord(line, pieceWord)) {
      const auto offset = takeNumber(line);
      const auto size = takeNumber(line);
      return offset && size && isFileName(line) && takePiece(line, {*offset, *size, position_});
    }
    if (takeWord(line, sizeWord)) {
      const auto size = takeNumber(line);
      if (size && isFileName(line)) found_.patched[std::string(line)].fileSize = *size;
      return size && isFileName(line);
    }
    if (takeWord(line, removeWord)) {
      found_.removed.insert(std::string(line));
      return isFileName(line);
    }
    const bool keepsSpare = takeWord(line, spareWord);
    if (isFileName(line)) found_.replaced[std::string(line)] = keepsSpare;
    return isFileName(line);
  }

  static bool isFileName(std::string_view name) {
    constexpr std::string_view refused("/\0", 2);
    return name.find_first_of(refused) == std::string_view::npos;
  }

  static bool takeWord(std::string_view& line, std::string_view word) {
    const bool isThere = line.starts_with(word);
    if (isThere) line.remove_prefix(word.size());
    return isThere;
  }

  // A number and the blank behind it.
  static std::optional<std::int64_t> takeNumber(std::string_view& line) {
    const std::size_t blank = line.find(' ');
    std::int64_t number = -1;
    const auto converted = convertLong(line.substr(0, blank), number);
    line.remove_prefix(std::min(line.size(), blank + 1));
    return converted == Conversion::ok && number >= 0 ? std::optional(number) : std::nullopt;
  }

  bool takePiece(std::string_view name, const Piece& piece) {
    found_.patched[std::string(name)].pieces.push_back(piece);
    if (piece.size > fileSize_ - position_) return false;
    const std::int64_t end = position_ + piece.size;
    while (position_ < end) {
      const auto wanted = static_cast<std::size_t>(std::min(blockSize, end - position_));
      const std::string_view bytes = reader_.at(position_, wanted);
      if (bytes.size() < wanted) return false;
      crc_ = crc32c(crc_, bytes);
      position_ += static_cast<std::int64_t>(wanted);
    }
    return true;
  }

  std::optional<AwaitedFiles> complete() {
    for (const auto& [name, patch] : found_.patched) {
      if (patch.fileSize < 0) return std::nullopt;
    }
    sortPieces(found_);
    return std::move(found_);
  }

  BlockReader reader_;
  std::int64_t fileSize_;
  std::int64_t position_ = 0;
  std::uint32_t crc_ = 0;
  bool hasWords_ = false;  // lines that earlier versions did not know
  AwaitedFiles found_;
};

bool applyPiece(File& file, const Piece& piece, BlockReader& journal) {
  for (std::int64_t done = 0; done < piece.size; done += blockSize) {
    const auto size = static_cast<std::size_t>(std::min(blockSize, piece.size - done));
    const std::string_view bytes = journal.at(piece.source + done, size);
    if (bytes.size() < size || !file.writeAt(piece.offset + done, bytes)) return false;
  }
  return true;
}

bool applyPatch(File& file, const Patch& patch, BlockReader& journal) {
  for (const Piece& piece : patch.pieces) {
    if (!applyPiece(file, piece, journal)) return false;
  }
  return (file.size() == patch.fileSize || file.truncate(patch.fileSize)) && file.sync();
}

}  // namespace

CheckpointJournal::CheckpointJournal(const Directory& directory)
    : file_(directory, markerFileName) {}

void CheckpointJournal::put(std::string_view bytes) {
  crc_ = crc32c(crc_, bytes);
  file_.write(bytes);
}

void CheckpointJournal::addPiece(const std::string& name, std::int64_t offset,
                                 std::string_view bytes) {
  put(std::string(pieceWord) + std::to_string(offset) + ' ' + std::to_string(bytes.size()) + ' ' +
      name + '\n');
  const auto size = static_cast<std::int64_t>(bytes.size());
  awaited_.patched[name].pieces.push_back({offset, size, file_.position()});
  put(bytes);
}

void CheckpointJournal::setSize(const std::string& name, std::int64_t size) {
  put(std::string(sizeWord) + std::to_string(size) + ' ' + name + '\n');
  awaited_.patched[name].fileSize = size;
}

void CheckpointJournal::flush() {
  sortPieces(awaited_);
  file_.flush();
}

void CheckpointJournal::finish() {
  for (const std::string& name : awaited_.removed) {
    put(std::string(removeWord).append(name).append("\n"));
  }
  for (const auto& [name, keepsSpare] : awaited_.replaced) {
    put(std::string(keepsSpare ? spareWord : "").append(name).append("\n"));
  }
  put(lastLine(crc_).append("\n"));
  file_.flush();
  isWhole_ = true;
  file_.finish();
}

bool isPatchable(const Directory& directory, const std::string& name) {
  const auto found = identityOf(directory, name.c_str());
  return found && found->nameCount == 1 && File(directory, name, File::Mode::change).isOpen();
}

PatchWriter::PatchWriter(CheckpointJournal& journal, const Directory& directory,
                         const std::string& name)
    : journal_(journal),
      old_(directory, name, File::Mode::read),
      oldSize_(old_.size().value_or(0)),
      reader_(old_) {}

void PatchWriter::put(std::int64_t offset, std::string_view bytes) {
  if (offset < oldSize_ && reader_.at(offset, bytes.size()) == bytes) return;
  const std::int64_t end = start_ + static_cast<std::int64_t>(pending_.size());
  if (offset != end || pending_.size() >= blockSize) flush();
  if (pending_.empty()) start_ = offset;
  pending_ += bytes;
  isChanged_ = true;
}

void PatchWriter::flush() {
  if (!pending_.empty()) journal_.addPiece(old_.name(), start_, pending_);
  pending_.clear();
}

void PatchWriter::finish(std::int64_t size) {
  flush();
  if (isChanged_ || oldSize_ != size) journal_.setSize(old_.name(), size);
}

std::optional<AwaitedFiles> readJournal(const Directory& directory) {
  File file(directory, markerFileName, File::Mode::read);
  if (!file.isOpen() && errno == ENOENT) return std::nullopt;
  if (!file.isOpen()) throwUnreadable(markerFileName);
  return JournalReader(file).read();
}

void applyPatches(const AwaitedFiles& awaited, const Directory& directory) {
  if (awaited.patched.empty()) return;
  File journal(directory, markerFileName, File::Mode::read);
  BlockReader reader(journal);
  for (const auto& [name, patch] : awaited.patched) {
    File file(directory, name, File::Mode::change);
    if (!file.isOpen() && errno == ENOENT) continue;
    if (!applyPatch(file, patch, reader)) {
      throw WriteFailure("cannot write " + printable(name));
    }
  }
}

}  // namespace velmora
