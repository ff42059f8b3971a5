// What all engines share: names, and the text of a statement with its values in place.
#include "engine.h"

#include <charconv>

namespace bench {

namespace {

void appendValue(std::string& text, const Value& value) {
  if (const auto* chars = std::get_if<std::string>(&value)) {
    text += '\'' + *chars + '\'';
    return;
  }
  char digits[32];
  const auto* number = std::get_if<int>(&value);
  const auto end = number != nullptr
                       ? std::to_chars(digits, digits + sizeof digits, *number)
                       : std::to_chars(digits, digits + sizeof digits, std::get<double>(value));
  text.append(digits, end.ptr);
}

}  // namespace

const char* modeName(Mode mode) {
  switch (mode) {
    case Mode::velmora:
      return "velmora";
    case Mode::handle:
      return "handle";
    case Mode::filePrepared:
      return "file, prepared";
    case Mode::fileText:
      return "file, text";
    case Mode::memoryPrepared:
      return "memory, prepared";
    case Mode::memoryText:
      return "memory, text";
    case Mode::duckdbFile:
      return "DuckDB, file";
    case Mode::duckdbMemory:
      return "DuckDB, memory";
  }
  return "";
}

std::string renderText(const std::string& text, const Values& values) {
  std::string result;
  result.reserve(text.size() + 16 * values.size());
  const char* position = text.data();
  const char* const end = position + text.size();
  while (position != end) {
    const char character = *position++;
    if (character != '?') {
      result += character;
      continue;
    }
    std::size_t place = 0;
    position = std::from_chars(position, end, place).ptr;
    appendValue(result, values.at(place - 1));
  }
  return result;
}

std::unique_ptr<Engine> openEngine(Mode mode) {
  if (mode == Mode::velmora) return openVelmora();
  if (mode == Mode::handle) return openHandle();
  return isDuckdb(mode) ? openDuckdb(mode) : openSqlite(mode);
}

}  // namespace bench
