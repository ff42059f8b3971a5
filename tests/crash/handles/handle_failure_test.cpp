// Each file operation of commands, opens and closes fails once, or from then on: what fails is
// answered with an error and leaves the database as it was, in memory and after a restart. Behind a
// sync that failed nothing is answered any more, since it may have been done or not.
#include <cerrno>
#include <iostream>

#include "handle_fixture.h"

namespace velmora::handles {
namespace {

constexpr int ioCode = static_cast<int>(Code::io);
constexpr int fullCode = static_cast<int>(Code::full);

const std::vector<FailingOperation> failures = {
    {0, EIO, false}, {0, shortWrite, false}, {0, EIO, true}, {0, ENOSPC, true}};

class HandleFailureTest : public HandleTest {
 protected:
  // Files with a checkpoint and a log behind it.
  void prepare() {
    open(Durability::off);
    for (const StrictCommand& command : StrictCommands::preparation()) call({command});
    call({{"CHECKPOINT", {}}});
    call({{"INSERT INTO scratch s = 'logged'", {}}});
    call({{"DELETE FROM codes WHERE code = 'c'", {}}});
    call({{"INSERT INTO codes code = 'd'", {}}, {"UPDATE people SET code = 'd'", {}}});
    files_ = filesIn(live_);
    numbersAtStart_ = numbers_;
    close();
  }

  void openAgain(const Files& files, Durability durability) {
    putLive(files);
    numbers_ = numbersAtStart_;
    open(durability);
  }

  // Tries the call with a failure; false once it has fewer operations.
  bool fail(const std::vector<Call>& before, const Call& next, const FailingOperation& failure,
            Durability durability, const std::string& after) {
    openAgain(files_, durability);
    Known old = known();
    for (const Call& each : before) EXPECT_TRUE(call(each)) << failure_;
    if (!isInTransaction()) old = known();
    setFault(failure);
    const bool isDone = call(next);
    const bool isReached = operations() >= failure.number;
    setFault({});
    steps();
    ++tried_;
    if (isDone) {
      EXPECT_EQ(stateOf(*engine_), after);
      expectOneOf(filesIn(live_), {known()}, false);
    } else {
      EXPECT_TRUE(failureCode_ == ioCode || failureCode_ == fullCode)
          << failureCode_ << ": " << failure_;
      expectUndone(old, after);
    }
    close();
    steps();
    return isReached && !HasFailure();
  }

  void expectUndone(const Known& old, const std::string& after) {
    const std::string text = failure_;
    const bool isUnsure = !call({{"SELECT * FROM codes", {}}});
    if (isUnsure) {
      EXPECT_EQ(failure_, "The log could not be synced: open the database again") << text;
      EXPECT_FALSE(call({{"INSERT INTO scratch n = 77", {}}}));
      expectState(filesIn(live_), {old.state, after});
      return;
    }
    EXPECT_EQ(stateOf(*engine_), old.state) << text;
    if (call({{"INSERT INTO scratch n = 77", {}}})) {
      expectOneOf(filesIn(live_), {known()}, true);
    } else {
      EXPECT_EQ(failure_, "The log could not be written: open the database again") << text;
      expectOneOf(filesIn(live_), {old}, true);
    }
  }

  // The numbers given next are left out.
  void expectState(const Files& files, const std::set<std::string>& possible) {
    writeFiles(root_ / "unsure", files);
    Engine engine((root_ / "unsure").string(), options(Durability::off));
    EXPECT_TRUE(possible.contains(stateOf(engine)));
  }

  void failEach(const std::vector<Call>& before, const Call& next) {
    SCOPED_TRACE(next[0].text.substr(0, 100));
    openAgain(files_, Durability::off);
    for (const Call& each : before) ASSERT_TRUE(call(each)) << failure_;
    ASSERT_TRUE(call(next)) << failure_;
    const std::string after = stateOf(*engine_);
    close();
    for (const Durability durability : {Durability::always, Durability::off}) {
      tryFailures(
          [&](const FailingOperation& failure) {
            return fail(before, next, failure, durability, after);
          },
          isThorough() || !isCheckpoint(next[0].text) ? 1 : 7 * slowness);
    }
  }

