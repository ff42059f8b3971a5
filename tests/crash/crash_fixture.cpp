// See crash_fixture.h.
#include "crash_fixture.h"

#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <fstream>
#include <iostream>
#include <iterator>
#include <random>
#include <set>
#include <stdexcept>

namespace velmora::crash {
namespace {

namespace fs = std::filesystem;

constexpr std::uintmax_t listenerSize = 134;
constexpr std::uintmax_t conditionSize = 44;

// A killed process loses nothing that it had handed to the system, so a directory in memory serves
// as well as one on a disk, and thousands of syncs take no time there.
fs::path temporaryRoot() {
  const fs::path memory = "/dev/shm";
  const bool isUsable = std::getenv("TMPDIR") == nullptr && access(memory.c_str(), W_OK) == 0;
  return isUsable ? memory : fs::temp_directory_path();
}

std::string readFile(const fs::path& path) {
  std::ifstream file(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
}

std::size_t countOf(const std::string& text, const std::string& wanted) {
  std::size_t count = 0;
  for (auto at = text.find(wanted); at != std::string::npos; at = text.find(wanted, at + 1)) {
    ++count;
  }
  return count;
}

// The number in "[STORAGE] Revived N pending webhooks from the grave!"; 0 without that line.
std::int64_t revivedChanges(const std::string& output) {
  const std::string before = "[STORAGE] Revived ";
  const std::size_t at = output.find(before);
  return at == std::string::npos ? 0 : std::stoll(output.substr(at + before.size()));
}

std::string differing(const std::string& what, const std::string& expected,
                      const std::string& actual) {
  return expected == actual
             ? ""
             : what + "\n--- expected\n" + expected + "\n--- actual\n" + actual + "\n";
}

std::string relationFiles(const fs::path& directory) {
  std::set<std::string> names;
  for (const auto& entry : fs::directory_iterator(directory)) {
    if (entry.path().extension() == ".rel") names.insert(entry.path().filename().string());
  }
  std::string text;
  for (const std::string& name : names) text += name + "\n";
  return text;
}

Command insertOf(const std::string& table, const std::string& column, const std::string& text) {
  Command command;
  command.kind = Kind::insert;
  command.table = table;
  command.values = {{column, Value::plain(text)}};
  return command;
}

// Commands that must fail, and so change nothing, because a link or a key is there.
std::vector<Command> refusedCommands(const State& state) {
  std::vector<Command> commands;
  for (const ModelLink& link : state.links) {
    const bool isNumber = columnOf(link.child, link.childColumn).type == "int";
    commands.push_back(insertOf(link.child, link.childColumn, isNumber ? "-77" : "no such key"));
  }
  for (const auto& [name, table] : state.tables) {
    const auto row = std::find_if(table.rows.begin(), table.rows.end(),
                                  [](const ModelRow& each) { return !each.isDeleted; });
    if (table.key.empty() || row == table.rows.end()) continue;
    const ColumnPlan& key = columnOf(name, table.key);
    if (key.type == "ApexInt") continue;
    commands.push_back(insertOf(name, key.name, row->cells[columnIndex(name, key.name)].at(0)));
  }
  return commands;
}

}  // namespace

int secondsToSpend() {
  const char* const given = std::getenv("VELMORA_CRASH_SECONDS");
  return given == nullptr ? usualSeconds : std::atoi(given);
}

std::uint64_t chosenSeed() {
  const char* const given = std::getenv("VELMORA_CRASH_SEED");
  return given == nullptr ? std::random_device()() : std::strtoull(given, nullptr, 10);
}

CrashTest::CrashTest() {
  std::string name = (temporaryRoot() / "velmora-crash-XXXXXX").string();
  if (mkdtemp(name.data()) == nullptr) throw std::runtime_error("cannot make " + name);
  root_ = name;
}

CrashTest::~CrashTest() {
  std::cout << "crash points tried: " << crashPoints_ << std::endl;
  if (HasFailure()) {
    std::cout << "the directories are kept in " << root_ << std::endl;
  } else {
    discard(root_);
  }
}

fs::path CrashTest::newDirectory() {
  const fs::path directory = root_ / std::to_string(++directories_) / "database";
  fs::create_directories(directory);
  return directory;
}

fs::path CrashTest::copyOf(const fs::path& directory) {
  const fs::path copy = newDirectory();
  fs::copy(directory, copy, fs::copy_options::recursive);
  return copy;
}

void CrashTest::discard(const fs::path& directory) {
  std::error_code ignored;
  const bool isDatabase = directory.filename() == "database";
  fs::remove_all(isDatabase ? directory.parent_path() : directory, ignored);
}

std::vector<Possibility> CrashTest::beforeAndAfter(const Model& model, const Command& command) {
  const Possibility before = {model, 0};
  Possibility after = before;
  Possibility between = before;
  after.model.run(command);
  if (command.kind == Kind::createTable) {
    between.model.createUnlogged(command);
  } else if (command.kind == Kind::link) {
    between.model.linkUnfiled(command);
  } else {
    return {after, before};
  }
  return {after, between, before};
}

std::string CrashTest::difference(EngineProcess& engine, const State& state, std::int64_t second) {
  for (const TablePlan& plan : tablePlans()) {
    const auto expected = state.select(plan.name, second);
    // Commands can leave an empty table behind under a name that there is not; that is none.
    std::string columns;
    for (const ColumnPlan& column : plan.columns) columns += column.name + " ";
    const auto answer = engine.execute("SELECT " + columns + "FROM " + plan.name, second);
    if (!answer) return "the engine died while reading " + plan.name + "\n";
    const std::string wrong = expected ? differing("table " + plan.name, *expected, answer->text)
                                       : (answer->succeeded() ? plan.name + " is there\n" : "");
    if (!wrong.empty()) return wrong;
  }
  return differenceOfRefusals(engine, state, second);
}

std::string CrashTest::differenceOfRefusals(EngineProcess& engine, const State& state,
                                            std::int64_t second) {
  for (const Command& command : refusedCommands(state)) {
    const auto answer = engine.execute(command.text(), second);
    if (!answer || answer->succeeded()) return "not refused: " + command.text() + "\n";
  }
  return "";
}

// The files that the tables do not show. A change that was scheduled for a command that then did
// not reach the log stays scheduled, so `most` bounds them.
std::string CrashTest::differenceOfFiles(const fs::path& directory, const std::string& output,
                                         const Possibility& possibility, const Possibility& most) {
  std::string relations;
  for (const ModelLink& link : possibility.model.relationFiles()) {
    relations += link.fileName() + "\n";
  }
  const std::string wrong = differing("the links' files", relations, relationFiles(directory));
  if (!wrong.empty()) return wrong;
  const std::size_t lines = countOf(readFile(directory / "velmora.wal"), " #TIME# 1");
  const std::size_t expected = possibility.model.logSize();
  if (lines != expected) {
    return "the log has " + std::to_string(lines) + " lines instead of " +
           std::to_string(expected) + "\n";
  }
  const std::int64_t revived = revivedChanges(output);
  if (revived < possibility.model.pendingChanges - possibility.lostChanges ||
      revived > most.model.pendingChanges) {
    return std::to_string(revived) + " scheduled changes instead of " +
           std::to_string(possibility.model.pendingChanges) + "\n";
  }
  std::error_code ignored;
  const fs::path listeners = directory / "listeners.bin";
  const std::uintmax_t size = fs::exists(listeners) ? fs::file_size(listeners, ignored) : 0;
  std::uintmax_t expectedSize = 0;
  for (const auto& [target, conditions] : possibility.model.listeners) {
    expectedSize += listenerSize + conditionSize * static_cast<std::uintmax_t>(conditions);
  }
  return differing("the size of listeners.bin", std::to_string(expectedSize), std::to_string(size));
}

// Looked at before a link is put to the test by a command, which would change what it tests if the
// link were rightly not there.
std::string CrashTest::differenceOfLinks(const fs::path& directory, const std::string& output,
                                         const State& state) {
  constexpr std::uintmax_t namesSize = 60;
  for (const ModelLink& link : state.links) {
    const fs::path file = directory / link.fileName();
    if (!fs::exists(file) || fs::file_size(file) < namesSize) return "no " + link.fileName() + "\n";
    const std::size_t at = output.find("Skipped relation " + link.fileName());
    if (at != std::string::npos) return output.substr(at);
  }
  return "";
}

std::optional<CrashTest::Running> CrashTest::restart(const fs::path& directory,
                                                     const std::vector<Possibility>& possibilities,
                                                     std::int64_t second) {
  auto engine = std::make_unique<EngineProcess>(directory);
  const auto output = engine->start(second);
  if (!output || output->kind == Answer::Kind::exception) {
    ADD_FAILURE() << "the start in " << directory
                  << " failed: " << (output ? output->text : "it died");
    return std::nullopt;
  }
  std::string differences;
  for (const Possibility& possibility : possibilities) {
    Running running = {nullptr, possibility.model};
    running.model.restart(second);
    std::string wrong = differenceOfFiles(
        directory, output->text, {running.model, possibility.lostChanges}, possibilities[0]);
    if (wrong.empty()) {
      wrong = differenceOfLinks(directory, output->text, running.model.live());
    }
    if (wrong.empty()) wrong = difference(*engine, running.model.live(), second);
    if (wrong.empty()) {
      running.engine = std::move(engine);
      running.model.pendingChanges = revivedChanges(output->text);
      return running;
    }
    differences += "possibility:\n" + wrong;
  }
  for (const auto& entry : fs::directory_iterator(directory)) {
    differences += entry.path().filename().string() + " ";
  }
  ADD_FAILURE() << "after the restart in " << directory << " nothing fits\n" << differences;
  return std::nullopt;
}

void CrashTest::runAlike(Running& running, const Command& command) {
  const Effect effect = running.model.run(command);
  const auto answer = running.engine->execute(command.text(), command.second);
  ASSERT_TRUE(answer.has_value()) << command.text();
  ASSERT_EQ(answer->succeeded(), effect.succeeded) << command.text() << "\n" << answer->text;
  const std::string count = "\"rows_affected\": " + std::to_string(effect.rowsAffected) + "\n";
  ASSERT_NE(answer->text.find(count), std::string::npos) << command.text() << "\n" << answer->text;
}

}  // namespace velmora::crash
