// See block_io.h.
#include "block_io.h"

#include <algorithm>
#include <cstring>

#include "../text.h"
#include "checksum.h"
#include "file_names.h"

namespace velmora {

void GrowingSeal::add(std::int64_t offset, std::string_view bytes) {
  bytes = bytes.substr(0, static_cast<std::size_t>(std::max(end - offset, std::int64_t{0})));
  const std::int64_t known = seal.size - offset;
  if (known < 0 || known >= static_cast<std::int64_t>(bytes.size())) return;
  bytes.remove_prefix(static_cast<std::size_t>(known));
  seal.crc = crc32c(seal.crc, bytes);
  seal.size += static_cast<std::int64_t>(bytes.size());
  count(bytes.size());
}

std::string_view BlockReader::at(std::int64_t offset, std::size_t count) {
  const std::int64_t end = start_ + static_cast<std::int64_t>(held_);
  if (offset < start_ || offset + static_cast<std::int64_t>(count) > end) fill(offset, count);
  const auto skipped = static_cast<std::size_t>(offset - start_);
  if (skipped >= held_) return {};
  return {buffer_.data() + skipped, std::min(count, held_ - skipped)};
}

void BlockReader::fill(std::int64_t offset, std::size_t count) {
  const std::int64_t end = start_ + static_cast<std::int64_t>(held_);
  const bool goesOn = offset >= start_ && offset <= end + static_cast<std::int64_t>(blockSize);
  const std::size_t usual = buffer_.empty() ? pieceSize : blockSize;
  constexpr std::int64_t pageSize = 4096;
  const std::int64_t intoPage = offset % pageSize;
  const std::size_t wanted =
      static_cast<std::size_t>(intoPage) + (goesOn ? std::max(count, usual) : count);
  if (buffer_.size() < wanted) buffer_.resize(wanted);
  held_ = 0;
  const auto read = file_.readAt(offset - intoPage, buffer_.data(), wanted);
  if (!read) throwUnreadable(file_.name());
  start_ = offset - intoPage;
  held_ = *read;
  if (growing_ != nullptr) growing_->add(start_, {buffer_.data(), held_});
}

NewFile::NewFile(const Directory& directory, const std::string& fileName, File::Mode mode)
    : file_(directory, fileName, mode) {
  if (!file_.isOpen()) throw CreateFailure("cannot create " + printable(fileName));
}

void NewFile::makeRoom(std::size_t count) {
  const auto block = static_cast<std::int64_t>(blockSize);
  const std::int64_t whole = position() / block * block - start_;
  if (whole > 0) {
    const char* const rest = buffer_.data() + whole;
    writeThrough({buffer_.data(), static_cast<std::size_t>(whole)});
    used_ -= static_cast<std::size_t>(whole);
    std::memmove(buffer_.data(), rest, used_);
  }
  // Most files are small.
  const std::size_t usual = buffer_.empty() ? pieceSize : blockSize + pieceSize;
  const std::size_t wanted = std::max(used_ + count, usual);
  if (buffer_.size() < wanted) buffer_.resize(wanted);
}

void NewFile::write(std::string_view bytes) {
  if (bytes.size() < blockSize) {
    char* const out = room(bytes.size());
    written(std::copy(bytes.begin(), bytes.end(), out));
    return;
  }
  flush();
  writeThrough(bytes);
}

void NewFile::seek(std::int64_t offset) {
  if (offset == position()) return;
  flush();
  start_ = offset;
  reached_ = std::max(reached_, start_);
}

void NewFile::finish() {
  flush();
  const auto size = file_.size();
  if (!size || (*size != reached_ && !file_.truncate(reached_))) {
    throw WriteFailure("cannot write " + printable(file_.name()));
  }
  if (!file_.sync()) throw WriteFailure("cannot sync " + printable(file_.name()));
}

void NewFile::flush() {
  const std::size_t size = used_;
  used_ = 0;
  if (size > 0) writeThrough({buffer_.data(), size});
}

void NewFile::writeThrough(std::string_view bytes) {
  if (!file_.writeAt(start_, bytes)) {
    throw WriteFailure("cannot write " + printable(file_.name()));
  }
  start_ += static_cast<std::int64_t>(bytes.size());
  reached_ = std::max(reached_, start_);
}

void writeBeside(const Directory& directory, const std::string& fileName, std::string_view bytes) {
  NewFile file(directory, unfinishedName(fileName));
  file.write(bytes);
  file.finish();
}

void putInPlace(const Directory& directory, const std::string& fileName) {
  if (!renameFile(directory, unfinishedName(fileName), fileName)) {
    throw WriteFailure("cannot replace " + printable(fileName));
  }
}

}  // namespace velmora
