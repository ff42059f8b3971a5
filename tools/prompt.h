// Lines from a person at a terminal, by way of libedit: editing, history, completion.
#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace tool {

class Prompt {
 public:
  // The words that may stand where the cursor is, given the line up to it.
  using Completions = std::function<std::vector<std::string>(std::string_view line)>;

  // historyFile: empty for none.
  Prompt(std::string historyFile, Completions completions);
  ~Prompt();

  enum class End { line, input, interrupt };
  // Reads a line; how it ended.
  End read(const std::string& prompt, std::string& line);
  // Adds a command to the history, and to its file.
  void remember(const std::string& command);

  struct Parts;

 private:
  std::unique_ptr<Parts> parts_;
};

// In XDG_STATE_HOME; empty where there is no place for it.
std::string usualHistoryFile();

// The word before the cursor, which completion goes on with.
std::string_view lastWord(std::string_view line);

}  // namespace tool
