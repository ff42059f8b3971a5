// The power fails at any step of what a handle does. At "always" what was answered is there; at
// "every second" what was synced; and at each, what is found is a state that was there since, with
// whole commands and whole transactions only. That is never taken for damage.
#include "handle_fixture.h"

namespace velmora::handles {
namespace {

class HandlePowerTest : public HandleTest, public testing::WithParamInterface<Durability> {
 protected:
  HandlePowerTest() { disk_.losePages(); }

  // What is left of the live engine's files, and what may be found in them.
  struct Left {
    SimulatedDisk disk;
    std::vector<Known> possible;
  };

  // The power fails behind each of the steps.
  void tryEach(const std::vector<DiskStep>& steps) {
    triedFiles_.clear();
    killed_ = {disk_, possible_};
    const std::size_t kill = steps.empty() ? 0 : commands_.random()() % steps.size();
    for (const DiskStep& step : steps) {
      if (disk_.apply(step)) tryNow();
      if (HasFailure()) return;
      if (&step == &steps[kill]) killed_.disk = disk_;
    }
  }

  void tryNow() {
    const std::size_t most = isThorough() ? 24 : 6;
    for (const Files& files : disk_.afterPowerFailure(most, commands_.random())) {
      if (HasFailure() || !triedFiles_.insert(files).second) continue;
      expectOneOf(files, possible_, tried_ % 16 == 0);
    }
  }

  // Nothing older may be found any more.
  void settle() {
    possible_ = {possible_.back()};
    triedFiles_.clear();
    tryNow();
  }

  // The state that there is from now on, or may be.
  void addKnown() {
    const Known now = known();
    if (possible_.empty() || now.second != possible_.back().second ||
        now.state != possible_.back().state) {
      possible_.push_back(now);
    }
  }

  void runTrying(const Call& next) {
    SCOPED_TRACE(next[0].text.substr(0, 200));
    second_ += static_cast<std::int64_t>(commands_.random()() % 4);
    const bool isDone = call(next);
    const std::vector<DiskStep> done = steps();
    if (!isInTransaction()) addKnown();
    tryEach(done);
    const bool isDurable = GetParam() == Durability::always || isCheckpoint(next[0].text);
    if (isDone && isDurable && !HasFailure()) settle();
  }

  void openTrying() {
    open(GetParam());
    const std::vector<DiskStep> done = steps();
    addKnown();
    tryEach(done);
  }

  void closeTrying() {
    close();
    tryEach(steps());
    settle();
  }

  // What a power failure leaves now.
  Left failed() {
    const std::set<Files> states = disk_.afterPowerFailure(16, commands_.random());
    auto chosen = states.begin();
    std::advance(chosen, commands_.random()() % states.size());
    return {SimulatedDisk(*chosen), possible_};
  }

  // Goes on over what a kill or a power failure has left, while another one threatens.
  void goOnOver(Left left) {
    close();
    steps();
    disk_ = std::move(left.disk);
    possible_ = std::move(left.possible);
    disk_.losePages();
    putLive(disk_.current());
    open(GetParam());
    const std::vector<DiskStep> done = steps();
    numbers_ = nextNumbers(*engine_);
    tryEach(done);
    addKnown();
    if (GetParam() != Durability::off) settle();
  }

  StrictCommands commands_{chosenSeed()};
  SimulatedDisk disk_;
  Left killed_;  // by a kill within what was done last
  std::vector<Known> possible_;
  std::set<Files> triedFiles_;
};

TEST_P(HandlePowerTest, leavesWhatTheDurabilityPromises) {
  steps();
  openTrying();
  settle();
  for (const StrictCommand& command : StrictCommands::preparation()) runTrying({command});
  EXPECT_GT(grown_, 0);
  const int most = isThorough() ? 12000 : 800 / slowness;
  while (tried_ < most && !HasFailure()) {
    runTrying(commands_.next(isInTransaction()));
    const auto what = commands_.random()() % 100;
    if (what == 0 && !HasFailure()) {
      closeTrying();
      openTrying();
    } else if (what < 5 && !HasFailure()) {
      goOnOver(what < 3 ? failed() : killed_);
    }
  }
}

std::string nameOf(const testing::TestParamInfo<Durability>& info) {
  return info.param == Durability::always ? "always" : "off";
}
INSTANTIATE_TEST_SUITE_P(Durability, HandlePowerTest,
                         testing::Values(Durability::always, Durability::off), nameOf);

using HandleSyncTest = HandlePowerTest;

// What the engine has synced by itself is there, before a checkpoint and behind it.
TEST_P(HandleSyncTest, leavesWhatWasSynced) {
  steps();
  openTrying();
  settle();
  for (const StrictCommand& command : StrictCommands::preparation()) runTrying({command});
  goOnOver(killed_);
  for (int round = 0; round < 2 && !HasFailure(); ++round) {
    waitForSync();
    const std::vector<DiskStep> done = steps();
    addKnown();
    for (const DiskStep& step : done) disk_.apply(step);
    settle();
    runTrying({{"INSERT INTO scratch s = 'not synced'", {}}});
    runTrying({{"BEGIN", {}}});
    runTrying({{"DELETE FROM scratch", {}}});
    runTrying({{"COMMIT", {}}});
    runTrying({{"CHECKPOINT", {}}});
  }
  closeTrying();
}

INSTANTIATE_TEST_SUITE_P(Durability, HandleSyncTest, testing::Values(Durability::everySecond),
                         [](const auto& /*info*/) { return "everySecond"; });

}  // namespace
}  // namespace velmora::handles
