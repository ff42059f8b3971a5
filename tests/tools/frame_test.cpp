// What all verbs share: the command line, the forms of output, and why a database cannot be opened.
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <sstream>

#include "tool_fixture.h"
#include "velmora/velmora.hpp"

namespace velmora_tests {
namespace {

class Frame : public ToolFixture {
 protected:
  void makeLamps() const {
    make("shop", {"CREATE TABLE lamps name string(40) watts int price float lit bool",
                  "INSERT INTO lamps name = 'north' watts = 40 price = 0.1 lit = true",
                  "INSERT INTO lamps name = ''"});
  }
  // All lamps.
  std::string lamps(const std::string& format) const {
    return outputOf({"at", "shop", "0", "SELECT * FROM lamps", "--format", format});
  }
};

TEST_F(Frame, printsEachFormat) {
  makeLamps();
  EXPECT_EQ(lamps("box"),
            "┌───────┬───────┬───────┬──────┐\n"
            "│ name  │ watts │ price │ lit  │\n"
            "├───────┼───────┼───────┼──────┤\n"
            "│ north │    40 │   0.1 │ true │\n"
            "│       │  NULL │  NULL │ NULL │\n"
            "└───────┴───────┴───────┴──────┘\n");
  EXPECT_EQ(lamps("csv"), "name,watts,price,lit\nnorth,40,0.1,true\n\"\",,,\n");
  EXPECT_EQ(lamps("jsonl"),
            "{\"name\": \"north\", \"watts\": 40, \"price\": 0.1, \"lit\": true}\n"
            "{\"name\": \"\", \"watts\": null, \"price\": null, \"lit\": null}\n");
  EXPECT_EQ(lamps("json"),
            "[\n  {\"name\": \"north\", \"watts\": 40, \"price\": 0.1, \"lit\": true},\n"
            "  {\"name\": \"\", \"watts\": null, \"price\": null, \"lit\": null}\n]\n");
  EXPECT_EQ(lamps("markdown"),
            "| name  | watts | price | lit  |\n"
            "| ----- | ----: | ----: | ---- |\n"
            "| north |    40 |   0.1 | true |\n"
            "|       |  NULL |  NULL | NULL |\n");
  EXPECT_EQ(lamps("line"),
            " name = north\nwatts = 40\nprice = 0.1\n  lit = true\n\n"
            " name = \nwatts = NULL\nprice = NULL\n  lit = NULL\n");
}

TEST_F(Frame, printsAnswersWithoutRows) {
  make("shop", {"CREATE TABLE lamps name string"});
  EXPECT_EQ(lamps("box"), "┌──────┐\n│ name │\n├──────┤\n└──────┘\n");
  EXPECT_EQ(lamps("csv"), "name\n");
  EXPECT_EQ(lamps("json"), "[]\n");
  EXPECT_EQ(lamps("jsonl"), "");
  EXPECT_EQ(lamps("line"), "");
}

TEST_F(Frame, writesNumbersInTheirShortestForm) {
  make("shop", {"CREATE TABLE lamps f float d double l long",
                "INSERT INTO lamps f = 0.1 d = 0.1 l = -9223372036854775808",
                "INSERT INTO lamps f = 19.9 d = 19.899999618530273"});
  EXPECT_EQ(lamps("csv"), "f,d,l\n0.1,0.1,-9223372036854775808\n19.9,19.899999618530273,\n");
  EXPECT_EQ(outputOf({"at", "shop", "0", "SELECT MAX(f), MAX(d) FROM lamps"}),
            "MAX(f),MAX(d)\n19.9,19.899999618530273\n");
}

TEST_F(Frame, showsWhatWouldDriveTheTerminalAsSymbols) {
  make("shop", {"CREATE TABLE lamps name string",
                "INSERT INTO lamps name = '\x1b[31m\r\n\t\x7f\u202e\u0085'"});
  EXPECT_EQ(lamps("box"),
            "┌─────────────┐\n│ name        │\n├─────────────┤\n"
            "│ ␛[31m␍␊␉␡\uFFFD\uFFFD │\n└─────────────┘\n");
  EXPECT_EQ(lamps("line"), "name = ␛[31m␍␊␉␡\uFFFD\uFFFD\n");
  EXPECT_EQ(lamps("csv"), "name\n\"\x1b[31m\r\n\t\x7f\u202e\u0085\"\n");
  EXPECT_EQ(lamps("jsonl"), "{\"name\": \"\\u001b[31m\\r\\n\\t\x7f\u202e\u0085\"}\n");
}

TEST_F(Frame, alignsByDisplayWidth) {
  make("shop", {"CREATE TABLE lamps name string", "INSERT INTO lamps name = '漢字'",
                "INSERT INTO lamps name = 'e\u0301😀'"});
  EXPECT_EQ(lamps("box"), "┌──────┐\n│ name │\n├──────┤\n│ 漢字 │\n│ e\u0301😀  │\n└──────┘\n");
}

TEST_F(Frame, quotesWhatTheFormatsNeed) {
  make("shop", {"CREATE TABLE lamps name string", "INSERT INTO lamps name = 'a|b\\\"c\",'"});
  EXPECT_EQ(lamps("csv"), "name\n\"a|b\\\"\"c\"\",\"\n");
  EXPECT_EQ(lamps("jsonl"), "{\"name\": \"a|b\\\\\\\"c\\\",\"}\n");
  EXPECT_EQ(lamps("markdown"), "| name       |\n| ---------- |\n| a\\|b\\\\\"c\", |\n");
}

TEST_F(Frame, printsCsvWhereThereIsNoTerminal) {
  makeLamps();
  EXPECT_EQ(outputOf({"at", "shop", "0", "SELECT name FROM lamps"}), "name\nnorth\n\"\"\n");
}

TEST_F(Frame, everyVerbHelpsWithAnExample) {
  const std::string help = outputOf({"--help"});
  std::istringstream lines(help.substr(help.find("Verbs:\n") + 7));
  std::string line;
  std::size_t count = 0;
  while (std::getline(lines, line) && !line.empty()) {
    const std::string verb = line.substr(2, line.find(' ', 2) - 2);
    const std::string shown = outputOf({verb, "--help"});
    EXPECT_NE(shown.find("Example: velmora-tool " + verb + " "), std::string::npos) << verb;
    EXPECT_NE(shown.find("--format"), std::string::npos) << verb;
    ++count;
  }
  EXPECT_GE(count, 12U);
}

TEST_F(Frame, completionOffersVerbsAndOptions) {
  write("offer.sh", ". " VELMORA_SOURCE_DIR
                    "/tools/completion/velmora-tool.bash\n"
                    "COMP_WORDS=(\"$@\") COMP_CWORD=$(($# - 1))\n"
                    "_velmora_tool\n"
                    "echo \"${COMPREPLY[@]}\" >offered\n");
  const auto offered = [this](const std::string& words) {
    const std::string command =
        "cd '" + at("").string() + "' && bash offer.sh '" VELMORA_TOOL "' " + words;
    EXPECT_EQ(std::system(command.c_str()), 0);
    return read("offered");
  };
  EXPECT_EQ(offered("re"), "repair restore report\n");
  EXPECT_EQ(offered("--v"), "--version\n");
  EXPECT_EQ(offered("run shop --a"), "--atomic\n");
  EXPECT_EQ(offered("tables shop --format js"), "json jsonl\n");
  EXPECT_EQ(offered("tables offer."), "offer.sh\n");
}

TEST_F(Frame, knowsItsVersion) {
  EXPECT_EQ(outputOf({"--version"}), "velmora-tool " VELMORA_VERSION "\n");
}

TEST_F(Frame, failsWhereItsOutputCannotBeWritten) {
  makeLamps();
  const std::string command = "cd '" + at("").string() +
                              "' && '" VELMORA_TOOL
                              "' at shop 0 'SELECT * FROM lamps' >/dev/full 2>errors";
  EXPECT_EQ(WEXITSTATUS(std::system(command.c_str())), 1);
  EXPECT_EQ(read("errors"), "velmora-tool: Output: No space left on device\n");
}

TEST_F(Frame, wrongUseIsExplained) {
  const auto expect = [this](std::vector<std::string> arguments, const std::string& errors) {
    const ToolRun result = run(std::move(arguments));
    EXPECT_EQ(result.code, 2);
    EXPECT_EQ(result.output, "");
    EXPECT_EQ(result.errors, errors);
  };
  expect({}, "velmora-tool: No verb; velmora-tool --help lists them\n");
  expect({"tables"},
         "velmora-tool: DIRECTORY is required\nRun with --help for more information.\n");
  expect({"tables", "shop", "--format", "x"},
         "velmora-tool: No format 'x'; there are box, csv, json, jsonl, markdown, line\n");
}

TEST_F(Frame, readingMakesNothing) {
  std::filesystem::create_directory(at("empty"));
  ToolRun result = run({"tables", "empty"});
  EXPECT_EQ(result.code, 3);
  EXPECT_EQ(result.errors, "velmora-tool: empty: there is no database in this directory\n");
  EXPECT_TRUE(std::filesystem::is_empty(at("empty")));
  result = run({"tables", "nowhere"});
  EXPECT_EQ(result.code, 3);
  EXPECT_EQ(result.errors, "velmora-tool: nowhere: there is no such directory\n");
  EXPECT_FALSE(std::filesystem::exists(at("nowhere")));
}

TEST_F(Frame, saysWhoHoldsTheDirectory) {
  makeLamps();
  const velmora::Database holder(at("shop").string());
  const ToolRun result = run({"tables", "shop"});
  EXPECT_EQ(result.code, 3);
  EXPECT_EQ(result.output, "");
  EXPECT_EQ(result.errors, "velmora-tool: shop: in use by process " + std::to_string(getpid()) +
                               " (tools_test)\n");
}

TEST_F(Frame, namesWhatThePlainFunctionsHaveLeft) {
  std::filesystem::create_directory(at("old"));
  const std::string shell = "cd '" + at("old").string() + "' && printf '%s\\n' " +
                            "'CREATE TABLE t n int' exit | '" VELMORA_SHELL "' >/dev/null";
  ASSERT_EQ(std::system(shell.c_str()), 0);
  const ToolRun result = run({"tables", "old"});
  EXPECT_EQ(result.code, 3);
  EXPECT_EQ(result.errors,
            "velmora-tool: old: last used by the plain functions or the shell velmora\n"
            "velmora-tool run old -c CHECKPOINT brings it into the form of the handles.\n");
  EXPECT_EQ(outputOf({"run", "old", "-c", "CHECKPOINT"}), "");
  EXPECT_EQ(outputOf({"schema", "old"}), "CREATE TABLE t n int\n");
}

TEST_F(Frame, saysWhatTheSystemRefuses) {
  if (geteuid() == 0) GTEST_SKIP() << "root may read everything";
  makeLamps();
  std::filesystem::permissions(at("shop"), std::filesystem::perms::none);
  const ToolRun result = run({"tables", "shop"});
  std::filesystem::permissions(at("shop"), std::filesystem::perms::owner_all);
  EXPECT_EQ(result.code, 3);
  EXPECT_EQ(result.errors,
            "velmora-tool: shop: Failed to open the database directory: Permission denied\n");
}

}  // namespace
}  // namespace velmora_tests
