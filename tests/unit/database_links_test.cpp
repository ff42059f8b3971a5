// Links between tables: what parent rows remember of their children, when they hold a deletion or a
// new key up, and when they forget.
//
// What a host can see of it is pinned by the golden scripts; the records themselves are asked here.

#include <algorithm>
#include <stdexcept>

#include "database_fixture.h"

namespace velmora {
namespace {

// The dependents of a parent row as texts: "table.column: 0 2".
std::vector<std::string> dependentsOf(const Table& parent, std::size_t row) {
  std::vector<std::string> texts;
  for (const Dependents* linked = parent.dependents(row); linked != nullptr;
       linked = linked->next.get()) {
    if (linked->childRows.size() == 0) continue;
    std::string text = std::string(linked->relation.childTable.view()) + "." +
                       std::string(linked->relation.childColumn.view()) + ":";
    for (std::size_t i = 0; i < linked->childRows.size(); ++i) {
      text += " " + std::to_string(linked->childRows[i]);
    }
    texts.push_back(text);
  }
  std::sort(texts.begin(), texts.end());
  return texts;
}

class LinkTest : public DatabaseTest {
 protected:
  LinkTest() {
    database.createTable("p", {{"id", "ApexInt"}, {"note", "string"}});
    database.createTable("q", {{"id", "ApexInt"}});
    database.createTable("kid", {{"pid", "int", 3}, {"qid", "int"}});
    for (int i = 0; i < 3; ++i) insert("p", {});
    insert("q", {});
  }

