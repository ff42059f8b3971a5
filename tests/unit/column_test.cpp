// The texts of columns: whatever goes in comes out to the byte, whether the arrays tell it or the
// cell is an odd one, and is printed by its type.

#include "column.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "column_fixture.h"
#include "column_reader.h"
#include "result_set.h"

namespace velmora {
namespace {

const Texts someTexts = {"5",
                         "05",
                         "-0",
                         "+5",
                         " 7",
                         "7x",
                         "",
                         "0",
                         "-17",
                         "2147483647",
                         "2147483648",
                         "-2147483648",
                         "-2147483649",
                         "99999999999",
                         "#/#?",
                         "1.2",
                         "1.23",
                         "1.234",
                         "1.2345",
                         "1.23456",
                         "1.234567",
                         "1.2345678",
                         "1.23456788",
                         "1.234567881",
                         "1.2345678806",
                         "0.5",
                         "0.50",
                         "0.500000000",
                         "0.5000000000",
                         "-0.0",
                         "-0.000",
                         "5.",
                         ".5",
                         "1e5",
                         "1.5.5",
                         "999999.9",
                         "9999999",
                         "16777217",
                         "340282346638528859811704183484516925440",
                         "340282346638528859811704183484516925440.5",
                         "1" + std::string(50, '0'),
                         "0." + std::string(50, '0') + "1",
                         "nan",
                         "inf",
                         "0x10",
                         "true",
                         "false",
                         "TRUE",
                         "1",
                         "NULL",
                         std::string("\0", 1),
                         std::string("a\0b", 3)};
TEST(ColumnTexts, comeOutAsTheyWentIn) {
  Texts texts = someTexts;
  for (std::size_t size = 0; size <= 17; ++size) texts.emplace_back(size, 'x');
  for (const std::size_t size : {59U, 60U, 61U, 70000U}) {
    texts.emplace_back(size, 'y');
    texts.back()[size / 2] = '\0';
  }
  for (const std::string& type : allTypes) {
    Table table = tableOf(type);
    for (const std::string& text : texts) {
      const std::size_t row = add(table, plainCell(text));
      // The row before gets it as well, in the place of another.
      if (row > 0) table.set(row - 1, 0, plainCell(text), 0);
      EXPECT_EQ(textOf(table, row, 0, 0), text) << type;
      EXPECT_EQ(keyTextOf(table, row), text) << type;
      EXPECT_EQ(table.values(0).cell(row).value, text) << type;
      EXPECT_EQ(table.values(0).rule(row), nullptr) << type;
      EXPECT_TRUE(table.values(0).shows(row, text, 0)) << type << ' ' << text;
      EXPECT_FALSE(table.values(0).shows(row, text + ' ', 0)) << type << ' ' << text;
      EXPECT_EQ(textOf(table, row == 0 ? 0 : row - 1, 0, 0), text) << type;
    }
  }
}

// What is told by the arrays costs nothing more, so usual texts have to be.
TEST(ColumnTexts, areToldByTheArraysWhereTheyAreUsual) {
  const auto oddOf = [](const std::string& type) {
    Texts odd;
    Table table = tableOf(type);
    for (const std::string& text : someTexts) {
      if (isOdd(table, add(table, plainCell(text)))) odd.push_back(text);
    }
    return odd;
  };
  EXPECT_EQ(oddOf("string"), Texts());
  EXPECT_EQ(oddOf("other"), Texts());
  const auto usual = [](const Texts& odd) {
    Texts texts;
    for (const std::string& text : someTexts) {
      if (std::find(odd.begin(), odd.end(), text) == odd.end()) texts.push_back(text);
    }
    return texts;
  };
  EXPECT_EQ(usual(oddOf("int")),
            (Texts{"5", "0", "-17", "2147483647", "-2147483648", "9999999", "16777217", "1"}));
  EXPECT_EQ(usual(oddOf("bool")), (Texts{"#/#?", "true", "false"}));
  EXPECT_EQ(
      usual(oddOf("float")),
      (Texts{"5",          "-0",          "0",           "-17",
             "2147483648", "-2147483648", "#/#?",        "1.2",
             "1.23",       "1.234",       "1.2345",      "1.23456",
             "1.234567",   "1.2345678",   "1.23456788",  "1.234567881",
             "0.5",        "0.50",        "0.500000000", "-0.0",
             "-0.000",     "999999.9",    "9999999",     "340282346638528859811704183484516925440",
             "1"}));
}

// Numbers as people write them, and texts that are nearly such.
std::string randomNumberText(Choices& choices) {
  std::string text = choices.oneIn(3) ? "-" : "";
  for (std::int64_t digits = choices.within(0, 9); digits > 0; --digits) {
    text += static_cast<char>('0' + choices.within(0, 9));
  }
  if (choices.oneIn(2)) {
    text += '.';
    for (std::int64_t digits = choices.within(0, 10); digits > 0; --digits) {
      text += static_cast<char>('0' + (choices.oneIn(2) ? 0 : choices.within(0, 9)));
    }
  }
  if (choices.oneIn(20)) text.insert(text.size() / 2, 1, ".-+e x0"[choices.within(0, 6)]);
  return text;
}

TEST(ColumnTexts, ofAMillionNumbersComeOutAsTheyWentIn) {
  Choices choices(1);
  Table integers = tableOf("int");
  Table floats = tableOf("float");
  for (int i = 0; i < 3; ++i) {
    integers.appendRow();
    floats.appendRow();
  }
  TextRoom room;
  for (std::size_t round = 0; round < 1'000'000; ++round) {
    const std::string text = randomNumberText(choices);
    for (Table* const table : {&integers, &floats}) {
      table->set(round % 3, 0, plainCell(text), 0);
      ASSERT_EQ(table->text(round % 3, 0, 0, room), text);
    }
  }
}

// Seven digits with a point among them are taken for told without a look.
TEST(ColumnTexts, ofSevenDigitsComeOutAsTheyWentIn) {
  Table table = tableOf("float");
  table.appendRow();
  TextRoom room;
  for (int number = 0; number < 10'000'000; number += 97) {
    char digits[12];
    std::snprintf(digits, sizeof digits, "%07d", number);
    for (std::size_t decimals = 0; decimals <= 7; ++decimals) {
      std::string text = digits;
      if (decimals > 0) text.insert(7 - decimals, 1, '.');
      table.set(0, 0, plainCell(text), 0);
      ASSERT_EQ(table.text(0, 0, 0, room), text);
    }
  }
}

TEST(ColumnTexts, ofAColumnOfIntegersCanBeGivenAsNumbers) {
  Table table = tableOf("int");
  table.appendRow();
  for (const std::int32_t number : {0, -5, 2147483647, -2147483647 - 1}) {
    table.set(0, 0, plainCell("05"), 0);
    EXPECT_EQ(table.values(0).plainNumber(0), nullptr);
    table.setNumber(0, 0, number);
    EXPECT_EQ(textOf(table, 0, 0, 0), std::to_string(number));
    EXPECT_FALSE(isOdd(table, 0));
    EXPECT_EQ(*table.values(0).plainNumber(0), number);
  }
}

TEST(ColumnTexts, canBeGivenToManyRows) {
  const std::vector<std::int32_t> rows = {0, 2, 3, 2046, 2047, 2048, 2050, 4096};
  for (const std::string& type : allTypes) {
    Table table = tableOf(type);
    for (std::size_t row = 0; row < 4100; ++row) {
      add(table, row % 3 == 0 ? plainCell("007") : plainCell("1"));
    }
    table.set(2, 0, timedCell(ruleOf({{"8", 10}, {"9", 10}}, true, 0)), 0);
    table.set(2048, 0, timedCell(ruleOf({{"8", 10}, {"9", 10}}, true, 0)), 0);
    for (const std::string& text :
         {std::string("true"), std::string("007"), std::string("#/#?"), std::string("12"),
          std::string("-2.50"), std::string(40, 'z'), std::string("false")}) {
      table.setRows(rows, 0, plainCell(text));
      table.setRows({}, 0, plainCell("nobody's"));
      for (const std::int32_t row : rows) {
        ASSERT_EQ(textOf(table, static_cast<std::size_t>(row), 0, 0), text) << type << ' ' << row;
        ASSERT_EQ(table.values(0).rule(static_cast<std::size_t>(row)), nullptr) << type;
      }
      ASSERT_EQ(textOf(table, 1, 0, 0), "1") << type;
      ASSERT_EQ(textOf(table, 2049, 0, 0), "007") << type;
    }
  }
}

TEST(ColumnTexts, stayWhereTheFirstChunkGrows) {
  for (const std::string& type : allTypes) {
    Table table = tableOf(type);
    const auto textAt = [](std::size_t row) {
      return row % 5 == 0 ? "0" + std::string(20, 'x') : std::to_string(row);
    };
    for (std::size_t row = 0; row < 2 * Rows::chunkRows + 2; ++row) {
      add(table, plainCell(textAt(row)));
      const bool hasGrown = row == 64 || row == 128 || row >= 1023;
      for (std::size_t i = 0; hasGrown && i <= row; i += 61) {
        ASSERT_EQ(textOf(table, i, 0, 0), textAt(i)) << type << ' ' << row;
      }
    }
  }
}

// The JSON of a cell.
std::string printed(const Table& table, std::size_t row, std::int64_t now) {
  ResultSet result;
  const std::string name = "c";
  result.rows.begin({&name, 1});
  ColumnReader(table.values(0), now).print(row, result.rows);
  const std::string text(renderJson(std::move(result)).view());
  const std::string head = "    {\"c\": ";
  const std::size_t start = text.find(head) + head.size();
  return text.substr(start, text.rfind("}\n  ]\n}") - start);
}

struct Reading {
  std::string type;
  std::string text;
  std::string json;
};

class CellReading : public testing::TestWithParam<Reading> {};

TEST_P(CellReading, followsTheColumnsType) {
  const auto& [type, text, json] = GetParam();
  Table table = tableOf(type);
  add(table, plainCell(text));
  add(table, timedCell(ruleOf({{text, 10}}, false, 0)));
  EXPECT_EQ(printed(table, 0, 0), json) << type << ' ' << text;
  EXPECT_EQ(printed(table, 1, 0), json) << type << ' ' << text;
}

INSTANTIATE_TEST_SUITE_P(
    Types, CellReading,
    testing::Values(Reading{"int", "5", "5"}, Reading{"int", "05", "5"}, Reading{"int", "-0", "0"},
                    Reading{"int", " +7.9x", "7"}, Reading{"int", "#/#?", "null"},
                    Reading{"ApexInt", "2147483647", "2147483647"},
                    Reading{"ApexInt", "-2147483648", "-2147483648"}, Reading{"float", "5", "5"},
                    Reading{"float", "5.", "5"}, Reading{"float", "05", "5"},
                    Reading{"float", "-0", "-0"}, Reading{"float", "1.50", "1.5"},
                    Reading{"float", "0.05", "0.05"}, Reading{"float", "0.00005", "5e-05"},
                    Reading{"float", "0.123456", "0.123456"},
                    Reading{"float", "0.1234567", "0.123457"},
                    Reading{"float", "1234567", "1.23457e+06"},
                    Reading{"float", "999999", "999999"}, Reading{"float", "1000000", "1e+06"},
                    Reading{"float", "0.0", "0"}, Reading{"float", "1e2", "100"},
                    Reading{"float", "#/#?", "null"}, Reading{"bool", "true", "true"},
                    Reading{"bool", "1", "true"}, Reading{"bool", "yes", "false"},
                    Reading{"bool", "TRUE", "false"}, Reading{"bool", "", "false"},
                    Reading{"bool", "#/#?", "null"}, Reading{"string", "05", "\"05\""},
                    Reading{"string", "NULL", "null"}, Reading{"string", "#/#?", "null"},
                    Reading{"string", "#/#", "\"#/#\""}, Reading{"string", "", "\"\""},
                    Reading{"other", "5", "\"5\""}));

// What printing a cell comes to, and what printing its text's number has to.
std::string outcomeOf(const Table& table) {
  try {
    return printed(table, 0, 0);
  } catch (const std::invalid_argument& error) {
    return std::string("invalid_argument ") + error.what();
  } catch (const std::out_of_range& error) {
    return std::string("out_of_range ") + error.what();
  }
}
std::string expectedOutcome(ValueKind kind, const std::string& text) {
  char number[maxNumberText] = {};
  try {
    if (kind == ValueKind::integer) return std::to_string(parseInt(text));
    std::snprintf(number, sizeof number, "%g", static_cast<double>(parseFloat(text)));
  } catch (const std::invalid_argument& error) {
    return std::string("invalid_argument ") + error.what();
  } catch (const std::out_of_range& error) {
    return std::string("out_of_range ") + error.what();
  }
  return number;
}

TEST(CellReading, printsTheNumberThatTheTextIs) {
  const std::string alphabet = "00123456789...-+ex ";
  Choices choices(2);
  for (const char* const type : {"int", "float"}) {
    Table table = tableOf(type);
    table.appendRow();
    for (int round = 0; round < 200'000; ++round) {
      std::string text = choices.oneIn(3) ? "-" : choices.oneIn(2) ? "0." : "";
      for (std::int64_t size = choices.within(0, 9); size > 0; --size) {
        text += alphabet[static_cast<std::size_t>(choices.within(0, round % 4 == 0 ? 18 : 13))];
      }
      table.set(0, 0, plainCell(text), 0);
      ASSERT_EQ(outcomeOf(table), expectedOutcome(table.kind(0), text)) << '"' << text << '"';
    }
  }
}

TEST(CellReading, readsATimedCellAtTheSecond) {
  Table table = tableOf("int");
  add(table, timedCell(ruleOf({{"1", 10}, {"#/#?", 10}}, false, 0)));
  EXPECT_EQ(printed(table, 0, 9), "1");
  EXPECT_EQ(printed(table, 0, 10), "null");
}

}  // namespace
}  // namespace velmora
