// An engine of its own for each test, in a directory of its own, asked through the exported
// functions: for tests of commands that need more rows than a golden script should hold.
#pragma once

#include <gtest/gtest.h>
#include <stdlib.h>
#include <unistd.h>

#include <cstdint>
#include <filesystem>
#include <sstream>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "clock.h"
#include "velmora/velmora.h"

namespace velmora {

class EngineTest : public testing::Test {
 protected:
  using Texts = std::vector<std::string>;

  EngineTest() : before_(std::filesystem::current_path()) {
    std::string name = (std::filesystem::temp_directory_path() / "velmora-engine-XXXXXX").string();
    if (mkdtemp(name.data()) == nullptr) throw std::runtime_error("cannot make " + name);
    directory_ = name;
    std::filesystem::current_path(directory_);
    second = startSecond;
    clock::setSource([] { return second; });
    start();
  }
  ~EngineTest() override {
    EXPECT_NO_THROW(StopEngine());
    clock::setSource(nullptr);
    std::filesystem::current_path(before_);
    std::error_code ignored;
    std::filesystem::remove_all(directory_, ignored);
  }

  static void start() { StartEngine(); }
  static void stop() { StopEngine(); }
  static void restart() {
    stop();
    start();
  }

  static std::string answer(const std::string& command) { return ExecuteQuery(command.c_str()); }
  // Runs a command that has to succeed.
  static void run(const std::string& command) {
    const std::string given = answer(command);
    if (given.find("\"success\": true") == std::string::npos) {
      throw std::runtime_error(command + ": " + given);
    }
  }
  // The message of an answer.
  static std::string messageOf(const std::string& command) {
    const std::string given = answer(command);
    constexpr std::string_view begin = "\"message\": \"";
    const std::size_t at = given.find(begin) + begin.size();
    return given.substr(at, given.find("\",\n", at) - at);
  }
  // The data rows of an answer: of each the values as they are printed, with a blank between.
  static Texts rows(const std::string& command) {
    std::istringstream lines(answer(command));
    Texts found;
    for (std::string line; std::getline(lines, line);) {
      if (!line.starts_with("    {")) continue;
      std::string values;
      constexpr std::string_view colon = "\": ";
      for (std::size_t at = line.find(colon); at != std::string::npos; at = line.find(colon, at)) {
        at += colon.size();
        const std::size_t next = line.find(", \"", at);
        if (!values.empty()) values += ' ';
        values += line.substr(at, (next == std::string::npos ? line.rfind('}') : next) - at);
      }
      found.push_back(values);
    }
    return found;
  }

  static std::uintmax_t sizeOf(const std::string& file) { return std::filesystem::file_size(file); }

  static constexpr std::int64_t startSecond = 1'700'000'000;
  static inline std::int64_t second = startSecond;

 private:
  std::filesystem::path before_;
  std::filesystem::path directory_;
};

}  // namespace velmora
