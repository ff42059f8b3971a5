// The queue of scheduled changes and the registry of listeners: what is pending in memory, in which
// order it comes off the queue, and where each task's record lies in the file.
//
// The bytes of the records are pinned by the golden scripts.

#include <algorithm>
#include <iostream>
#include <limits>
#include <set>

#include "database_fixture.h"

namespace velmora {
namespace {

class WebhookQueueTest : public DatabaseTest {
 protected:
  WebhookQueueTest() { database.createTable("t", {{"v", "string", 9}, {"n", "int", 9}}); }

  // The pending tasks in the order in which a consumer takes them off the queue.
  std::vector<WebhookTask> takenInOrder() {
    std::vector<WebhookTask> queue = database.pendingWebhooks;
    std::vector<WebhookTask> taken;
    while (!queue.empty()) {
      std::pop_heap(queue.begin(), queue.end(), WebhookTask::firesLater);
      taken.push_back(queue.back());
      queue.pop_back();
    }
    return taken;
  }

  // The same as texts: "1010 B".
  Texts pending() {
    Texts texts;
    for (const WebhookTask& task : takenInOrder()) {
      texts.push_back(std::to_string(task.fireTime) + " " + task.value);
    }
    return texts;
  }
};

const std::vector<std::pair<std::string, std::int64_t>> abc = {{"A", 10}, {"B", 20}, {"C", 5}};

TEST_F(WebhookQueueTest, AValueThatRunsOnceSchedulesEveryChange) {
  insertTimed("t", "v", timed(abc, false, 1000));
  EXPECT_EQ(pending(), Texts({"1010 B", "1030 C"}));
}

// Deliberate: the last task of a cycling value carries the last state, not the first.
TEST_F(WebhookQueueTest, ACyclingValueSchedulesAsManyTasksAsStates) {
  insertTimed("t", "v", timed(abc, true, 1000));
  EXPECT_EQ(pending(), Texts({"1010 B", "1030 C", "1035 C"}));
}

TEST_F(WebhookQueueTest, OneStateThatRunsOnceSchedulesNothing) {
  insertTimed("t", "v", timed({{"A", 10}}));
  EXPECT_EQ(pending(), Texts());
  EXPECT_FALSE(exists("webhooks.bin"));
}

TEST_F(WebhookQueueTest, OneStateThatCyclesSchedulesItself) {
  insertTimed("t", "v", timed({{"A", 10}}, true, 1000));
  EXPECT_EQ(pending(), Texts({"1010 A"}));
}

TEST_F(WebhookQueueTest, ATaskSaysWhichCellChangesWhenAndHow) {
  insert("t", {});
  insertTimed("t", "n", timed({{"1", 10}, {"2", 30}}, true, 1000));
  const std::vector<WebhookTask> tasks = takenInOrder();
  ASSERT_EQ(tasks.size(), 2U);
  EXPECT_EQ(tasks[0].fireTime, 1010);
  EXPECT_EQ(tasks[0].tableName, "t");
  EXPECT_EQ(tasks[0].rowIndex, 1);
  EXPECT_EQ(tasks[0].column, "n");
  EXPECT_EQ(tasks[0].value, "2");
  EXPECT_TRUE(tasks[0].repeat);
  EXPECT_EQ(tasks[0].totalDuration, 40);
  EXPECT_EQ(tasks[0].startTime, 1000);
  EXPECT_EQ(tasks[0].filePosition, 0);
  EXPECT_EQ(tasks[1].fireTime, 1040);
  EXPECT_EQ(tasks[1].filePosition, 85);
  EXPECT_EQ(bytesOf("webhooks.bin").size(), 170U);
}

TEST_F(WebhookQueueTest, TasksOfSeveralCellsComeOffByFireTime) {
  insertTimed("t", "v", timed({{"late", 50}, {"later", 50}, {"latest", 50}}, false, 1000));
  insertTimed("t", "v", timed({{"a", 10}, {"b", 60}, {"c", 60}}, false, 1000));
  insertTimed("t", "v", timed({{"x", 5}, {"y", 5}}, false, 900));
  EXPECT_EQ(pending(), Texts({"905 y", "1010 b", "1050 later", "1070 c", "1100 latest"}));
  EXPECT_EQ(database.pendingWebhooks.front().fireTime, 905);
}

TEST_F(WebhookQueueTest, ManyTasksComeOffInOrder) {
  for (std::int64_t i = 0; i < 500; ++i) {
    const std::int64_t start = (i * 7919) % 500;
    insertTimed("t", "v", timed({{"a", 1000}, {"b", 1}}, false, start));
  }
  const std::vector<WebhookTask> tasks = takenInOrder();
  ASSERT_EQ(tasks.size(), 500U);
  for (std::size_t i = 0; i < tasks.size(); ++i) {
    EXPECT_EQ(tasks[i].fireTime, 1000 + static_cast<std::int64_t>(i));
    EXPECT_EQ(tasks[i].filePosition, tasks[i].rowIndex * 85);
  }
}

TEST_F(WebhookQueueTest, TasksOfTheFileComeOffInOrder) {
  for (const std::int64_t start : {5000, 1000, 4000, 2000, 3000}) {
    insertTimed("t", "v", timed(abc, false, start));
  }
  const Texts scheduled = pending();
  database.pendingWebhooks.clear();
  Database later(database.directory);
  std::streambuf* const output = std::cout.rdbuf(nullptr);
  later.loadFromDisk();
  std::cout.rdbuf(output);
  database.pendingWebhooks = later.pendingWebhooks;
  EXPECT_EQ(pending(), scheduled);
}

TEST_F(WebhookQueueTest, UpdateSchedulesForEveryMatchedRowAndKeepsEarlierTasks) {
  insertTimed("t", "v", timed({{"a", 10}, {"b", 10}}, false, 1000));
  insert("t", {});
  insert("t", {{"n", "5"}});
  updateTimed("t", "v", timed({{"c", 20}, {"d", 20}}, false, 1000), where("n", "0"));
  EXPECT_EQ(pending(), Texts({"1010 b", "1020 d", "1020 d"}));
  EXPECT_EQ(database.pendingWebhooks.size(), 3U);
}

TEST_F(WebhookQueueTest, PlainValuesScheduleNothing) {
  insert("t", {{"v", "x"}});
  update("t", {{"v", "y"}});
  database.deleteRows("t", {}, second);
  EXPECT_TRUE(database.pendingWebhooks.empty());
  EXPECT_FALSE(exists("webhooks.bin"));
}

TEST_F(WebhookQueueTest, NothingIsScheduledWhileReplaying) {
  database.isReplaying = true;
  insertTimed("t", "v", timed(abc));
  updateTimed("t", "v", timed(abc, true));
  EXPECT_TRUE(database.pendingWebhooks.empty());
  EXPECT_FALSE(exists("webhooks.bin"));
}

TEST_F(WebhookQueueTest, TransactionsScheduleAtOnce) {
  database.beginTransaction();
  insertTimed("t", "v", timed({{"a", 10}, {"b", 10}}, false, 1000));
  EXPECT_EQ(pending(), Texts({"1010 b"}));
}

TEST_F(WebhookQueueTest, ARefusedRowSchedulesNothing) {
  database.createTable("p", {{"id", "ApexInt"}});
  database.link("t", "n", "p", "id", second);
  insert("p", {});
  const TempRule rule = timed({{"1", 10}, {"2", 10}});
  EXPECT_NE(failureOf([&] { return insertTimed("t", "n", rule); }), "");
  insert("t", {{"n", "1"}});
  EXPECT_NE(failureOf([&] { return updateTimed("t", "n", rule); }), "");
  EXPECT_TRUE(database.pendingWebhooks.empty());
}

// Sums and products of times wrap as two's complement.
TEST_F(WebhookQueueTest, FireTimesWrap) {
  constexpr std::int64_t greatest = std::numeric_limits<std::int64_t>::max();
  TempRule rule;
  rule.states = {{Text("a"), 2}, {Text("b"), 2}};
  rule.startTime = greatest;
  database.registerWebhook("t", 0, "v", rule);
  ASSERT_EQ(database.pendingWebhooks.size(), 1U);
  EXPECT_EQ(database.pendingWebhooks[0].fireTime, std::numeric_limits<std::int64_t>::min() + 1);
}

// Listeners.

TEST_F(WebhookQueueTest, ListenersAreKeptByTable) {
  const std::vector<Condition> conditions = {{"", "n", "1", ">", 'o'}, {"", "v", "x", "=", 'a'}};
  database.addListener({"t", "INSERT", "hook", {}}, false);
  database.addListener({"t", "UPDATE", "hook", conditions}, false);
  database.addListener({"u", "INSERT", "hook", {}}, false);
  const std::set<Listener> expected = {{"t", "INSERT", "hook", {}},
                                       {"t", "UPDATE", "hook", conditions}};
  EXPECT_EQ(database.listeners.at("t"), expected);
  EXPECT_EQ(database.listeners.at("u").size(), 1U);
  EXPECT_EQ(bytesOf("listeners.bin").size(), 134U + 222U + 134U);
}

TEST_F(WebhookQueueTest, AListenerRegisteredTwiceIsKeptOnce) {
  for (int i = 0; i < 3; ++i) {
    database.addListener({"t", "INSERT", "hook", {{"", "n", "1", ">", 'o'}}}, false);
  }
  EXPECT_EQ(database.listeners.at("t").size(), 1U);
  EXPECT_EQ(bytesOf("listeners.bin").size(), 178U);
}

TEST_F(WebhookQueueTest, AListenerThatDiffersInOneFieldIsAnotherOne) {
  const std::vector<Condition> base = {{"", "n", "1", ">", 'o'}, {"", "v", "x", "=", 'a'}};
  std::vector<std::vector<Condition>> variants = {base, {}, {base[0]}, {base[1], base[0]}};
  for (std::string Condition::*field : {&Condition::column, &Condition::value, &Condition::op}) {
    variants.push_back(base);
    variants.back()[1].*field += "2";
  }
  variants.push_back(base);
  variants.back()[1].logic = 'o';
  for (const std::vector<Condition>& conditions : variants) {
    database.addListener({"t", "INSERT", "hook", conditions}, false);
  }
  database.addListener({"t", "INSERT", "hook2", base}, false);
  database.addListener({"t", "DELETE", "hook", base}, false);
  EXPECT_EQ(database.listeners.at("t").size(), variants.size() + 2);
}

TEST_F(WebhookQueueTest, AListenerFromTheFileIsNotSavedAgain) {
  database.addListener({"t", "INSERT", "hook", {}}, true);
  EXPECT_EQ(database.listeners.at("t").size(), 1U);
  EXPECT_FALSE(exists("listeners.bin"));
  database.addListener({"t", "INSERT", "hook", {}}, false);
  EXPECT_FALSE(exists("listeners.bin"));
}

TEST_F(WebhookQueueTest, AListenerWhoseTextsTheFileCutsIsNotSavedAgain) {
  const Listener wide = {
      "t", "INSERT", std::string(120, 'h'), {{"t", "n", std::string(40, '1'), ">", 'o'}}};
  database.addListener(wide, false);
  const std::string saved = bytesOf("listeners.bin");
  EXPECT_EQ(saved.size(), 178U);
  Database later(database.directory);
  const auto read = Storage::readListeners(
      [&](const Listener& listener) { later.addListener(listener, true); }, later.directory);
  ASSERT_TRUE(read.has_value());
  later.addListener(wide, false);
  EXPECT_EQ(bytesOf("listeners.bin"), saved);
  // One that differs within the file's widths is another one.
  Listener other = wide;
  other.target[99] = 'x';
  later.addListener(other, false);
  EXPECT_EQ(bytesOf("listeners.bin").size(), 2 * 178U);
}

}  // namespace
}  // namespace velmora
