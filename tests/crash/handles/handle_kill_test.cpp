// A process that uses a handle is killed before any file operation of random commands, inside
// transactions and batches too: what is found is what was answered, or that and the command that
// was under way, whole; of an open transaction nothing is there.
#include <iostream>

#include "handle_fixture.h"

namespace velmora::handles {
namespace {

class HandleKillTest : public HandleTest, public testing::WithParamInterface<Durability> {
 protected:
  // The process is killed at each of the steps.
  void tryEach(const std::vector<DiskStep>& steps, const std::vector<Known>& possible) {
    for (const DiskStep& step : steps) {
      disk_.apply(step);
      tryNow(possible);
      if (HasFailure()) return;
    }
  }

  void tryNow(const std::vector<Known>& possible) {
    const Files files = disk_.current();
    if (!triedFiles_.insert(files).second) return;
    expectOneOf(files, possible, isThorough() || tried_ % 8 == 0);
    if (isInside_) ++insideTransactions_;
  }

  void runTrying(const Call& next) {
    SCOPED_TRACE(next[0].text.substr(0, 200));
    second_ += static_cast<std::int64_t>(commands_.random()() % 4);
    if (!isInTransaction()) before_ = known();
    isInside_ = isInTransaction() || next.size() > 1;
    std::vector<Known> possible = {before_};
    const bool isDone = call(next);
    const std::vector<DiskStep> done = steps();
    if (!isInTransaction()) possible.push_back(known());
    const bool isUndone = !isDone || next[0].text == "ROLLBACK";
    if (isUndone && possible.back().second == before_.second) {
      EXPECT_EQ(possible.back().state, before_.state) << failure_;
    }
    triedFiles_.clear();
    tryEach(done, possible);
    // What was answered is there, and nothing of an open transaction.
    triedFiles_.clear();
    tryNow({possible.back()});
  }

  StrictCommands commands_{chosenSeed()};
  SimulatedDisk disk_;
  Known before_;
  std::set<Files> triedFiles_;
  bool isInside_ = false;  // a transaction, which a batch is as well
  int insideTransactions_ = 0;
};

TEST_P(HandleKillTest, leavesWhatWasAnsweredAndTheCommandUnderWayWholeOrNot) {
  steps();
  open(GetParam());
  tryEach(steps(), {known()});
  for (const StrictCommand& command : StrictCommands::preparation()) runTrying({command});
  EXPECT_GT(grown_, 0);
  const int most = tried_ + (isThorough() ? 6000 : 400 / slowness);
  while ((tried_ < most || insideTransactions_ == 0) && !HasFailure()) {
    runTrying(commands_.next(isInTransaction()));
    if (commands_.random()() % 100 > 0 || HasFailure()) continue;
    const Known last = isInTransaction() ? before_ : known();
    close();
    triedFiles_.clear();
    tryEach(steps(), {last});
    open(GetParam());
    triedFiles_.clear();
    tryEach(steps(), {last});
  }
  std::cout << "inside transactions: " << insideTransactions_ << std::endl;
}

std::string nameOf(const testing::TestParamInfo<Durability>& info) {
  if (info.param == Durability::always) return "always";
  return info.param == Durability::off ? "off" : "everySecond";
}
INSTANTIATE_TEST_SUITE_P(Durability, HandleKillTest,
                         testing::Values(Durability::always, Durability::everySecond,
                                         Durability::off),
                         nameOf);

}  // namespace
}  // namespace velmora::handles
