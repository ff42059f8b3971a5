// What the crash tests of handles share: a live engine whose file operations are taken down, the
// disk that they make, and engines over what a kill or a power failure may leave of it.
//
// The states that may be found are those that the live engine has shown: each command is answered
// before the next one is given, so it is known which ones were.
#pragma once

#include <gtest/gtest.h>

#include <cstdint>
#include <filesystem>
#include <memory>
#include <random>
#include <set>
#include <string>
#include <vector>

#include "../simulated_disk.h"
#include "database_state.h"
#include "engine/engine.h"
#include "failure.h"
#include "strict_commands.h"

namespace velmora::handles {

using crash::DiskStep;
using crash::Files;
using crash::SimulatedDisk;

// VELMORA_CRASH_SECONDS above its usual value asks for all that there is.
bool isThorough();
// A sanitised engine takes several times as long, and what a sanitizer finds it finds in a part of
// the points as well.
#ifdef __SANITIZE_ADDRESS__
inline constexpr int slowness = 5;
#else
inline constexpr int slowness = 1;
#endif
// VELMORA_CRASH_SEED, or one made up anew.
std::uint64_t chosenSeed();

Files filesIn(const std::filesystem::path& directory);
// Makes the directory hold these files and nothing else.
void writeFiles(const std::filesystem::path& directory, const Files& files);

// A state that the live engine has shown, and when.
struct Known {
  std::int64_t second;
  std::string state;
  Numbers numbers;
};

// One of the operations that follow fails, or all from that one on: which of them, and with what
// (see FileHook).
struct FailingOperation {
  int number = 0;  // from 1; 0: none
  int wish = 0;
  bool lasts = false;
};

class HandleTest : public testing::Test {
 protected:
  HandleTest();
  ~HandleTest() override;

  OpenOptions options(Durability durability);
  void open(Durability durability);
  // Puts files in the place of the live engine's, which is closed.
  void putLive(const Files& files);
  void close();
  // True if the call succeeded; what failed is in failure_.
  bool call(const Call& call);
  // The live engine's state; a transaction must not be open.
  Known known();
  bool isInTransaction() const { return isInTransaction_; }

  // What the live engine's thread does to files is taken down from the first call on.
  std::vector<DiskStep> steps();
  // The engine syncs by itself; gives it something to sync.
  void waitForSync();
  void setFault(const FailingOperation& fault);
  // How many operations there have been since then.
  static int operations();

  // An engine over these files has one of the states; then it goes on, restarts and has what it had
  // come to.
  void expectOneOf(const Files& files, const std::vector<Known>& possible, bool goesOn);
  // What differs from each of the states; empty when it is one of them.
  std::string differenceFrom(Engine& engine, const std::vector<Known>& possible);
  void goOn(std::unique_ptr<Engine> engine);

  std::int64_t second_ = 1'700'000'000;
  std::filesystem::path root_;
  std::filesystem::path live_;
  std::unique_ptr<Engine> engine_;
  int failureCode_ = 0;
  std::string failure_;
  Numbers numbers_;
  int tried_ = 0;
  int grown_ = 0;  // of these, how many had files to which a checkpoint has added exact values

 private:
  void noteNumbers(const StrictCommand& command, const Answer& answer);

  Numbers committed_;  // before the open transaction
  bool isInTransaction_ = false;
};

}  // namespace velmora::handles
