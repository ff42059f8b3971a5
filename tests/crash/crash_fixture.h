// What the crash tests share: directories, restarts that are compared with the model, and the count
// of crash points.
#pragma once

#include <gtest/gtest.h>

#include <cstdint>
#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "engine_process.h"
#include "model.h"

namespace velmora::crash {

// Seconds for the random part; VELMORA_CRASH_SECONDS. With more than usual, the other parts leave
// out nothing of the little that they leave out else.
inline constexpr int usualSeconds = 25;
int secondsToSpend();
inline bool isThorough() { return secondsToSpend() > usualSeconds; }
// A sanitised engine takes several times as long to fork and to start, and what a sanitiser finds
// it finds in a part of the points as well.
#ifdef __SANITIZE_ADDRESS__
inline constexpr int slowness = 4;
#else
inline constexpr int slowness = 1;
#endif
// VELMORA_CRASH_SEED, or one made up anew.
std::uint64_t chosenSeed();

// One thing that may have come of the operation in flight.
struct Possibility {
  Model model;
  int lostChanges = 0;  // how many scheduled changes may be missing
};

class CrashTest : public testing::Test {
 protected:
  CrashTest();
  ~CrashTest() override;

  // A fresh directory for an engine, or a copy of another one's.
  std::filesystem::path newDirectory();
  std::filesystem::path copyOf(const std::filesystem::path& directory);
  static void discard(const std::filesystem::path& directory);

  // Starts an engine and compares all that it holds with what may be; hands back the possibility
  // that it was, with the engine. A difference fails the test and ends in nothing.
  struct Running {
    std::unique_ptr<EngineProcess> engine;
    Model model;
  };
  std::optional<Running> restart(const std::filesystem::path& directory,
                                 const std::vector<Possibility>& possibilities,
                                 std::int64_t second);
  // Whether the running engine's tables, keys and links are the state's; else what differs.
  static std::string difference(EngineProcess& engine, const State& state, std::int64_t second);
  // The same of the links and keys alone, which commands that they refuse show; and of the links'
  // files and what a start has printed of them.
  static std::string differenceOfRefusals(EngineProcess& engine, const State& state,
                                          std::int64_t second);
  static std::string differenceOfLinks(const std::filesystem::path& directory,
                                       const std::string& output, const State& state);
  // Gives the command to engine and model; the answers must agree.
  static void runAlike(Running& running, const Command& command);

  // The model before and after the operation.
  static std::vector<Possibility> beforeAndAfter(const Model& model, const Command& command);

  void countCrashPoint() { ++crashPoints_; }
  int crashPoints() const { return crashPoints_; }

 private:
  static std::string differenceOfFiles(const std::filesystem::path& directory,
                                       const std::string& output, const Possibility& possibility,
                                       const Possibility& most);

  std::filesystem::path root_;
  int directories_ = 0;
  int crashPoints_ = 0;
};

}  // namespace velmora::crash
