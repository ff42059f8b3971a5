// The shared library exports exactly the functions of the public header, so that nothing of the
// engine's inside can clash with a host or be used by one. Relies on nm (binutils) and on the
// header's declarations standing one a line.

#include <gtest/gtest.h>

#include <cstdio>
#include <fstream>
#include <regex>
#include <set>
#include <sstream>
#include <string>

namespace {

using Names = std::set<std::string>;

std::string readFile(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  EXPECT_TRUE(file.is_open()) << path;
  std::ostringstream text;
  text << file.rdbuf();
  return text.str();
}

std::string withoutComments(const std::string& source) {
  std::string code;
  std::size_t position = 0;
  for (;;) {
    const std::size_t begin = source.find("/*", position);
    code += source.substr(position, begin - position);
    if (begin == std::string::npos) return code;
    position = source.find("*/", begin) + 2;
  }
}

Names declaredFunctions() {
  const std::string header =
      withoutComments(readFile(VELMORA_SOURCE_DIR "/include/velmora/velmora.h"));
  const std::regex declaration(R"((\w+)\s*\([^*;{}][^;{}]*\)\s*;)");
  Names names;
  for (std::sregex_iterator match(header.begin(), header.end(), declaration), end; match != end;
       ++match) {
    names.insert((*match)[1]);
  }
  return names;
}

Names exportedSymbols() {
  FILE* pipe = popen("nm --dynamic --defined-only --format=posix '" VELMORA_LIBRARY "'", "r");
  EXPECT_NE(pipe, nullptr);
  Names names;
  char line[4096];
  while (std::fgets(line, sizeof line, pipe) != nullptr) {
    const std::string text = line;
    names.insert(text.substr(0, text.find(' ')));
  }
  EXPECT_EQ(pclose(pipe), 0);
  return names;
}

TEST(Exports, headerDeclaresTheThreeEngineFunctions) {
  const Names declared = declaredFunctions();
  EXPECT_TRUE(declared.contains("StartEngine"));
  EXPECT_TRUE(declared.contains("ExecuteQuery"));
  EXPECT_TRUE(declared.contains("StopEngine"));
}

TEST(Exports, libraryExportsExactlyTheFunctionsOfTheHeader) {
  EXPECT_EQ(exportedSymbols(), declaredFunctions());
}

TEST(Exports, exportListNamesExactlyTheFunctionsOfTheHeader) {
  std::istringstream list(readFile(VELMORA_SOURCE_DIR "/cmake/exports.txt"));
  Names listed;
  for (std::string name; list >> name;) listed.insert(name);
  EXPECT_EQ(listed, declaredFunctions());
}

}  // namespace
