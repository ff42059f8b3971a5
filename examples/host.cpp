// A host program: it starts the engine in its working directory, gives commands and prints the
// answers, watches a traffic light change by itself, and shows that a restart keeps everything.
//
// It needs the public header and the library, nothing else:
//
//   c++ -std=c++20 host.cpp -lvelmora
#include <chrono>
#include <cstdio>
#include <exception>
#include <string>
#include <thread>

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

// One second each: the host does nothing but ask.
void watchLight(Engine& engine) {
  for (int second = 0; second < 4; ++second) {
    show(engine, "SELECT colour FROM lights WHERE place = 'harbour'");
    std::this_thread::sleep_for(std::chrono::seconds(1));
  }
}

}  // namespace

int main() {
  try {
    {
      Engine engine;
      show(engine, "CREATE TABLE lights place string colour string 3");
      show(engine,
           "INSERT INTO lights place = 'harbour' "
           "colour = 'red' --> 'green' @ 1 s --> 'amber' @ 1 s c");
      watchLight(engine);
      show(engine, "INSERT INTO lights place = 'bridge' colour = 3");
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
