// The shell as a person or a script meets it: the built program, fed over a pipe in an empty
// directory, its output compared to the byte. Standard error is collected in every test and must
// stay empty. What the commands themselves answer is left to the golden scripts.

#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

namespace {

namespace fs = std::filesystem;

const std::string prompt = "velmora> ";
const std::string rule(55, '=');
const std::string replayLines =
    "[BOOTLOADER] Replaying Write-Ahead Log...\n"
    "[BOOTLOADER] WAL Replay Complete. RAM is 100% synced.\n";

// Far longer than any answer takes, sanitizers included: only a hang comes to it.
constexpr int answerLimitMilliseconds = 60'000;

std::string result(const std::string& success, const std::string& message, int rowsAffected) {
  return "{\n  \"success\": " + success + ",\n  \"message\": \"" + message +
         "\",\n  \"rows_affected\": " + std::to_string(rowsAffected) + "\n}\n\n";
}

std::string unknownCommand() {
  return result("false", "Error: Unknown command or missing parameters", 0);
}

std::string readFile(const fs::path& path) {
  std::ifstream file(path, std::ios::binary);
  std::ostringstream text;
  text << file.rdbuf();
  return text.str();
}

// One run of the program, over pipes.
class Shell {
 public:
  Shell(const fs::path& directory, const fs::path& errors,
        std::vector<std::string> arguments = {}) {
    int input[2];
    int output[2];
    if (pipe2(input, O_CLOEXEC) != 0 || pipe2(output, O_CLOEXEC) != 0) std::abort();
    process_ = fork();
    if (process_ == 0) run(directory, errors, input[0], output[1], arguments);
    close(input[0]);
    close(output[1]);
    input_ = input[1];
    output_ = output[0];
  }
  ~Shell() {
    endInput();
    if (process_ > 0) kill();
    close(output_);
  }
  Shell(const Shell&) = delete;
  Shell& operator=(const Shell&) = delete;

  // Sends a line and answers what comes before the next prompt.
  std::string answerTo(const std::string& line) {
    send(line + "\n");
    return untilPrompt();
  }

  void send(const std::string& text) {
    ASSERT_EQ(write(input_, text.data(), text.size()), static_cast<ssize_t>(text.size()));
  }

  void endInput() {
    if (input_ >= 0) close(input_);
    input_ = -1;
  }

  std::string untilPrompt() {
    std::string text;
    while (!text.ends_with(prompt)) {
      if (!readMore(text, 1)) {
        ADD_FAILURE() << "no prompt came behind: " << text;
        return text;
      }
    }
    return text.substr(0, text.size() - prompt.size());
  }

  std::string untilEnd() {
    std::string text;
    while (readMore(text, 4096)) {
    }
    return text;
  }

  void kill() {
    ::kill(process_, SIGKILL);
    wait();
  }

  // The status as waitpid gives it.
  int wait() {
    int status = 0;
    waitpid(process_, &status, 0);
    process_ = -1;
    return status;
  }

 private:
  [[noreturn]] static void run(const fs::path& directory, const fs::path& errors, int input,
                               int output, std::vector<std::string>& arguments) {
    const rlimit noCoreFile{0, 0};
    setrlimit(RLIMIT_CORE, &noCoreFile);
    signal(SIGPIPE, SIG_DFL);
    const int error = open(errors.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0644);
    if (error < 0 || chdir(directory.c_str()) != 0) _exit(101);
    dup2(input, STDIN_FILENO);
    dup2(output, STDOUT_FILENO);
    dup2(error, STDERR_FILENO);
    std::string program = VELMORA_SHELL;
    std::vector<char*> words = {program.data()};
    for (std::string& argument : arguments) words.push_back(argument.data());
    words.push_back(nullptr);
    execv(words[0], words.data());
    _exit(102);
  }

