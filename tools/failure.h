// Why a verb ends early, and with which exit code.
#pragma once

#include <stdexcept>
#include <string>

#include "velmora/velmora.hpp"

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

// The directory is in use.
class InUse : public Failure {
 public:
  using Failure::Failure;
};

// Of a command that has failed.
ExitCode exitCodeOf(const velmora::Error& error);

// Writes a line to standard error: "velmora-tool: TEXT".
void tell(const std::string& text);

// Throws what the system has refused: "NAME: No such file or directory".
[[noreturn]] void throwSystem(const std::string& name, int systemError, ExitCode code = exitFailed);

}  // namespace tool
