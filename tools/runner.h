// Runs commands out of texts, one after another, and prints what they answer.
#pragma once

#include <functional>
#include <string>
#include <string_view>

#include "output/output.h"
#include "splitter.h"
#include "velmora/velmora.hpp"

namespace tool {

struct RunOptions {
  Format format = Format::csv;
  Splitter::Ends ends = Splitter::Ends::atLineOrSemicolon;
  bool keepsGoing = false;  // behind a command that failed
};

class Runner {
 public:
  // The database has to stay.
  Runner(velmora::Database& database, const RunOptions& options)
      : database_(database), options_(options) {}

  // Runs the commands of a file ("-": standard input), or of a text; name: what messages call it.
  // False when it has been stopped by a failure. Throws Failure for a file that cannot be read, and
  // when it was interrupted.
  bool runFile(const std::string& name);
  bool runText(std::string_view text, const std::string& name);
  // Whether a command has failed.
  bool hasFailed() const { return hasFailed_; }

 private:
  bool runAll(Splitter& splitter, bool isEnd, const std::string& name);
  bool runOne(const Command& command, const std::string& name);

  velmora::Database& database_;
  RunOptions options_;
  bool hasFailed_ = false;
};

}  // namespace tool
