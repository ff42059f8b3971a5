// Cells of a column that change: usual values, odd ones and timed ones come in each other's places,
// rows are taken back, and each time every text and every array is as it has to be.

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "column_fixture.h"

namespace velmora {
namespace {

// A table of one column beside plain copies of its cells.
class ModelledColumn {
 public:
  ModelledColumn(const std::string& type, unsigned seed)
      : table_(tableOf(type)), texts_(textsFor(valueKind(type))), choices_(seed) {}

  void step(std::int64_t now) {
    const auto last = static_cast<std::int64_t>(model_.size()) - 1;
    if (last < 0 || choices_.oneIn(8)) {
      table_.appendRow();
      model_.push_back(plainCell(unsetText(table_.kind(0))));
    } else if (choices_.oneIn(12)) {
      table_.removeLastRow();
      model_.pop_back();
    } else {
      // Mostly near the end, where rows come and go.
      const std::int64_t first = choices_.oneIn(2) ? 0 : std::max<std::int64_t>(0, last - 5);
      set(static_cast<std::size_t>(choices_.within(first, last)), now);
    }
  }
  // Appends usual rows up to this number.
  void fill(std::size_t count) {
    while (model_.size() < count) {
      model_.push_back(plainCell(texts_.front()));
      add(table_, model_.back());
    }
  }
  // Each row's cell, its text at the second, and what the arrays tell of it at that second.
  void check(std::int64_t now) const {
    ASSERT_EQ(table_.rowCount(), model_.size());
    for (std::size_t row = 0; row < model_.size(); ++row) {
      const std::string_view expected = model_[row].valueAt(now);
      ASSERT_EQ(textOf(table_, row, 0, now), expected) << row;
      ASSERT_EQ(table_.values(0).rule(row) != nullptr, model_[row].tempRule != nullptr) << row;
      ASSERT_EQ(table_.values(0).cell(row).valueAt(now), expected) << row;
      const ColumnValues::Chunk chunk = table_.values(0).chunk(Rows::chunkOf(row), now);
      const auto told = toldText(table_.kind(0), chunk, Rows::placeOf(row));
      if (told) {
        ASSERT_EQ(*told, expected) << row << " at " << now;
      } else {
        ASSERT_TRUE(chunk.isOdd(Rows::placeOf(row)));
      }
      ASSERT_EQ(chunk.isOdd(Rows::placeOf(row)), model_[row].tempRule != nullptr || !told) << row;
    }
  }

 private:
  void set(std::size_t row, std::int64_t now) {
    const Cell cell = choices_.oneIn(3) ? timedCell(choices_.rule(texts_, now - 60, now + 20))
                                        : plainCell(choices_.of(texts_));
    if (choices_.oneIn(4)) {
      table_.restore(row, 0, cell, now);
    } else {
      table_.set(row, 0, cell, now);
    }
    model_[row] = cell;
  }

