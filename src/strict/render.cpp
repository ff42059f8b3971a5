// See render.h.
#include "render.h"

#include <charconv>

#include "../number.h"
#include "lexer.h"

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

void appendLiteral(std::string& out, const Value& value) {
  std::visit([&](const auto& held) { append(out, held); }, value);
}

}  // namespace

std::string literal(const Value& value) {
  std::string text;
  appendLiteral(text, value);
  return text;
}

void appendWithValues(std::string& out, const Statement& statement, std::span<const Value> values) {
  const std::string_view text = statement.text;
  std::size_t from = 0;
  for (std::size_t i = 0; i < values.size() && statement.parameterOffsets[i] < text.size(); ++i) {
    const std::size_t place = statement.parameterOffsets[i];
    out += text.substr(from, place - from);
    // A place may stand right beside a word, as in LIMIT?; a literal must not.
    if (place > 0 && isWordPart(out.back())) out += ' ';
    appendLiteral(out, values[i]);
    from = place + 1;
    if (from < text.size() && isWordPart(text[from])) out += ' ';
  }
  out += text.substr(from);
}

}  // namespace velmora::strict
