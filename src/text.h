// Text: an owned, immutable-length byte string of 16 bytes, the form in which cells keep values.
//
// A text of up to 15 bytes lies inside the object, a longer one on the heap. A std::string would
// do the same in twice the space; cells are what the engine has most of, so their size decides how
// many rows fit into a cache line, a page and the machine. Everything else uses std::string.
#pragma once

#include <cstdint>
#include <cstring>
#include <functional>
#include <string>
#include <string_view>

#include "record_io.h"

namespace velmora {

class Text {
 public:
  static constexpr std::size_t inlineCapacity = 15;

  Text() noexcept { setEmpty(); }
  // Throws std::length_error when the text is longer than 4 GiB, std::bad_alloc when memory is out.
  explicit Text(std::string_view text) { construct(text); }
  Text(const Text& other) {
    if (other.isOnHeap()) {
      constructOnHeap(other.view());
    } else {
      std::memcpy(bytes_, other.bytes_, sizeof bytes_);
    }
  }
  Text(Text&& other) noexcept {
    std::memcpy(bytes_, other.bytes_, sizeof bytes_);
    other.setEmpty();
  }
  ~Text() { release(); }

  Text& operator=(const Text& other) { return *this = other.view(); }
  Text& operator=(Text&& other) noexcept {
    if (this != &other) {
      release();
      std::memcpy(bytes_, other.bytes_, sizeof bytes_);
      other.setEmpty();
    }
    return *this;
  }
  // The text assigned may be a view into this one. After a failure this text is as it was.
  Text& operator=(std::string_view text) {
    if (text.size() > inlineCapacity) return *this = Text(text);
    const Words words = inlineWords(text);
    release();
    put(words);
    return *this;
  }

  // The bytes; valid until the text is changed or destroyed.
  std::string_view view() const noexcept {
    return isOnHeap() ? std::string_view(heapBytes(), heapSize())
                      : std::string_view(bytes_, static_cast<std::size_t>(bytes_[lengthByte]));
  }
  // Whether the bytes lie elsewhere, and what they take there.
  bool isOnHeap() const noexcept { return bytes_[lengthByte] == onHeap; }
  std::size_t memoryBytes() const noexcept { return isOnHeap() ? heapSize() : 0; }
  operator std::string_view() const noexcept { return view(); }  // NOLINT

  // Has the bytes of a longer text brought into the cache, its beginning at least. Inlined always,
  // since compilers drop calls of functions that change nothing.
  [[gnu::always_inline]] void prefetchBytes() const noexcept {
    if (isOnHeap()) __builtin_prefetch(heapBytes());
  }

  // Becomes the first `size` bytes, 15 at the most, of a field that has 16 or more: whole words are
  // copied faster than so many bytes, and read back at once.
  void takeField(const char* field, std::size_t size) noexcept {
    auto low = static_cast<std::uint64_t>(getInt64(field));
    auto high = static_cast<std::uint64_t>(getInt64(field + 8));
    if (size < 8) low &= (std::uint64_t{1} << 8 * size) - 1;
    high &= size < 8 ? 0 : (std::uint64_t{1} << 8 * (size - 8)) - 1;
    release();
    putInt64(bytes_, static_cast<std::int64_t>(low));
    putInt64(bytes_ + 8, static_cast<std::int64_t>(high | std::uint64_t{size} << 56));
  }

  // Puts the bytes there, at most so many, and zeros behind them up to that width, which is 15 or
  // more. A width known here takes a few wide stores.
  void putPadded(char* out, std::size_t width) const noexcept {
    if (isOnHeap()) {
      const std::size_t size = heapSize() < width ? heapSize() : width;
      std::memcpy(out, heapBytes(), size);
      std::memset(out + size, 0, width - size);
    } else {
      std::memcpy(out, bytes_, inlineCapacity);
      std::memset(out + inlineCapacity, 0, width - inlineCapacity);
    }
  }

  friend bool operator==(const Text& a, std::string_view b) noexcept { return a.view() == b; }
  friend bool operator==(const Text& a, const Text& b) noexcept {
    return a.isOnHeap() ? a.view() == b.view()
                        : std::memcmp(a.bytes_, b.bytes_, sizeof a.bytes_) == 0;
  }

  // Writes the text at out, which has room for as many bytes as the text and a Text have; returns
  // its end. Most texts take one copy of a size known here.
  char* writeTo(char* out) const noexcept {
    if (isOnHeap()) {
      std::memcpy(out, heapBytes(), heapSize());
      return out + heapSize();
    }
    std::memcpy(out, bytes_, sizeof bytes_);
    return out + bytes_[lengthByte];
  }

