// What the power loss tests share: an engine whose file operations are taken down, the disk that
// they make, and starts over everything that a power failure may leave of it.
#pragma once

#include <map>
#include <optional>
#include <random>
#include <set>
#include <string>
#include <vector>

#include "crash_fixture.h"
#include "operations.h"
#include "simulated_disk.h"

namespace velmora::crash {

class PowerLossTest : public CrashTest {
 protected:
  PowerLossTest();
  ~PowerLossTest() override;

  // An engine, what its tables may be by what it has answered, and its files.
  struct Scene {
    std::filesystem::path directory;
    std::unique_ptr<EngineProcess> engine;
    std::vector<Model> models;
    SimulatedDisk disk;
    std::map<std::string, std::size_t> durableSizes;  // of the files that only grow
  };

  // What may be there after a power failure: one of these states. Tables that were just created may
  // be there without rows beyond that.
  struct Case {
    State state;
    std::map<std::string, std::optional<std::string>> answers;
  };
  struct Expectation {
    std::vector<Case> cases;
    std::set<std::string> created;
  };

  // A scene in an empty directory, or over what a kill leaves of another one's files.
  Scene newScene();
  Scene sceneOver(const SimulatedDisk& disk, const Scene& other);
  // Starts the scene's engine; the power fails at any step of that.
  void startTrying(Scene& scene);
  // Gives the command to the scene's engine; the power fails at any step of what it does, and
  // behind that.
  void runTrying(Scene& scene, Command command);
  void runTrying(Scene& scene, const std::vector<Command>& commands);
  void stopTrying(Scene& scene);
  // The same without power failures.
  void run(Scene& scene, const std::vector<Command>& commands);
  static void apply(Scene& scene, const std::vector<DiskStep>& steps);
  // A disk as some power failure may leave it.
  SimulatedDisk failed(const SimulatedDisk& disk);

  Expectation expectationOf(const std::vector<Model>& models) const;
  // The power fails at each of the steps.
  void tryEach(Scene& scene, const std::vector<DiskStep>& steps, const Expectation& expectation);
  // What the models come to by the command, whatever becomes of it.
  static std::vector<Model> withAndWithout(const std::vector<Model>& models,
                                           const Command& command);

  std::int64_t second_ = firstSecond;
  std::size_t most_;        // states for each step that is tried
  std::size_t stride_ = 1;  // steps of which one is tried

 private:
  // What the engine does, for the disk to take.
  std::vector<DiskStep> perform(Scene& scene, Command command);
  static void settle(Scene& scene, const Command& command);
  void tryNow(const Scene& scene, const Expectation& expectation);
  void tryState(const Files& files, const Scene& scene, const Expectation& expectation);
  std::string differenceAfterStart(EngineProcess& engine, const std::filesystem::path& directory,
                                   const std::string& output, const Expectation& expectation);
  std::string differenceLater(const std::filesystem::path& directory, const Case& found);
  std::string differenceOfGrowing(const std::filesystem::path& directory, const Scene& scene) const;

  std::uint64_t seed_;
  std::mt19937_64 random_;
  std::set<std::size_t> tried_;  // hashes of the states tried since the expectation changed
  int states_ = 0;
  const Case* found_ = nullptr;
};

}  // namespace velmora::crash
