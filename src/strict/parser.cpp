// See parser.h. The commands themselves are in the sources named there.
#include "parser.h"

#include <array>
#include <utility>

#include "../failure.h"
#include "../number.h"
#include "../text.h"
#include "commands.h"

namespace velmora::strict {
namespace {

struct Rule {
  std::string_view word;
  Command (*read)(Cursor& cursor);
};

template <typename Bare>
Command bareCommand(Cursor& /*cursor*/) {
  return Bare{};
}

// The most frequent ones first.
constexpr std::array<Rule, 16> rules = {{{"SELECT", select},
                                         {"INSERT", insertInto},
                                         {"UPDATE", update},
                                         {"DELETE", deleteFrom},
                                         {"BEGIN", bareCommand<Begin>},
                                         {"COMMIT", bareCommand<Commit>},
                                         {"ROLLBACK", bareCommand<Rollback>},
                                         {"CREATE", createTable},
                                         {"DROP", dropTable},
                                         {"LINK", link},
                                         {"UNLINK", unlink},
                                         {"LISTEN", listen},
                                         {"UNLISTEN", unlisten},
                                         {"SHOW", show},
                                         {"VACUUM", vacuum},
                                         {"CHECKPOINT", bareCommand<Checkpoint>}}};

// Texts are stored in UTF-8, and hosts take a zero byte for a text's end.
void checkBytes(std::string_view text) {
  const std::size_t valid = utf8Prefix(text);
  const std::size_t zero = text.find('\0');
  if (zero < valid) throw Failure(Code::syntax, "A command holds no zero bytes").at(zero);
  if (valid < text.size()) throw Failure(Code::range, "The text is not UTF-8 here").at(valid);
}

Command readCommand(Cursor& cursor) {
  for (const Rule& rule : rules) {
    if (cursor.skipWord(rule.word)) return rule.read(cursor);
  }
  cursor.refuse("a command");
}

bool mayBearClock(const Command& command) {
  return std::holds_alternative<Insert>(command) || std::holds_alternative<Update>(command);
}

}  // namespace

Statement parse(std::string_view text) {
  checkBytes(text);
  Cursor cursor(text);
  Statement statement;
  statement.command = readCommand(cursor);
  std::size_t end = cursor.offset();
  if (mayBearClock(statement.command) && cursor.skip("#TIME#")) {
    statement.clock = cursor.wholeNumber(0, latestClock);
  }
  if (!cursor.atEnd()) {
    const std::string found = shown(cursor.token().text);
    throw Failure(Code::syntax, "Unexpected " + found + " after the command").at(cursor.offset());
  }
  while (end > 0 && isSpace(text[end - 1])) --end;
  statement.text = text.substr(0, end);
  statement.parameterCount = cursor.parameterCount;
  return statement;
}

}  // namespace velmora::strict
