// Columns as the strict language has them: values go in and come out by their types, null is told
// from every text, and what a chunk shows at any second is there without a change of its arrays.

#include <gtest/gtest.h>

#include <cstdint>
#include <limits>
#include <string>
#include <vector>

#include "column_fixture.h"
#include "typed_value.h"

namespace velmora {
namespace {

constexpr std::int64_t never = std::numeric_limits<std::int64_t>::max();

// A table of one column with these values.
Table tableWith(const std::string& type, const std::vector<Value>& values) {
  Table table = tableOf(type);
  for (const Value& value : values) table.setValue(table.appendRow(), 0, value);
  return table;
}

Value valueOf(const Table& table, std::size_t row, std::int64_t now = 0) {
  return ownedValue(table.values(0).value(row, now));
}

void expectToComeBack(const std::string& type, const std::vector<Value>& values) {
  Table table = tableWith(type, values);
  for (std::size_t row = 0; row < values.size(); ++row) {
    EXPECT_EQ(valueOf(table, row), values[row]) << type << ' ' << row;
    for (const Value& other : values) {
      table.setValue(row, 0, other);
      EXPECT_EQ(valueOf(table, row), other) << type << ' ' << row;
      const ColumnValues::ChunkAt chunk = table.values(0).chunkAt(0, 7);
      EXPECT_EQ(ownedValue(table.values(0).value(chunk.arrays, row, 7)), other) << type;
    }
  }
}

TEST(TypedColumns, giveBackTheValuesThatTheyWereGiven) {
  constexpr std::int64_t least = std::numeric_limits<std::int64_t>::min();
  expectToComeBack("int", {Value(), std::int64_t{0}, std::int64_t{-2147483648LL}, Value()});
  expectToComeBack("/long", {Value(), std::int64_t{0}, least, never, Value()});
  expectToComeBack("float", {Value(), 0.5, static_cast<double>(0.1F), 1e30F * 1.0, -0.0});
  expectToComeBack("/double", {Value(), 0.1, 1e300, 5e-324, -2.5});
  expectToComeBack("bool", {Value(), true, false});
  expectToComeBack("string", {Value(), std::string("#/#?"), std::string(), std::string(300, 'x'),
                              std::string("a\0b", 3), std::string("NULL")});
}

TEST(TypedColumns, takeWholeNumbersForFloats) {
  EXPECT_EQ(valueOf(tableWith("float", {std::int64_t{5}}), 0), Value(5.0));
  EXPECT_EQ(valueOf(tableWith("/double", {std::int64_t{5}}), 0), Value(5.0));
}

TEST(TypedColumns, haveTextsInTheShortestForm) {
  const Table floats = tableWith("float", {static_cast<double>(0.1F), 1e10, 16777216.0});
  EXPECT_EQ(textOf(floats, 0, 0, 0), "0.1");
  EXPECT_EQ(textOf(floats, 1, 0, 0), "1e+10");
  EXPECT_EQ(textOf(floats, 2, 0, 0), "16777216");
  EXPECT_EQ(textOf(tableWith("/double", {0.1}), 0, 0, 0), "0.1");
  EXPECT_EQ(textOf(tableWith("/long", {never}), 0, 0, 0), "9223372036854775807");
}

TEST(TypedColumns, readTextsThatAreNoNumbersAsNull) {
  for (const std::string type : {"int", "/long", "float", "/double"}) {
    Table table = tableOf(type);
    add(table, plainCell("x"));
    add(table, plainCell("07"));
    EXPECT_EQ(valueOf(table, 0), Value()) << type;
    EXPECT_EQ(textOf(ValueKind::real, typedValue(valueOf(table, 1))), "7") << type;
  }
}

TEST(TypedColumns, areToldApartFromThoseOfPlainTables) {
  EXPECT_EQ(valueKind("long"), ValueKind::unknown);
  EXPECT_EQ(valueKind("double"), ValueKind::unknown);
  EXPECT_EQ(valueKind("/long"), ValueKind::longInteger);
  EXPECT_EQ(valueKind("/double"), ValueKind::doubleReal);
}

// Rows of all sorts, some deleted; if many, in somewhat more than a section.
Table someTable(const std::string& type, unsigned seed) {
  Choices choices(seed);
  const Texts texts = textsFor(valueKind(type));
  Table table = tableOf(type);
  const std::size_t count = seed % 2 == 0 ? 40 : ColumnValues::sectionRows + 30;
  for (std::size_t row = 0; row < count; ++row) {
    const bool isTimed = choices.oneIn(seed % 3 == 0 ? 1 : 5);
    add(table, isTimed ? timedCell(choices.rule(texts, -60, 60)) : plainCell(choices.of(texts)));
    if (choices.oneIn(6)) table.setDeleted(row, true);
  }
  return table;
}

TEST(TypedColumns, showEachSecondWithoutChangingTheirArrays) {
  for (const std::string& type : allTypes) {
    const Table table = someTable(type, 1);
    const ColumnValues& values = table.values(0);
    const auto toldOf = [&](std::size_t row) {
      const auto chunk = values.chunk(Rows::chunkOf(row));
      return toldText(values.kind(), chunk, Rows::placeOf(row)).value_or("(unclear)");
    };
    Texts before;
    for (std::size_t row = 0; row < table.rowCount(); ++row) before.push_back(toldOf(row));
    for (const std::int64_t now : {-70, 3, 3, 40, 3, 90, 40}) {
      for (std::size_t row = 0; row < table.rowCount(); ++row) {
        const Value expected = ownedValue(typedValue(values.kind(), textOf(table, row, 0, now)));
        const ColumnValues::ChunkAt chunk = values.chunkAt(Rows::chunkOf(row), now);
        ASSERT_EQ(ownedValue(values.value(chunk.arrays, row, now)), expected) << type << row;
        ASSERT_EQ(ownedValue(values.value(row, now)), expected) << type << row;
      }
    }
    for (std::size_t row = 0; row < table.rowCount(); ++row) ASSERT_EQ(toldOf(row), before[row]);
  }
}

TEST(TypedColumns, keepNoCopyOfWhatHasChanged) {
  Table table = tableOf("int");
  add(table, timedCell(ruleOf({{"1", 10}, {"2", 10}}, true, 0)));
  add(table, plainCell("5"));
  const auto numberAt = [&](std::size_t row) {
    return table.values(0).chunkAt(0, 15).arrays.numbers()[row];
  };
  EXPECT_EQ(numberAt(0), 2);
  EXPECT_EQ(table.values(0).nextChange(5), 10);
  table.setValue(1, 0, std::int64_t{6});
  EXPECT_EQ(numberAt(1), 6);
  table.setNumber(1, 0, 7);
  EXPECT_EQ(numberAt(1), 7);
  table.set(1, 0, plainCell("8"), 0);
  EXPECT_EQ(numberAt(1), 8);
  table.setRows(std::vector<std::int32_t>{0, 1}, 0, plainCell("9"));
  EXPECT_EQ(numberAt(0), 9);
  add(table, plainCell("10"));
  EXPECT_EQ(numberAt(2), 10);
  EXPECT_EQ(table.values(0).nextChange(5), never);
}

TEST(TypedColumns, keepNoCopyThatLacksAChunkOfItsSection) {
  Table table = tableOf("int");
  table.appendRows(Rows::chunkRows);
  const std::size_t other = table.appendRow();
  table.set(0, 0, timedCell(ruleOf({{"1", 10}, {"2", 10}}, true, 0)), 0);
  const auto numberAt = [&](std::size_t row) {
    return table.values(0).chunkAt(Rows::chunkOf(row), 15).arrays.numbers()[Rows::placeOf(row)];
  };
  EXPECT_EQ(numberAt(0), 2);
  EXPECT_EQ(numberAt(other), 0);
  table.set(other, 0, timedCell(ruleOf({{"3", 12}, {"4", 10}}, true, 0)), 0);
  EXPECT_EQ(numberAt(other), 4);
  EXPECT_EQ(numberAt(0), 2);
  EXPECT_EQ(table.values(0).nextChange(10), 12);
}

// The first second behind `now` at which a live row shows another text.
std::int64_t nextChangeByLooking(const Table& table, std::int64_t now) {
  for (std::int64_t second = now + 1; second < now + 400; ++second) {
    for (std::size_t row = 0; row < table.rowCount(); ++row) {
      if (!table.isLive(row)) continue;
      if (textOf(table, row, 0, second) != textOf(table, row, 0, now)) return second;
    }
  }
  return never;
}

TEST(TypedColumns, tellWhenALiveRowChangesNext) {
  Choices choices(5);
  for (int round = 0; round < 300; ++round) {
    Table table = tableOf("string");
    for (std::int64_t i = choices.within(0, 3); i >= 0; --i) {
      std::vector<State> states;
      for (std::int64_t j = choices.within(1, 4); j > 0; --j) {
        states.push_back({choices.of(Texts{"a", "b", "c"}), choices.within(1, 9)});
      }
      const TempRule rule = ruleOf(states, choices.oneIn(2), choices.within(-20, 20));
      table.setDeleted(add(table, timedCell(rule)), choices.oneIn(4));
    }
    for (std::int64_t now = -30; now < 60; ++now) {
      ASSERT_EQ(table.values(0).nextChange(now), nextChangeByLooking(table, now)) << now;
    }
    table.setDeleted(0, !table.isLive(0));
    ASSERT_EQ(table.values(0).nextChange(0), nextChangeByLooking(table, 0));
  }
}

// Changes a row as commands do, and as they take it back.
void changeRow(Table& table, Choices& choices, const Texts& texts, std::size_t row,
               std::int64_t now) {
  if (choices.oneIn(3)) {
    table.set(row, 0, plainCell(choices.of(texts)), now);
  } else if (choices.oneIn(3)) {
    table.setDeleted(row, table.isLive(row));
  } else if (choices.oneIn(3)) {
    add(table, timedCell(choices.rule(texts, -60, 60)), now);
  } else {
    table.set(row, 0, timedCell(choices.rule(texts, -60, 60)), now);
  }
}

TEST(TypedColumns, showEachSecondAndTheNextChangeWhileCellsChange) {
  for (const std::string& type : allTypes) {
    Choices choices(9);
    const Texts texts = textsFor(valueKind(type));
    for (int round = 0; round < 40; ++round) {
      Table table = tableOf(type);
      // Few rules, so that there are rhythms, or one for each row.
      std::vector<TempRule> rules;
      for (std::int64_t i = choices.within(1, 60); i > 0; --i) {
        rules.push_back(choices.rule(texts, -60, 60));
      }
      for (int i = 0; i < 60; ++i) {
        TempRule rule = choices.of(rules);
        rule.startTime += choices.within(-9, 9);
        add(table, timedCell(rule));
      }
      for (int step = 0; step < 60; ++step) {
        const std::int64_t now = choices.within(-100, 150);
        const ColumnValues& values = table.values(0);
        const ColumnValues::ChunkAt chunk =
            choices.oneIn(4) ? ColumnValues::ChunkAt{values.chunk(0, now), nullptr}
                             : values.chunkAt(0, now);
        for (std::size_t row = 0; row < table.rowCount(); ++row) {
          const Value expected = ownedValue(typedValue(values.kind(), textOf(table, row, 0, now)));
          ASSERT_EQ(ownedValue(values.value(chunk.arrays, row, now)), expected) << type << row;
        }
        const std::int64_t change = values.nextChange(now);
        ASSERT_GT(change, now);
        for (std::size_t row = 0; row < table.rowCount(); ++row) {
          const TempRule* const rule = table.isLive(row) ? values.rule(row) : nullptr;
          if (rule != nullptr) {
            ASSERT_LE(change, rule->nextValueChange(now)) << type << row;
          }
        }
        const auto row = static_cast<std::size_t>(choices.within(0, 59));
        if (choices.oneIn(2)) changeRow(table, choices, texts, row, now);
      }
    }
  }
}

}  // namespace
}  // namespace velmora
