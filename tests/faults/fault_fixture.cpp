// See fault_fixture.h.
#include "fault_fixture.h"

#include <fcntl.h>
#include <unistd.h>

#include <cstdlib>
#include <fstream>
#include <iterator>

#include "clock.h"
#include "database/database.h"
#include "parser/parser.h"
#include "storage/files.h"
#include "velmora/velmora.h"

namespace velmora::faults {
namespace {

namespace fs = std::filesystem;

template <typename Call>
std::string textThrownBy(Call call) {
  try {
    call();
    return "";
  } catch (const std::exception& error) {
    return error.what();
  }
}

template <typename Run>
std::string answersOf(const std::vector<std::string>& tables, Run run) {
  std::string all;
  for (const std::string& table : tables) all += table + " " + run("SELECT * FROM " + table) + "\n";
  return all;
}

}  // namespace

FaultTest::FaultTest() : previous_(fs::current_path()) {
  const bool hasMemoryFiles = access("/dev/shm", W_OK) == 0;
  const fs::path parent = hasMemoryFiles ? "/dev/shm" : fs::temp_directory_path();
  std::string name = parent / "velmora-faults-XXXXXX";
  if (mkdtemp(name.data()) == nullptr) throw std::runtime_error("cannot make " + name);
  root_ = name;
  fs::create_directory(root_ / "engine");
  fs::current_path(root_ / "engine");
  clock::setSource([] { return startSecond; });
}

FaultTest::~FaultTest() {
  setFileHook(nullptr);
  stop();
  clock::setSource(nullptr);
  fs::current_path(previous_);
  std::error_code ignored;
  fs::remove_all(root_, ignored);
}

std::string FaultTest::start() {
  const Silence silence;
  return textThrownBy(StartEngine);
}

std::string FaultTest::stop() { return textThrownBy(StopEngine); }

std::string FaultTest::run(const std::string& command) {
  std::string answer;
  const std::string thrown = textThrownBy([&] { answer = ExecuteQuery(command.c_str()); });
  return thrown.empty() ? answer : "throws " + thrown;
}

void FaultTest::runAll(const std::vector<std::string>& commands) {
  for (const std::string& command : commands) {
    const std::string answer = run(command);
    ASSERT_TRUE(succeeded(answer)) << command << "\n" << answer;
  }
}

std::string FaultTest::shown(const std::vector<std::string>& tables) {
  return answersOf(tables, run);
}

std::string FaultTest::shownAfterKill(const std::vector<std::string>& tables) const {
  const Silence silence;
  const fs::path copy = root_ / "copy";
  fs::remove_all(copy);
  fs::copy(root_ / "engine", copy);
  const int descriptor = open(copy.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  std::string all;
  const std::string thrown = textThrownBy([&] {
    Database database(Directory{descriptor});
    database.loadFromDisk();
    Parser parser(&database);
    all = answersOf(tables, [&](const std::string& command) {
      return std::string(renderJson(parser.handleCommand(command)).view());
    });
  });
  close(descriptor);
  return thrown.empty() ? all : "throws " + thrown;
}

Files FaultTest::files() {
  Files files;
  for (const auto& entry : fs::directory_iterator(".")) {
    const std::string name = entry.path().filename();
    files[name] = bytesOf(name);
  }
  return files;
}

void FaultTest::replaceFiles(const Files& files) {
  for (const auto& entry : fs::directory_iterator(".")) fs::remove(entry.path());
  for (const auto& [name, bytes] : files) write(name, bytes);
}

std::string FaultTest::bytesOf(const std::string& fileName) {
  std::ifstream file(fileName, std::ios::binary);
  return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
}

void FaultTest::write(const std::string& fileName, const std::string& bytes) {
  std::ofstream(fileName, std::ios::binary) << bytes;
}

}  // namespace velmora::faults