  bool readMore(std::string& text, std::size_t most) {
    pollfd waiting{output_, POLLIN, 0};
    if (poll(&waiting, 1, answerLimitMilliseconds) <= 0) {
      ADD_FAILURE() << "the shell does not answer";
      ::kill(process_, SIGKILL);
      return false;
    }
    char bytes[4096];
    const ssize_t count = read(output_, bytes, most);
    if (count <= 0) return false;
    text.append(bytes, static_cast<std::size_t>(count));
    return true;
  }

  pid_t process_ = -1;
  int input_ = -1;
  int output_ = -1;
};

class ShellTest : public testing::Test {
 protected:
  void SetUp() override {
    signal(SIGPIPE, SIG_IGN);
    std::string name = (fs::temp_directory_path() / "velmora-shell-XXXXXX").string();
    ASSERT_NE(mkdtemp(name.data()), nullptr);
    temporary_ = name;
    fs::create_directory(database());
  }
  void TearDown() override {
    EXPECT_EQ(readFile(errors()), expectedErrors_);
    fs::remove_all(temporary_);
  }

  fs::path database() const { return temporary_ / "database"; }
  fs::path errors() const { return temporary_ / "errors"; }

  // Leaves with the word and checks that nothing more is printed.
  static void leave(Shell& shell, const std::string& word = "exit") {
    shell.send(word + "\n");
    EXPECT_EQ(shell.untilEnd(), "");
    const int status = shell.wait();
    EXPECT_TRUE(WIFEXITED(status));
    EXPECT_EQ(WEXITSTATUS(status), 0);
  }

  // One run: the lines are sent one by one; answers all that was printed, prompts left out.
  std::vector<std::string> session(const std::vector<std::string>& lines) {
    Shell shell(database(), errors());
    std::vector<std::string> answers = {shell.untilPrompt()};
    for (const std::string& line : lines) answers.push_back(shell.answerTo(line));
    leave(shell);
    return answers;
  }

  std::string expectedErrors_;

