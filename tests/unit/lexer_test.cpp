// The lexer: what each text is cut into, on literal cases, on every single byte and on random
// bytes.

#include "lexer.h"

#include <gtest/gtest.h>

#include <cctype>
#include <ostream>
#include <random>
#include <string>
#include <vector>

namespace velmora {
namespace {

using enum TokenType;

// A token that owns its text, for comparing.
struct Piece {
  TokenType type;
  std::string value;
  bool operator==(const Piece&) const = default;
};
using Pieces = std::vector<Piece>;

std::ostream& operator<<(std::ostream& out, const Piece& piece) {
  return out << static_cast<int>(piece.type) << " \"" << piece.value << '"';
}

Pieces cut(const std::string& text) {
  Lexer lexer(text);
  Pieces pieces;
  for (const Token& token : lexer.tokenize()) {
    pieces.push_back({token.type, std::string(token.value)});
  }
  return pieces;
}

struct Case {
  std::string text;
  Pieces pieces;
};

class LexerCases : public testing::TestWithParam<Case> {};

TEST_P(LexerCases, areCutAsExpected) {
  EXPECT_EQ(cut(GetParam().text), GetParam().pieces) << GetParam().text;
}

INSTANTIATE_TEST_SUITE_P(Blanks, LexerCases,
                         testing::Values(Case{"", {}}, Case{"   ", {}}, Case{" \t\n\v\f\r", {}},
                                         Case{"a\tb\nc\vd\fe\rf",
                                              {{IDENTIFIER, "a"},
                                               {IDENTIFIER, "b"},
                                               {IDENTIFIER, "c"},
                                               {IDENTIFIER, "d"},
                                               {IDENTIFIER, "e"},
                                               {IDENTIFIER, "f"}}}));

INSTANTIATE_TEST_SUITE_P(
    Words, LexerCases,
    testing::Values(
        Case{"select * from t",
             {{KEYWORD, "SELECT"}, {SYMBOL, "*"}, {KEYWORD, "FROM"}, {IDENTIFIER, "t"}}},
        Case{"drop table x", {{IDENTIFIER, "drop"}, {KEYWORD, "TABLE"}, {IDENTIFIER, "x"}}},
        Case{"DROP", {{IDENTIFIER, "DROP"}}}, Case{"Where", {{KEYWORD, "WHERE"}}},
        Case{"Users", {{IDENTIFIER, "Users"}}}, Case{"_tmp1", {{IDENTIFIER, "_tmp1"}}},
        Case{"_", {{IDENTIFIER, "_"}}}, Case{"selects", {{IDENTIFIER, "selects"}}},
        Case{"_select", {{IDENTIFIER, "_select"}}}, Case{"select1", {{IDENTIFIER, "select1"}}},
        Case{"o", {{IDENTIFIER, "o"}}}, Case{"oN", {{KEYWORD, "ON"}}},
        Case{"true false", {{IDENTIFIER, "true"}, {IDENTIFIER, "false"}}},
        Case{"1abc", {{NUMBER, "1"}, {IDENTIFIER, "abc"}}},
        Case{"a.b", {{IDENTIFIER, "a"}, {SYMBOL, "."}, {IDENTIFIER, "b"}}}));

INSTANTIATE_TEST_SUITE_P(
    Numbers, LexerCases,
    testing::Values(Case{"5", {{NUMBER, "5"}}}, Case{"-5", {{NUMBER, "-5"}}},
                    Case{"-0.25", {{NUMBER, "-0.25"}}}, Case{"5.", {{NUMBER, "5."}}},
                    Case{"007", {{NUMBER, "007"}}}, Case{"-0", {{NUMBER, "-0"}}},
                    Case{"1.2.3", {{NUMBER, "1.2"}, {SYMBOL, "."}, {NUMBER, "3"}}},
                    Case{"1..2", {{NUMBER, "1."}, {SYMBOL, "."}, {NUMBER, "2"}}},
                    Case{".5", {{SYMBOL, "."}, {NUMBER, "5"}}},
                    Case{"1-2", {{NUMBER, "1"}, {NUMBER, "-2"}}},
                    Case{"1e5", {{NUMBER, "1"}, {IDENTIFIER, "e5"}}},
                    Case{"0x1F", {{NUMBER, "0"}, {IDENTIFIER, "x1F"}}},
                    Case{"a-5", {{IDENTIFIER, "a"}, {NUMBER, "-5"}}},
                    Case{"1-->-2", {{NUMBER, "1"}, {OPERATOR, "-->"}, {NUMBER, "-2"}}},
                    Case{"123456789012345678901234567890",
                         {{NUMBER, "123456789012345678901234567890"}}},
                    Case{"+5", {{ERROR, "Unknown character: +"}}},
                    Case{"- 5", {{ERROR, "Unknown character: -"}}},
                    Case{"-.5", {{ERROR, "Unknown character: -"}}},
                    Case{"--5", {{ERROR, "Unknown character: -"}}}));

INSTANTIATE_TEST_SUITE_P(
    Strings, LexerCases,
    testing::Values(Case{"''", {{STRING, ""}}}, Case{"\"\"", {{STRING, ""}}},
                    Case{"'a b'", {{STRING, "a b"}}},
                    Case{"'it''s'", {{STRING, "it"}, {STRING, "s"}}},
                    Case{"\"a'b\"", {{STRING, "a'b"}}}, Case{"'a\"b'", {{STRING, "a\"b"}}},
                    Case{"'\\'", {{STRING, "\\"}}}, Case{"'two\nlines'", {{STRING, "two\nlines"}}},
                    Case{"'SELECT'", {{STRING, "SELECT"}}},
                    Case{"'\xc3\xa4\xff'", {{STRING, "\xc3\xa4\xff"}}},
                    Case{"a'b'c", {{IDENTIFIER, "a"}, {STRING, "b"}, {IDENTIFIER, "c"}}},
                    Case{"'abc", {{ERROR, "Unterminated string literal"}}},
                    Case{"'", {{ERROR, "Unterminated string literal"}}},
                    Case{"'abc\"", {{ERROR, "Unterminated string literal"}}},
                    Case{"a 'b", {{IDENTIFIER, "a"}, {ERROR, "Unterminated string literal"}}},
                    Case{std::string("'a\0b'", 5), {{ERROR, "Unterminated string literal"}}}));

INSTANTIATE_TEST_SUITE_P(
    Operators, LexerCases,
    testing::Values(Case{"= < > ! == <= >= != && || -->",
                         {{OPERATOR, "="},
                          {OPERATOR, "<"},
                          {OPERATOR, ">"},
                          {OPERATOR, "!"},
                          {OPERATOR, "=="},
                          {OPERATOR, "<="},
                          {OPERATOR, ">="},
                          {OPERATOR, "!="},
                          {OPERATOR, "&&"},
                          {OPERATOR, "||"},
                          {OPERATOR, "-->"}}},
                    Case{"x-->y", {{IDENTIFIER, "x"}, {OPERATOR, "-->"}, {IDENTIFIER, "y"}}},
                    Case{"a>=1&&b!=2",
                         {{IDENTIFIER, "a"},
                          {OPERATOR, ">="},
                          {NUMBER, "1"},
                          {OPERATOR, "&&"},
                          {IDENTIFIER, "b"},
                          {OPERATOR, "!="},
                          {NUMBER, "2"}}},
                    Case{"<>", {{OPERATOR, "<"}, {OPERATOR, ">"}}},
                    Case{"=>", {{OPERATOR, "="}, {OPERATOR, ">"}}},
                    Case{"===", {{OPERATOR, "=="}, {OPERATOR, "="}}},
                    Case{"!!", {{OPERATOR, "!"}, {OPERATOR, "!"}}},
                    Case{"()*,.@",
                         {{SYMBOL, "("},
                          {SYMBOL, ")"},
                          {SYMBOL, "*"},
                          {SYMBOL, ","},
                          {SYMBOL, "."},
                          {SYMBOL, "@"}}},
                    Case{"&&&", {{OPERATOR, "&&"}, {ERROR, "Unknown character: &"}}},
                    Case{"-->-", {{OPERATOR, "-->"}, {ERROR, "Unknown character: -"}}}));

INSTANTIATE_TEST_SUITE_P(
    Errors, LexerCases,
    testing::Values(Case{"a - b", {{IDENTIFIER, "a"}, {ERROR, "Unknown character: -"}}},
                    Case{"a & b", {{IDENTIFIER, "a"}, {ERROR, "Unknown character: &"}}},
                    Case{"a | b", {{IDENTIFIER, "a"}, {ERROR, "Unknown character: |"}}},
                    Case{"a &| b", {{IDENTIFIER, "a"}, {ERROR, "Unknown character: &"}}},
                    Case{"x;", {{IDENTIFIER, "x"}, {ERROR, "Unknown character: ;"}}},
                    Case{"-", {{ERROR, "Unknown character: -"}}},
                    Case{"--", {{ERROR, "Unknown character: -"}}},
                    Case{"-- >", {{ERROR, "Unknown character: -"}}},
                    Case{"->", {{ERROR, "Unknown character: -"}}},
                    Case{"a[0]", {{IDENTIFIER, "a"}, {ERROR, "Unknown character: ["}}},
                    Case{"; select", {{ERROR, "Unknown character: ;"}}},
                    Case{"\xc3\xa4", {{ERROR, "Unknown character: \xc3"}}}));

TEST(Lexer, knowsEighteenReservedWordsInAnyCase) {
  const std::vector<std::string> words = {
      "CREATE", "TABLE", "INSERT", "INTO",  "SELECT", "FROM",     "WHERE", "UPDATE", "SET",
      "DELETE", "LINK",  "LISTEN", "BEGIN", "COMMIT", "ROLLBACK", "JOIN",  "ON",     "CHECKPOINT"};
  for (const std::string& word : words) {
    std::string small;
    std::string mixed;
    for (const char c : word) {
      const auto lowered = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
      mixed += mixed.size() % 2 == 0 ? lowered : c;
      small += lowered;
    }
    const Pieces expected = {{KEYWORD, word}};
    EXPECT_EQ(cut(word), expected);
    EXPECT_EQ(cut(small), expected);
    EXPECT_EQ(cut(mixed), expected);
  }
}

TEST(Lexer, tokenTypesHaveFixedNumbers) {
  EXPECT_EQ(static_cast<int>(KEYWORD), 0);
  EXPECT_EQ(static_cast<int>(IDENTIFIER), 1);
  EXPECT_EQ(static_cast<int>(STRING), 2);
  EXPECT_EQ(static_cast<int>(NUMBER), 3);
  EXPECT_EQ(static_cast<int>(OPERATOR), 4);
  EXPECT_EQ(static_cast<int>(SYMBOL), 5);
  EXPECT_EQ(static_cast<int>(END_OF_INPUT), 6);
  EXPECT_EQ(static_cast<int>(ERROR), 7);
}

// What a text of one byte is cut into.
Pieces expectedOfByte(char c) {
  const std::string text(1, c);
  if (std::string(" \t\n\v\f\r").find(c) != std::string::npos) return {};
  if (c >= '0' && c <= '9') return {{NUMBER, text}};
  if ((c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || c == '_') return {{IDENTIFIER, text}};
  if (std::string("()*,.@").find(c) != std::string::npos) return {{SYMBOL, text}};
  if (std::string("!<=>").find(c) != std::string::npos) return {{OPERATOR, text}};
  if (c == '\'' || c == '"') return {{ERROR, "Unterminated string literal"}};
  return {{ERROR, "Unknown character: " + text}};
}

TEST(Lexer, everyByteHasItsClass) {
  for (int byte = 0; byte < 256; ++byte) {
    const auto c = static_cast<char>(byte);
    EXPECT_EQ(cut(std::string(1, c)), expectedOfByte(c)) << byte;
  }
}

TEST(Lexer, peeksAndAdvancesWithoutLeavingTheText) {
  Lexer lexer("a b");
  EXPECT_EQ(lexer.peek(0), 'a');
  EXPECT_EQ(lexer.peek(2), 'b');
  EXPECT_EQ(lexer.peek(3), '\0');
  EXPECT_EQ(lexer.peek(1000), '\0');
  EXPECT_EQ(lexer.advance(), 'a');
  lexer.skipWhitespace();
  EXPECT_EQ(lexer.peek(0), 'b');
  lexer.skipWhitespace();
  EXPECT_EQ(lexer.advance(), 'b');
  EXPECT_EQ(lexer.advance(), '\0');
  EXPECT_EQ(lexer.advance(), '\0');
  EXPECT_EQ(lexer.peek(0), '\0');
}

TEST(Lexer, givesOneTokenAtATimeAndThenTheEnd) {
  Lexer lexer(" a 'b' ");
  EXPECT_EQ(lexer.getNextToken().value, "a");
  EXPECT_EQ(lexer.getNextToken().value, "b");
  for (int i = 0; i < 2; ++i) {
    const Token end = lexer.getNextToken();
    EXPECT_EQ(end.type, END_OF_INPUT);
    EXPECT_EQ(end.value, "");
  }
}

// Any text is cut; an error ends the list, and tokens stand in the text in their order.
TEST(Lexer, cutsRandomBytes) {
  const std::string alphabet = "aZ_09 \t\n'\"-->.=<>!&|()*,@;#\xc3selECT";
  std::mt19937 random(1);
  for (int round = 0; round < 20000; ++round) {
    std::string text;
    for (std::size_t size = random() % 24; text.size() < size;) {
      text += alphabet[random() % alphabet.size()];
    }
    Lexer lexer(text);
    const std::vector<Token> tokens = lexer.tokenize();
    std::size_t position = 0;
    for (std::size_t i = 0; i < tokens.size(); ++i) {
      ASSERT_NE(tokens[i].type, END_OF_INPUT) << text;
      if (tokens[i].type == ERROR) {
        ASSERT_EQ(i + 1, tokens.size()) << text;
      } else if (tokens[i].type != KEYWORD) {
        position = text.find(tokens[i].value, position);
        ASSERT_NE(position, std::string::npos) << text;
        position += tokens[i].value.size();
      }
    }
  }
}

TEST(Lexer, cutsLongTexts) {
  const std::string word(1 << 20, 'x');
  EXPECT_EQ(cut(word), (Pieces{{IDENTIFIER, word}}));
  EXPECT_EQ(cut("'" + word + "'"), (Pieces{{STRING, word}}));
  const std::string digits(1 << 20, '7');
  EXPECT_EQ(cut(digits), (Pieces{{NUMBER, digits}}));
}

}  // namespace
}  // namespace velmora
