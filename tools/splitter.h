// Cuts a text into commands. A command ends at ";", or, unless told otherwise, at the end of a line
// too; neither counts within quotes. "--" begins a comment, up to the end of the line, but for the
// arrow "-->".
#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

#include "complaint.h"

namespace tool {

struct Command {
  std::string text;  // with blanks for comments, so that bytes stay where they were
  Place place;       // where it begins
};

class Splitter {
 public:
  enum class Ends { atLineOrSemicolon, atSemicolon };
  explicit Splitter(Ends ends) : ends_(ends) {}

  void add(std::string_view text);
  // The next whole command; isEnd: nothing will be added any more, so that the rest is one.
  std::optional<Command> next(bool isEnd);
  // Whether a command has begun that is not whole.
  bool hasBegun() const;

 private:
  enum class Within { command, quotes, doubleQuotes, comment };

  bool look(bool isEnd);
  void lookOutside(char c);
  std::optional<Command> take(std::size_t end);
  void passTo(std::size_t end);

  Ends ends_;
  std::string text_;
  std::size_t begin_ = 0;  // of what no command has been made of
  std::size_t seen_ = 0;   // up to here the text has been looked at
  bool isAtEnd_ = false;   // of a command, by the last byte seen
  Within within_ = Within::command;
  Place place_;  // of begin_
};

}  // namespace tool
