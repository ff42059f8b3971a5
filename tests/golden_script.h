// Golden scripts: the text form of a test, as tests/golden/README.md describes it, read into steps.
//
// This part knows the format and how an expected answer is spelt as JSON; it runs nothing.
#pragma once

#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

namespace velmora::golden {

// What a call of the engine came to: an answer, or an exception that left it.
struct Outcome {
  std::string exceptionType;  // empty: no exception
  std::string text;           // the answer, or the exception's what()

  bool operator==(const Outcome&) const = default;
};

// One directive with everything that belongs to it.
struct Step {
  int lineNumber = 0;
  std::string source;              // the directive's line, for reports
  std::string verb;                // its first word; ">" for both forms of a command
  std::vector<std::string> words;  // what follows the verb, split and unescaped
  std::string command;             // with verb ">": the command text
  Outcome expected;                // with ">", "start" and "stop"
  std::string expectedOutput;      // the `stdout:` lines, each with its line feed
};

// A script that does not follow the format.
struct ScriptError : std::runtime_error {
  ScriptError(int line, const std::string& reason) : std::runtime_error(reason), lineNumber(line) {}
  int lineNumber;
};

std::vector<Step> parseScript(const std::string& script);

// The form in which `file NAME text` and reports write bytes: printable, on one line.
std::string escape(std::string_view bytes);

}  // namespace velmora::golden
