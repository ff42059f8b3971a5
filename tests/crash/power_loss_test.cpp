// The power fails at any step of what an engine does: of what was done to the directory since it
// was last synced, and of what was written to files since they were, any part may be lost. A start
// over what is left finds the last checkpoint that was answered and the first of the commands that
// were logged behind it, however many.

#include <gtest/gtest.h>

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

}  // namespace
}  // namespace velmora::crash
