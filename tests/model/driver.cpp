// The comparison itself. Relies on the exported functions and on the clock seam of the engine.
#include "model/driver.h"

#include <stdlib.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdlib>
#include <iostream>
#include <sstream>
#include <stdexcept>

#include "clock.h"
#include "velmora/velmora.h"

namespace model {

namespace {

constexpr std::int64_t firstSecond = 1700000000;
std::atomic<std::int64_t> currentSecond{firstSecond};

std::int64_t injectedSecond() { return currentSecond; }

// In memory where the machine has such a place: thousands of engines are stopped here, and each
// stop waits until its files are safe.
std::filesystem::path makeDirectory() {
  const std::filesystem::path memory = "/dev/shm";
  const bool hasMemory = access(memory.c_str(), W_OK) == 0;
  const std::filesystem::path base = hasMemory ? memory : std::filesystem::temp_directory_path();
  std::string pattern = (base / "velmora-model-XXXXXX").string();
  if (mkdtemp(pattern.data()) == nullptr) throw std::runtime_error("no temporary directory");
  return pattern;
}

std::string shown(const Answer& answer) {
  return answer.exception.empty() ? answer.text : "exception " + answer.exception;
}

}  // namespace

Engine::Engine() : before_(std::filesystem::current_path()), directory_(makeDirectory()) {
  std::filesystem::current_path(directory_);
  velmora::clock::setSource(injectedSecond);
  setClock(firstSecond);
  StartEngine();
}

// Without tables there is nothing that could keep the engine from stopping.
Engine::~Engine() {
  run("COMMIT");
  for (const char* name : {"t", "u", "v", "w", "nowhere", "nowhere2", "nowhere3"}) {
    run(std::string("DROP TABLE ") + name);
  }
  StopEngine();
  velmora::clock::setSource(nullptr);
  std::filesystem::current_path(before_);
  std::filesystem::remove_all(directory_);
}

void Engine::setClock(std::int64_t second) { currentSecond = second; }

Answer Engine::run(const std::string& command) {
  try {
    return {ExecuteQuery(command.c_str()), ""};
  } catch (const std::invalid_argument& error) {
    return {"", std::string("invalid_argument: ") + error.what()};
  } catch (const std::out_of_range& error) {
    return {"", std::string("out_of_range: ") + error.what()};
  } catch (const std::exception& error) {
    return {"", std::string("exception: ") + error.what()};
  }
}

// What a start reports on standard output is golden scripts' concern and would only fill the log.
void Engine::restart() {
  StopEngine();
  std::ostringstream reports;
  std::streambuf* const output = std::cout.rdbuf(reports.rdbuf());
  StartEngine();
  std::cout.rdbuf(output);
}

std::optional<Difference> firstDifference(const Sequence& sequence) {
  Engine engine;
  Model model;
  model.now = firstSecond;
  for (std::size_t i = 0; i < sequence.size(); ++i) {
    model.now += sequence[i].advance;
    Engine::setClock(model.now);
    if (sequence[i].restart) {
      if (!model.canStop()) continue;
      model.restart();
      engine.restart();
      continue;
    }
    const Answer expected = model.run(sequence[i].command);
    const Answer actual = engine.run(sequence[i].command);
    if (!(expected == actual)) return Difference{i, expected, actual};
  }
  return std::nullopt;
}

// Leaves out ever smaller runs of steps as long as a difference remains, for a minute at most. The
// time of a step that is left out is given to the next one, so that the others keep their seconds.
Sequence shrunk(const Sequence& sequence) {
  Sequence best = sequence;
  const auto difference = firstDifference(best);
  if (!difference) return best;
  best.resize(difference->step + 1);
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::minutes(1);
  for (std::size_t count = std::max<std::size_t>(best.size() / 2, 1); count > 0; count /= 2) {
    for (std::size_t at = 0; at + count < best.size();) {
      if (std::chrono::steady_clock::now() > deadline) return best;
      Sequence shorter = best;
      for (std::size_t i = at; i < at + count; ++i) shorter[at + count].advance += best[i].advance;
      shorter.erase(shorter.begin() + static_cast<std::ptrdiff_t>(at),
                    shorter.begin() + static_cast<std::ptrdiff_t>(at + count));
      const auto remaining = firstDifference(shorter);
      if (remaining) {
        shorter.resize(remaining->step + 1);
        best = shorter;
      } else {
        at += count;
      }
    }
  }
  return best;
}

std::string report(const Sequence& sequence, std::uint64_t seed) {
  const Sequence shortest = shrunk(sequence);
  const auto difference = firstDifference(shortest);
  std::string text = "seed " + std::to_string(seed) + "\n";
  for (const Step& step : shortest) {
    if (step.advance != 0) text += "clock +" + std::to_string(step.advance) + "\n";
    text += step.restart ? "restart\n" : "> " + step.command + "\n";
  }
  if (!difference) return text + "no difference on a fresh engine\n";
  return text + "expected " + shown(difference->expected) + "\nactual " +
         shown(difference->actual) + "\n";
}

std::uint64_t wish(const char* variable, std::uint64_t otherwise) {
  const char* const text = std::getenv(variable);
  return text == nullptr ? otherwise : std::strtoull(text, nullptr, 10);
}

}  // namespace model
