// Threads: reads beside reads, reads beside writes, and hosts that call the exported functions from
// many threads. The tests state what must hold in every interleaving; data races are for
// ThreadSanitizer to find, so the shared paths are walked often rather than long.
//
// The answer of ExecuteQuery belongs to the engine until its next call, so threads here either keep
// a lock of their own around call and reading, or do not read it.

#include <gtest/gtest.h>

#include <array>
#include <atomic>
#include <barrier>
#include <filesystem>
#include <functional>
#include <mutex>
#include <set>
#include <thread>

#include "database_fixture.h"
#include "velmora/velmora.h"

namespace velmora {
namespace {

// Runs all of them beside each other, each in a thread of its own, and waits for their ends.
void runTogether(const std::vector<std::function<void()>>& works) {
  std::barrier begin(static_cast<std::ptrdiff_t>(works.size()));
  std::vector<std::thread> threads;
  threads.reserve(works.size());
  for (const std::function<void()>& work : works) {
    threads.emplace_back([&begin, &work] {
      begin.arrive_and_wait();
      work();
    });
  }
  for (std::thread& thread : threads) thread.join();
}

std::vector<std::function<void()>> times(std::size_t count, const std::function<void()>& work) {
  return std::vector<std::function<void()>>(count, work);
}

// The clock moves on by a second with every few readings, so that timed cells change their states
// while they are read.
class ThreadTest : public DatabaseTest {
 protected:
  ThreadTest() {
    ticks = 0;
    clock::setSource([] { return startSecond + ticks.fetch_add(1) / 4; });
  }

