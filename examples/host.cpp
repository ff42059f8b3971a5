// A host program over the plain functions: it starts the engine in its working directory, gives
// commands and prints the answers, shows one timed value at three moments of its life, and that a
// restart keeps everything.
//
// It needs the public header and the library, nothing else:
//
//   c++ -std=c++20 host.cpp -o host $(pkg-config --cflags --libs velmora) && ./host
//
// Where velmora is built but not installed, PKG_CONFIG_PATH has to name the build directory.
#include <cstdio>
#include <exception>
#include <string>

#include "velmora/velmora.h"

namespace {

// The engine runs while an object of this class lives.
class Engine {
 public:
  Engine() { StartEngine(); }
  // Stopping saves everything. When that fails nothing is lost: the log still has every change.
  ~Engine() {
    try {
      StopEngine();
    } catch (const std::exception& error) {
      std::fprintf(stderr, "not saved: %s\n", error.what());
    }
  }
  Engine(const Engine&) = delete;
  Engine& operator=(const Engine&) = delete;

  // The answer is copied: the engine's own text lasts only until the next command.
  std::string run(const char* command) { return ExecuteQuery(command); }
};

void show(Engine& engine, const char* command) {
  std::printf("> %s\n%s\n\n", command, engine.run(command).c_str());
}

// The clock behind #TIME# is when a command's timed values have begun; without it that is now.
void showLights(Engine& engine) {
  show(engine, "CREATE TABLE lights place string colour string 3");
  show(engine,
       "INSERT INTO lights place = 'harbour' "
       "colour = 'red' --> 'green' @ 30 s --> 'amber' @ 30 s");
  show(engine,
       "INSERT INTO lights place = 'bridge' "
       "colour = 'red' --> 'green' @ 30 s --> 'amber' @ 30 s #TIME# 1600000000");
  show(engine,
       "INSERT INTO lights place = 'market' "
       "colour = 'off' --> 'red' @ 30 s #TIME# 4000000000");
  show(engine, "SELECT * FROM lights");
  show(engine, "SELECT place FROM lights WHERE colour = 'amber'");
}

}  // namespace

int main() {
  try {
    {
      Engine engine;
      showLights(engine);
      std::printf("-- a failure is an answer like others\n");
      show(engine, "INSERT INTO lights place = 'castle' colour = 3");
    }
    std::printf("-- stopped; starting again in the same directory\n");
    std::fflush(stdout);
    Engine engine;
    show(engine, "SELECT place FROM lights");
  } catch (const std::exception& error) {
    std::fprintf(stderr, "velmora: %s\n", error.what());
    return 1;
  }
  return 0;
}
