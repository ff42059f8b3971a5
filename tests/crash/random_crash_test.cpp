// Random commands, killed at random moments: what a host had been answered is there after the next
// start, once; the one command in flight is there or not, never in part.

#include <gtest/gtest.h>

#include <chrono>
#include <cmath>
#include <iostream>

#include "crash_fixture.h"
#include "random_commands.h"

namespace velmora::crash {
namespace {

using Clock = std::chrono::steady_clock;

class RandomCrashTest : public CrashTest {
 protected:
  // A life of one directory: starts, commands and kills until it has grown old.
  void live(RandomCommands& random, Clock::time_point end) {
    const auto directory = newDirectory();
    std::vector<Possibility> possibilities = {{Model(), 0}};
    constexpr int rounds = 20;
    for (int round = 0; round < rounds && Clock::now() < end && !HasFailure(); ++round) {
      if (random.upTo(3) == 0) killAStart(directory, random);
      auto running = restart(directory, possibilities, random.second());
      if (!running) return;
      possibilities = killARun(*running, random);
    }
    if (!HasFailure()) discard(directory);
  }

 private:
  struct Plan {
    std::vector<EngineProcess::Request> requests;
    std::vector<Command> commands;
    std::vector<Effect> effects;
  };

  // Short moments are as likely as long ones: a command takes microseconds, a checkpoint ages.
  static std::chrono::microseconds moment(RandomCommands& random) {
    constexpr int longest = 15;  // 2^15 microseconds
    const double exponent = random.upTo(longest * 100) / 100.0;
    return std::chrono::microseconds(static_cast<long>(std::pow(2.0, exponent)));
  }

  void killAStart(const std::filesystem::path& directory, RandomCommands& random) {
    EngineProcess engine(directory);
    engine.executeUntilKilled({{'s', random.second(), ""}}, moment(random) / 4);
    countCrashPoint();
  }

  static Plan planFor(const Model& model, RandomCommands& random) {
    Plan plan;
    Model ahead = model;
    const int count = 1 + random.upTo(120);
    for (int i = 0; i < count; ++i) {
      const Command command = random.next(ahead);
      plan.commands.push_back(command);
      plan.effects.push_back(ahead.run(command));
      plan.requests.push_back({'q', command.second, command.text()});
    }
    if (random.upTo(3) == 0) plan.requests.push_back({'x', random.second(), ""});
    return plan;
  }

  static std::string textUpTo(const Plan& plan, std::size_t index) {
    std::string text = "the last of these commands since the start:\n";
    for (std::size_t i = 0; i <= index; ++i) text += plan.commands[i].text() + "\n";
    return text;
  }

  std::vector<Possibility> killARun(Running& running, RandomCommands& random) {
    const Plan plan = planFor(running.model, random);
    const auto answers = running.engine->executeUntilKilled(plan.requests, moment(random));
    countCrashPoint();
    for (std::size_t i = 0; i < answers.size() && i < plan.commands.size(); ++i) {
      running.model.run(plan.commands[i]);
      const bool isRight = answers[i].succeeded() == plan.effects[i].succeeded;
      EXPECT_TRUE(isRight) << textUpTo(plan, i) << answers[i].text;
      if (!isRight) return {};
    }
    if (answers.size() < plan.commands.size()) {
      return beforeAndAfter(running.model, plan.commands[answers.size()]);
    }
    Possibility stopped = {running.model, 0};
    stopped.model.checkpoint();
    if (answers.size() == plan.requests.size() && plan.requests.back().kind == 'x') {
      return {stopped};
    }
    return {stopped, {running.model, 0}};
  }
};

TEST_F(RandomCrashTest, whatWasAnsweredIsThereOnce) {
  const std::uint64_t seed = chosenSeed();
  std::cout << "seed " << seed << " (VELMORA_CRASH_SEED), " << secondsToSpend()
            << " seconds (VELMORA_CRASH_SECONDS)" << std::endl;
  RandomCommands random(seed);
  const auto end = Clock::now() + std::chrono::seconds(secondsToSpend());
  while (Clock::now() < end && !HasFailure()) live(random, end);
  EXPECT_GT(crashPoints(), 0);
}

using RestartTest = CrashTest;

Command commandOn(Kind kind, const std::string& table, std::int64_t second,
                  std::vector<std::pair<std::string, Value>> values = {}) {
  Command command;
  command.kind = kind;
  command.table = table;
  command.values = std::move(values);
  command.second = second;
  return command;
}

// The second start makes the link, for which the first one found a person missing, as of its own
// second; who was needed only before is then gone as the log says.
TEST_F(RestartTest, linksByWhatComesThenForCommandsOfBeforeToo) {
  constexpr std::int64_t begin = 1700000000;
  const std::vector<std::pair<std::string, Value>> someone = {{"name", Value::plain("a")}};
  const auto order = [](const std::string& first, std::int64_t seconds) {
    const Value person = {{{first, seconds}, {"2", seconds}}, false, 0};
    return commandOn(Kind::insert, "orders", begin + 1, {{"person", person}});
  };
  std::vector<Command> commands = {commandOn(Kind::createTable, "people", begin),
                                   commandOn(Kind::createTable, "orders", begin)};
  for (int i = 0; i < 3; ++i) commands.push_back(commandOn(Kind::insert, "people", begin, someone));
  commands.push_back(order("1", 10));
  commands.push_back(order("3", 5));
  commands.push_back(commandOf({"orders", "person", "people", "id"}, begin + 2));
  commands.push_back(commandOn(Kind::dropTable, "people", begin + 3));
  commands.push_back(commandOn(Kind::createTable, "people", begin + 3));
  for (int i = 0; i < 2; ++i) {
    commands.push_back(commandOn(Kind::insert, "people", begin + 3, someone));
  }
  commands.push_back(commandOn(Kind::checkpoint, "", begin + 4));

  const auto directory = newDirectory();
  auto running = restart(directory, {{Model(), 0}}, begin);
  ASSERT_TRUE(running);
  for (const Command& command : commands) ASSERT_NO_FATAL_FAILURE(runAlike(*running, command));
  running->engine.reset();

  running = restart(directory, {{running->model, 0}}, begin + 5);
  ASSERT_TRUE(running);
  EXPECT_TRUE(running->model.live().links.empty());
  Command erase = commandOn(Kind::erase, "people", begin + 5);
  erase.where = {"id", "1"};
  ASSERT_NO_FATAL_FAILURE(runAlike(*running, erase));
  running->engine.reset();

  running = restart(directory, {{running->model, 0}}, begin + 20);
  ASSERT_TRUE(running);
  EXPECT_EQ(running->model.live().links.size(), 1);
}

}  // namespace
}  // namespace velmora::crash
