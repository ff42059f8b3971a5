// What every fuzzer does with an engine, and the properties that hold for any input.
//
// A C++ exception derived from std::exception is an ordinary outcome of a command or a start, out
// of memory is not: a few bytes of input must not ask for much. Sanitizers look for the rest.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "database/database.h"
#include "parser/parser.h"

namespace velmora::fuzz {

// The second that the engine's clock shows; the engine's log lines go nowhere.
inline constexpr std::int64_t startSecond = 1700000000;
void setSecond(std::int64_t second);
void prepareProcess();

// Ends the process with the message, which libFuzzer reports as a finding.
[[noreturn]] void fail(const std::string& message);
inline void require(bool condition, const char* message) {
  if (!condition) fail(message);
}

// Runs a call; the text of the std::exception that left it, or nothing. Being out of memory fails.
std::optional<std::string> textThrownBy(const std::function<void()>& call);

// An engine on the current directory that can be killed: destroying it writes nothing.
class Engine {
 public:
  // Loads the files. Nothing when the load throws; error then holds the text.
  static std::optional<Engine> started(std::string* error = nullptr);

  // The answer's JSON, or "throws TEXT".
  std::string run(const std::string& command);
  // Everything that SELECT shows of every table with columns.
  std::string everything();
  // Whether the checkpoint succeeded.
  bool checkpoint();
  Database& database() { return *database_; }

 private:
  std::unique_ptr<Database> database_;
  std::unique_ptr<Parser> parser_;
};

// The state after a kill is the same however often the engine is killed, and once it has been
// written and loaded, writing and loading change it no more. Consumes the engine.
void checkRestarts(Engine engine);

// The lines of an input.
std::vector<std::string> linesOf(std::string_view input);

}  // namespace velmora::fuzz
