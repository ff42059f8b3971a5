// run: where commands end, what a failure says, and what it leaves.
#include "tool_fixture.h"

namespace velmora_tests {
namespace {

class Run : public ToolFixture {
 protected:
  void expect(const std::vector<std::string>& arguments, const std::string& input, int code,
              const std::string& output, const std::string& errors) const {
    const ToolRun result = run(arguments, input);
    EXPECT_EQ(result.code, code);
    EXPECT_EQ(result.output, output);
    EXPECT_EQ(result.errors, errors);
  }
  std::string rows() const {
    return outputOf({"run", "shop", "--read-only", "-c", "SELECT * FROM t"});
  }
};

TEST_F(Run, commandsEndAtLinesAndSemicolonsButNotWithinQuotes) {
  make("shop", {"CREATE TABLE t n int s string 3"});
  const std::string commands =
      "-- a comment; with a semicolon and a ' quote\n"
      "INSERT INTO t n = 1 s = 'a;b -- no\nc''d' -- yes\n"
      ";;\n\r\n"
      "INSERT INTO t n = 2 s = \"it's\" --> 'x' @ 5 s; INSERT INTO t n = 3\r\n"
      "SELECT n, s FROM t AT 1000000000";
  EXPECT_EQ(outputOf({"run", "shop", "--now", "1000000000"}, commands),
            "n,s\n1,\"a;b -- no\nc'd\"\n2,it's\n3,\n");
}

TEST_F(Run, semicolonsAloneEndCommandsThatHaveSeveralLines) {
  make("shop", {"CREATE TABLE t n int"});
  EXPECT_EQ(outputOf({"run", "shop", "--semicolon"},
                     "INSERT\n INTO t -- here\n n = 1;\n\nSELECT *\nFROM t"),
            "n\n1\n");
}

TEST_F(Run, aFailureNamesItsPlaceAndStops) {
  make("shop", {"CREATE TABLE t n int"});
  write("changes.vel",
        "INSERT INTO t n = 1\n  -- 漢\n  INSERT INTO 漢 n = 2\nINSERT INTO t n = 3\n");
  expect({"run", "shop", "changes.vel"}, "", 1, "",
         "velmora-tool: changes.vel:3:15: Unknown character '漢'\n"
         "  INSERT INTO 漢 n = 2\n"
         "              ^\n");
  EXPECT_EQ(rows(), "n\n1\n");
}

TEST_F(Run, goesOnBehindFailuresWhereToldSo) {
  make("shop", {"CREATE TABLE t n int"});
  expect({"run", "shop", "--keep-going"}, "nix; INSERT INTO t n = 1\nINSERT INTO\nt n = 2", 1, "",
         "velmora-tool: -:1:1: Expected a command, found 'nix'\n  nix\n  ^\n"
         "velmora-tool: -:2:12: Expected a table name, found the end of the command\n"
         "  INSERT INTO\n             ^\n"
         "velmora-tool: -:3:1: Expected a command, found 't'\n  t n = 2\n  ^\n");
  EXPECT_EQ(rows(), "n\n1\n");
}

TEST_F(Run, atomicIsAllOrNone) {
  make("shop", {"CREATE TABLE t n int"});
  write("right.vel", "INSERT INTO t n = 1\n");
  write("wrong.vel", "INSERT INTO t n = 'x'\n");
  expect({"run", "shop", "--atomic", "right.vel", "wrong.vel"}, "", 1, "",
         "velmora-tool: wrong.vel:1:19: 'x' is no value for column 'n' of table 't', which is int\n"
         "  INSERT INTO t n = 'x'\n                    ^\n"
         "velmora-tool: Nothing has been changed\n");
  EXPECT_EQ(rows(), "n\n");
  expect({"run", "shop", "--atomic", "-c", "INSERT INTO t n = 7", "right.vel"}, "", 0, "", "");
  EXPECT_EQ(rows(), "n\n7\n1\n");
}

TEST_F(Run, makesADatabaseOnlyWhereToldSo) {
  expect({"run", "shop", "-c", "CREATE TABLE t n int"}, "", 3, "",
         "velmora-tool: shop: there is no such directory\n");
  expect({"run", "shop", "--create", "-c", "CREATE TABLE t n int"}, "", 0, "", "");
  expect({"run", "shop", "--read-only", "-c", "INSERT INTO t n = 1"}, "", 1, "",
         "velmora-tool: -c:1:1: The database is open to be read only\n");
  expect({"run", "shop", "--read-only", "--create"}, "", 2, "",
         "velmora-tool: --read-only does not go with --create\n");
  expect({"run", "shop", "nowhere.vel"}, "", 1, "",
         "velmora-tool: nowhere.vel: No such file or directory\n");
}

TEST_F(Run, cutsLongLinesAroundTheFault) {
  make("shop", {"CREATE TABLE t s string(400)"});
  const std::string before(200, 'a');
  const std::string after(200, 'b');
  expect({"run", "shop"}, "SELECT s FROM t WHERE s = '" + before + "' nix '" + after + "'", 1, "",
         "velmora-tool: -:1:230: Unexpected 'nix' after the command\n"
         "  …" +
             std::string(58, 'a') + "' nix '" + std::string(55, 'b') +
             "…\n"
             "  " +
             std::string(61, ' ') + "^\n");
}

TEST_F(Run, theShellTakesItsCommandsFromStandardInput) {
  make("shop", {"CREATE TABLE t n int"});
  EXPECT_EQ(outputOf({"shell", "shop"},
                     "INSERT INTO t\n n = 1;\n.tables\n.format jsonl\nSELECT *\nFROM t\n\n"
                     ".schema t\nexit\nnix;\n"),
            "table,rows\nt,1\n{\"n\": 1}\nCREATE TABLE t n int\n");
  expect({"shell", "shop"}, "SELECT *\nFROM nix;\n.tables\n", 1, "",
         "Unknown table 'nix'\n  FROM nix\n       ^\n");
  expect({"shell", "shop"}, ".nix", 1, "", "No command .nix; .help lists them\n");
  expect({"shell", "shop"}, "SELECT * FROM t", 0, "n\n1\n", "");
}

}  // namespace
}  // namespace velmora_tests