  static constexpr std::size_t threadCount = 4;
  static constexpr int rounds = 150;
  static inline std::atomic<std::int64_t> ticks = 0;
};

TEST_F(ThreadTest, SelectsOfTimedValuesBesideEachOther) {
  database.createTable("light", {{"id", "ApexInt"}, {"v", "string", 3}, {"n", "int", 3}});
  database.createTable("colour", {{"name", "string"}, {"code", "int"}});
  const TempRule colours = timed({{"red", 2}, {"amber", 1}, {"green", 3}}, true);
  for (int i = 0; i < 20; ++i) insertTimed("light", "v", colours, {{"n", "5"}});
  updateTimed("light", "n", timed({{"1", 3}, {"2", 3}}, true));
  for (const char* name : {"red", "amber", "green"}) insert("colour", {{"name", name}});

  std::set<std::string> known;
  for (const char* colour : {"red", "amber", "green"}) {
    for (const char* number : {"1", "2"}) {
      known.insert(std::string(R"({"v": ")") + colour + R"(", "n": )" + number + "}");
    }
  }
  runTogether(times(threadCount, [&] {
    for (int i = 0; i < rounds; ++i) {
      const Texts all = rowsOf(database.select("light", {"v", "n"}, {}, clock::now()));
      EXPECT_EQ(all.size(), 20U);
      for (const std::string& row : all) EXPECT_TRUE(known.contains(row)) << row;
      EXPECT_EQ(database.select("light", {"id"}, where("id", "7"), clock::now()).rowsAffected, 1);
      const auto count =
          database.select("light", {"id"}, where("v", "red"), clock::now()).rowsAffected;
      EXPECT_TRUE(count == 0 || count == 20) << count;
      const ResultSet pairs =
          database.selectJoin("light", "colour", {"light", "v"}, {"colour", "name"},
                              {{"colour", "name"}}, {}, clock::now());
      EXPECT_EQ(pairs.rowsAffected, 20);
    }
  }));
}

// Whatever a scan or a join prepares on its first run, readers that come together prepare it
// without getting in each other's way, and again after every change.
TEST_F(ThreadTest, FirstScansOfAFreshOrChangedTableBesideEachOther) {
  for (int i = 0; i < 6; ++i) {
    const std::string name = "t" + std::to_string(i);
    database.createTable(name, {{"n", "int"}, {"f", "float"}, {"s", "string"}, {"v", "int", 2}});
    for (int row = 0; row < 300; ++row) {
      const std::string number = std::to_string(row % 30);
      const Values others = {{"n", row % 3 == 0 ? "0" + number : number}, {"s", "x" + number}};
      insertTimed(name, "v", timed({{"1", 2}, {"2", 2}}, true), others);
    }
    const auto read = [&] {
      for (int round = 0; round < 3; ++round) {
        const auto countOf = [&](const Condition& condition) {
          return database.select(name, {"n"}, {condition}, clock::now()).rowsAffected;
        };
        EXPECT_EQ(countOf({"", "n", "4", ">", 'o'}), 250);
        EXPECT_EQ(countOf({"", "n", "07", "=", 'o'}) + countOf({"", "n", "7", "=", 'o'}), 10);
        EXPECT_EQ(countOf({"", "s", "x5", "=", 'o'}), 10);
        EXPECT_EQ(countOf({"", "f", "#/#?", "=", 'o'}), 300);
        EXPECT_EQ(countOf({"", "v", "0", ">", 'o'}), 300);
        EXPECT_EQ(database.selectJoin(name, name, {"", "s"}, {"", "s"}, {}, {}, clock::now())
                      .rowsAffected,
                  3000);
      }
    };
    runTogether(times(threadCount, read));
    update(name, {{"f", "#/#?"}});
    runTogether(times(threadCount, read));
  }
}

TEST_F(ThreadTest, CreatingAccessesBesideEachOther) {
  database.createTable("t", {{"a", "int"}});
  insert("t", {{"a", "1"}});
  runTogether(times(threadCount, [&] {
    for (int i = 0; i < rounds; ++i) {
      const std::string name = "ghost" + std::to_string(i % 50);
      EXPECT_EQ(failureOf([&] { return database.select(name, {"a"}, {}, clock::now()); }),
                "Requested column not found");
      EXPECT_EQ(database.select(name, {}, {}, clock::now()).rowsAffected, 0);
      EXPECT_EQ(database.select("t", {"a"}, where("nosuch", "1"), clock::now()).rowsAffected, 0);
      EXPECT_EQ(database.select("t", {"a"}, {}, clock::now()).rowsAffected, 1);
    }
  }));
  for (int i = 0; i < 50; ++i) {
    EXPECT_TRUE(database.getTable("ghost" + std::to_string(i)).columns.empty());
  }
}

TEST_F(ThreadTest, CreatingAccessesBesideDrops) {
  const auto read = [&] {
    for (int i = 0; i < rounds; ++i) {
      EXPECT_EQ(database.select("ghost", {}, {}, clock::now()).rowsAffected, 0);
      EXPECT_EQ(failureOf([&] {
                  return database.selectJoin("ghost", "ghost2", {"", "x"}, {"", "y"}, {}, {},
                                             clock::now());
                }),
                "Column 'x' not found in either table.");
    }
  };
  const auto drop = [&] {
    for (int i = 0; i < rounds; ++i) {
      for (const char* name : {"ghost", "ghost2"}) {
        const std::string failure = failureOf([&] { database.dropTable(name); });
        const std::string missing =
            "Syntax Error: Table '" + std::string(name) + "' does not exist.";
        EXPECT_TRUE(failure.empty() || failure == missing) << failure;
      }
    }
  };
  runTogether({read, read, drop});
}

// One UPDATE gives both columns of all rows one number: a reader sees all of it or nothing.
TEST_F(ThreadTest, SelectsSeeWholeUpdates) {
  database.createTable("t", {{"id", "ApexInt"}, {"a", "int"}, {"b", "int"}});
  for (int i = 0; i < 30; ++i) insert("t", {});
  const auto write = [&] {
    for (int i = 1; i <= rounds; ++i) {
      update("t", {{"a", std::to_string(i)}, {"b", std::to_string(i)}});
    }
  };
  std::set<std::string> whole;
  for (int i = 0; i <= rounds; ++i) {
    const std::string number = std::to_string(i);
    whole.insert(R"({"a": )" + number + R"(, "b": )" + number + "}");
  }
  const auto read = [&] {
    for (int i = 0; i < rounds; ++i) {
      const Texts rows = rowsOf(database.select("t", {"a", "b"}, {}, clock::now()));
      EXPECT_EQ(rows.size(), 30U);
      EXPECT_TRUE(whole.contains(rows.front())) << rows.front();
      EXPECT_EQ(rows, Texts(30, rows.front()));
    }
  };
  runTogether({write, read, read, read});
}

// Each writer inserts rows that bear its mark, and deletes the last three of them at a time.
TEST_F(ThreadTest, SelectsBesideInsertsAndDeletes) {
  database.createTable("t", {{"id", "ApexInt"}, {"mark", "string"}, {"v", "string", 3}});
  const auto write = [&](const std::string& mark) {
    for (int i = 0; i < rounds; ++i) {
      insertTimed("t", "v", timed({{"x", 2}, {"y", 2}}, true), {{"mark", mark}});
      if (i % 3 == 0) {
        EXPECT_EQ(database.deleteRows("t", where("mark", mark), clock::now()).rowsAffected,
                  i == 0 ? 1 : 3);
      }
    }
  };
  const auto read = [&] {
    for (int i = 0; i < rounds; ++i) {
      const Texts rows = rowsOf(database.select("t", {"id", "v"}, {}, clock::now()));
      // At most three rows of a mark are alive at a time.
      EXPECT_LE(rows.size(), 6U);
      int last = 0;
      for (const std::string& row : rows) {
        const int id = std::stoi(row.substr(std::string_view(R"({"id": )").size()));
        EXPECT_GT(id, last);
        last = id;
      }
      EXPECT_LE(
          database.select("t", {"id"}, {{"", "id", "100", ">=", 'o'}}, clock::now()).rowsAffected,
          6);
    }
  };
  runTogether({[&] { write("one"); }, [&] { write("two"); }, read, read});
  EXPECT_EQ(database.getTable("t").rowCount(), 2U * rounds);
  EXPECT_EQ(database.getTable("t").keys().size(), 2U * rounds);
  EXPECT_EQ(database.pendingWebhooks.size(), 4U * rounds);
  EXPECT_EQ(bytesOf("webhooks.bin").size(), 85U * 4U * rounds);
}

TEST_F(ThreadTest, ListenersCheckpointsAndTablesBesideSelects) {
  database.createTable("t", {{"id", "ApexInt"}, {"v", "string", 3}, {"f", "float"}});
  for (int i = 0; i < 20; ++i) {
    insertTimed("t", "v", timed({{"x", 2}, {"y", 2}}, true), {{"f", "1.5"}});
  }
  const auto listen = [&] {
    for (int i = 0; i < rounds; ++i) {
      database.addListener({"t", "INSERT", "hook" + std::to_string(i % 10), {}}, false);
    }
  };
  const auto checkpoint = [&] {
    for (int i = 0; i < 15; ++i) database.checkpoint(clock::now());
  };
  const auto read = [&] {
    for (int i = 0; i < rounds; ++i) {
      EXPECT_EQ(database.select("t", {"id", "v", "f"}, {}, clock::now()).rowsAffected, 20);
      EXPECT_EQ(database.select("t", {"id"}, {{"", "f", "1", ">", 'o'}}, clock::now()).rowsAffected,
                20);
    }
  };
  const auto define = [&] {
    for (int i = 0; i < 30; ++i) {
      const std::string name = "made" + std::to_string(i);
      database.createTable(name, {{"column" + std::to_string(i), "int"}});
      insert(name, {});
      if (i % 2 == 0) database.dropTable(name);
    }
  };
  runTogether({listen, listen, checkpoint, read, read, define});
  EXPECT_EQ(database.listeners.at("t").size(), 10U);
  EXPECT_EQ(bytesOf("listeners.bin").size(), 134U * 10U);
  EXPECT_EQ(database.tables.size(), 16U);
}

// What a checkpoint writes is what some moment between two changes held: all rows alike.
TEST_F(ThreadTest, UpdatesListenersAndCheckpointsBesideSelects) {
  database.createTable("t", {{"id", "ApexInt"}, {"v", "string", 3}, {"a", "int"}, {"b", "int"}});
  for (int i = 0; i < 20; ++i) insertTimed("t", "v", timed({{"x", 2}, {"y", 2}}, true));
  const auto write = [&] {
    for (int i = 0; i < rounds; ++i) {
      const std::string number = std::to_string(i);
      update("t", {{"a", number}, {"b", number}});
      if (i % 10 == 0) updateTimed("t", "v", timed({{"z", 1}, {"w", 1}}, true));
    }
  };
  const auto listen = [&] {
    for (int i = 0; i < rounds; ++i) {
      database.addListener({"t", "UPDATE", "hook" + std::to_string(i % 5), {}}, false);
    }
  };
  const auto checkpoint = [&] {
    for (int i = 0; i < 15; ++i) database.checkpoint(clock::now());
  };
  const auto read = [&] {
    for (int i = 0; i < rounds; ++i) {
      const Texts rows = rowsOf(database.select("t", {"a", "b"}, {}, clock::now()));
      EXPECT_EQ(rows, Texts(20, rows.front()));
      EXPECT_EQ(
          database.select("t", {"v"}, {{"", "id", "1", ">=", 'o'}}, clock::now()).rowsAffected, 20);
    }
  };
  runTogether({write, listen, checkpoint, checkpoint, read, read});
  database.checkpoint(clock::now());
  const std::string last = std::to_string(rounds - 1);
  EXPECT_EQ(database.select("t", {"id"}, where("a", last), clock::now()).rowsAffected, 20);
  Database loaded(database.directory);
  loaded.loadFromDisk();
  EXPECT_EQ(rowsOf(loaded.select("t", {"a", "b"}, {}, clock::now())),
            Texts(20, R"({"a": )" + last + R"(, "b": )" + last + "}"));
  EXPECT_EQ(loaded.listeners.at("t").size(), 5U);
}

// However the commands interleave, a child without its parent never shows.
TEST_F(ThreadTest, LinksHoldBesideWriters) {
  database.createTable("p", {{"id", "ApexInt"}});
  database.createTable("kid", {{"pid", "int"}});
  for (int i = 0; i < 10; ++i) insert("p", {});
  const auto addChildren = [&] {
    for (int i = 0; i < rounds; ++i) {
      // Refused when the parent is gone.
      failureOf([&] { return insert("kid", {{"pid", std::to_string(1 + i % 10)}}); });
    }
  };
  const auto removeChildren = [&] {
    for (int i = 0; i < rounds; ++i) {
      database.deleteRows("kid", where("pid", std::to_string(1 + i % 10)), clock::now());
    }
  };
  const auto removeParents = [&] {
    for (int i = 0; i < rounds; ++i) {
      // Refused while children refer to it.
      failureOf([&] {
        return database.deleteRows("p", where("id", std::to_string(1 + i % 7)), clock::now());
      });
    }
  };
  std::set<std::string> truePairs;
  for (int id = 1; id <= 10; ++id) {
    const std::string number = std::to_string(id);
    truePairs.insert(R"({"kid.pid": )" + number + R"(, "p.id": )" + number + "}");
  }
  const auto read = [&] {
    for (int i = 0; i < rounds; ++i) {
      ResultSet pairs = database.selectJoin("kid", "p", {"kid", "pid"}, {"p", "id"},
                                            {{"kid", "pid"}, {"p", "id"}}, {}, clock::now());
      for (const std::string& row : rowsOf(std::move(pairs)))
        EXPECT_TRUE(truePairs.contains(row)) << row;
    }
  };
  database.link("kid", "pid", "p", "id", clock::now());
  runTogether({addChildren, removeChildren, removeParents, read});
  const auto children = database.select("kid", {"pid"}, {}, clock::now()).rowsAffected;
  EXPECT_EQ(
      database.selectJoin("kid", "p", {"", "pid"}, {"", "id"}, {}, {}, clock::now()).rowsAffected,
      children);
}

TEST_F(ThreadTest, TransactionsBesideSelects) {
  database.createTable("t", {{"id", "ApexInt"}, {"a", "int"}});
  for (int i = 0; i < 10; ++i) insert("t", {{"a", "0"}});
  const auto write = [&] {
    for (int i = 0; i < rounds; ++i) {
      database.beginTransaction();
      update("t", {{"a", "1"}});
      insert("t", {{"a", "1"}});
      database.deleteRows("t", where("id", "3"), clock::now());
      database.rollbackTransaction(clock::now());
    }
  };
  const auto read = [&] {
    for (int i = 0; i < rounds; ++i) {
      const auto count = database.select("t", {"a"}, {}, clock::now()).rowsAffected;
      EXPECT_TRUE(count == 10 || count == 11) << count;
    }
  };
  runTogether({write, read, read});
  EXPECT_EQ(database.select("t", {"a"}, where("a", "0"), clock::now()).rowsAffected, 10);
}

// The exported functions, in a directory that is the process's current one for the test.
class ExportedThreadTest : public testing::Test {
 protected:
  ExportedThreadTest() : before_(std::filesystem::current_path()) {
    std::string name = (std::filesystem::temp_directory_path() / "velmora-threads-XXXXXX").string();
    if (mkdtemp(name.data()) == nullptr) throw std::runtime_error("cannot make " + name);
    path_ = name;
    std::filesystem::current_path(path_);
  }
  ~ExportedThreadTest() override {
    StopEngine();
    std::filesystem::current_path(before_);
    std::error_code ignored;
    std::filesystem::remove_all(path_, ignored);
  }

  // One command and its whole answer; the lock is the one that a host with threads has to keep.
  std::string ask(const std::string& command) {
    const std::lock_guard lock(hostMutex_);
    return ExecuteQuery(command.c_str());
  }
  static std::string succeeded(int rowsAffected) {
    return "{\n  \"success\": true,\n  \"message\": \"success!\",\n  \"rows_affected\": " +
           std::to_string(rowsAffected) + "\n}";
  }

  static constexpr int rounds = 100;

 private:
  std::filesystem::path before_;
  std::filesystem::path path_;
  std::mutex hostMutex_;
};

TEST_F(ExportedThreadTest, EveryThreadsInsertsArriveOnce) {
  StartEngine();
  ask("CREATE TABLE t id ApexInt who int v string 2");
  std::vector<std::function<void()>> works;
  for (int who = 0; who < 6; ++who) {
    works.emplace_back([who] {
      const std::string number = std::to_string(who);
      for (int i = 0; i < rounds; ++i) {
        ExecuteQuery(("INSERT INTO t who = " + number + " v = 'a' --> 'b' @ 1 s c").c_str());
        ExecuteQuery(("SELECT id, v FROM t WHERE who = " + number).c_str());
        ExecuteQuery(("LISTEN t.INSERT --> 'hook" + number + "'").c_str());
        if (i % 25 == 0) ExecuteQuery("CHECKPOINT");
      }
    });
  }
  runTogether(works);
  EXPECT_EQ(ask("UPDATE t SET who = 9 WHERE id > 0"), succeeded(6 * rounds));
  for (int id = 1; id <= 6 * rounds; id += 37) {
    EXPECT_EQ(ask("SELECT who FROM t WHERE id = " + std::to_string(id)),
              "{\n  \"success\": true,\n  \"message\": \"\",\n  \"rows_affected\": 1,\n"
              "  \"data\": [\n    {\"who\": 9}\n  ]\n}");
  }
  EXPECT_EQ(std::filesystem::file_size("listeners.bin"), 6U * 134U);
}

TEST_F(ExportedThreadTest, EveryThreadReadsTheAnswerToItsOwnCommand) {
  StartEngine();
  ask("CREATE TABLE t id ApexInt a int");
  for (int i = 1; i <= 20; ++i) ask("INSERT INTO t a = " + std::to_string(i * 11));
  std::vector<std::function<void()>> works;
  for (int who = 0; who < 4; ++who) {
    works.emplace_back([this, who] {
      for (int i = 0; i < rounds; ++i) {
        const int id = 1 + (who * 7 + i) % 20;
        EXPECT_EQ(ask("SELECT a FROM t WHERE id = " + std::to_string(id)),
                  "{\n  \"success\": true,\n  \"message\": \"\",\n  \"rows_affected\": 1,\n"
                  "  \"data\": [\n    {\"a\": " +
                      std::to_string(id * 11) + "}\n  ]\n}");
      }
    });
  }
  runTogether(works);
}

TEST_F(ExportedThreadTest, StartsAndStopsBesideCommands) {
  StartEngine();
  ask("CREATE TABLE t id ApexInt a int");
  const auto restart = [] {
    for (int i = 0; i < 5; ++i) {
      StopEngine();
      StartEngine();
    }
  };
  const auto command = [] {
    for (int i = 0; i < rounds; ++i) {
      ExecuteQuery("INSERT INTO t a = 1");
      ExecuteQuery("SELECT * FROM t");
    }
  };
  const auto failing = [] {
    for (int i = 0; i < rounds; ++i) {
      ExecuteQuery("no such command");
      try {
        ExecuteQuery("SELECT * FROM t WHERE id = abc");
      } catch (const std::invalid_argument& exception) {
        EXPECT_STREQ(exception.what(), "stoi");
      }
    }
  };
  runTogether({restart, restart, command, command, failing});
  StartEngine();
  const std::string answer = ask("SELECT id FROM t");
  EXPECT_NE(answer.find("\"success\": true"), std::string::npos) << answer;
}

}  // namespace
}  // namespace velmora