 private:
  fs::path temporary_;
};

TEST_F(ShellTest, bannerIsTitleLinesBetweenTwoRulesAndAnEmptyLine) {
  Shell shell(database(), errors());
  std::istringstream banner(shell.untilPrompt());
  std::vector<std::string> lines;
  for (std::string line; std::getline(banner, line);) lines.push_back(line);
  ASSERT_GE(lines.size(), 4U);
  EXPECT_EQ(lines.front(), rule);
  EXPECT_EQ(lines.back(), "");
  EXPECT_EQ(lines[lines.size() - 2], rule);
  for (std::size_t index = 1; index < lines.size() - 2; ++index) {
    ASSERT_GE(lines[index].size(), 2U);
    EXPECT_EQ(lines[index][0], ' ');
    EXPECT_NE(lines[index][1], ' ');
  }
  leave(shell);
}

TEST_F(ShellTest, emptyLineGivesOnlyANewPrompt) {
  const std::vector<std::string> answers = session({"", ""});
  EXPECT_EQ(answers[1], "");
  EXPECT_EQ(answers[2], "");
}

TEST_F(ShellTest, resultIsFollowedByExactlyOneEmptyLine) {
  const std::vector<std::string> answers =
      session({"CREATE TABLE lamps name string", "INSERT INTO lamps name = 'north'",
               "SELECT name FROM lamps", "DROP lamps"});
  EXPECT_EQ(answers[1], result("true", "success!", 0));
  EXPECT_TRUE(answers[2].ends_with("\n}\n\n"));
  EXPECT_TRUE(answers[3].ends_with("  \"data\": [\n    {\"name\": \"north\"}\n  ]\n}\n\n"));
  EXPECT_EQ(answers[4], unknownCommand());
}

TEST_F(ShellTest, quitLeavesAsExitDoes) {
  Shell shell(database(), errors());
  shell.untilPrompt();
  leave(shell, "quit");
}

TEST_F(ShellTest, onlyTheExactWordsLeave) {
  for (const std::string& answer :
       session({"exit ", " exit", "EXIT", "Exit", "quit ", " quit", "QUIT", "exit now"})) {
    if (answer.starts_with(rule)) continue;
    EXPECT_EQ(answer, unknownCommand());
  }
}

TEST_F(ShellTest, lineOfBlanksIsAnEmptyCommand) {
  EXPECT_EQ(session({"  "})[1], result("false", "Empty command", 0));
}

TEST_F(ShellTest, argumentsAreIgnored) {
  Shell shell(database(), errors(), {"--help", "exit", "/nowhere"});
  EXPECT_TRUE(shell.untilPrompt().starts_with(rule));
  EXPECT_EQ(shell.answerTo("CREATE TABLE t a int"), result("true", "success!", 0));
  leave(shell);
}

TEST_F(ShellTest, afterEndOfInputItKeepsPromptingTenTimesASecondAtMost) {
  Shell shell(database(), errors());
  shell.untilPrompt();
  const auto begin = std::chrono::steady_clock::now();
  shell.endInput();
  constexpr int furtherPrompts = 3;
  for (int count = 0; count < furtherPrompts; ++count) EXPECT_EQ(shell.untilPrompt(), "");
  const auto waited = std::chrono::steady_clock::now() - begin;
  EXPECT_GE(waited, furtherPrompts * std::chrono::milliseconds(100));
  shell.kill();
}

TEST_F(ShellTest, exceptionThatACommandLetsOutEndsTheProcess) {
  Shell shell(database(), errors());
  shell.untilPrompt();
  shell.answerTo("CREATE TABLE lamps id ApexInt name string");
  shell.answerTo("INSERT INTO lamps name = 'north'");
  shell.send("SELECT id FROM lamps WHERE id = north\n");
  EXPECT_EQ(shell.untilEnd(), "");
  const int status = shell.wait();
  EXPECT_TRUE(WIFSIGNALED(status));
  EXPECT_EQ(WTERMSIG(status), SIGABRT);
  expectedErrors_ =
      "terminate called after throwing an instance of 'std::invalid_argument'\n"
      "  what():  stoi\n";
}

TEST_F(ShellTest, stateIsKeptOverTwoRuns) {
  session({"CREATE TABLE lamps id ApexInt name string", "INSERT INTO lamps name = 'north'"});
  const std::vector<std::string> answers = session({"SELECT id, name FROM lamps"});
  EXPECT_TRUE(answers[0].starts_with(replayLines + rule)) << answers[0];
  EXPECT_NE(answers[1].find("    {\"id\": 1, \"name\": \"north\"}\n"), std::string::npos);
}

TEST_F(ShellTest, killedShellLosesNothingAndLeavesTheDirectoryFree) {
  {
    Shell shell(database(), errors());
    shell.untilPrompt();
    shell.answerTo("CREATE TABLE lamps id ApexInt name string");
    shell.answerTo("INSERT INTO lamps name = 'north'");
    shell.kill();
  }
  const std::vector<std::string> answers = session({"SELECT id, name FROM lamps"});
  EXPECT_TRUE(answers[0].starts_with(replayLines + rule)) << answers[0];
  EXPECT_NE(answers[1].find("    {\"id\": 1, \"name\": \"north\"}\n"), std::string::npos);
}

TEST_F(ShellTest, secondShellInOneDirectoryIsRefused) {
  Shell first(database(), errors());
  first.untilPrompt();
  Shell second(database(), errors());
  EXPECT_EQ(second.untilEnd(), "Database directory is already in use\n");
  const int status = second.wait();
  EXPECT_TRUE(WIFEXITED(status));
  EXPECT_EQ(WEXITSTATUS(status), 1);
  EXPECT_EQ(first.answerTo("CREATE TABLE t a int"), result("true", "success!", 0));
  leave(first);
}

}  // namespace
