// What a running engine does with its directory: it holds it against others, stays in it wherever
// its process goes, and leaves nothing open behind. An engine belongs to its process, so each test
// runs its engines in processes of their own.
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <csignal>
#include <filesystem>
#include <functional>
#include <iterator>
#include <set>
#include <stdexcept>
#include <string>

#include "storage_fixture.h"
#include "velmora/velmora.h"

namespace velmora {
namespace {

namespace fs = std::filesystem;

// The forked side's ends of the pipes to the test.
class Host {
 public:
  Host(int report, int go) : report_(report), go_(go) {}
  void say(const std::string& text) const {
    const std::string line = text + "\n";
    if (write(report_, line.data(), line.size()) != static_cast<ssize_t>(line.size())) _exit(1);
  }
  // Waits for the test's go; false when the test has gone.
  bool waitForGo() const {
    char byte = 0;
    return read(go_, &byte, 1) == 1;
  }

 private:
  int report_;
  int go_;
};

// Forks and runs the work in the directory; the process then stays until it is killed.
class HostProcess {
 public:
  HostProcess(const fs::path& directory, const std::function<void(const Host&)>& work) {
    std::array<int, 2> report = {};
    std::array<int, 2> go = {};
    if (pipe(report.data()) != 0 || pipe(go.data()) != 0) throw std::runtime_error("no pipe");
    process_ = fork();
    if (process_ == 0) {
      close(report[0]);
      close(go[1]);
      fs::current_path(directory);
      const Host host(report[1], go[0]);
      work(host);
      while (host.waitForGo()) continue;
      _exit(0);
    }
    close(report[1]);
    close(go[0]);
    report_ = report[0];
    go_ = go[1];
  }
  ~HostProcess() {
    kill();
    close(report_);
    close(go_);
  }
  HostProcess(const HostProcess&) = delete;
  HostProcess& operator=(const HostProcess&) = delete;

  // The next line that the work says; waits for it.
  std::string line() {
    std::string text;
    for (char c = 0; read(report_, &c, 1) == 1 && c != '\n';) text += c;
    return text;
  }
  void go() { EXPECT_EQ(write(go_, "g", 1), 1); }
  void kill() {
    if (process_ <= 0) return;
    ::kill(process_, SIGKILL);
    waitpid(process_, nullptr, 0);
    process_ = -1;
  }

 private:
  pid_t process_ = -1;
  int report_ = -1;
  int go_ = -1;
};

std::string startAttempt() {
  try {
    StartEngine();
  } catch (const std::runtime_error& error) {
    return error.what();
  }
  return "started";
}

constexpr const char* inUse = "Database directory is already in use";
constexpr const char* notStarted = R"({"success": false, "message": "Engine not started."})";

using EngineDirectoryTest = StorageTest;

TEST_F(EngineDirectoryTest, aSecondEngineIsRefusedBeforeAnythingIsSetUp) {
  HostProcess first(path_, [](const Host& host) { host.say(startAttempt()); });
  ASSERT_EQ(first.line(), "started");
  HostProcess second(path_, [](const Host& host) {
    host.say(startAttempt());
    host.say(ExecuteQuery("SELECT a FROM t"));
    host.say(startAttempt());
    StopEngine();
    host.say("stopped");
  });
  EXPECT_EQ(second.line(), inUse);
  EXPECT_EQ(second.line(), notStarted);
  EXPECT_EQ(second.line(), inUse);
  EXPECT_EQ(second.line(), "stopped");
  EXPECT_TRUE(fs::is_empty(path_));
}

TEST_F(EngineDirectoryTest, aKilledProcessLeavesNoLockAndARefusedStartCanBeTriedAgain) {
  HostProcess first(path_, [](const Host& host) { host.say(startAttempt()); });
  ASSERT_EQ(first.line(), "started");
  HostProcess second(path_, [](const Host& host) {
    host.say(startAttempt());
    host.waitForGo();
    host.say(startAttempt());
  });
  ASSERT_EQ(second.line(), inUse);
  first.kill();
  second.go();
  EXPECT_EQ(second.line(), "started");
}

TEST_F(EngineDirectoryTest, aStoppedEngineLeavesTheDirectoryToTheNext) {
  HostProcess first(path_, [](const Host& host) {
    StartEngine();
    StopEngine();
    host.say("stopped");
  });
  ASSERT_EQ(first.line(), "stopped");
  HostProcess second(path_, [](const Host& host) { host.say(startAttempt()); });
  EXPECT_EQ(second.line(), "started");
}

TEST_F(EngineDirectoryTest, theDirectoryStaysThatOfTheStart) {
  const fs::path home = path_ / "home";
  const fs::path elsewhere = path_ / "elsewhere";
  fs::create_directory(home);
  fs::create_directory(elsewhere);
  HostProcess process(home, [&](const Host& host) {
    StartEngine();
    ExecuteQuery("CREATE TABLE before n int");
    fs::current_path(elsewhere);
    ExecuteQuery("CREATE TABLE parents id ApexInt");
    ExecuteQuery("CREATE TABLE children parent int n int 2");
    ExecuteQuery("INSERT INTO parents id = 0");
    ExecuteQuery("INSERT INTO children parent = 1 n = 1 --> 2 @ 5 s");
    ExecuteQuery("LINK children.parent --> parents.id");
    ExecuteQuery("LISTEN parents.INSERT --> 'hook'");
    ExecuteQuery("CREATE TABLE gone n int");
    ExecuteQuery("DROP TABLE gone");
    StopEngine();
    host.say("stopped");
  });
  ASSERT_EQ(process.line(), "stopped");
  EXPECT_TRUE(fs::is_empty(elsewhere));
  std::set<std::string> names;
  for (const auto& entry : fs::directory_iterator(home)) names.insert(entry.path().filename());
  EXPECT_EQ(names, (std::set<std::string>{"before.bin", "before.del", "children.bin",
                                          "children.del", "children.tmp", "listeners.bin",
                                          "children-parent_parents-id.rel", "parents.bin",
                                          "parents.del", "velmora.wal", "webhooks.bin"}));
}

TEST_F(EngineDirectoryTest, aStoppedEngineHoldsNoFileOpen) {
  HostProcess process(path_, [](const Host& host) {
    const auto openFiles = [] {
      return std::distance(fs::directory_iterator("/proc/self/fd"), fs::directory_iterator());
    };
    const auto before = openFiles();
    StartEngine();
    ExecuteQuery("CREATE TABLE t n int");
    ExecuteQuery("INSERT INTO t n = 1");
    ExecuteQuery("CHECKPOINT");
    ExecuteQuery("INSERT INTO t n = 2");
    host.say(std::to_string(openFiles() - before));
    StopEngine();
    host.say(std::to_string(openFiles() - before));
  });
  // The directory and the log.
  EXPECT_EQ(process.line(), "2");
  EXPECT_EQ(process.line(), "0");
}

}  // namespace
}  // namespace velmora
