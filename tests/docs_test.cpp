// Runs the commands that the documents show and compares what they show as the answers.
//
// README.md, CONTRIBUTING.md, every docs/*.md and the README.md of each binding is a test. Its
// marked blocks are run in order against one engine in a temporary directory, in a process of its
// own; each block must then read as it would be written from what happened. CONTRIBUTING.md
// describes the marks. With VELMORA_WRITE_DOCS set, the blocks are written anew into the documents
// instead, which is how answers get there.
//
// It also checks that every link to a file of the project, or to a heading in one, leads somewhere.

#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <memory>
#include <optional>
#include <regex>
#include <sstream>
#include <stdexcept>
#include <string>
#include <string_view>
#include <tuple>
#include <vector>

#include "golden_worker.h"

namespace velmora {
namespace {

namespace fs = std::filesystem;
using golden::Outcome;
using golden::Worker;

const fs::path root = VELMORA_SOURCE_DIR;
constexpr std::int64_t firstSecond = 1'700'000'000;
constexpr std::string_view prompt = "velmora> ";
constexpr std::string_view linePrompt = "$ ";
constexpr std::string_view fence = "```";
// Empty where the companion is not built.
constexpr std::string_view tool = VELMORA_TOOL;

using Lines = std::vector<std::string>;

std::string readFile(const fs::path& path) {
  std::ifstream file(path, std::ios::binary);
  std::ostringstream text;
  text << file.rdbuf();
  return text.str();
}

// A line feed at the end ends the last line; it does not begin another.
Lines splitLines(const std::string& text) {
  std::istringstream stream(text);
  Lines lines;
  for (std::string line; std::getline(stream, line);) lines.push_back(line);
  return lines;
}

std::string joinLines(const Lines& lines) {
  std::string text;
  for (const std::string& line : lines) text += line + "\n";
  return text;
}

void append(Lines& lines, const Lines& more) {
  lines.insert(lines.end(), more.begin(), more.end());
}

class TemporaryDirectory {
 public:
  TemporaryDirectory() {
    std::string name = (fs::temp_directory_path() / "velmora-docs-XXXXXX").string();
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

// The member's value as it stands in a line of an answer, without quotes; nothing if it is another
// member's line.
std::optional<std::string> member(const std::string& line, const std::string& name) {
  const std::string start = "  \"" + name + "\": ";
  if (!line.starts_with(start)) return std::nullopt;
  std::string value = line.substr(start.size());
  if (value.ends_with(",")) value.pop_back();
  if (value.starts_with("\"")) value = value.substr(1, value.size() - 2);
  return value;
}

// An answer in short form: its rows, or its message with the number of rows affected.
Lines shortened(const Lines& answer) {
  Lines rows;
  std::string message;
  std::string count = "0";
  for (const std::string& line : answer) {
    if (line.starts_with("    {")) rows.push_back(line.substr(4, line.rfind('}') - 3));
    if (const auto value = member(line, "message")) message = *value;
    if (const auto value = member(line, "rows_affected")) count = *value;
  }
  if (!rows.empty()) return rows;
  if (message.empty()) return {"(no rows)"};
  if (count == "0") return {message};
  return {message + " (" + count + (count == "1" ? " row)" : " rows)")};
}

// The first bytes of a file, sixteen a line, with the offset before and the characters behind.
Lines hexDump(const std::string& bytes) {
  Lines lines;
  char number[32];
  for (std::size_t offset = 0; offset < bytes.size(); offset += 16) {
    std::snprintf(number, sizeof number, "%04zx ", offset);
    std::string line = number;
    std::string characters;
    for (std::size_t i = 0; i < 16; ++i) {
      if (offset + i >= bytes.size()) {
        line += "   ";
        continue;
      }
      const auto byte = static_cast<unsigned char>(bytes[offset + i]);
      std::snprintf(number, sizeof number, " %02x", byte);
      line += number;
      characters += byte >= 0x20 && byte < 0x7f ? static_cast<char>(byte) : '.';
    }
    lines.push_back(line + "  " + characters);
  }
  return lines;
}

// The engine that a document talks to, by the plain functions or by a handle.
class Session {
 public:
  // Starts it if need be; what it prints meanwhile comes back.
  Lines start() {
    if (worker_ == nullptr) {
      worker_ = std::make_unique<Worker>(database_, output_);
      worker_->setClock(second_);
    }
    const Outcome outcome = isHandle_ ? worker_->openHandle() : worker_->start();
    if (!outcome.exceptionType.empty()) return {"(" + outcome.text + ")"};
    isStarted_ = true;
    return newOutput();
  }
  void stop() {
    if (isHandle_) {
      worker_->closeHandle();
    } else {
      worker_->stop();
    }
    isStarted_ = false;
  }
  void kill() {
    worker_->kill();
    worker_.reset();
    isStarted_ = false;
  }
  // As the companion's shell does, which takes a ";" for the end of a command.
  Lines runByHandle(std::string command) {
    use(true);
    if (command.ends_with(';')) command.pop_back();
    return splitLines(worker_->runByHandle(command).text);
  }
  Lines run(const std::string& command, bool isShort) {
    use(false);
    const Outcome outcome = worker_->execute(command);
    if (!outcome.exceptionType.empty()) {
      return {"(std::" + outcome.exceptionType + ": " + outcome.text + ")"};
    }
    const Lines answer = splitLines(outcome.text);
    return isShort ? shortened(answer) : answer;
  }
  void pass(std::int64_t seconds) {
    second_ += seconds;
    if (worker_ != nullptr) worker_->setClock(second_);
  }
  // Runs a line of a shell beside the database's directory, which it calls by the name, with the
  // companion as a person at a terminal would see it at the session's second.
  Lines runLine(const std::string& line, const std::string& name) {
    if (isStarted_) stop();
    const fs::path work = temporary_.path();
    if (!fs::is_symlink(work / name)) fs::create_directory_symlink(database_, work / name);
    std::ofstream(work / "velmora-tool") << "verb=$1; shift; exec '" << tool
                                         << "' $verb --format box --now " << second_ << " \"$@\"\n";
    fs::permissions(work / "velmora-tool", fs::perms::owner_all);
    std::ofstream(work / "line") << line << "\n";
    const std::string shell =
        "cd '" + work.string() + "' && PATH=.:$PATH TZ=UTC sh line >printed 2>&1 </dev/null";
    std::ignore = std::system(shell.c_str());
    return splitLines(readFile(work / "printed"));
  }
  fs::path file(const std::string& name) const { return database_ / name; }
  Lines files() const {
    Lines lines;
    for (const fs::directory_entry& entry : fs::directory_iterator(database_)) {
      lines.push_back(entry.path().filename().string() + "  " + std::to_string(entry.file_size()));
    }
    std::sort(lines.begin(), lines.end());
    return lines;
  }

 private:
  // One of them has the directory at a time.
  void use(bool handle) {
    if (isStarted_ && isHandle_ != handle) stop();
    isHandle_ = handle;
    if (!isStarted_) start();
  }
  Lines newOutput() {
    const std::string all = readFile(output_);
    const std::string fresh = all.substr(outputSeen_);
    outputSeen_ = all.size();
    return splitLines(fresh);
  }

  TemporaryDirectory temporary_;
  fs::path database_ = makeDirectory(temporary_.path() / "database");
  fs::path output_ = temporary_.path() / "output";
  std::unique_ptr<Worker> worker_;
  bool isStarted_ = false;
  bool isHandle_ = false;
  std::int64_t second_ = firstSecond;
  std::size_t outputSeen_ = 0;

  static fs::path makeDirectory(const fs::path& path) {
    fs::create_directory(path);
    return path;
  }
};

// "# 30 seconds later" as seconds.
std::optional<std::int64_t> timePassing(const std::string& line) {
  static const std::regex form("# (\\d+) (second|minute|hour|day)s? later");
  std::smatch match;
  if (!std::regex_match(line, match, form)) return std::nullopt;
  const std::string unit = match[2];
  const std::int64_t seconds = unit == "second"   ? 1
                               : unit == "minute" ? 60
                               : unit == "hour"   ? 3600
                                                  : 86400;
  return std::stoll(match[1]) * seconds;
}

// A block of commands as it reads after the commands have been run.
Lines runCommands(const Lines& block, const std::string& kind, Session& session) {
  Lines actual;
  bool blankBefore = false;
  for (const std::string& line : block) {
    const bool isCommand = line.starts_with(prompt);
    if ((isCommand || line.starts_with("# ")) && blankBefore) actual.emplace_back();
    blankBefore = line.empty();
    if (isCommand) {
      actual.push_back(line);
      const std::string command = line.substr(prompt.size());
      append(actual, kind == "handle" ? session.runByHandle(command)
                                      : session.run(command, kind == "short"));
    } else if (line.starts_with("# ")) {
      actual.push_back(line);
      if (const auto seconds = timePassing(line)) session.pass(*seconds);
      if (line == "# stop and start again") session.stop();
      if (line == "# kill and start again") session.kill();
      if (line.ends_with(" and start again")) append(actual, session.start());
    }
  }
  return actual;
}

// A block of lines for a shell as it reads after they have been run.
Lines runLines(const Lines& block, const std::string& name, Session& session) {
  Lines actual;
  for (const std::string& line : block) {
    if (!line.starts_with(linePrompt)) continue;
    actual.push_back(line);
    append(actual, session.runLine(line.substr(linePrompt.size()), name));
  }
  return actual;
}

// What a marked block has to hold; nothing for a block without a mark.
std::optional<Lines> contentOf(const std::string& mark, const Lines& block, Session& session) {
  std::istringstream stream(mark);
  std::string language;
  std::string kind;
  std::string name;
  stream >> language >> kind >> name;
  if (language == "console") {
    if (kind.empty() || tool.empty()) return std::nullopt;
    return runLines(block, kind, session);
  }
  if (language != "velmora") {
    // What an example prints is compared where it is run, by example.sh, lines for a shell are run
    // by install_test.sh, and named programs by a binding's own tests. Another language with a
    // path behind it shows that file of the project.
    const bool isPath = kind.find('.') != std::string::npos;
    if (!isPath || language == "output" || language == "sh") return std::nullopt;
    return splitLines(readFile(root / kind));
  }
  if (kind == "files") return session.files();
  if (kind == "text") return splitLines(readFile(session.file(name)));
  if (kind == "hex") return hexDump(readFile(session.file(name)));
  return runCommands(block, kind, session);
}

class DocumentTest : public testing::Test {
 public:
  explicit DocumentTest(fs::path document) : document_(std::move(document)) {}

  void TestBody() override {
    auto session = std::make_unique<Session>();
    const Lines lines = splitLines(readFile(document_));
    Lines written;
    for (std::size_t i = 0; i < lines.size(); ++i) {
      written.push_back(lines[i]);
      if (lines[i] == "<!-- new database -->") session = std::make_unique<Session>();
      if (!lines[i].starts_with(fence)) continue;
      const std::size_t first = i + 1;
      while (i + 1 < lines.size() && lines[i + 1] != fence) ++i;
      const Lines block(lines.begin() + static_cast<std::ptrdiff_t>(first),
                        lines.begin() + static_cast<std::ptrdiff_t>(i + 1));
      const auto content = contentOf(written.back().substr(fence.size()), block, *session);
      append(written, content.value_or(block));
      if (content) compare(first, block, *content);
      written.emplace_back(fence);
      ++i;
    }
    if (isWriting()) std::ofstream(document_, std::ios::binary) << joinLines(written);
  }

 private:
  static bool isWriting() { return std::getenv("VELMORA_WRITE_DOCS") != nullptr; }

  void compare(std::size_t firstLine, const Lines& shown, const Lines& actual) {
    if (shown == actual || isWriting()) return;
    const auto different = std::mismatch(shown.begin(), shown.end(), actual.begin(), actual.end());
    const auto line = firstLine + 1 + static_cast<std::size_t>(different.first - shown.begin());
    ADD_FAILURE_AT(document_.c_str(), static_cast<int>(line)) << "--- shown\n"
                                                              << joinLines(shown) << "--- actual\n"
                                                              << joinLines(actual) << "---";
  }

  fs::path document_;
};

// The name by which a heading is linked to: its words in lower case, joined by hyphens.
std::string anchorOf(const std::string& heading) {
  std::string anchor;
  for (const char character : heading.substr(heading.find(' ') + 1)) {
    const auto byte = static_cast<unsigned char>(character);
    if (std::isalnum(byte) != 0 || character == '-' || character == '_') {
      anchor += static_cast<char>(std::tolower(byte));
    } else if (character == ' ') {
      anchor += '-';
    }
  }
  return anchor;
}

bool hasAnchor(const fs::path& document, const std::string& anchor) {
  const Lines lines = splitLines(readFile(document));
  return std::any_of(lines.begin(), lines.end(), [&](const std::string& line) {
    return line.starts_with('#') && anchorOf(line) == anchor;
  });
}

class LinksTest : public testing::Test {
 public:
  explicit LinksTest(fs::path document) : document_(std::move(document)) {}

  void TestBody() override {
    static const std::regex form("\\]\\(([^)#:]*)(#[^)]*)?\\)");
    const std::string text = readFile(document_);
    for (std::sregex_iterator link(text.begin(), text.end(), form), end; link != end; ++link) {
      const std::string target = (*link)[1];
      const std::string anchor = (*link)[2];
      const fs::path file = target.empty() ? document_ : document_.parent_path() / target;
      EXPECT_TRUE(fs::exists(file)) << document_ << " links to " << target;
      if (file.extension() != ".md" || anchor.empty()) continue;
      EXPECT_TRUE(hasAnchor(file, anchor.substr(1))) << document_ << " links to " << link->str();
    }
  }

 private:
  fs::path document_;
};

std::vector<fs::path> documents() {
  std::vector<fs::path> found;
  for (const char* place : {"", "docs", "bindings/python", "bindings/node"}) {
    for (const fs::directory_entry& entry : fs::directory_iterator(root / place)) {
      if (entry.path().extension() == ".md") found.push_back(entry.path());
    }
  }
  std::sort(found.begin(), found.end());
  return found;
}

// A test's name may hold letters, digits and underscores only.
std::string testName(std::string name) {
  std::replace_if(
      name.begin(), name.end(), [](unsigned char c) { return std::isalnum(c) == 0; }, '_');
  return name;
}

}  // namespace
}  // namespace velmora

int main(int argc, char** argv) {
  testing::InitGoogleTest(&argc, argv);
  for (const velmora::fs::path& document : velmora::documents()) {
    const velmora::fs::path path = velmora::fs::relative(document, velmora::root);
    const std::string name = velmora::testName((path.parent_path() / path.stem()).string());
    testing::RegisterTest("Documents", name.c_str(), nullptr, nullptr, document.c_str(), 1,
                          [document] { return new velmora::DocumentTest(document); });
    testing::RegisterTest("Links", name.c_str(), nullptr, nullptr, document.c_str(), 1,
                          [document] { return new velmora::LinksTest(document); });
  }
  return RUN_ALL_TESTS();
}
