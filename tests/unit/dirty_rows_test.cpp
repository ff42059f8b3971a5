// Which rows a table knows to differ from its files.
#include "dirty_rows.h"

#include <gtest/gtest.h>

#include <string>

#include "table.h"

namespace velmora {
namespace {

std::string runsOf(const DirtyRows& rows, std::size_t rowCount) {
  std::string text;
  rows.forEachRun(rowCount, [&](std::size_t first, std::size_t count) {
    text += std::to_string(first) + "+" + std::to_string(count) + " ";
  });
  return text;
}

TEST(DirtyRowsTest, aNewTableIsAllDirty) {
  DirtyRows rows;
  EXPECT_TRUE(rows.isAll());
  EXPECT_TRUE(rows.isAny(0));
  EXPECT_EQ(runsOf(rows, 3), "0+3 ");
}

TEST(DirtyRowsTest, whatIsMarkedComesInRuns) {
  DirtyRows rows;
  rows.markNone(200);
  EXPECT_FALSE(rows.isAny(200));
  EXPECT_EQ(runsOf(rows, 200), "");
  for (const std::size_t row : {0, 5, 6, 63, 64, 65, 127, 128, 199}) rows.mark(row);
  EXPECT_TRUE(rows.isAny(200));
  EXPECT_EQ(runsOf(rows, 200), "0+1 5+2 63+3 127+2 199+1 ");
  rows.markNone(200);
  EXPECT_FALSE(rows.isAny(200));
  EXPECT_EQ(runsOf(rows, 200), "");
}

TEST(DirtyRowsTest, rowsBehindThoseOfTheFilesAreDirty) {
  for (const std::size_t stored : {0, 1, 63, 64, 65, 128}) {
    DirtyRows rows;
    rows.markNone(stored);
    EXPECT_TRUE(rows.isAny(stored + 2));
    EXPECT_EQ(runsOf(rows, stored + 2), std::to_string(stored) + "+2 ");
    if (stored == 0) continue;
    rows.mark(stored - 1);
    EXPECT_EQ(runsOf(rows, stored + 2), std::to_string(stored - 1) + "+3 ");
  }
}

TEST(DirtyRowsTest, deletionsAreToldApartFromOtherChanges) {
  Table table("t", {{"n", "int", 0, 60}});
  EXPECT_TRUE(table.haveDeletionsChanged());
  for (int i = 0; i < 3; ++i) table.appendRow();
  table.markClean();
  table.setNumber(1, 0, 5);
  EXPECT_FALSE(table.haveDeletionsChanged());
  table.setDeleted(1, true);
  EXPECT_TRUE(table.haveDeletionsChanged());
  table.markClean();
  EXPECT_FALSE(table.haveDeletionsChanged());
  table.removeLastRow();
  EXPECT_TRUE(table.haveDeletionsChanged());
  // The row of this number may be another one now.
  table.appendRow();
  EXPECT_TRUE(table.haveDeletionsChanged());
  table.markClean();
  table.appendRow();
  EXPECT_TRUE(table.haveDeletionsChanged());
}

TEST(DirtyRowsTest, aRowThatWasTakenOffAndMadeAnewIsDirty) {
  Table table("t", {{"n", "int", 0, 60}});
  for (int i = 0; i < 3; ++i) table.appendRow();
  table.markClean();
  EXPECT_FALSE(table.isDirty());
  table.removeLastRow();
  EXPECT_TRUE(table.isDirty());
  EXPECT_EQ(table.storedRowCount(), 3U);
  table.appendRow();
  EXPECT_TRUE(table.isDirty());
  table.forEachDirtyRun([](std::size_t first, std::size_t count) {
    EXPECT_EQ(first, 2U);
    EXPECT_EQ(count, 1U);
  });
}

TEST(DirtyRowsTest, everyChangeOfARowMakesItDirty) {
  Table table("t", {{"n", "int", 0, 60}});
  table.appendRow();
  const auto isDirtyBehind = [&](auto change) {
    table.markClean();
    change();
    return table.isDirty();
  };
  EXPECT_TRUE(isDirtyBehind([&] { table.setDeleted(0, true); }));
  EXPECT_TRUE(isDirtyBehind([&] { table.set(0, 0, Cell(Text("1")), 0); }));
  EXPECT_TRUE(isDirtyBehind([&] { table.restore(0, 0, Cell(Text("2")), 0); }));
  EXPECT_TRUE(isDirtyBehind([&] { table.setNumber(0, 0, 3); }));
  const std::int32_t row = 0;
  EXPECT_TRUE(isDirtyBehind([&] { table.setRows({&row, 1}, 0, Cell(Text("4"))); }));
  EXPECT_TRUE(isDirtyBehind([&] { table.appendRow(); }));
  EXPECT_TRUE(isDirtyBehind([&] { table.markAllDirty(); }));
}

}  // namespace
}  // namespace velmora