  // A number that is equal for equal texts, and seldom for others.
  std::uint64_t hash() const noexcept {
    if (isOnHeap()) return std::hash<std::string_view>()(view());
    std::uint64_t words[2];
    std::memcpy(words, bytes_, sizeof words);
    return (words[0] ^ words[1] * 0x9E3779B97F4A7C15) * 0xFF51AFD7ED558CCD;
  }
  // Of a text of up to 15 bytes two words that are equal for equal texts alone; else false.
  bool getWords(std::uint64_t& first, std::uint64_t& second) const noexcept {
    if (isOnHeap()) return false;
    std::memcpy(&first, bytes_, sizeof first);
    std::memcpy(&second, bytes_ + sizeof first, sizeof second);
    return true;
  }
  // The first eight bytes, with zeros for those that it lacks, as a number: of two texts with
  // different ones that of the lesser number comes first.
  std::uint64_t beginning() const noexcept {
    const char* const first = isOnHeap() ? heapBytes() : bytes_;
    return __builtin_bswap64(static_cast<std::uint64_t>(getInt64(first)));
  }
  // A byte of the hash.
  std::uint8_t fingerprint() const noexcept { return static_cast<std::uint8_t>(hash() >> 56); }

 private:
  static constexpr std::size_t lengthByte = 15;
  static constexpr char onHeap = 16;

  char* heapBytes() const noexcept {
    char* bytes;
    std::memcpy(&bytes, bytes_, sizeof bytes);
    return bytes;
  }
  std::size_t heapSize() const noexcept {
    std::uint32_t size;
    std::memcpy(&size, bytes_ + sizeof(char*), sizeof size);
    return size;
  }
  void setEmpty() noexcept { std::memset(bytes_, 0, sizeof bytes_); }
  // What bytes_ is of a short text. Words that overlap where they are equal take no call, and what
  // is stored as words is soon read as words.
  struct Words {
    std::uint64_t low;
    std::uint64_t high;
  };
  static Words inlineWords(std::string_view text) noexcept {
    const char* const bytes = text.data();
    const std::size_t size = text.size();
    const std::uint64_t length = std::uint64_t{size} << 56;
    if (size >= 8) {
      const auto last = static_cast<std::uint64_t>(getInt64(bytes + size - 8));
      const auto first = static_cast<std::uint64_t>(getInt64(bytes));
      return {first, last >> 8 * (15 - size) >> 8 | length};
    }
    if (size >= 4) {
      const std::uint64_t last = static_cast<std::uint32_t>(getInt32(bytes + size - 4));
      return {static_cast<std::uint32_t>(getInt32(bytes)) | last << 8 * (size - 4), length};
    }
    std::uint64_t low = 0;
    for (std::size_t i = 0; i < size; ++i) {
      low |= std::uint64_t{static_cast<unsigned char>(bytes[i])} << 8 * i;
    }
    return {low, length};
  }
  void put(const Words& words) noexcept {
    putInt64(bytes_, static_cast<std::int64_t>(words.low));
    putInt64(bytes_ + 8, static_cast<std::int64_t>(words.high));
  }
  void construct(std::string_view text) {
    if (text.size() <= inlineCapacity) {
      put(inlineWords(text));
    } else {
      constructOnHeap(text);
    }
  }
  void constructOnHeap(std::string_view text);
  void release() noexcept {
    if (isOnHeap()) delete[] heapBytes();
  }

  // Inline: the bytes, zeros, and in the last byte their number, so that equal texts are equal
  // bytes. On the heap: pointer, 32-bit size, mark.
  alignas(char*) char bytes_[16];
};

static_assert(sizeof(Text) == 16);

// The text with each control byte as \xNN, for lines that a person reads: a name must not be able
// to forge a line or to drive a terminal.
std::string printable(std::string_view text);

struct Utf8Sequence {
  std::size_t size = 0;
  bool isValid = false;
};
// The UTF-8 sequence at the beginning of a text that does not begin with an ASCII character; an
// invalid one as far as it is the beginning of a valid one, but at least one byte.
Utf8Sequence firstUtf8Sequence(std::string_view text) noexcept;
// How many bytes of the text are valid UTF-8, counted from its beginning.
std::size_t utf8Prefix(std::string_view text) noexcept;

}  // namespace velmora
