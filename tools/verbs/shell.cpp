// shell: a prompt for people. Without a terminal it takes the same commands from standard input and
// stops at the first that fails.
#include <unistd.h>

#include <algorithm>

#include "failure.h"
#include "input.h"
#include "interrupt.h"
#include "open.h"
#include "output/text.h"
#include "prompt.h"
#include "shell_commands.h"
#include "splitter.h"
#include "verbs/verbs.h"

namespace tool {
namespace {

struct Arguments {
  bool isReadOnly = false;
  bool mayCreate = false;
  bool hasNoHistory = false;
};

std::string_view trimmed(std::string_view text) {
  constexpr std::string_view blanks = " \t\r\n";
  const std::size_t begin = std::min(text.find_first_not_of(blanks), text.size());
  const std::size_t end = text.find_last_not_of(blanks);
  return text.substr(begin, end == std::string_view::npos ? 0 : end + 1 - begin);
}

// Words that people try to leave or to be helped with, as the shell's own commands.
std::string ownCommand(std::string_view line) {
  for (const char* const word : {"exit", "quit", "help"}) {
    if (line == word || line == std::string(word) + ";") return "." + std::string(word);
  }
  return std::string(line.starts_with('.') ? line : "");
}

// The lines of a shell, put together to commands.
class Lines {
 public:
  explicit Lines(ShellCommands& commands) : commands_(commands) {}

  bool hasBegun() const { return splitter_.hasBegun(); }
  void forget() { splitter_ = Splitter(Splitter::Ends::atSemicolon); }
  // Takes a line; false when a command has failed. remember: called with each command.
  template <typename Remember>
  bool take(const std::string& line, Remember remember) {
    const std::string_view words = trimmed(line);
    if (const std::string own = hasBegun() ? "" : ownCommand(words); !own.empty()) {
      remember(std::string(words));
      return commands_.runOwn(own);
    }
    splitter_.add(line + "\n");
    return runWhole(words.empty(), remember);
  }
  // The rest, at the end of input.
  bool finish() {
    return runWhole(true, [](const std::string&) {});
  }

 private:
  template <typename Remember>
  bool runWhole(bool isEnd, Remember remember) {
    bool isDone = true;
    while (const auto command = splitter_.next(isEnd)) {
      std::string oneLine = command->text + ";";
      std::replace(oneLine.begin(), oneLine.end(), '\n', ' ');
      remember(oneLine);
      isDone &= commands_.run(command->text);
    }
    return isDone;
  }

  ShellCommands& commands_;
  Splitter splitter_{Splitter::Ends::atSemicolon};
};

int talk(ShellCommands& commands, const Arguments& arguments, const std::string& directory) {
  Prompt prompt(arguments.hasNoHistory ? "" : usualHistoryFile(),
                [&](std::string_view line) { return commands.completions(line); });
  write("velmora-tool " + std::string(velmora_version()) + ", " + visible(directory) +
        (arguments.isReadOnly ? ", to be read" : "") + "; .help helps, .quit leaves\n");
  flush();
  Lines lines(commands);
  while (!commands.hasEnded()) {
    std::string line;
    const Prompt::End end = prompt.read(lines.hasBegun() ? "    ...> " : "velmora> ", line);
    if (end == Prompt::End::input) {
      write("\n");
      lines.finish();
      break;
    }
    if (end == Prompt::End::interrupt) {
      write("^C\n");
      flush();
      lines.forget();
    } else {
      lines.take(line, [&](const std::string& command) { prompt.remember(command); });
    }
  }
  return exitDone;
}

// A last line without an end is one, too.
int obey(ShellCommands& commands) {
  Input input("-");
  Lines lines(commands);
  std::string text;
  while (!commands.hasEnded()) {
    const std::string more = input.read();
    text += more;
    if (more.empty() && !text.empty()) text += '\n';
    for (std::size_t end = 0; !commands.hasEnded() && (end = text.find('\n')) != text.npos;) {
      const std::string line = text.substr(0, end);
      text.erase(0, end + 1);
      if (!lines.take(line, [](const std::string&) {})) return exitFailed;
    }
    if (more.empty()) return lines.finish() ? exitDone : exitFailed;
  }
  return exitDone;
}

}  // namespace

Run shellVerb(CLI::App& app, Common& common) {
  addDirectory(app, common);
  const auto arguments = std::make_shared<Arguments>();
  app.add_flag("--create", arguments->mayCreate, "Make the database where there is none");
  app.add_flag("--read-only", arguments->isReadOnly, "Open the database to be read");
  app.add_flag("--no-history", arguments->hasNoHistory, "Neither read nor write the history");
  return [&common, arguments] {
    OpenDatabase database(common, changeFlags(arguments->isReadOnly, arguments->mayCreate));
    const bool isTalking = isatty(STDIN_FILENO) != 0 && isatty(STDOUT_FILENO) != 0;
    ShellCommands commands(*database, common, isTalking);
    return isTalking ? talk(commands, *arguments, common.directory) : obey(commands);
  };
}

}  // namespace tool