  Texts dependents(std::size_t parentRow) {
    return dependentsOf(database.getTable("p"), parentRow);
  }
  // Whether the row of p is asked for its children before it may go or get another key.
  bool isLinked(std::size_t parentRow) {
    return database.getTable("p").dependents(parentRow) != nullptr;
  }
  // Whether a live child holds the row of p to this key.
  bool isRestricted(std::int32_t parentRow, std::string_view key) {
    return database.isActivelyRestricted(database.getTable("p"), parentRow, key, second);
  }
};

TEST_F(LinkTest, LinkRecordsExistingRowsWithTheirParents) {
  insert("kid", {{"pid", "1"}});
  insert("kid", {{"pid", "2"}});
  insert("kid", {{"pid", "1"}});
  insert("kid", {{"pid", "7"}});
  database.deleteRows("kid", where("pid", "7"), second);
  database.link("kid", "pid", "p", "id", second);
  EXPECT_EQ(dependents(0), Texts({"kid.pid: 0 2"}));
  EXPECT_EQ(dependents(1), Texts({"kid.pid: 1"}));
  EXPECT_EQ(dependents(2), Texts());
  EXPECT_TRUE(isLinked(0));
  EXPECT_TRUE(isLinked(1));
  EXPECT_FALSE(isLinked(2));
}

TEST_F(LinkTest, TheChildTableHoldsOneRecordForEachLink) {
  database.link("kid", "pid", "p", "id", second);
  database.link("kid", "qid", "q", "id", second);
  database.link("kid", "pid", "p", "id", second);
  const std::vector<LinkRecord> expected = {{"pid", "p", "id"}, {"qid", "q", "id"}};
  EXPECT_EQ(database.getTable("kid").links, expected);
  EXPECT_TRUE(database.getTable("p").links.empty());
}

TEST_F(LinkTest, ARefusedLinkRecordsNothing) {
  insert("kid", {{"pid", "1"}});
  insert("kid", {{"pid", "9"}});
  EXPECT_EQ(failureOf([&] { database.link("kid", "pid", "p", "id", second); }),
            "CRITICAL CORRUPTION: Missing active parent key: 9");
  EXPECT_TRUE(database.getTable("kid").links.empty());
  EXPECT_EQ(dependents(0), Texts());
  EXPECT_FALSE(isLinked(0));
}

TEST_F(LinkTest, InsertAndUpdateRecordTheRowWithItsParent) {
  database.link("kid", "pid", "p", "id", second);
  insert("kid", {{"pid", "1"}});
  EXPECT_EQ(dependents(0), Texts({"kid.pid: 0"}));
  update("kid", {{"pid", "2"}});
  EXPECT_EQ(dependents(1), Texts({"kid.pid: 0"}));
  EXPECT_TRUE(isLinked(1));
  update("kid", {{"pid", "2"}});
  EXPECT_EQ(dependents(1), Texts({"kid.pid: 0"}));
}

TEST_F(LinkTest, ATimedKeyIsRecordedWithAllItsComingParents) {
  database.link("kid", "pid", "p", "id", second);
  insertTimed("kid", "pid", timed({{"1", 10}, {"3", 10}}));
  EXPECT_EQ(dependents(0), Texts({"kid.pid: 0"}));
  EXPECT_EQ(dependents(1), Texts());
  EXPECT_EQ(dependents(2), Texts({"kid.pid: 0"}));
}

TEST_F(LinkTest, EveryLinkIsCheckedBeforeAnyIsRecorded) {
  database.link("kid", "pid", "p", "id", second);
  database.link("kid", "qid", "q", "id", second);
  EXPECT_EQ(failureOf([&] {
              insert("kid", {{"pid", "1"}, {"qid", "9"}});
            }),
            "Primary table is missing required future key: 9");
  EXPECT_EQ(dependents(0), Texts());
  EXPECT_FALSE(isLinked(0));
  EXPECT_EQ(database.getTable("kid").rowCount(), 0U);

  insert("kid", {{"pid", "1"}, {"qid", "1"}});
  EXPECT_EQ(failureOf([&] {
              update("kid", {{"qid", "9"}});
            }),
            "Primary table is missing required future key: 9");
  EXPECT_EQ(failureOf([&] {
              update("kid", {{"pid", "2"}});
            }),
            "Primary table is missing required future key: 9");
  EXPECT_EQ(dependents(1), Texts());
  EXPECT_FALSE(isLinked(1));
}

TEST_F(LinkTest, IsActivelyRestrictedAsksLiveChildrenForTheKey) {
  database.link("kid", "pid", "p", "id", second);
  insert("kid", {{"pid", "1"}});
  EXPECT_TRUE(isRestricted(0, "1"));
  EXPECT_FALSE(isRestricted(0, "01"));
  EXPECT_FALSE(isRestricted(0, "2"));
  EXPECT_FALSE(isRestricted(1, "1"));
  database.deleteRows("kid", {}, second);
  EXPECT_TRUE(isLinked(0));
  EXPECT_FALSE(isRestricted(0, "1"));
}

TEST_F(LinkTest, IsActivelyRestrictedCountsTheStatesStillToCome) {
  database.link("kid", "pid", "p", "id", second);
  insertTimed("kid", "pid", timed({{"1", 10}, {"2", 10}}));
  second = startSecond + 9;
  EXPECT_TRUE(isRestricted(0, "1"));
  EXPECT_TRUE(isRestricted(1, "2"));
  second = startSecond + 10;
  EXPECT_FALSE(isRestricted(0, "1"));
  EXPECT_TRUE(isRestricted(1, "2"));
}

TEST_F(LinkTest, DroppingTheChildTableMakesParentsForgetIt) {
  database.createTable("other", {{"pid", "int"}});
  database.link("kid", "pid", "p", "id", second);
  database.link("other", "pid", "p", "id", second);
  insert("kid", {{"pid", "1"}});
  insert("other", {{"pid", "1"}});
  database.dropTable("kid");
  EXPECT_EQ(dependents(0), Texts({"other.pid: 0"}));
  database.dropTable("other");
  EXPECT_EQ(dependents(0), Texts());
}

TEST_F(LinkTest, ReplacingTheChildTableMakesItsParentsForgetIt) {
  insert("kid", {{"pid", "1"}});
  database.link("kid", "pid", "p", "id", second);
  const auto create = [&] { database.createTable("kid", {{"pid", "int"}}); };
  EXPECT_EQ(failureOf(create), "Column size error");
  insert("kid", {{"pid", "1"}});
  EXPECT_EQ(dependents(0), Texts());
  EXPECT_EQ(database.deleteRows("p", where("id", "1"), second).rowsAffected, 1);
}

TEST_F(LinkTest, DependentsThatPointNowhereRestrictNothing) {
  std::unique_ptr<Dependents>& list = database.getTable("p").dependentsPlace(0);
  const auto add = [&](const char* table, const char* column, const Indices& rows) {
    list =
        std::make_unique<Dependents>(Dependents{{Text(table), Text(column)}, {}, std::move(list)});
    for (const std::int32_t row : rows) list->childRows.add(row);
  };
  add("gone", "pid", {0});
  add("kid", "nosuch", {0});
  add("kid", "pid", {0, 99});
  EXPECT_FALSE(isRestricted(0, "1"));
  // Those behind them are asked all the same.
  insert("kid", {{"pid", "1"}});
  add("kid", "nosuch", {0});
  add("gone", "pid", {0});
  EXPECT_TRUE(isRestricted(0, "1"));
  database.deleteRows("kid", {}, second);
  EXPECT_EQ(database.deleteRows("p", where("id", "1"), second).rowsAffected, 1);
}

TEST_F(LinkTest, RollbackOfAnInsertLetsTheParentGo) {
  database.link("kid", "pid", "p", "id", second);
  insert("kid", {{"pid", "1"}});
  database.beginTransaction();
  insert("kid", {{"pid", "1"}});
  EXPECT_EQ(dependents(0), Texts({"kid.pid: 0 1"}));
  database.rollbackTransaction(second);
  EXPECT_EQ(dependents(0), Texts({"kid.pid: 0"}));
}

TEST_F(LinkTest, RollbackOfAnUpdateRecordsTheOldParentAgain) {
  database.link("kid", "pid", "p", "id", second);
  insert("kid", {{"pid", "1"}});
  database.beginTransaction();
  update("kid", {{"pid", "2"}});
  database.rollbackTransaction(second);
  EXPECT_EQ(dependents(0), Texts({"kid.pid: 0"}));
  EXPECT_TRUE(isRestricted(0, "1"));
  EXPECT_FALSE(isRestricted(1, "2"));
}

}  // namespace
}  // namespace velmora
