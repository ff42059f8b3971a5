// Commands one a line against one engine, with lines that are not for the engine:
//
//   !stop      a checkpoint, then a fresh start from the files
//   !kill      a fresh start from the files as they are
//   !clock N   N further seconds pass
//
// A carriage return stands for a line feed within a command. At the end the engine is killed, and
// what checkRestarts says must hold; if every command was one that the log knows of, or a read,
// and none failed, the killed engine shows what the living one did.
#include <algorithm>
#include <array>
#include <string>
#include <string_view>

#include "engine_run.h"
#include "lexer.h"
#include "number.h"
#include "scratch_directory.h"

using namespace velmora::fuzz;

namespace {

// Whether the log holds all that the command has done: a read does nothing, and what fails may have
// done a part of its work.
bool isKept(const std::string& command, const std::string& answer) {
  constexpr std::array<std::string_view, 5> logged = {"CREATE", "LINK", "INSERT", "UPDATE",
                                                      "DELETE"};
  velmora::Lexer lexer(command);
  const std::string_view word = lexer.getNextToken().value;
  if (word == "SELECT") return true;
  const bool isLogged = std::find(logged.begin(), logged.end(), word) != logged.end();
  return isLogged && answer.find("\"success\": true") != std::string::npos;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  prepareProcess();
  const ScratchDirectory directory;
  std::int64_t second = startSecond;
  auto engine = Engine::started();
  bool isAllKept = true;
  for (std::string& line : linesOf({reinterpret_cast<const char*>(data), size})) {
    if (line == "!stop" || line == "!kill") {
      const bool isWritten = line == "!kill" || engine->checkpoint();
      if (!isWritten) continue;
      std::string error;
      engine.reset();
      engine = Engine::started(&error);
      if (!engine) fail("The engine's own files do not load: " + error);
      isAllKept = true;
    } else if (line.starts_with("!clock ")) {
      std::int64_t passed = 0;
      velmora::convertLong(line.substr(7), passed);
      second += passed % 1000000;
      setSecond(second);
    } else {
      std::replace(line.begin(), line.end(), '\r', '\n');
      const std::string answer = engine->run(line);
      isAllKept = isAllKept && isKept(line, answer);
    }
  }
  if (isAllKept) {
    const std::string living = engine->everything();
    engine.reset();
    engine = Engine::started();
    if (engine->everything() != living) {
      fail("A kill makes:\n" + engine->everything() + "of:\n" + living);
    }
  }
  checkRestarts(std::move(*engine));
  return 0;
}
