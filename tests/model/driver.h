// Runs command sequences on the engine and on the model and compares every answer.
//
// The engine is used as a host uses it, through its exported functions, in a temporary directory
// and under a clock that only the sequence moves. A sequence on which the two differ is shrunk to
// steps that are all needed. What the sequences hold is generator.h's concern.
#pragma once

#include <cstddef>
#include <filesystem>
#include <optional>
#include <string>

#include "model/generator.h"
#include "model/model.h"

namespace model {

// The engine, started in a directory of its own for as long as this lives.
class Engine {
 public:
  Engine();
  ~Engine();
  Engine(const Engine&) = delete;
  Engine& operator=(const Engine&) = delete;

  Answer run(const std::string& command);
  void restart();
  static void setClock(std::int64_t second);

 private:
  std::filesystem::path before_;
  std::filesystem::path directory_;
};

struct Difference {
  std::size_t step = 0;
  Answer expected;
  Answer actual;
};

// Runs the steps on a fresh engine and a fresh model, up to the first difference.
std::optional<Difference> firstDifference(const Sequence& sequence);

// The sequence without the steps that a difference does not need.
Sequence shrunk(const Sequence& sequence);

// Describes the difference that a sequence shows, shrunk, with the seed that made it.
std::string report(const Sequence& sequence, std::uint64_t seed);

// A number from an environment variable, so that a longer run or one seed can be asked for.
std::uint64_t wish(const char* variable, std::uint64_t otherwise);

}  // namespace model
