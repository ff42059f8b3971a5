// The power fails at any step of what an engine does: of what was done to the directory since it
// was last synced, and of what was written to files since they were, any part may be lost. A start
// over what is left finds the last checkpoint that was answered and the first of the commands that
// were logged behind it, however many.

#include <gtest/gtest.h>

#include <algorithm>

#include "power_loss_fixture.h"
#include "random_commands.h"

namespace velmora::crash {
namespace {

Value plain(const std::string& text) { return Value::plain(text); }

TEST_F(PowerLossTest, leavesTheLastCheckpointAndTheFirstCommandsBehindIt) {
  Scene scene = newScene();
  startTrying(scene);
  runTrying(scene, smallPreparation());
  runTrying(scene, checkpointCommand());
  runTrying(scene, loggedPreparation());
  runTrying(scene,
            {commandOf(codesLink(), 0), listenTo("second", 100),
             schemaCommand(Kind::createTable, "broad"), schemaCommand(Kind::createTable, "spare"),
             insertInto("broad", {{"c0", plain("1")}, {"c99", plain("2")}}),
             insertInto("slow", {{"phase", phases(70)}})});
  runTrying(scene, rolledBackChanges());
  runTrying(scene, checkpointCommand());
  runTrying(scene, laterCommands());
  stopTrying(scene);
}

TEST_F(PowerLossTest, leavesADroppedTableWholeOrNotAtAll) {
  Scene scene = newScene();
  startTrying(scene);
  const auto fill = [&](const std::string& text) {
    std::vector<Command> commands;
    for (int i = 0; i < 3; ++i) {
      const std::string number = std::to_string(i);
      commands.push_back(insertInto("spare", {{"n", plain(number)}, {"wide", plain(text)}}));
      commands.push_back(
          insertInto("scratch", {{"n", plain(number)}, {"mark", timed(text, "y", true)}}));
    }
    commands.push_back(eraseFrom("spare", {"n", "1"}));
    commands.push_back(eraseFrom("scratch", {"n", "1"}));
    return commands;
  };
  const std::vector<Command> creation = {schemaCommand(Kind::createTable, "spare"),
                                         schemaCommand(Kind::createTable, "scratch")};
  const std::vector<Command> drop = {schemaCommand(Kind::dropTable, "scratch"),
                                     schemaCommand(Kind::dropTable, "spare")};
  run(scene, creation);
  run(scene, fill("old"));
  runTrying(scene, checkpointCommand());
  runTrying(scene, drop);
  runTrying(scene, creation);
  runTrying(scene, fill("new"));
  runTrying(scene, checkpointCommand());
  runTrying(scene, drop);
  runTrying(scene, checkpointCommand());
}

class CheckpointPowerLossTest : public PowerLossTest {
 protected:
  // An engine with a log behind a checkpoint, and the steps of another checkpoint.
  void prepare() {
    scene_ = newScene();
    startTrying(scene_);
    run(scene_, smallPreparation());
    run(scene_, {checkpointCommand()});
    run(scene_, loggedPreparation());
    run(scene_, {commandOf(codesLink(), 0), listenTo("second", 1)});
    run(scene_, rolledBackChanges());
    Scene checkpointed = sceneAgain();
    ASSERT_TRUE(checkpointed.engine->execute("CHECKPOINT", second_)->succeeded());
    steps_ = checkpointed.engine->steps();
    const auto isMarker = [](const DiskStep& step) {
      return step.operation == FileOperation::write && step.name == "velmora.ckpt";
    };
    while (!isMarker(steps_.at(marker_))) ++marker_;
  }

  // A started engine over the same files, as a kill leaves them.
  Scene sceneAgain() {
    Scene scene = sceneOver(scene_.disk, scene_);
    EXPECT_EQ(scene.engine->start(second_)->kind, Answer::Kind::answer);
    apply(scene, scene.engine->steps());
    for (Model& model : scene.models) model.restart(second_);
    return scene;
  }

  // Unless there is more time than usual, most of what is far from the marker is left out.
  bool isTried(std::size_t step) const {
    constexpr std::size_t usualStep = 6 * slowness;
    constexpr std::size_t near = slowness == 1 ? 6 : 2;
    const bool isMaking = step + 2 >= marker_ && step < marker_ + near;
    return isThorough() || isMaking || step + near >= steps_.size() || step % usualStep == 0;
  }

  // The power fails during a checkpoint with a fault, and during what the engine is told then.
  void fail(const Fault& fault) {
    Scene scene = sceneAgain();
    scene.engine->setFault(fault);
    const std::vector<Model> possible = withAndWithout(scene.models, checkpointCommand());
    const auto answer = scene.engine->execute("CHECKPOINT", second_);
    ASSERT_TRUE(answer.has_value());
    EXPECT_GE(scene.engine->operations(), fault.operation);
    scene.engine->setFault({});
    tryEach(scene, scene.engine->steps(), expectationOf(possible));
    scene.models = possible;
    runTrying(scene, laterCommands());
    runTrying(scene, checkpointCommand());
    if (!HasFailure()) discard(scene.directory);
  }

