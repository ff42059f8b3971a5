// See json_check.h.
#include "json_check.h"

#include <cstdint>

namespace velmora::fuzz {
namespace {

bool isDigitAt(std::string_view text, std::size_t i) {
  return i < text.size() && text[i] >= '0' && text[i] <= '9';
}

class Reader {
 public:
  explicit Reader(std::string_view text) : rest_(text) {}

  bool document() { return value(0) && (skipBlanks(), rest_.empty()); }

 private:
  static constexpr int deepest = 64;

  void skipBlanks() {
    const std::size_t end = rest_.find_first_not_of(" \t\r\n");
    rest_.remove_prefix(end == std::string_view::npos ? rest_.size() : end);
  }
  bool take(std::string_view word) {
    if (!rest_.starts_with(word)) return false;
    rest_.remove_prefix(word.size());
    return true;
  }
  bool value(int depth) {
    if (depth > deepest) return false;
    skipBlanks();
    if (take("{")) return members(depth);
    if (take("[")) return elements(depth);
    if (rest_.starts_with('"')) return string();
    return take("true") || take("false") || take("null") || number();
  }
  bool members(int depth) {
    skipBlanks();
    if (take("}")) return true;
    while (true) {
      skipBlanks();
      if (!string()) return false;
      skipBlanks();
      if (!take(":") || !value(depth + 1)) return false;
      skipBlanks();
      if (take("}")) return true;
      if (!take(",")) return false;
    }
  }
  bool elements(int depth) {
    skipBlanks();
    if (take("]")) return true;
    while (true) {
      if (!value(depth + 1)) return false;
      skipBlanks();
      if (take("]")) return true;
      if (!take(",")) return false;
    }
  }
  bool string() {
    if (!take("\"")) return false;
    while (!rest_.empty()) {
      if (take("\"")) return true;
      if (static_cast<unsigned char>(rest_.front()) < 0x20) return false;
      if (rest_.front() == '\\') {
        if (!escape()) return false;
        continue;
      }
      const std::size_t length = utf8Length(rest_);
      if (length == 0) return false;
      rest_.remove_prefix(length);
    }
    return false;
  }
  bool escape() {
    constexpr std::string_view hexDigits = "0123456789abcdefABCDEF";
    rest_.remove_prefix(1);
    if (take("u")) {
      if (rest_.size() < 4) return false;
      if (rest_.substr(0, 4).find_first_not_of(hexDigits) != std::string_view::npos) return false;
      rest_.remove_prefix(4);
      return true;
    }
    constexpr std::string_view simple = "\"\\/bfnrt";
    if (rest_.empty() || simple.find(rest_.front()) == std::string_view::npos) return false;
    rest_.remove_prefix(1);
    return true;
  }
  bool digits() {
    if (!isDigitAt(rest_, 0)) return false;
    while (isDigitAt(rest_, 0)) rest_.remove_prefix(1);
    return true;
  }
  bool number() {
    take("-");
    if (take("0")) {
      if (isDigitAt(rest_, 0)) return false;
    } else if (!digits()) {
      return false;
    }
    if (take(".") && !digits()) return false;
    if (take("e") || take("E")) {
      if (!take("+")) take("-");
      return digits();
    }
    return true;
  }

  std::string_view rest_;
};

}  // namespace

bool isJson(std::string_view text) { return Reader(text).document(); }

std::size_t utf8Length(std::string_view text) {
  if (text.empty()) return 0;
  const auto lead = static_cast<unsigned char>(text.front());
  if (lead < 0x80) return 1;
  const std::size_t length = lead >= 0xF0 ? 4 : lead >= 0xE0 ? 3 : 2;
  if (lead < 0xC2 || lead > 0xF4 || text.size() < length) return 0;
  std::uint32_t code = lead & (0x7FU >> length);
  for (std::size_t i = 1; i < length; ++i) {
    const auto next = static_cast<unsigned char>(text[i]);
    if ((next & 0xC0U) != 0x80U) return 0;
    code = (code << 6U) | (next & 0x3FU);
  }
  // Neither overlong, nor half of a surrogate pair, nor past the last character.
  if (length == 3 && (code < 0x800 || (code >= 0xD800 && code <= 0xDFFF))) return 0;
  if (length == 4 && (code < 0x10000 || code > 0x10FFFF)) return 0;
  return length;
}

}  // namespace velmora::fuzz
