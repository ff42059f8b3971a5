// Fixed-width little-endian fields of the engine's files, on every machine. The only place that
// knows byte order and padding; what the fields mean is told by the source that owns the file's
// format.
#pragma once

#include <algorithm>
#include <bit>
#include <cstdint>
#include <cstring>
#include <string>
#include <string_view>

namespace velmora {

// The width of names in every file: table names, column names, type names.
inline constexpr std::size_t nameWidth = 15;

// A number with its bytes as files have them, or back.
template <typename Number>
Number inFileOrder(Number number) noexcept {
  if constexpr (std::endian::native != std::endian::little) {
    auto* const bytes = reinterpret_cast<char*>(&number);
    std::reverse(bytes, bytes + sizeof number);
  }
  return number;
}

template <typename Number>
char* putNumber(char* out, Number number) noexcept {
  const Number ordered = inFileOrder(number);
  std::memcpy(out, &ordered, sizeof ordered);
  return out + sizeof ordered;
}
inline char* putInt32(char* out, std::int32_t value) noexcept { return putNumber(out, value); }
inline char* putInt64(char* out, std::int64_t value) noexcept { return putNumber(out, value); }

// At most `width` bytes of the text, padded with zero bytes to that width.
inline char* putText(char* out, std::string_view text, std::size_t width) noexcept {
  const std::size_t size = std::min(text.size(), width);
  if (size > 0) std::memcpy(out, text.data(), size);
  std::memset(out + size, 0, width - size);
  return out + width;
}

template <typename Number>
Number getNumber(const char* in) noexcept {
  Number ordered;
  std::memcpy(&ordered, in, sizeof ordered);
  return inFileOrder(ordered);
}
inline std::int32_t getInt32(const char* in) noexcept { return getNumber<std::int32_t>(in); }
inline std::int64_t getInt64(const char* in) noexcept { return getNumber<std::int64_t>(in); }

// The text of a padded field: up to its first zero byte.
inline std::string_view getText(const char* in, std::size_t width) noexcept {
  // Most texts are short, and found to end without a call.
  constexpr std::uint64_t ones = 0x0101010101010101;
  constexpr std::uint64_t highBits = 0x8080808080808080;
  for (std::size_t start = 0; start + 8 <= width && start < 16; start += 8) {
    const auto eight = static_cast<std::uint64_t>(getInt64(in + start));
    const std::uint64_t zeros = (eight - ones) & ~eight & highBits;
    if (zeros != 0) return {in, start + static_cast<std::size_t>(std::countr_zero(zeros)) / 8};
  }
  const void* const zero = width == 0 ? nullptr : std::memchr(in, 0, width);
  return {in,
          zero == nullptr ? width : static_cast<std::size_t>(static_cast<const char*>(zero) - in)};
}

// Whether the bytes are what a file has where nothing was ever written.
inline bool isAllZero(std::string_view bytes) noexcept {
  if (bytes.size() < 8) return bytes.find_first_not_of('\0') == std::string_view::npos;
  // The last eight overlap those before them, which takes no loop over the rest.
  std::int64_t found = getInt64(bytes.data() + bytes.size() - 8);
  for (; bytes.size() >= 8; bytes.remove_prefix(8)) found |= getInt64(bytes.data());
  return found == 0;
}

// Whether the field of a text holds nothing behind it.
inline bool isPadded(std::string_view field) noexcept {
  return isAllZero(field.substr(getText(field.data(), field.size()).size()));
}

// Builds one record field by field.
class RecordWriter {
 public:
  RecordWriter& byte(bool value) {
    bytes_.push_back(value ? '\1' : '\0');
    return *this;
  }
  RecordWriter& character(char value) {
    bytes_.push_back(value);
    return *this;
  }
  RecordWriter& int32(std::int32_t value) {
    putInt32(grow(4), value);
    return *this;
  }
  RecordWriter& int64(std::int64_t value) {
    putInt64(grow(8), value);
    return *this;
  }
  RecordWriter& text(std::string_view value, std::size_t width) {
    putText(grow(width), value, width);
    return *this;
  }
  RecordWriter& zeros(std::size_t count) {
    bytes_.append(count, '\0');
    return *this;
  }
  const std::string& bytes() const noexcept { return bytes_; }

 private:
  char* grow(std::size_t count) {
    bytes_.resize(bytes_.size() + count);
    return bytes_.data() + bytes_.size() - count;
  }
  std::string bytes_;
};

// Takes a record apart field by field. The caller has checked that there are enough bytes.
class RecordReader {
 public:
  explicit RecordReader(std::string_view bytes) : bytes_(bytes) {}
  char character() noexcept { return *take(1); }
  bool byte() noexcept { return character() != 0; }
  std::int32_t int32() noexcept { return getInt32(take(4)); }
  std::int64_t int64() noexcept { return getInt64(take(8)); }
  std::string_view text(std::size_t width) noexcept { return getText(take(width), width); }

 private:
  const char* take(std::size_t count) noexcept {
    const char* const field = bytes_.data();
    bytes_.remove_prefix(count);
    return field;
  }
  std::string_view bytes_;
};

}  // namespace velmora