  // Opens the files with a failure; false once that has fewer operations.
  bool failOpen(const Files& files, const FailingOperation& failure, const Known& expected) {
    putLive(files);
    setFault(failure);
    std::string wrong;
    try {
      open(Durability::always);
    } catch (const Failure& thrown) {
      const int code = static_cast<int>(thrown.code);
      if (code != ioCode && code != fullCode) wrong = std::to_string(code) + ": " + thrown.what();
    }
    const bool isReached = operations() >= failure.number;
    setFault({});
    if (engine_ != nullptr) wrong += differenceFrom(*engine_, {expected});
    EXPECT_EQ(wrong, "");
    expectOneOf(filesIn(live_), {expected}, false);
    close();
    steps();
    return isReached;
  }

  // Closes an open engine, which writes a checkpoint.
  bool failClose(const FailingOperation& failure) {
    openAgain(files_, Durability::always);
    const Known expected = known();
    setFault(failure);
    close();
    const bool isReached = operations() >= failure.number;
    setFault({});
    steps();
    expectOneOf(filesIn(live_), {expected}, true);
    return isReached;
  }

  template <typename Attempt>
  void tryFailures(Attempt attempt, int step = 1) {
    for (FailingOperation failure : failures) {
      for (failure.number = 1; !HasFailure(); failure.number += step) {
        SCOPED_TRACE("operation " + std::to_string(failure.number) + " with " +
                     std::to_string(failure.wish) + (failure.lasts ? " from then on" : ""));
        if (!attempt(failure)) break;
      }
    }
  }

  Files files_;
  Numbers numbersAtStart_;
};

TEST_F(HandleFailureTest, ofACommandLeavesTheDatabaseAsItWas) {
  prepare();
  failEach({}, {{"INSERT INTO people name = 'x' note = ?", {std::string(6000, 'y')}}});
  failEach({}, {{"UPDATE people SET colour = 'a' --> 'b' @ 3 s n = 8", {}}});
  failEach({}, {{"UPDATE codes SET n = 2 WHERE code = 'a'", {}}});
  failEach({}, {{"DELETE FROM visits", {}}});
  failEach({}, {{"DROP TABLE visits", {}}});
  failEach({}, {{"CREATE TABLE spare id ApexInt n int", {}}});
  failEach({{{"UNLINK visits.person --> people.id", {}}}},
           {{"LINK visits.person --> people.id", {}}});
  failEach({}, {{"UNLINK people.code --> codes.code", {}}});
  failEach({}, {{"LISTEN visits.change --> 'there'", {}}});
  failEach({}, {{"UNLISTEN people.INSERT --> 'hook'", {}}});
  failEach({}, {{"DROP TABLE visits", {}}, {"INSERT INTO people n = 2", {}}});
}

TEST_F(HandleFailureTest, ofACommitLeavesNothingOfTheTransaction) {
  prepare();
  failEach({{{"BEGIN", {}}},
            {{"INSERT INTO people n = 2", {}}},
            {{"DROP TABLE visits", {}}},
            {{"CREATE TABLE visits id ApexInt n int", {}}},
            {{"INSERT INTO visits n = 1", {}}},
            {{"DELETE FROM people WHERE n = 1", {}}}},
           {{"COMMIT", {}}});
}

TEST_F(HandleFailureTest, ofACheckpointLeavesTheDatabaseAsItWas) {
  prepare();
  failEach({}, {{"CHECKPOINT", {}}});
  failEach({}, {{"VACUUM", {}}});
}

TEST_F(HandleFailureTest, ofAnOpenIsNoDamage) {
  prepare();
  openAgain(files_, Durability::off);
  const Known expected = known();
  steps();
  SimulatedDisk disk(files_);
  std::set<Files> interrupted = {files_};
  Files torn = files_;
  torn["velmora.wal"] += "INSERT INTO scratch n = ";
  interrupted.insert(torn);
  call({{"CHECKPOINT", {}}});
  int step = 0;
  for (const DiskStep& each : steps()) {
    disk.apply(each);
    if (++step % (isThorough() ? 8 : 40) == 0) interrupted.insert(disk.current());
  }
  close();
  for (const Files& files : interrupted) {
    tryFailures([&](const FailingOperation& failure) { return failOpen(files, failure, expected); },
                isThorough() ? 1 : 5 * slowness);
  }
}

TEST_F(HandleFailureTest, ofACloseLosesNothing) {
  prepare();
  tryFailures([&](const FailingOperation& failure) { return failClose(failure); },
              isThorough() ? 1 : 5 * slowness);
}

}  // namespace
}  // namespace velmora::handles
