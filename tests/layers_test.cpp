// The rules of the sources that a machine can check: which layer may include which, that headers
// form no cycle, and the outward style of every source file. Reads the source tree; relies on
// includes of the project being written in double quotes, from src/ or from the file's directory.

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <filesystem>
#include <fstream>
#include <map>
#include <set>
#include <string>
#include <string_view>
#include <vector>

namespace {

namespace fs = std::filesystem;

const fs::path root = VELMORA_SOURCE_DIR;
constexpr std::size_t longestLine = 100;

std::vector<std::string> readLines(const fs::path& path) {
  std::ifstream file(path, std::ios::binary);
  std::vector<std::string> lines;
  for (std::string line; std::getline(file, line);) lines.push_back(line);
  return lines;
}

std::vector<fs::path> sourcesUnder(const fs::path& directory) {
  static const std::set<std::string> extensions = {".c",  ".h",  ".cpp", ".hpp",
                                                   ".py", ".js", ".mjs", ".ts"};
  std::vector<fs::path> sources;
  if (!fs::exists(directory)) return sources;
  for (const fs::directory_entry& entry : fs::recursive_directory_iterator(directory)) {
    const fs::path& path = entry.path();
    if (path.string().find("/node_modules/") != std::string::npos) continue;  // not ours
    if (extensions.contains(path.extension().string())) sources.push_back(path);
  }
  std::sort(sources.begin(), sources.end());
  return sources;
}

std::vector<fs::path> allSources() {
  std::vector<fs::path> sources;
  for (const char* directory :
       {"include", "src", "tests", "bench", "fuzz", "examples", "bindings", "scripts", "tools"}) {
    const std::vector<fs::path> some = sourcesUnder(root / directory);
    sources.insert(sources.end(), some.begin(), some.end());
  }
  return sources;
}

std::string nameOf(const fs::path& source) { return fs::relative(source, root).string(); }

// The project's own files that a source includes.
std::vector<fs::path> includesOf(const fs::path& source) {
  static constexpr std::string_view directive = "#include \"";
  std::vector<fs::path> includes;
  for (const std::string& line : readLines(source)) {
    if (!line.starts_with(directive)) continue;
    const std::size_t end = line.find('"', directive.size());
    const std::string name = line.substr(directive.size(), end - directive.size());
    for (const fs::path& place : {source.parent_path(), root / "src", root / "include"}) {
      if (!fs::exists(place / name)) continue;
      includes.push_back(fs::weakly_canonical(place / name));
      break;
    }
  }
  return includes;
}

// Records, strict language, storage, queries, database, parser, start-up and engine, front ends:
// each builds on those before it.
int layerOf(const fs::path& source) {
  static constexpr std::array<std::string_view, 6> rooms = {
      "src/strict/", "src/storage/", "src/query/", "src/database/", "src/parser/", "src/engine/"};
  static const std::set<std::string> frontEnds = {
      "src/velmora.cpp",        "src/handles.h", "src/handles.cpp",          "src/results.cpp",
      "src/result_columns.cpp", "src/main.cpp",  "include/velmora/velmora.h"};
  const std::string name = nameOf(source);
  if (frontEnds.contains(name)) return 7;
  if (name.starts_with("src/startup.")) return 6;
  for (std::size_t room = 0; room < rooms.size(); ++room) {
    if (name.starts_with(rooms[room])) return static_cast<int>(room) + 1;
  }
  return 0;
}

TEST(Layers, includeOnlyWhatStandsBelow) {
  for (const fs::path& source : sourcesUnder(fs::weakly_canonical(root / "src"))) {
    for (const fs::path& included : includesOf(source)) {
      EXPECT_LE(layerOf(included), layerOf(source))
          << nameOf(source) << " includes " << nameOf(included);
    }
  }
}

enum class Visit { unseen, underWay, done };

bool leadsToCycle(const fs::path& source, std::map<fs::path, Visit>& visits) {
  Visit& visit = visits[source];
  if (visit != Visit::unseen) return visit == Visit::underWay;
  visit = Visit::underWay;
  for (const fs::path& included : includesOf(source)) {
    if (leadsToCycle(included, visits)) return true;
  }
  visits[source] = Visit::done;
  return false;
}

TEST(Layers, includesFormNoCycle) {
  std::map<fs::path, Visit> visits;
  for (const fs::path& source : sourcesUnder(fs::weakly_canonical(root / "src"))) {
    EXPECT_FALSE(leadsToCycle(source, visits)) << nameOf(source) << " includes itself in the end";
  }
}

// What a header needs it includes itself: its source shows that by including it before all else.
TEST(Layers, sourcesIncludeTheirOwnHeaderFirst) {
  for (const fs::path& source : sourcesUnder(fs::weakly_canonical(root / "src"))) {
    fs::path header = source;
    header.replace_extension(".h");
    if (source.extension() != ".cpp" || !fs::exists(header)) continue;
    const std::vector<fs::path> includes = includesOf(source);
    ASSERT_FALSE(includes.empty()) << nameOf(source);
    EXPECT_EQ(includes.front(), header) << nameOf(source);
  }
}

std::size_t columnsOf(const std::string& line) {
  return static_cast<std::size_t>(std::count_if(line.begin(), line.end(), [](char c) {
    return (static_cast<unsigned char>(c) & 0xC0U) != 0x80U;  // not the rest of a UTF-8 character
  }));
}

TEST(Style, linesAreShortAndClean) {
  for (const fs::path& source : allSources()) {
    int number = 0;
    for (const std::string& line : readLines(source)) {
      ++number;
      EXPECT_LE(columnsOf(line), longestLine) << nameOf(source) << ":" << number;
      EXPECT_EQ(line.find('\t'), std::string::npos) << nameOf(source) << ":" << number << " tab";
      EXPECT_EQ(line.find('\r'), std::string::npos) << nameOf(source) << ":" << number << " CR";
      EXPECT_FALSE(line.ends_with(' ')) << nameOf(source) << ":" << number << " trailing blank";
    }
  }
}

bool isComment(const std::string& line) {
  for (const char* beginning : {"//", "/*", " *", "#!", "# ", "\"\"\""}) {
    if (line.starts_with(beginning)) return true;
  }
  return false;
}

TEST(Style, filesOpenWithWhatTheyHold) {
  for (const fs::path& source : allSources()) {
    const std::vector<std::string> lines = readLines(source);
    EXPECT_TRUE(!lines.empty() && isComment(lines.front())) << nameOf(source);
  }
}

TEST(Style, nothingIsLeftForLater) {
  // Spelt in pieces, so that this file passes its own test.
  const std::array<std::string, 3> marks = {std::string("TO") + "DO", std::string("FIX") + "ME",
                                            std::string("XX") + "X "};
  for (const fs::path& source : allSources()) {
    for (const std::string& line : readLines(source)) {
      for (const std::string& mark : marks) {
        EXPECT_EQ(line.find(mark), std::string::npos) << nameOf(source) << ": " << line;
      }
    }
  }
}

}  // namespace
