// Runs the golden scripts: every tests/golden/AREA/NAME.txt becomes the test AREA.NAME, in an empty
// directory of its own with a fresh engine process. A difference is reported at the script's line,
// with what was expected and what came; the script then goes on, since later lines often explain.

#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <memory>
#include <sstream>
#include <string>
#include <vector>

#include "golden_script.h"
#include "golden_worker.h"

namespace velmora::golden {
namespace {

namespace fs = std::filesystem;

constexpr std::int64_t firstSecond = 1'700'000'000;
constexpr int differencesBeforeGivingUp = 8;

std::string readFile(const fs::path& path) {
  std::ifstream file(path, std::ios::binary);
  std::ostringstream text;
  text << file.rdbuf();
  return text.str();
}

void writeFile(const fs::path& path, const std::string& bytes, std::ios::openmode mode) {
  std::ofstream file(path, std::ios::binary | mode);
  file << bytes;
  if (!file.flush()) throw std::runtime_error("cannot write " + path.string());
}

std::string hexText(std::string_view bytes) {
  static const char digits[] = "0123456789abcdef";
  std::string text;
  for (const char c : bytes) {
    const auto byte = static_cast<unsigned char>(c);
    if (!text.empty()) text += ' ';
    text += digits[byte / 16];
    text += digits[byte % 16];
  }
  return text;
}

std::size_t occurrences(const std::string& text, const std::string& wanted) {
  std::size_t count = 0;
  for (std::size_t at = text.find(wanted); at != std::string::npos;
       at = text.find(wanted, at + wanted.size())) {
    ++count;
  }
  return count;
}

std::string describe(const Outcome& outcome) {
  if (outcome.exceptionType.empty()) return outcome.text;
  return "throws " + outcome.exceptionType + " " + outcome.text;
}

// A directory that vanishes with the test: the engine's, and beside it what the engine printed.
class TemporaryDirectory {
 public:
  TemporaryDirectory() {
    std::string name = (fs::temp_directory_path() / "velmora-golden-XXXXXX").string();
    if (mkdtemp(name.data()) == nullptr) throw std::runtime_error("cannot make " + name);
    path_ = name;
  }
  ~TemporaryDirectory() {
    std::error_code ignored;
    fs::remove_all(path_, ignored);
  }
  TemporaryDirectory(const TemporaryDirectory&) = delete;
  TemporaryDirectory& operator=(const TemporaryDirectory&) = delete;

  const fs::path& path() const { return path_; }

 private:
  fs::path path_;
};

class ScriptRun {
 public:
  explicit ScriptRun(std::string script) : script_(std::move(script)) {
    fs::create_directory(database_);
    writeFile(output_, "", std::ios::trunc);
  }

  void run(const std::vector<Step>& steps) {
    for (const Step& step : steps) {
      step_ = &step;
      try {
        runStep(step);
      } catch (const std::exception& exception) {
        report(std::string("the step could not be run: ") + exception.what());
        return;
      }
      if (differences_ >= differencesBeforeGivingUp) return;
    }
    if (worker_ != nullptr) compare("the end of the engine's process", "", worker_->finish());
    worker_.reset();
  }

 private:
  void runStep(const Step& step) {
    if (step.verb == ">") {
      const Outcome actual = worker().execute(step.command);
      compare("the answer", describe(step.expected), describe(actual));
      compareOutput();
    } else if (step.verb == "start") {
      compare("start", describe(step.expected), describe(worker().start()));
      compareOutput();
    } else if (step.verb == "stop") {
      compare("stop", describe(step.expected), describe(worker().stop()));
      compareOutput();
    } else if (step.verb == "crash") {
      if (worker_ == nullptr) throw std::runtime_error("there is no process to kill");
      worker_->kill();
      worker_.reset();
    } else if (step.verb == "clock") {
      setClock(word(0));
    } else if (step.verb == "file") {
      compareFile();
    } else if (step.verb == "files") {
      compareFileNames();
    } else {
      changeFile();
    }
  }

  void changeFile() {
    const std::string& verb = step_->verb;
    const fs::path path = database_ / word(0);
    if (verb == "write") {
      writeFile(path, bytesFrom(1), std::ios::trunc);
    } else if (verb == "append") {
      writeFile(path, bytesFrom(1), std::ios::app);
    } else if (verb == "truncate") {
      fs::resize_file(path, std::stoull(word(1)));
    } else if (verb == "copy") {
      fs::copy_file(path, database_ / word(1), fs::copy_options::overwrite_existing);
    } else if (verb == "delete") {
      if (fs::remove_all(path) == 0) throw std::runtime_error("no such file");
    } else if (verb == "mkdir") {
      fs::create_directory(path);
    } else if (verb == "symlink") {
      fs::create_symlink(word(1), path);
    } else if (verb == "hardlink") {
      fs::create_hard_link(database_ / word(1), path);
    } else if (verb == "pipe") {
      if (mkfifo(path.c_str(), 0600) != 0) throw std::runtime_error("no pipe");
    } else if (verb == "socket") {
      // As if a program had listened there; the name stays when its socket is closed.
      if (mknod(path.c_str(), S_IFSOCK | 0600, 0) != 0) throw std::runtime_error("no socket");
    } else {
      throw std::runtime_error("unknown directive");
    }
  }