  Scene scene_;
  std::vector<DiskStep> steps_;
  std::size_t marker_ = 0;  // the step that begins to write the marker
};

// A start puts in place what commands have left undone.
TEST_F(CheckpointPowerLossTest, inAStartBehindAKillLeavesTheFirstCommands) {
  prepare();
  // What a link would have refused is logged before it.
  run(scene_, {insertInto("scratch", {{"n", plain("77")}})});
  for (const char* const text : {"c", "d", "e", "f", "g", "h"}) {
    run(scene_, {insertInto("codes", {{"code", plain(text)}})});
  }
  run(scene_, {eraseFrom("scratch", {"n", "77"})});
  most_ = isThorough() ? most_ : 8 / slowness;
  for (Command command :
       {commandOf({"scratch", "n", "people", "id"}, second_),
        schemaCommand(Kind::createTable, "spare"), schemaCommand(Kind::dropTable, "uses"),
        insertInto("slow", {{"phase", phases(70)}}), listenTo("third", 100)}) {
    SCOPED_TRACE(command.text().substr(0, 200));
    command.second = second_;
    Scene scene = sceneAgain();
    SimulatedDisk disk = scene.disk;
    scene.models = withAndWithout(scene.models, command);
    ASSERT_EQ(scene.models.back().logSize() - scene.models.front().logSize(),
              command.isLogged() ? 1U : 0U);
    ASSERT_TRUE(scene.engine->execute(command.text(), second_)->succeeded());
    for (const DiskStep& step : scene.engine->steps()) {
      if (!disk.apply(step)) continue;
      Scene killed = sceneOver(disk, scene);
      startTrying(killed);
      if (!HasFailure()) discard(killed.directory);
    }
  }
}

TEST_F(CheckpointPowerLossTest, inAStartOverAnInterruptedOneLeavesItWholeOrNot) {
  prepare();
  const Scene before = sceneAgain();
  SimulatedDisk disk = before.disk;
  most_ = isThorough() ? 32 : 4 / slowness;
  for (std::size_t step = 0; step < steps_.size() && !HasFailure(); ++step) {
    if (!disk.apply(steps_[step]) || !isTried(step)) continue;
    SCOPED_TRACE("interrupted behind step " + std::to_string(step));
    for (const bool isKill : {true, false}) {
      Scene interrupted = sceneOver(isKill ? disk : failed(disk), before);
      interrupted.models = withAndWithout(before.models, checkpointCommand());
      startTrying(interrupted);
      if (!HasFailure()) discard(interrupted.directory);
    }
  }
}

// Neither what it says nor that it was emptied could be made durable.
TEST_F(CheckpointPowerLossTest, inAStartOverAnEmptiedMarkerCompletesNothing) {
  prepare();
  const auto isSync = [](const DiskStep& step) { return step.operation == FileOperation::sync; };
  const auto behindMarker = steps_.begin() + static_cast<std::ptrdiff_t>(marker_);
  const auto syncs = std::count_if(steps_.begin(), behindMarker, isSync);
  Scene scene = sceneAgain();
  scene.engine->setFault({Fault::Kind::syncErrorFromThen, static_cast<int>(syncs) + 1});
  const auto answer = scene.engine->execute("CHECKPOINT", second_);
  ASSERT_TRUE(answer && !answer->succeeded());
  apply(scene, scene.engine->steps());
  ASSERT_EQ(scene.disk.current().at("velmora.ckpt"), "");
  Scene restarted = sceneOver(scene.disk, scene);
  most_ *= 4;
  startTrying(restarted);
}

TEST_F(CheckpointPowerLossTest, behindOneThatFailedLeavesItWholeOrNot) {
  prepare();
  most_ = isThorough() ? 8 : 3;
  stride_ = isThorough() ? 2 : 6 * slowness;
  for (const auto kind : {Fault::Kind::ioErrorOfChange, Fault::Kind::syncErrorFromThen}) {
    int syncs = 0;
    for (std::size_t step = 0; step < steps_.size() && !HasFailure(); ++step) {
      const bool isSync = steps_[step].operation == FileOperation::sync;
      if (isSync) ++syncs;
      if (!isTried(step) || (kind == Fault::Kind::syncErrorFromThen && !isSync)) continue;
      const bool countsAll = kind == Fault::Kind::ioErrorOfChange;
      SCOPED_TRACE((countsAll ? "failed at step " : "no sync from step ") + std::to_string(step));
      fail({kind, countsAll ? static_cast<int>(step) + 1 : syncs});
    }
  }
}

}  // namespace
}  // namespace velmora::crash
