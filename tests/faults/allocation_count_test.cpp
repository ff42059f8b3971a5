// How many allocations a command costs: so few that they do not decide its time, and none for a row
// that a scan passes by. A command is given once before it is counted: the engine keeps the memory
// of some of its parts from one command to the next.
#include <string>

#include "failing_allocations.h"
#include "fault_fixture.h"
#include "velmora/velmora.h"

namespace velmora::faults {
namespace {

class AllocationCountTest : public FaultTest {
 protected:
  void SetUp() override {
    FaultTest::SetUp();
    StartEngine();
    ExecuteQuery("CREATE TABLE items id ApexInt name string worth int price float");
    fillUpTo(1000);
  }
  void TearDown() override {
    StopEngine();
    FaultTest::TearDown();
  }

  void fillUpTo(int rows) {
    for (; rows_ < rows; ++rows_) ExecuteQuery("INSERT INTO items name = 'short' worth = 7");
  }

  // The allocations of a command that has been given before.
  static std::int64_t count(const char* command) {
    ExecuteQuery(command);
    const FailingAllocations counting(0, Failing::once);
    ExecuteQuery(command);
    return FailingAllocations::count();
  }

 private:
  int rows_ = 0;
};

TEST_F(AllocationCountTest, aSelectByKeyCostsOne) {
  // The names of the columns.
  ExecuteQuery("SELECT id, name, worth, price FROM items WHERE id = 7");
  ExecuteQuery("SELECT id FROM items");
  const FailingAllocations counting(0, Failing::once);
  ExecuteQuery("SELECT id, name, worth, price FROM items WHERE id = 7");
  EXPECT_EQ(FailingAllocations::count(), 1);
}

TEST_F(AllocationCountTest, aSelectByAnotherKeyThanTheOneBeforeCostsNone) {
  ExecuteQuery("SELECT id, name, worth, price FROM items WHERE id = 7");
  const FailingAllocations counting(0, Failing::once);
  ExecuteQuery("SELECT id, name, worth, price FROM items WHERE id = 8");
  EXPECT_EQ(FailingAllocations::count(), 0);
}

TEST_F(AllocationCountTest, anUpdateByKeyCostsOne) {
  // The list of the rows.
  EXPECT_EQ(count("UPDATE items SET worth = 8 WHERE id = 7"), 1);
}

TEST_F(AllocationCountTest, aDeleteThatFindsNothingCostsNone) {
  EXPECT_EQ(count("DELETE FROM items WHERE id = 5000"), 0);
}

TEST_F(AllocationCountTest, anInsertCostsNone) {
  // Within a chunk of rows and a block of the key map.
  EXPECT_EQ(count("INSERT INTO items name = 'short' worth = 7"), 0);
}

TEST_F(AllocationCountTest, aScanCostsNoneForARowThatDoesNotMatch) {
  constexpr const char* scan = "SELECT id FROM items WHERE worth = 8 && name = 'none'";
  const std::int64_t few = count(scan);
  fillUpTo(20000);
  EXPECT_EQ(count(scan), few);
}

}  // namespace
}  // namespace velmora::faults
