// See render.h.
#include "render.h"

#include <charconv>

#include "../number.h"

namespace velmora::strict {
namespace {

void append(std::string& out, std::monostate /*null*/) { out += "NULL"; }

void append(std::string& out, std::int64_t number) { appendInt(out, number); }

// The shortest form that reads back, marked as a float if it could be taken for a whole number.
void append(std::string& out, double number) {
  char digits[maxNumberText];
  const char* const end = std::to_chars(digits, digits + sizeof digits, number).ptr;
  const std::string_view text(digits, static_cast<std::size_t>(end - digits));
  out += text;
  if (text.find_first_of(".e") == std::string_view::npos) out += ".0";
}

void append(std::string& out, bool isTrue) { out += isTrue ? "true" : "false"; }

void append(std::string& out, const std::string& text) {
  out += '\'';
  std::string_view rest = text;
  for (auto quote = rest.find('\''); quote != rest.npos; quote = rest.find('\'')) {
    out.append(rest.substr(0, quote + 1)) += '\'';
    rest.remove_prefix(quote + 1);
  }
  out.append(rest) += '\'';
}

}  // namespace

std::string literal(const Value& value) {
  std::string text;
  std::visit([&](const auto& held) { append(text, held); }, value);
  return text;
}

}  // namespace velmora::strict