  Table table_;
  std::vector<Cell> model_;
  Texts texts_;
  Choices choices_;
};

TEST(ColumnCells, followAModelThroughAnyChange) {
  for (const std::string& type : allTypes) {
    for (const unsigned seed : {1U, 2U, 3U}) {
      ModelledColumn column(type, seed);
      Choices choices(seed);
      std::int64_t now = 1000;
      for (int round = 0; round < 4000; ++round) {
        column.step(now);
        if (choices.oneIn(3)) now += choices.within(-20, 30);
        if (!choices.oneIn(4)) continue;
        ASSERT_NO_FATAL_FAILURE(column.check(now)) << type << ' ' << seed;
      }
    }
  }
}

// The same where chunks end: rows 2047, 2048, 4095 and 4096 come and go.
TEST(ColumnCells, followAModelAcrossTheEndsOfChunks) {
  for (const std::string& type : allTypes) {
    for (const std::size_t filled : {Rows::chunkRows - 2, 2 * Rows::chunkRows - 2}) {
      ModelledColumn column(type, 7);
      column.fill(filled);
      Choices choices(8);
      std::int64_t now = 1000;
      for (int round = 0; round < 400; ++round) {
        column.step(now);
        if (choices.oneIn(3)) now += choices.within(-20, 30);
        if (!choices.oneIn(20)) continue;
        ASSERT_NO_FATAL_FAILURE(column.check(now)) << type;
      }
    }
  }
}

TEST(ColumnCells, areTakenBackWithTheirRow) {
  for (const std::string& type : allTypes) {
    Table table = tableOf(type);
    for (const Cell& cell :
         {plainCell("007"), plainCell("a text longer than fifteen bytes"),
          timedCell(ruleOf({{"1", 10}, {"a state longer than fifteen bytes", 10}}, true, 0))}) {
      add(table, plainCell("1"));
      const std::size_t row = add(table, cell);
      table.removeLastRow();
      EXPECT_EQ(table.appendRow(), row);
      EXPECT_EQ(textOf(table, row, 0, 0), unsetText(table.kind(0)));
      EXPECT_EQ(table.values(0).rule(row), nullptr);
      EXPECT_FALSE(isOdd(table, row));
    }
  }
}

TEST(ColumnCells, stayAsTheyAreWhenARuleWithoutStatesIsGiven) {
  for (const std::string& type : allTypes) {
    Table table = tableOf(type);
    for (const char* const text : {"1", "007"}) {
      const std::size_t row = add(table, plainCell(text));
      EXPECT_THROW(table.set(row, 0, timedCell({}), 0), std::out_of_range);
      EXPECT_EQ(textOf(table, row, 0, 0), text);
      EXPECT_EQ(table.values(0).rule(row), nullptr);
      EXPECT_EQ(toldText(table.kind(0), table.values(0).chunk(0, 0), row).value_or(text), text);
    }
  }
}

TEST(ColumnCells, areCopiesOfWhatTheyWereGiven) {
  Table table = tableOf("string");
  Cell given = timedCell(ruleOf({{"a", 10}, {"b", 10}}, true, 0));
  add(table, given);
  given.tempRule->startTime = 10;
  EXPECT_EQ(textOf(table, 0, 0, 0), "a");
  Cell taken = table.values(0).cell(0);
  EXPECT_NE(taken.tempRule.get(), table.values(0).rule(0));
  taken.tempRule->startTime = 10;
  EXPECT_EQ(textOf(table, 0, 0, 0), "a");
}

// A timed value is filed under what it showed when it was set, until it is filed anew.
TEST(ColumnCells, keepTheKeyTextUnderWhichTheyAreFiled) {
  Table table = tableOf("int");
  const TempRule rule = ruleOf({{"7", 10}, {"8", 10}}, true, 0);
  add(table, timedCell(rule), 12);
  EXPECT_EQ(keyTextOf(table, 0), "8");
  EXPECT_EQ(textOf(table, 0, 0, 25), "7");
  EXPECT_EQ(keyTextOf(table, 0), "8");
  const Cell filed = table.values(0).cell(0);
  EXPECT_EQ(filed.value.view(), "8");
  table.set(0, 0, plainCell("5"), 25);
  EXPECT_EQ(keyTextOf(table, 0), "5");
  table.restore(0, 0, filed, 25);
  EXPECT_EQ(keyTextOf(table, 0), "8");
  EXPECT_EQ(textOf(table, 0, 0, 25), "7");
  table.setUpPrimaryKeyMap("c", 25);
  EXPECT_EQ(keyTextOf(table, 0), "7");
}

TEST(ColumnCells, tellTheTextsThatCanStillBeShown) {
  Table table = tableOf("int");
  const auto coming = [&](std::size_t row, std::int64_t now) {
    Texts texts;
    table.values(0).forEachComingText(row, now,
                                      [&](std::string_view text) { texts.emplace_back(text); });
    return texts;
  };
  add(table, plainCell("5"));
  add(table, plainCell("05"));
  add(table, timedCell(ruleOf({{"1", 10}, {"02", 10}, {"3", 10}}, false, 0)));
  EXPECT_EQ(coming(0, 0), Texts{"5"});
  EXPECT_EQ(coming(1, 0), Texts{"05"});
  EXPECT_EQ(coming(2, 9), (Texts{"1", "02", "3"}));
  EXPECT_EQ(coming(2, 10), (Texts{"02", "3"}));
  EXPECT_EQ(coming(2, 1000), Texts{"3"});
}

}  // namespace
}  // namespace velmora
