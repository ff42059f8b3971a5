// Every file operation of every command that writes, of a stop and of a start: the process is
// killed right before it, or it fails. Each is tried until the command has no more operations.

#include <gtest/gtest.h>

#include <fstream>
#include <functional>

#include "crash_fixture.h"
#include "operations.h"

namespace velmora::crash {
namespace {

namespace fs = std::filesystem;

class FileOperationTest : public CrashTest, public testing::WithParamInterface<Operation> {
 protected:
  // A killed engine's directory, and what must be in it.
  void prepare() {
    directory_ = newDirectory();
    Running running = {std::make_unique<EngineProcess>(directory_), Model()};
    running.engine->start(second_);
    runAll(running, preparation());
    running.engine->kill();
    model_ = running.model;
  }

  void runAll(Running& running, const std::vector<Command>& commands) {
    for (Command command : commands) {
      command.second = ++second_;
      ASSERT_NO_FATAL_FAILURE(runAlike(running, command));
    }
  }

  // A started engine over a copy of a directory.
  std::optional<Running> startOver(const fs::path& copy) {
    return restart(copy, {{model_, 0}}, second_);
  }

  // What may come of the operation, which is made ready to be performed.
  std::vector<Possibility> prepareOperation(Running& running, const fs::path& directory) {
    runAll(running, rolledBackChanges());
    if (GetParam().needsEmptyLog) runAll(running, {checkpointCommand()});
    if (GetParam().takesStoredRowsOff) runAll(running, rollbackOfStoredRows());
    command_ = GetParam().commandIn(directory);
    command_.second = second_;
    return beforeAndAfter(running.model, command_);
  }

  std::optional<Answer> perform(EngineProcess& engine) {
    if (!GetParam().command) return engine.stop();
    return engine.execute(command_.text(), second_);
  }

  // The engine goes on after a crash or a failure, and what it is told then lasts.
  void goOn(const fs::path& directory, const std::vector<Possibility>& possible) {
    auto running = restart(directory, possible, ++second_);
    if (!running) return;
    ASSERT_NO_FATAL_FAILURE(runAll(*running, laterCommands()));
    running->engine->kill();
    restart(directory, {{running->model, false}}, ++second_);
  }

  fs::path directory_;
  Model model_;
  Command command_;  // the operation's
  std::int64_t second_ = firstSecond;
};

using KillTest = FileOperationTest;

TEST_P(KillTest, leavesAllOrNothingOfIt) {
  prepare();
  for (int operation = 1; !HasFailure(); ++operation) {
    SCOPED_TRACE("killed before file operation " + std::to_string(operation));
    const fs::path copy = copyOf(directory_);
    auto running = startOver(copy);
    ASSERT_TRUE(running.has_value());
    const std::vector<Possibility> possible = prepareOperation(*running, copy);
    running->engine->setFault({Fault::Kind::kill, operation});
    const bool hasSurvived = perform(*running->engine).has_value();
    running->engine->kill();
    goOn(copy, hasSurvived ? std::vector<Possibility>{possible[0]} : possible);
    if (HasFailure()) return;
    discard(copy);
    if (hasSurvived) {
      EXPECT_GT(operation, 1);
      return;
    }
    countCrashPoint();
  }
}

struct FailureKind {
  const char* name;
  Fault::Kind kind;
};
std::vector<FailureKind> failureKinds() {
  std::vector<FailureKind> kinds = {{"i/o error", Fault::Kind::ioError},
                                    {"short write", Fault::Kind::shortWrite},
                                    {"disk full from then on", Fault::Kind::diskFullFromThen}};
  if (isThorough()) kinds.push_back({"disk full", Fault::Kind::diskFull});
  return kinds;
}

class FailureTest : public FileOperationTest {
 protected:
  // False when the operation had come to its end before the fault's turn.
  bool failAt(const Fault& fault, bool endsWithCheckpoint) {
    const fs::path copy = copyOf(directory_);
    auto running = startOver(copy);
    if (!running) return false;
    std::vector<Possibility> possible = prepareOperation(*running, copy);
    running->engine->setFault(fault);
    const auto answer = perform(*running->engine);
    const bool isReached = running->engine->operations() >= fault.operation;
    running->engine->setFault({});
    if (!answer) {
      ADD_FAILURE() << "the engine died of the failure";
      return false;
    }
    countCrashPoint();
    keepAllowed(possible, *answer);
    if (!GetParam().command && answer->kind == Answer::Kind::answer) {
      goOn(copy, possible);
    } else {
      goOnRunning(*running, copy, possible, *answer, endsWithCheckpoint);
    }
    if (!HasFailure()) discard(copy);
    return isReached && !HasFailure();
  }

 private:
  static Kind kind() { return GetParam().command ? GetParam().command->kind : Kind::checkpoint; }

