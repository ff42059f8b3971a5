// See complaint.h.
#include "complaint.h"

#include <algorithm>
#include <system_error>

#include "output/text.h"

namespace tool {
namespace {

bool continuesCharacter(char c) { return (static_cast<unsigned char>(c) & 0xC0) == 0x80; }

// The beginning of the character that a byte is of.
std::size_t characterAt(std::string_view text, std::size_t offset) {
  while (offset > 0 && offset < text.size() && continuesCharacter(text[offset])) --offset;
  return offset;
}

struct Line {
  std::size_t begin;
  std::size_t end;
};

Line lineAt(std::string_view text, std::size_t offset) {
  const std::size_t before = text.substr(0, offset).rfind('\n');
  const std::size_t after = text.find('\n', offset);
  return {before == std::string_view::npos ? 0 : before + 1, std::min(after, text.size())};
}

}  // namespace

Place placeOf(std::string_view text, std::size_t offset) {
  offset = std::min(offset, text.size());
  const std::string_view before = text.substr(0, offset);
  Place place;
  place.line += static_cast<std::size_t>(std::count(before.begin(), before.end(), '\n'));
  const std::string_view ofLine = before.substr(lineAt(text, offset).begin);
  place.column += static_cast<std::size_t>(
      std::count_if(ofLine.begin(), ofLine.end(), [](char c) { return !continuesCharacter(c); }));
  return place;
}

std::string complaintText(const velmora::Error& error, std::string_view command) {
  std::string text = visible(error.what());
  if (error.systemError() != 0) {
    text += ": " + std::generic_category().message(error.systemError());
  }
  if (error.offset() < 0) return text;
  constexpr std::size_t mostBefore = 60;  // bytes of the line on each side
  constexpr std::string_view cut = "…";
  const std::size_t offset = std::min(static_cast<std::size_t>(error.offset()), command.size());
  const Line line = lineAt(command, offset);
  const std::size_t begin =
      characterAt(command, offset > line.begin + mostBefore ? offset - mostBefore : line.begin);
  const std::size_t end =
      line.end > offset + mostBefore ? characterAt(command, offset + mostBefore) : line.end;
  const std::string before = (begin > line.begin ? std::string(cut) : std::string()) +
                             visible(command.substr(begin, offset - begin));
  const std::string after = visible(command.substr(offset, end - offset));
  text += "\n  " + before + after + (end < line.end ? std::string(cut) : std::string());
  text += "\n  " + std::string(displayWidth(before), ' ') + "^";
  return text;
}

}  // namespace tool
