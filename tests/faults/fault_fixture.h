// What the fault tests share: a directory of its own for each test, in memory where the system has
// such a file system (engines are started and stopped thousands of times), and the exported
// functions with exceptions turned into texts.
#pragma once

#include <gtest/gtest.h>

#include <cstdint>
#include <filesystem>
#include <iostream>
#include <map>
#include <string>
#include <vector>

namespace velmora::faults {

inline constexpr std::int64_t startSecond = 1'700'000'000;

using Files = std::map<std::string, std::string>;

// While it lives, the engine's log lines are kept out of the tests' output.
class Silence {
 public:
  Silence() : previous_(std::cout.rdbuf(nullptr)) {}
  ~Silence() { std::cout.rdbuf(previous_); }
  Silence(const Silence&) = delete;
  Silence& operator=(const Silence&) = delete;

 private:
  std::streambuf* previous_;
};

class FaultTest : public testing::Test {
 protected:
  FaultTest();
  ~FaultTest() override;

  // The exported functions: the text of the exception that left, or nothing; run gives the answer.
  static std::string start();
  static std::string stop();
  static std::string run(const std::string& command);
  static void runAll(const std::vector<std::string>& commands);

  static bool succeeded(const std::string& answer) {
    return answer.find("\"success\": true") != std::string::npos;
  }

  // What SELECT * answers for the tables, in this order.
  static std::string shown(const std::vector<std::string>& tables);
  // The same in an engine that is started on a copy of the directory as it is: what a kill leaves.
  std::string shownAfterKill(const std::vector<std::string>& tables) const;

  static Files files();
  static void replaceFiles(const Files& files);
  static std::string bytesOf(const std::string& fileName);
  static void write(const std::string& fileName, const std::string& bytes);

 private:
  std::filesystem::path previous_;
  std::filesystem::path root_;
};

}  // namespace velmora::faults
