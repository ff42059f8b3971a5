// See power_loss_fixture.h.
#include "power_loss_fixture.h"

#include <algorithm>
#include <cstring>
#include <fstream>
#include <functional>
#include <iostream>
#include <iterator>

namespace velmora::crash {
namespace {

namespace fs = std::filesystem;

constexpr std::size_t usualMost = 12 / slowness;
constexpr std::size_t thoroughMost = 200;

Files filesIn(const fs::path& directory) {
  Files files;
  for (const auto& entry : fs::directory_iterator(directory)) {
    std::ifstream file(entry.path(), std::ios::binary);
    files[entry.path().filename()] = {std::istreambuf_iterator<char>(file),
                                      std::istreambuf_iterator<char>()};
  }
  return files;
}

void writeFiles(const fs::path& directory, const Files& files) {
  fs::create_directories(directory);
  for (const auto& [name, bytes] : files) {
    std::ofstream(directory / name, std::ios::binary) << bytes;
  }
}

std::size_t hashOf(const Files& files) {
  std::string all;
  for (const auto& [name, bytes] : files) {
    all += name + '\0' + std::to_string(bytes.size()) + '\0' + bytes;
  }
  return std::hash<std::string>()(all);
}

// Whether a record of the file that only grows ends there.
bool isRecordEnd(const std::string& name, const std::string& bytes, std::size_t end) {
  constexpr std::size_t taskSize = 85;
  constexpr std::size_t listenerSize = 134;
  constexpr std::size_t conditionSize = 44;
  if (name == "webhooks.bin") return end % taskSize == 0;
  std::size_t offset = 0;
  while (offset < end && offset + listenerSize <= bytes.size()) {
    std::int32_t conditions = 0;
    std::memcpy(&conditions, bytes.data() + offset + listenerSize - sizeof conditions,
                sizeof conditions);
    offset += listenerSize + conditionSize * static_cast<std::size_t>(conditions);
  }
  return offset == end;
}

std::string textOf(const std::optional<std::string>& answer) { return answer.value_or("no table"); }

// The answer to a SELECT of all columns, or nothing when there is no such table.
std::optional<std::string> answerOf(EngineProcess& engine, const TablePlan& plan,
                                    std::int64_t second) {
  std::string columns;
  for (const ColumnPlan& column : plan.columns) columns += column.name + " ";
  const auto answer = engine.execute("SELECT " + columns + "FROM " + plan.name, second);
  return answer && answer->succeeded() ? std::optional(answer->text) : std::nullopt;
}

std::set<std::set<std::string>> subsetsOf(const std::set<std::string>& names) {
  std::set<std::set<std::string>> subsets = {{}};
  for (const std::string& name : names) {
    for (std::set<std::string> subset : std::set(subsets)) {
      subset.insert(name);
      subsets.insert(subset);
    }
  }
  return subsets;
}

}  // namespace

PowerLossTest::PowerLossTest()
    : most_(isThorough() ? thoroughMost : usualMost), seed_(chosenSeed()), random_(seed_) {
  std::cout << "seed " << seed_ << " (VELMORA_CRASH_SEED)" << std::endl;
}

PowerLossTest::~PowerLossTest() {
  std::cout << "power loss states tried: " << states_ << std::endl;
}

PowerLossTest::Scene PowerLossTest::newScene() {
  Scene scene;
  scene.directory = newDirectory();
  scene.engine = std::make_unique<EngineProcess>(scene.directory);
  scene.engine->steps();
  scene.models.emplace_back();
  return scene;
}

PowerLossTest::Scene PowerLossTest::sceneOver(const SimulatedDisk& disk, const Scene& other) {
  Scene scene;
  scene.directory = newDirectory();
  writeFiles(scene.directory, disk.current());
  scene.engine = std::make_unique<EngineProcess>(scene.directory);
  scene.engine->steps();
  scene.models = other.models;
  scene.disk = disk;
  scene.durableSizes = other.durableSizes;
  return scene;
}

void PowerLossTest::apply(Scene& scene, const std::vector<DiskStep>& steps) {
  for (const DiskStep& step : steps) scene.disk.apply(step);
}

PowerLossTest::Expectation PowerLossTest::expectationOf(const std::vector<Model>& models) const {
  Expectation expectation;
  for (const Model& model : models) {
    for (const auto& comeBack : subsetsOf(model.droppedTables())) {
      for (std::size_t records = 0; records <= model.logSize(); ++records) {
        Case each = {model.afterPowerFailure(records, comeBack, second_), {}};
        for (const TablePlan& plan : tablePlans()) {
          each.answers[plan.name] = each.state.select(plan.name, second_);
        }
        expectation.cases.push_back(std::move(each));
      }
    }
    expectation.created.merge(model.createdTables());
  }
  return expectation;
}

std::vector<Model> PowerLossTest::withAndWithout(const std::vector<Model>& models,
                                                 const Command& command) {
  std::vector<Model> all = models;
  for (const Model& model : models) {
    all.push_back(model);
    all.back().run(command);
  }
  return all;
}

std::vector<DiskStep> PowerLossTest::perform(Scene& scene, Command command) {
  command.second = ++second_;
  const auto answer = scene.engine->execute(command.text(), second_);
  for (Model& model : scene.models) {
    const Effect effect = model.run(command);
    EXPECT_EQ(answer && answer->succeeded(), effect.succeeded) << command.text();
  }
  return scene.engine->steps();
}

void PowerLossTest::run(Scene& scene, const std::vector<Command>& commands) {
  for (const Command& command : commands) {
    apply(scene, perform(scene, command));
    settle(scene, command);
  }
}

// A checkpoint that was answered is all that there is.
void PowerLossTest::settle(Scene& scene, const Command& command) {
  if (command.kind != Kind::checkpoint) return;
  for (const auto& [name, bytes] : scene.disk.current()) scene.durableSizes[name] = bytes.size();
  scene.models.resize(1);
}

SimulatedDisk PowerLossTest::failed(const SimulatedDisk& disk) {
  const std::set<Files> states = disk.afterPowerFailure(most_, random_);
  std::vector<Files> one;
  std::sample(states.begin(), states.end(), std::back_inserter(one), 1, random_);
  return SimulatedDisk(one.at(0));
}

void PowerLossTest::startTrying(Scene& scene) {
  const auto answer = scene.engine->start(second_);
  ASSERT_TRUE(answer && answer->kind == Answer::Kind::answer) << (answer ? answer->text : "died");
  tryEach(scene, scene.engine->steps(), expectationOf(scene.models));
}

void PowerLossTest::runTrying(Scene& scene, Command command) {
  if (HasFailure()) return;
  SCOPED_TRACE(command.text().substr(0, 200));
  command.second = second_ + 1;
  const std::vector<Model> possible = withAndWithout(scene.models, command);
  const std::vector<DiskStep> steps = perform(scene, command);
  tryEach(scene, steps, expectationOf(possible));
  if (command.kind != Kind::checkpoint) return;
  settle(scene, command);
  tried_.clear();
  tryNow(scene, expectationOf(scene.models));
}

void PowerLossTest::runTrying(Scene& scene, const std::vector<Command>& commands) {
  for (const Command& command : commands) runTrying(scene, command);
}

void PowerLossTest::stopTrying(Scene& scene) {
  const auto answer = scene.engine->stop();
  ASSERT_TRUE(answer && answer->kind == Answer::Kind::answer);
  const Command stop = checkpointCommand();
  tryEach(scene, scene.engine->steps(), expectationOf(withAndWithout(scene.models, stop)));
  for (Model& model : scene.models) model.run(stop);
  tried_.clear();
  tryNow(scene, expectationOf(scene.models));
}

void PowerLossTest::tryEach(Scene& scene, const std::vector<DiskStep>& steps,
                            const Expectation& expectation) {
  tried_.clear();
  int number = 0;
  for (const DiskStep& step : steps) {
    ++number;
    const bool hasChanged = scene.disk.apply(step);
    const bool isTried = stride_ == 1 || random_() % stride_ == 0;
    if (!hasChanged || !isTried || HasFailure()) continue;
    SCOPED_TRACE("power failure behind step " + std::to_string(number) + " of " +
                 std::to_string(steps.size()) + ", of " + step.name);
    tryNow(scene, expectation);
    countCrashPoint();
  }
}

void PowerLossTest::tryNow(const Scene& scene, const Expectation& expectation) {
  for (const Files& files : scene.disk.afterPowerFailure(most_, random_)) {
    if (HasFailure()) return;
    if (tried_.insert(hashOf(files)).second) tryState(files, scene, expectation);
  }
}

void PowerLossTest::tryState(const Files& files, const Scene& scene,
                             const Expectation& expectation) {
  ++states_;
  const fs::path directory = newDirectory();
  writeFiles(directory, files);
  std::string wrong;
  {
    EngineProcess engine(directory);
    const auto output = engine.start(second_);
    if (!output || output->kind == Answer::Kind::exception) {
      wrong = "the start failed: " + (output ? output->text : "it died");
    } else {
      wrong = differenceOfGrowing(directory, scene);
      if (wrong.empty()) {
        wrong = differenceAfterStart(engine, directory, output->text, expectation);
      }
    }
  }
  constexpr int sometimes = 8;
  if (wrong.empty() && states_ % sometimes == 0) wrong = differenceLater(directory, *found_);
  if (!wrong.empty()) {
    const fs::path left = directory.parent_path() / "left";
    writeFiles(left, files);
    ADD_FAILURE() << "over " << left << "\n" << wrong;
    return;
  }
  discard(directory);
}

std::string PowerLossTest::differenceAfterStart(EngineProcess& engine, const fs::path& directory,
                                                const std::string& output,
                                                const Expectation& expectation) {
  std::map<std::string, std::optional<std::string>> answers;
  for (const TablePlan& plan : tablePlans()) answers[plan.name] = answerOf(engine, plan, second_);
  std::string differences;
  for (const Case& each : expectation.cases) {
    std::string wrong;
    for (const auto& [name, answer] : answers) {
      const auto& expected = each.answers.at(name);
      const bool isNew = !expected && answer && expectation.created.contains(name) &&
                         answer->find("\"data\"") == std::string::npos;
      if (answer == expected || isNew) continue;
      wrong = name + "\n--- expected\n" + textOf(expected) + "\n--- actual\n" + textOf(answer);
      break;
    }
    if (wrong.empty()) wrong = differenceOfLinks(directory, output, each.state);
    if (wrong.empty()) {
      wrong = differenceOfRefusals(engine, each.state, second_);
      if (!wrong.empty()) return wrong;  // it has changed something
      found_ = &each;
      return "";
    }
    differences += "possibility: " + wrong + "\n";
  }
  return differences;
}

// A second start finds the same, and so does one behind a checkpoint.
std::string PowerLossTest::differenceLater(const fs::path& directory, const Case& found) {
  const auto checkpoint = [&] {
    EngineProcess engine(directory);
    engine.start(second_);
    const auto answer = engine.execute("CHECKPOINT", second_);
    return answer && answer->succeeded();
  };
  for (const bool isCheckpointed : {false, true}) {
    if (isCheckpointed && !checkpoint()) return "the checkpoint failed";
    const State files = isCheckpointed ? found.state.fromFiles() : found.state;
    EngineProcess engine(directory);
    engine.start(second_);
    for (const TablePlan& plan : tablePlans()) {
      const auto expected = files.select(plan.name, second_);
      const auto answer = answerOf(engine, plan, second_);
      if (expected && answer != expected) {
        return "later " + plan.name + "\n--- expected\n" + textOf(expected) + "\n--- actual\n" +
               textOf(answer);
      }
    }
  }
  return "";
}

// Of the files that only grow whole records are left, those of the last checkpoint among them; and
// nothing is left of what was being made.
std::string PowerLossTest::differenceOfGrowing(const fs::path& directory,
                                               const Scene& scene) const {
  const Files files = filesIn(directory);
  const Files written = scene.disk.current();
  for (const auto& [name, bytes] : files) {
    if (name.ends_with(".unfinished") || name.ends_with(".checkpoint") || name == "velmora.ckpt") {
      return name + " is left over";
    }
  }
  for (const std::string name : {"listeners.bin", "webhooks.bin"}) {
    const std::string bytes = files.contains(name) ? files.at(name) : "";
    const std::string all = written.contains(name) ? written.at(name) : "";
    const auto durable = scene.durableSizes.find(name);
    const std::size_t least = durable == scene.durableSizes.end() ? 0 : durable->second;
    if (bytes.size() < least) return name + " has lost what a checkpoint had synced";
    if (!all.starts_with(bytes)) return name + " has something that was not written";
    if (!isRecordEnd(name, bytes, bytes.size())) return name + " ends within a record";
  }
  return "";
}

}  // namespace velmora::crash
