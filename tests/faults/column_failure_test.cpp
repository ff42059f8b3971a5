// Memory that runs out while a cell is given another value: the cell stays as it was, in its text
// and in its column's arrays, and the same change succeeds when it is made again. And memory that
// runs out while a table is made.
#include <gtest/gtest.h>

#include <new>
#include <string>
#include <vector>

#include "failing_allocations.h"
#include "unit/column_fixture.h"

namespace velmora::faults {
namespace {

constexpr std::int64_t now = 1000;

std::vector<Cell> cellsFor(ValueKind kind) {
  std::vector<Cell> cells;
  Texts texts = textsFor(kind);
  texts.emplace_back("a text that is none of a number, a long one");
  for (const std::string& text : texts) cells.push_back(plainCell(text));
  cells.push_back(timedCell(ruleOf({{texts[0], 10}, {texts.back(), 20}}, true, now)));
  cells.push_back(timedCell(ruleOf({{texts.back(), 10}, {texts[1], 20}}, false, now)));
  return cells;
}

void expectCell(const Table& table, std::size_t row, const Cell& cell, std::int64_t second) {
  const std::string expected(cell.valueAt(second));
  EXPECT_EQ(textOf(table, row, 0, second), expected);
  EXPECT_EQ(table.values(0).rule(row) != nullptr, cell.tempRule != nullptr);
  const ColumnValues::Chunk chunk = table.values(0).chunk(Rows::chunkOf(row), second);
  const auto told = toldText(table.kind(0), chunk, Rows::placeOf(row));
  EXPECT_EQ(told.value_or(expected), expected);
  EXPECT_EQ(chunk.isOdd(Rows::placeOf(row)), cell.tempRule != nullptr || !told);
}

// Fails the change's allocations one after the other until it works; how many have failed.
template <typename Change, typename Check>
int failEach(Change change, Check checkUnchanged) {
  for (int number = 1;; ++number) {
    try {
      const FailingAllocations failing(number, Failing::once);
      change();
      return number - 1;
    } catch (const std::bad_alloc&) {
      checkUnchanged();
    }
  }
}

class ColumnFailures : public testing::TestWithParam<std::string> {};

TEST_P(ColumnFailures, leaveACellAsItWas) {
  int failures = 0;
  for (const Cell& before : cellsFor(valueKind(GetParam()))) {
    for (const Cell& after : cellsFor(valueKind(GetParam()))) {
      for (const bool hasOddCells : {false, true}) {
        Table table = tableOf(GetParam());
        add(table, hasOddCells ? timedCell(ruleOf({{"1", 5}}, true, now)) : plainCell("1"), now);
        const std::size_t row = add(table, before, now);
        failures += failEach([&] { table.set(row, 0, after, now); },
                             [&] {
                               expectCell(table, row, before, now);
                               expectCell(table, row, before, now + 15);
                             });
        expectCell(table, row, after, now);
        expectCell(table, row, after, now + 15);
        EXPECT_EQ(textOf(table, 0, 0, now), "1");
      }
    }
  }
  EXPECT_GT(failures, 100);
}

// A state that is too long for its place needs memory when its second comes.
TEST_P(ColumnFailures, leaveTheArraysToTheNextWhoAsks) {
  Table table = tableOf(GetParam());
  std::vector<Cell> cells;
  for (int i = 0; i < 3; ++i) {
    for (Cell& cell : cellsFor(valueKind(GetParam()))) cells.push_back(std::move(cell));
  }
  for (const Cell& cell : cells) add(table, cell, now);
  for (const std::int64_t second : {now + 15, now, now + 35, now + 15}) {
    failEach([&] { static_cast<void>(table.values(0).chunk(0, second)); }, [] {});
    for (std::size_t row = 0; row < cells.size(); ++row) {
      expectCell(table, row, cells[row], second);
    }
  }
}

// Nor does giving up touch what has gone already, as a sanitizer would see.
TEST(TableFailures, leaveNothingOfATable) {
  const std::vector<Column> columns = {{"name", "string"}, {"place", "string"}, {"count", "int"}};
  EXPECT_GT(failEach([&] { const Table table("t", columns); }, [] {}), 10);
  EXPECT_EQ(Table("t", columns).rowCount(), 0U);
}

INSTANTIATE_TEST_SUITE_P(Types, ColumnFailures, testing::ValuesIn(allTypes), [](const auto& each) {
  return each.param.substr(each.param.starts_with('/') ? 1 : 0);
});

}  // namespace
}  // namespace velmora::faults
