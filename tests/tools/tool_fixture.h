// velmora-tool as a person or a script meets it: the built program in an empty directory, with what
// it prints and its exit code compared to the byte. Databases are made by the handles' functions.
#pragma once

#include <gtest/gtest.h>

#include <filesystem>
#include <initializer_list>
#include <string>
#include <vector>

namespace velmora_tests {

struct ToolRun {
  int code = -1;  // the exit code; of a process that a signal has ended 128 and the signal
  std::string output;
  std::string errors;
};

class ToolFixture : public testing::Test {
 protected:
  ToolFixture();
  ~ToolFixture() override;

  // Runs the program in the test's directory.
  ToolRun run(std::vector<std::string> arguments, const std::string& input = "") const;

  // The same, expecting success without complaints, and giving what is on standard output.
  std::string outputOf(const std::vector<std::string>& arguments,
                       const std::string& input = "") const;

  // Runs commands on a database, made where it is not there, at second 1000000000.
  void make(const std::string& database, std::initializer_list<std::string> commands) const;

  std::filesystem::path at(const std::string& name) const { return directory_ / name; }
  std::string read(const std::string& name) const;
  void write(const std::string& name, const std::string& content) const;

 private:
  std::filesystem::path directory_;
};

}  // namespace velmora_tests
