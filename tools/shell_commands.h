// The shell: what it does with a command of the language, and its own commands, which begin with a
// dot.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "common.h"
#include "velmora/velmora.hpp"

namespace tool {

class ShellCommands {
 public:
  // The database has to stay. isTalking: tells what changed, for people.
  ShellCommands(velmora::Database& database, const Common& common, bool isTalking)
      : database_(database), format_(common.format), isTalking_(isTalking) {}

  // Runs a command of the language; false when it failed, which has been said.
  bool run(const std::string& command);
  // Runs one that begins with a dot; false when it failed.
  bool runOwn(std::string_view line);
  bool hasEnded() const { return hasEnded_; }

  // What may stand where the cursor is.
  std::vector<std::string> completions(std::string_view line) const;

 private:
  void answer(const velmora::Result& result) const;
  void runOwn(const std::string& name, const std::string& argument);
  bool runFile(const std::string& name) const;

  velmora::Database& database_;
  Format format_;
  bool isTalking_;
  bool isTiming_ = false;
  bool hasEnded_ = false;
};

}  // namespace tool
