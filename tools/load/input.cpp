// See input.h.
#include "load/input.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdint>
#include <cstring>

#include "failure.h"
#include "interrupt.h"
#include "output/text.h"

namespace tool {
namespace {

constexpr std::string_view byteOrderMark = "\xEF\xBB\xBF";

// How many bytes the character at the beginning of a text has; 0 if it is not UTF-8.
std::size_t characterSize(std::string_view text) {
  const auto byte = [&](std::size_t i) { return static_cast<unsigned char>(text[i]); };
  const unsigned char first = byte(0);
  if (first < 0x80) return 1;
  const std::size_t size = first >= 0xF0 ? 4 : first >= 0xE0 ? 3 : 2;
  if (first < 0xC2 || first > 0xF4 || size > text.size()) return 0;
  for (std::size_t i = 1; i < size; ++i) {
    if ((byte(i) & 0xC0U) != 0x80) return 0;
  }
  // Longer than need be, halves of pairs, and what is behind the last character.
  const bool isWrong = (first == 0xE0 && byte(1) < 0xA0) || (first == 0xED && byte(1) > 0x9F) ||
                       (first == 0xF0 && byte(1) < 0x90) || (first == 0xF4 && byte(1) > 0x8F);
  return isWrong ? 0 : size;
}

// The first bytes that are not UTF-8; the text's size if there are none.
std::size_t firstWrongByte(std::string_view text) {
  std::size_t i = 0;
  while (i < text.size()) {
    std::uint64_t eight = 0;
    if (text.size() - i >= sizeof eight) std::memcpy(&eight, text.data() + i, sizeof eight);
    if (text.size() - i >= sizeof eight && (eight & 0x8080808080808080U) == 0) {
      i += sizeof eight;
      continue;
    }
    const std::size_t size = characterSize(text.substr(i));
    if (size == 0) return i;
    i += size;
  }
  return i;
}

}  // namespace

Input::Input(const std::string& name) : name_(name == "-" ? "standard input" : visible(name)) {
  if (name == "-") {
    readStandardInput();
  } else {
    mapFile(name);
  }
  if (content_.starts_with(byteOrderMark)) content_.remove_prefix(byteOrderMark.size());
  check();
}

Input::~Input() {
  if (mapped_ != nullptr) munmap(mapped_, mappedSize_);
}

void Input::readStandardInput() {
  std::array<char, 65536> block;
  while (true) {
    checkInterrupt();
    const ssize_t size = read(STDIN_FILENO, block.data(), block.size());
    if (size == 0) break;
    if (size < 0 && errno == EINTR) continue;
    if (size < 0) throwSystem(name_, errno);
    read_.append(block.data(), static_cast<std::size_t>(size));
  }
  content_ = read_;
}

void Input::mapFile(const std::string& name) {
  const int file = open(name.c_str(), O_RDONLY | O_CLOEXEC);
  if (file < 0) throwSystem(name_, errno);
  struct stat status = {};
  fstat(file, &status);
  if (!S_ISREG(status.st_mode)) {
    close(file);
    throw Failure(exitFailed, name_ + ": not a file; - reads standard input");
  }
  mappedSize_ = static_cast<std::size_t>(status.st_size);
  if (mappedSize_ > 0) mapped_ = mmap(nullptr, mappedSize_, PROT_READ, MAP_PRIVATE, file, 0);
  const int error = errno;
  close(file);
  if (mapped_ == MAP_FAILED) {
    mapped_ = nullptr;
    throwSystem(name_, error);
  }
  content_ = {static_cast<const char*>(mapped_), mappedSize_};
}

void Input::check() const {
  if (content_.empty()) throw Failure(exitFailed, name_ + ": empty");
  const std::size_t wrong = firstWrongByte(content_);
  const std::size_t zero = content_.find('\0');
  if (zero < wrong)
    throw Failure(exitFailed, place(zero) + ": a zero byte, which no text can hold");
  if (wrong == content_.size()) return;
  throw Failure(exitFailed, place(wrong) + ": not UTF-8; iconv makes it so from other encodings");
}

std::size_t Input::line(std::size_t offset) const {
  if (offset < knownOffset_) {
    knownOffset_ = 0;
    knownLine_ = 1;
  }
  const char* const begin = content_.data();
  knownLine_ += static_cast<std::size_t>(std::count(begin + knownOffset_, begin + offset, '\n'));
  knownOffset_ = offset;
  return knownLine_;
}

std::string Input::place(std::size_t offset) const {
  const std::size_t start = content_.substr(0, offset).rfind('\n');
  const std::size_t column = offset - (start == std::string_view::npos ? 0 : start + 1) + 1;
  return name_ + ":" + std::to_string(line(offset)) + ":" + std::to_string(column);
}

std::string_view TextRoom::keep(std::string_view text) {
  if (text.empty()) return "";
  auto* const kept = static_cast<char*>(memory_.allocate(text.size(), 1));
  std::copy(text.begin(), text.end(), kept);
  return {kept, text.size()};
}

}  // namespace tool
