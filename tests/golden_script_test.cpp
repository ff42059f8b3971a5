// The reader of golden scripts: every form of an answer becomes the exact text, and a script that
// does not follow the format is refused rather than passed over. The forms themselves are
// described in tests/golden/README.md.

#include "golden_script.h"

#include <gtest/gtest.h>

namespace velmora::golden {
namespace {

std::string answerOf(const std::string& lines) {
  return parseScript("> c\n" + lines).at(0).expected.text;
}

std::string refusal(const std::string& script) {
  try {
    parseScript(script);
  } catch (const ScriptError& error) {
    return std::to_string(error.lineNumber) + ": " + error.what();
  }
  return "accepted";
}

std::string json(const std::string& success, const std::string& message, const std::string& rest) {
  return "{\n  \"success\": " + success + ",\n  \"message\": \"" + message +
         "\",\n  \"rows_affected\": " + rest + "\n}";
}

TEST(GoldenScript, answersAreSpeltAsJson) {
  EXPECT_EQ(answerOf("ok"), json("true", "success!", "0"));
  EXPECT_EQ(answerOf("ok 3"), json("true", "success!", "3"));
  EXPECT_EQ(answerOf("ok 3 \"done\""), json("true", "done", "3"));
  EXPECT_EQ(answerOf("ok 0 \"the \\ and the \"b\"\""), json("true", "the \\ and the \"b\"", "0"));
  EXPECT_EQ(answerOf("error Expected SET"), json("false", "Error: Expected SET", "0"));
  EXPECT_EQ(answerOf("fail Lexer Error"), json("false", "Lexer Error", "0"));
  EXPECT_EQ(answerOf("rows 0"), json("true", "", "0"));
  EXPECT_EQ(answerOf("rows 2 \"m\"\n{\"a\": 1}\n  {\"a\": 2}"),
            json("true", "m", "2,\n  \"data\": [\n    {\"a\": 1},\n    {\"a\": 2}\n  ]"));
  EXPECT_EQ(answerOf("text  as it stands "), " as it stands ");
  EXPECT_EQ(answerOf("raw\n  one\ntwo\n\n"), "  one\ntwo");
}

TEST(GoldenScript, commandsKeepTheirBlanksAndEscapes) {
  EXPECT_EQ(parseScript(">  a \\n \nok").at(0).command, " a \\n ");
  EXPECT_EQ(parseScript(">e a\\n\\x00\\\\\nok").at(0).command, std::string("a\n\0\\", 4));
  EXPECT_EQ(parseScript(">\nok").at(0).command, "");
}

TEST(GoldenScript, exceptionsAndOutputBelongToTheirStep) {
  const std::vector<Step> steps =
      parseScript("start throws runtime_error no disk\nstdout: one\nstdout:\n\n> c\nthrows t w x");
  EXPECT_EQ(steps.at(0).expected, (Outcome{"runtime_error", "no disk"}));
  EXPECT_EQ(steps.at(0).expectedOutput, "one\n\n");
  EXPECT_EQ(steps.at(1).expected, (Outcome{"t", "w x"}));
}

TEST(GoldenScript, whatDoesNotFollowTheFormatIsRefused) {
  EXPECT_EQ(refusal("start\n> c\n"), "2: the expected answer is missing");
  EXPECT_EQ(refusal("> c\n\nok"), "2: this is not an expected answer: ");
  EXPECT_EQ(refusal("> c\nOK"), "2: this is not an expected answer: OK");
  EXPECT_EQ(refusal(">c\nok"), "1: a blank is missing behind '>' or '>e'");
  EXPECT_EQ(refusal("> c\nrows"), "2: 'rows' needs the number of rows");
  EXPECT_EQ(refusal("> c\nrows 1"), "2: fewer data lines than rows");
  EXPECT_EQ(refusal("> c\nrows 1\n"), "2: fewer data lines than rows");
  EXPECT_EQ(refusal("> c\nok one"), "2: a number is needed, not: one");
  EXPECT_EQ(refusal("> c\nok 1 \"m"), "2: a closing quote is missing");
  EXPECT_EQ(refusal("> c\nok 1 m"), "2: too many words: 1 m");
  EXPECT_EQ(refusal("start now"), "1: only 'throws' may follow 'start'");
  EXPECT_EQ(refusal("write f \"a"), "1: a closing quote is missing");
  EXPECT_EQ(refusal("write f \"\\q\""), "1: unknown escape in: \\q");
}

}  // namespace
}  // namespace velmora::golden
