// Commands one a line against one engine, with lines that are not for the engine:
//
//   !stop      a checkpoint, then a fresh start from the files
//   !kill      a fresh start from the files as they are
//   !clock N   N further seconds pass
//
// At the end the engine is killed, and what checkRestarts says must hold.
#include <string>

#include "engine_run.h"
#include "number.h"
#include "scratch_directory.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using namespace velmora::fuzz;
  prepareProcess();
  const ScratchDirectory directory;
  std::int64_t second = startSecond;
  auto engine = Engine::started();
  for (const std::string& line : linesOf({reinterpret_cast<const char*>(data), size})) {
    if (line == "!stop" || line == "!kill") {
      const bool isWritten = line == "!kill" || engine->checkpoint();
      if (!isWritten) continue;
      std::string error;
      engine.reset();
      engine = Engine::started(&error);
      if (!engine) fail("The engine's own files do not load: " + error);
    } else if (line.starts_with("!clock ")) {
      std::int64_t passed = 0;
      velmora::convertLong(line.substr(7), passed);
      second += passed % 1000000;
      setSecond(second);
    } else {
      engine->run(line);
    }
  }
  checkRestarts(std::move(*engine));
  return 0;
}
