// What all verbs share: the command line, the forms of output, and why a database cannot be opened.
#include <sys/file.h>
#include <unistd.h>

#include "tool_fixture.h"
#include "velmora/velmora.hpp"

namespace velmora_tests {
namespace {

class Frame : public ToolFixture {
 protected:
  void makeLamps() const {
    make("shop", {"CREATE TABLE lamps name string(40)", "CREATE TABLE walls name string(40)",
                  "INSERT INTO lamps name = 'north'"});
  }
};

TEST_F(Frame, printsEachFormat) {
  makeLamps();
  const auto tables = [this](const std::string& format) {
    return outputOf({"tables", "shop", "--format", format});
  };
  EXPECT_EQ(tables("box"),
            "┌───────┬──────┐\n"
            "│ table │ rows │\n"
            "├───────┼──────┤\n"
            "│ lamps │    1 │\n"
            "│ walls │    0 │\n"
            "└───────┴──────┘\n");
  EXPECT_EQ(tables("csv"), "table,rows\nlamps,1\nwalls,0\n");
  EXPECT_EQ(
      tables("json"),
      "[\n  {\"table\": \"lamps\", \"rows\": 1},\n  {\"table\": \"walls\", \"rows\": 0}\n]\n");
  EXPECT_EQ(tables("jsonl"),
            "{\"table\": \"lamps\", \"rows\": 1}\n{\"table\": \"walls\", \"rows\": 0}\n");
  EXPECT_EQ(tables("markdown"),
            "| table | rows |\n| ----- | ---: |\n| lamps |    1 |\n| walls |    0 |\n");
  EXPECT_EQ(tables("line"), "table = lamps\n rows = 1\n\ntable = walls\n rows = 0\n");
}

TEST_F(Frame, printsCsvWhereThereIsNoTerminal) {
  makeLamps();
  EXPECT_EQ(outputOf({"tables", "shop"}), "table,rows\nlamps,1\nwalls,0\n");
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

}  // namespace
}  // namespace velmora_tests
