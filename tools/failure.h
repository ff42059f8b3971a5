// Why a verb ends early, and with which exit code.
#pragma once

#include <stdexcept>
#include <string>

namespace tool {

// What the process ends with.
enum ExitCode {
  exitDone = 0,
  exitFailed = 1,  // a command failed; something was found
  exitWrongUse = 2,
  exitNotOpened = 3,
  exitInterrupted = 130
};

class Failure : public std::runtime_error {
 public:
  Failure(ExitCode code_, const std::string& text) : std::runtime_error(text), code(code_) {}

  ExitCode code;
};

// Throws what the system has refused: "NAME: No such file or directory".
[[noreturn]] void throwSystem(const std::string& name, int systemError, ExitCode code = exitFailed);

}  // namespace tool