  // What an answer allows. A failed command changes nothing, but for a table without its file that
  // stays in memory, and a checkpoint that was on disk before it failed. A success may lack what
  // goes unreported by design: the log's line, scheduled changes, a listener's record.
  void keepAllowed(std::vector<Possibility>& possible, const Answer& answer) const {
    const bool isChange = kind() == Kind::insert || kind() == Kind::update || kind() == Kind::erase;
    const bool mayBeLost = isChange || kind() == Kind::link || kind() == Kind::listen;
    if (!answer.succeeded() && mayBeLost) possible.erase(possible.begin(), possible.end() - 1);
    if (answer.succeeded() && !mayBeLost) possible.pop_back();
    int changes = 0;
    for (const auto& [column, value] : command_.values) changes += value.changes();
    for (Possibility& each : possible) each.lostChanges = isChange ? changes : 0;
  }

  // The possibility that the running engine shows. A link is not put to the test where it may be
  // missing.
  const Model* shown(EngineProcess& engine, const std::vector<Possibility>& possible,
                     const Answer& answer) {
    if (kind() == Kind::link) {
      return answer.succeeded() ? &possible.front().model : &possible.back().model;
    }
    std::string differences;
    for (const Possibility& each : possible) {
      const std::string wrong = difference(engine, each.model.live(), second_);
      if (wrong.empty()) return &each.model;
      differences += wrong;
    }
    ADD_FAILURE() << "in the engine that met the failure\n" << differences;
    return nullptr;
  }

  // The engine that met the failure takes further commands, which last like all others.
  void goOnRunning(Running& running, const fs::path& directory, std::vector<Possibility> possible,
                   const Answer& answer, bool endsWithCheckpoint) {
    const Model* const model = shown(*running.engine, possible, answer);
    if (model == nullptr) return;
    running.model = *model;
    std::vector<Command> commands = laterCommands();
    if (endsWithCheckpoint) commands.push_back(checkpointCommand());
    const std::int64_t start = second_;
    ASSERT_NO_FATAL_FAILURE(runAll(running, commands));
    running.engine->kill();
    for (Possibility& each : possible) {
      second_ = start;
      for (Command command : commands) {
        command.second = ++second_;
        each.model.run(command);
      }
    }
    const bool isInTables = kind() != Kind::listen && kind() != Kind::link;
    if (endsWithCheckpoint && isInTables) {
      possible = {{running.model, possible.front().lostChanges}};
    }
    restart(directory, possible, ++second_);
  }
};

TEST_P(FailureTest, losesNothingAndLeavesTheEngineUsable) {
  prepare();
  for (const FailureKind& kind : failureKinds()) {
    for (int operation = 1; !HasFailure(); ++operation) {
      SCOPED_TRACE(std::string(kind.name) + " at operation " + std::to_string(operation));
      bool goesOn = failAt({kind.kind, operation}, false);
      if (goesOn && (isThorough() || operation % 4 == 0)) {
        goesOn = failAt({kind.kind, operation}, true);
      }
      if (!goesOn) break;
    }
  }
}

std::string nameOf(const testing::TestParamInfo<Operation>& info) { return info.param.name; }
INSTANTIATE_TEST_SUITE_P(Crash, KillTest, testing::ValuesIn(operations()), nameOf);
INSTANTIATE_TEST_SUITE_P(Crash, FailureTest, testing::ValuesIn(operationsThatMayFail()), nameOf);

// Starts: over a log, over files with torn ends, and over checkpoints interrupted anywhere.
class StartTest : public FileOperationTest {
 protected:
  static void append(const fs::path& path, const std::string& bytes) {
    std::ofstream(path, std::ios::binary | std::ios::app) << bytes;
  }

  void tearTails() {
    append(directory_ / "velmora.wal", "INSERT INTO codes code = 'torn\nDELETE FROM codes\n");
    append(directory_ / "webhooks.bin", std::string(40, 't'));
    append(directory_ / "listeners.bin", std::string(120, 't'));
  }

  // A directory whose checkpoint was killed before its k-th file operation; nothing when it came to
  // its end. It is made anew each time, because a copy's files are other files than those that the
  // killed process knew.
  std::optional<fs::path> interruptedCheckpoint(int operation) {
    const fs::path copy = copyOf(directory_);
    auto running = startOver(copy);
    if (!running) return std::nullopt;
    running->engine->setFault({Fault::Kind::kill, operation});
    if (running->engine->execute("CHECKPOINT", second_)) return std::nullopt;
    return copy;
  }

  // Calls attempt(directory, j) with every interruption of a checkpoint, for every j until it
  // answers false. Unless there is more time than usual some interruptions are left out, most of
  // them such as leave no marker.
  void forEveryInterruption(const std::function<bool(const fs::path&, int)>& attempt) {
    for (int operation = 1; !HasFailure(); ++operation) {
      const auto interrupted = interruptedCheckpoint(operation);
      if (!interrupted) return;
      const int usualStep = fs::exists(*interrupted / "velmora.ckpt") ? 10 : 32;
      const int step = isThorough() ? 1 : usualStep * slowness;
      discard(*interrupted);
      if (operation % step != 0) continue;
      bool goesOn = true;
      for (int next = 1; goesOn && !HasFailure(); ++next) {
        SCOPED_TRACE("checkpoint killed before " + std::to_string(operation) + ", start at " +
                     std::to_string(next));
        const auto directory = interruptedCheckpoint(operation);
        goesOn = attempt(*directory, next);
        if (!HasFailure()) discard(*directory);
      }
    }
  }

