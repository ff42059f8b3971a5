// The shell as a person at a terminal meets it: keys go in, and what the screen is sent is looked
// at, without what moves the cursor.
#include <poll.h>
#include <pty.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <string>
#include <vector>

#include "tool_fixture.h"

namespace velmora_tests {
namespace {

constexpr int answerLimitMilliseconds = 20'000;

class Prompt : public ToolFixture {
 protected:
  Prompt() {
    make("shop", {"CREATE TABLE lamps name string", "INSERT INTO lamps name = '\x1b[31m'"});
  }
  ~Prompt() override {
    if (process_ > 0) {
      kill(process_, SIGKILL);
      waitpid(process_, nullptr, 0);
    }
    if (terminal_ >= 0) close(terminal_);
  }

  void start(std::vector<std::string> arguments = {"shell", "shop", "--now", "1000"}) {
    arguments.insert(arguments.begin(), "velmora-tool");
    std::vector<char*> pointers;
    for (std::string& argument : arguments) pointers.push_back(argument.data());
    pointers.push_back(nullptr);
    process_ = forkpty(&terminal_, nullptr, nullptr, nullptr);
    if (process_ != 0) return;
    if (chdir(at("").c_str()) != 0) _exit(126);
    setenv("XDG_STATE_HOME", at("state").c_str(), 1);
    setenv("TERM", "dumb", 1);
    execv(VELMORA_TOOL, pointers.data());
    _exit(127);
  }
  void type(const std::string& keys) const {
    ASSERT_EQ(::write(terminal_, keys.data(), keys.size()), static_cast<ssize_t>(keys.size()));
  }
  // What has come up to the end of the text, which has to come.
  std::string until(const std::string& text) {
    while (rest_.find(text) == std::string::npos) {
      const std::string more = readSome();
      if (more.empty()) {
        ADD_FAILURE() << "not seen: " << text << " in: " << rest_;
        return rest_;
      }
      rest_ += more;
    }
    const std::string seen = rest_.substr(0, rest_.find(text) + text.size());
    rest_.erase(0, seen.size());
    return seen;
  }
  int exitCode() {
    while (!readSome().empty()) {
    }
    int status = 0;
    waitpid(process_, &status, 0);
    process_ = -1;
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
  }

 private:
  std::string readSome() const {
    pollfd waiting = {terminal_, POLLIN, 0};
    char bytes[4096];
    if (poll(&waiting, 1, answerLimitMilliseconds) != 1) return "";
    const ssize_t count = ::read(terminal_, bytes, sizeof bytes);
    return count > 0 ? std::string(bytes, static_cast<std::size_t>(count)) : "";
  }

  pid_t process_ = -1;
  int terminal_ = -1;
  std::string rest_;  // of what has come
};

TEST_F(Prompt, answersInBoxesWithSymbolsAndLeaves) {
  start();
  until("velmora> ");
  type("SELECT name\rFROM lamps;\r");
  until("    ...> ");
  EXPECT_NE(until("1 row\r\n").find("│ name  │\r\n├───────┤\r\n│ ␛[31m │"), std::string::npos);
  until("velmora> ");
  type("UPDATE lamps SET name = 'x';\r");
  until("1 row\r\n");
  until("velmora> ");
  type(".quit\r");
  EXPECT_EQ(exitCode(), 0);
}

TEST_F(Prompt, completesWords) {
  start();
  until("velmora> ");
  type("sel\t");
  until("select ");
  type("na\t");
  until("name ");
  type("from la\t;\r");
  until("1 row\r\n");
  until("velmora> ");
  type(".qu\t\r");
  EXPECT_EQ(exitCode(), 0);
}

TEST_F(Prompt, anInterruptTakesBackWhatWasTypedAndTheEndOfInputLeaves) {
  start();
  until("velmora> ");
  type("nix");
  until("nix");
  type("\x03");
  until("^C\r\nvelmora> ");
  type("SELECT COUNT(*) FROM lamps;\r");
  until("1 row\r\n");
  until("velmora> ");
  type("\x04");
  EXPECT_EQ(exitCode(), 0);
}

TEST_F(Prompt, anInterruptEndsOtherVerbs) {
  start({"run", "shop", "--now", "1000000000"});
  type("SELECT COUNT(*) FROM lamps\r");
  until("└──────────┘\r\n");
  type("\x03");
  until("velmora-tool: Interrupted\r\n");
  EXPECT_EQ(exitCode(), 130);
}

TEST_F(Prompt, aFailureIsMarkedAndTheHistoryKept) {
  start();
  until("velmora> ");
  type("SELECT nix FROM lamps;\r");
  until("Unknown column 'nix'\r\n  SELECT nix FROM lamps\r\n         ^");
  until("velmora> ");
  type(".timing on\r");
  until("velmora> ");
  type("SELECT name FROM lamps;\r");
  until(" s)\r\n");
  until("velmora> ");
  type("exit\r");
  EXPECT_EQ(exitCode(), 0);
  EXPECT_EQ(read("state/velmora/tool_history"),
            "_HiStOrY_V2_\nSELECT\\040nix\\040FROM\\040lamps;\n.timing\\040on\n"
            "SELECT\\040name\\040FROM\\040lamps;\nexit\n");
}

}  // namespace
}  // namespace velmora_tests