  // file NAME missing | size N | text "..." | hex OFFSET xx xx | grep "..." COUNT
  void compareFile() {
    const fs::path path = database_ / word(0);
    const std::string& kind = word(1);
    const std::string what = "the file " + word(0);
    if (!fs::exists(path)) return compare(what, kind, "missing");
    if (kind == "missing") return compare(what, kind, "present");
    const std::string bytes = readFile(path);
    if (kind == "size") {
      compare("the size of " + word(0), word(2), std::to_string(bytes.size()));
    } else if (kind == "text") {
      compare(what, escape(word(2)), escape(bytes));
    } else if (kind == "hex") {
      const std::string expected = hexBytes(3);
      const std::size_t offset = std::min<std::size_t>(std::stoull(word(2)), bytes.size());
      const std::string_view actual = std::string_view(bytes).substr(offset, expected.size());
      compare(what, hexText(expected), hexText(actual));
    } else if (kind == "grep") {
      compare("occurrences in " + word(0), word(3), std::to_string(occurrences(bytes, word(2))));
    } else {
      throw std::runtime_error("unknown comparison: " + kind);
    }
  }

  void compareFileNames() {
    std::vector<std::string> expected = step_->words;
    std::vector<std::string> actual;
    for (const fs::directory_entry& entry : fs::directory_iterator(database_)) {
      actual.push_back(entry.path().filename().string());
    }
    std::sort(expected.begin(), expected.end());
    std::sort(actual.begin(), actual.end());
    compare("the files", joined(expected), joined(actual));
  }

  // The process prints nothing but what the script says, at any step.
  void compareOutput() {
    const std::string all = readFile(output_);
    const std::string fresh = all.substr(outputSeen_);
    outputSeen_ = all.size();
    compare("standard output", step_->expectedOutput, fresh);
  }

  void setClock(const std::string& value) {
    const bool relative = value.starts_with("+");
    second_ = relative ? second_ + std::stoll(value.substr(1)) : std::stoll(value);
    if (worker_ != nullptr) worker_->setClock(second_);
  }

  Worker& worker() {
    if (worker_ == nullptr) {
      worker_ = std::make_unique<Worker>(database_, output_);
      worker_->setClock(second_);
    }
    return *worker_;
  }

  // "text" | hex xx xx ...
  std::string bytesFrom(std::size_t index) {
    if (word(index) == "hex" && step_->words.size() != index + 1) return hexBytes(index + 1);
    if (step_->words.size() != index + 1) throw std::runtime_error("one quoted text is needed");
    return word(index);
  }

  std::string hexBytes(std::size_t index) {
    std::string bytes;
    for (; index < step_->words.size(); ++index) {
      const std::string& digits = step_->words[index];
      std::size_t used = 0;
      const unsigned long value = std::stoul(digits, &used, 16);
      if (digits.size() != 2 || used != 2) throw std::runtime_error("not a byte: " + digits);
      bytes += static_cast<char>(value);
    }
    return bytes;
  }

  const std::string& word(std::size_t index) const {
    if (index >= step_->words.size()) throw std::runtime_error("a word is missing");
    return step_->words[index];
  }

  static std::string joined(const std::vector<std::string>& words) {
    std::string text;
    for (const std::string& word : words) text += (text.empty() ? "" : " ") + word;
    return text;
  }

  void compare(const std::string& what, const std::string& expected, const std::string& actual) {
    if (expected == actual) return;
    report(what + " differs\n--- expected\n" + expected + "\n--- actual\n" + actual + "\n---");
  }

  void report(const std::string& difference) {
    ++differences_;
    ADD_FAILURE_AT(script_.c_str(), step_->lineNumber) << step_->source << "\n" << difference;
  }

  std::string script_;
  TemporaryDirectory temporary_;
  fs::path database_ = temporary_.path() / "database";
  fs::path output_ = temporary_.path() / "output";
  std::unique_ptr<Worker> worker_;
  const Step* step_ = nullptr;
  std::int64_t second_ = firstSecond;
  std::size_t outputSeen_ = 0;
  int differences_ = 0;
};

class GoldenTest : public testing::Test {
 public:
  explicit GoldenTest(fs::path script) : script_(std::move(script)) {}

  void TestBody() override {
    try {
      const std::vector<Step> steps = parseScript(readFile(script_));
      ASSERT_FALSE(steps.empty()) << script_ << " holds no step";
      ScriptRun(script_.string()).run(steps);
    } catch (const ScriptError& error) {
      ADD_FAILURE_AT(script_.c_str(), error.lineNumber) << "not a golden script: " << error.what();
    }
  }

 private:
  fs::path script_;
};

// A test's name may hold letters, digits and underscores only: the rest means something in filters.
std::string testName(std::string name) {
  std::replace_if(
      name.begin(), name.end(), [](unsigned char c) { return std::isalnum(c) == 0; }, '_');
  return name;
}

std::size_t registerScripts(const fs::path& root) {
  std::vector<fs::path> scripts;
  for (const fs::directory_entry& entry : fs::recursive_directory_iterator(root)) {
    if (entry.path().extension() == ".txt") scripts.push_back(entry.path());
  }
  std::sort(scripts.begin(), scripts.end());
  for (const fs::path& script : scripts) {
    const std::string area = testName(fs::relative(script.parent_path(), root).string());
    const std::string name = testName(script.stem().string());
    testing::RegisterTest(area.c_str(), name.c_str(), nullptr, nullptr, script.c_str(), 1,
                          [script]() -> GoldenTest* { return new GoldenTest(script); });
  }
  return scripts.size();
}

}  // namespace
}  // namespace velmora::golden

// An argument names another directory of scripts.
int main(int argc, char** argv) {
  testing::InitGoogleTest(&argc, argv);
  const char* root = argc > 1 ? argv[1] : VELMORA_SOURCE_DIR "/tests/golden";
  if (velmora::golden::registerScripts(root) == 0) {
    std::cerr << "there is no script under " << root << "\n";
    return 1;
  }
  return RUN_ALL_TESTS();
}
