// See tool_fixture.h.
#include "tool_fixture.h"

#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <fstream>
#include <sstream>

#include "velmora/velmora.hpp"

namespace velmora_tests {
namespace {

namespace fs = std::filesystem;

std::string contentOf(const fs::path& path) {
  std::ifstream file(path, std::ios::binary);
  std::ostringstream content;
  content << file.rdbuf();
  return content.str();
}

void redirect(int descriptor, const fs::path& path, int flags) {
  const int file = open(path.c_str(), flags, 0644);
  if (file < 0 || dup2(file, descriptor) < 0) _exit(126);
  close(file);
}

int exitCode(pid_t process) {
  int status = 0;
  waitpid(process, &status, 0);
  return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

}  // namespace

ToolFixture::ToolFixture() {
  std::string name = (fs::temp_directory_path() / "velmora_tool_XXXXXX").string();
  if (mkdtemp(name.data()) == nullptr) std::abort();
  directory_ = name;
}

ToolFixture::~ToolFixture() { fs::remove_all(directory_); }

ToolRun ToolFixture::run(std::vector<std::string> arguments, const std::string& input) const {
  const fs::path files = directory_ / ".run";
  fs::create_directory(files);
  std::ofstream(files / "input", std::ios::binary) << input;
  arguments.insert(arguments.begin(), "velmora-tool");
  std::vector<char*> pointers;
  for (std::string& argument : arguments) pointers.push_back(argument.data());
  pointers.push_back(nullptr);
  const pid_t process = fork();
  if (process == 0) {
    redirect(STDIN_FILENO, files / "input", O_RDONLY);
    redirect(STDOUT_FILENO, files / "output", O_WRONLY | O_CREAT | O_TRUNC);
    redirect(STDERR_FILENO, files / "errors", O_WRONLY | O_CREAT | O_TRUNC);
    if (chdir(directory_.c_str()) != 0) _exit(126);
    setenv("TZ", "UTC", 1);
    execv(VELMORA_TOOL, pointers.data());
    _exit(127);
  }
  ToolRun result;
  result.code = exitCode(process);
  result.output = contentOf(files / "output");
  result.errors = contentOf(files / "errors");
  return result;
}

std::string ToolFixture::outputOf(const std::vector<std::string>& arguments,
                                  const std::string& input) const {
  const ToolRun result = run(arguments, input);
  EXPECT_EQ(result.code, 0);
  EXPECT_EQ(result.errors, "");
  return result.output;
}

void ToolFixture::make(const std::string& database,
                       std::initializer_list<std::string> commands) const {
  velmora_options options = velmora::options();
  options.clock = [](void*) -> std::int64_t { return 1'000'000'000; };
  velmora::Database open(at(database).string(), options);
  for (const std::string& command : commands) open.run(command);
}

std::string ToolFixture::read(const std::string& name) const { return contentOf(at(name)); }

void ToolFixture::write(const std::string& name, const std::string& content) const {
  std::ofstream(at(name), std::ios::binary) << content;
}

}  // namespace velmora_tests