  std::vector<Possibility> checkpointedOrNot() const {
    Possibility after = {model_, 0};
    after.model.checkpoint();
    return {after, {model_, 0}};
  }

  // Calls attempt(copy, k) with copies of the directory until it answers false.
  void forEveryOperation(const fs::path& directory,
                         const std::function<bool(const fs::path&, int)>& attempt) {
    for (int operation = 1; !HasFailure(); ++operation) {
      SCOPED_TRACE("file operation " + std::to_string(operation));
      const fs::path copy = copyOf(directory);
      const bool goesOn = attempt(copy, operation);
      if (HasFailure()) return;
      discard(copy);
      if (!goesOn) return;
    }
  }

  bool killStart(const fs::path& directory, int operation,
                 const std::vector<Possibility>& possible) {
    EngineProcess engine(directory);
    engine.setFault({Fault::Kind::kill, operation});
    const bool hasSurvived = engine.start(second_).has_value();
    engine.kill();
    countCrashPoint();
    restart(directory, possible, second_);
    return !hasSurvived;
  }

  // A start that meets a failure either reports it, or has everything all the same.
  bool failStart(const fs::path& directory, const Fault& fault,
                 const std::vector<Possibility>& possible) {
    EngineProcess engine(directory);
    engine.setFault(fault);
    const auto answer = engine.start(second_);
    const bool isReached = engine.operations() >= fault.operation;
    if (!answer) {
      ADD_FAILURE() << "the engine died of the failure";
      return false;
    }
    countCrashPoint();
    if (answer->kind == Answer::Kind::exception) {
      const auto stopped = engine.stop();
      EXPECT_TRUE(stopped && stopped->kind == Answer::Kind::answer) << "the stop failed";
      engine.setFault({});
      const auto again = engine.start(second_);
      EXPECT_TRUE(again && again->kind == Answer::Kind::answer) << "the next start failed";
      engine.kill();
      goOn(directory, possible);
      return isReached;
    }
    engine.setFault({});
    goOnUnharmed(engine, directory, possible);
    return isReached;
  }

 private:
  // Nobody was told of the failure, so it must have done no harm, now or later.
  void goOnUnharmed(EngineProcess& engine, const fs::path& directory,
                    std::vector<Possibility> possible) {
    const State expected = possible.back().model.afterRestart(second_);
    const std::string wrong = difference(engine, expected, second_);
    ASSERT_EQ(wrong, "") << "a failure went unnoticed";
    for (Possibility& each : possible) each.model.restart(second_);
    for (Command command : laterCommands()) {
      command.second = ++second_;
      const auto answer = engine.execute(command.text(), command.second);
      ASSERT_TRUE(answer && answer->succeeded()) << command.text();
      for (Possibility& each : possible) each.model.run(command);
    }
    engine.kill();
    restart(directory, possible, ++second_);
  }
};

TEST_F(StartTest, killedAnywhereLeavesWhatWasThere) {
  prepare();
  tearTails();
  forEveryOperation(directory_, [&](const fs::path& copy, int operation) {
    return killStart(copy, operation, {{model_, 0}});
  });
}

TEST_F(StartTest, killedWhileItCompletesACheckpointIsCompletedByTheNext) {
  prepare();
  forEveryInterruption([&](const fs::path& directory, int operation) {
    return killStart(directory, operation, checkpointedOrNot());
  });
}

TEST_F(StartTest, overACopyOfAnInterruptedCheckpointCompletesIt) {
  prepare();
  for (int operation = 1; !HasFailure(); ++operation) {
    SCOPED_TRACE("checkpoint killed before " + std::to_string(operation));
    const auto interrupted = interruptedCheckpoint(operation);
    if (!interrupted) return;
    const fs::path copy = copyOf(*interrupted);
    discard(*interrupted);
    countCrashPoint();
    goOn(copy, checkpointedOrNot());
    if (!HasFailure()) discard(copy);
  }
}

TEST_F(StartTest, thatMeetsAFailureReportsItOrHasEverything) {
  prepare();
  tearTails();
  for (const FailureKind& kind : failureKinds()) {
    SCOPED_TRACE(kind.name);
    forEveryOperation(directory_, [&](const fs::path& copy, int operation) {
      return failStart(copy, {kind.kind, operation}, {{model_, 0}});
    });
  }
}

TEST_F(StartTest, thatCannotCompleteACheckpointLeavesItToTheNext) {
  prepare();
  forEveryInterruption([&](const fs::path& directory, int operation) {
    return failStart(directory, {Fault::Kind::ioErrorOfChange, operation}, checkpointedOrNot());
  });
}

}  // namespace
}  // namespace velmora::crash
