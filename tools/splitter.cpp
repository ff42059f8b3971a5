// See splitter.h.
#include "splitter.h"

#include <algorithm>

namespace tool {
namespace {

constexpr std::string_view blanks = " \t\r\n";

}  // namespace

void Splitter::add(std::string_view text) {
  text_.erase(0, begin_);
  seen_ -= begin_;
  begin_ = 0;
  text_ += text;
}

std::optional<Command> Splitter::next(bool isEnd) {
  while (seen_ < text_.size() && look(isEnd)) {
    if (!isAtEnd_) continue;
    isAtEnd_ = false;
    if (auto command = take(seen_ - 1)) return command;
  }
  return isEnd ? take(text_.size()) : std::nullopt;
}

// Looks at a byte; false where the ones behind it are needed to tell.
bool Splitter::look(bool isEnd) {
  const char c = text_[seen_];
  switch (within_) {
    case Within::quotes:
      if (c == '\'') within_ = Within::command;
      break;
    case Within::doubleQuotes:
      if (c == '"') within_ = Within::command;
      break;
    case Within::comment:
      if (c != '\n') {
        text_[seen_] = ' ';
        break;
      }
      within_ = Within::command;
      lookOutside(c);
      break;
    case Within::command:
      // "--" needs the byte behind it: an arrow is no comment.
      if (c == '-' && !isEnd && text_.size() - seen_ < 3) return false;
      if (text_.compare(seen_, 2, "--") == 0) {
        if (text_.compare(seen_, 3, "-->") == 0) {
          seen_ += 3;
          return true;
        }
        within_ = Within::comment;
        text_[seen_] = ' ';
      } else {
        lookOutside(c);
      }
      break;
  }
  ++seen_;
  return true;
}

void Splitter::lookOutside(char c) {
  if (c == '\'') within_ = Within::quotes;
  if (c == '"') within_ = Within::doubleQuotes;
  isAtEnd_ = c == ';' || (c == '\n' && ends_ == Ends::atLineOrSemicolon);
}

// Takes what stands before the end, and passes over the byte there; nothing where it is blank.
std::optional<Command> Splitter::take(std::size_t end) {
  std::optional<Command> command;
  passTo(std::min(text_.find_first_not_of(blanks, begin_), end));
  if (begin_ < end) {
    const std::size_t last = text_.find_last_not_of(blanks, end - 1);
    command = Command{text_.substr(begin_, last + 1 - begin_), place_};
  }
  passTo(std::min(end + 1, text_.size()));
  return command;
}

void Splitter::passTo(std::size_t end) {
  const std::string_view passed = std::string_view(text_).substr(begin_, end - begin_);
  const Place within = placeOf(passed, passed.size());
  place_.column = within.line > 1 ? within.column : place_.column + within.column - 1;
  place_.line += within.line - 1;
  begin_ = end;
}

bool Splitter::hasBegun() const {
  return text_.find_first_not_of(blanks, begin_) != std::string::npos;
}

}  // namespace tool
