// A handle used by many threads at once: every read sees whole transactions, every answered change
// is there, and whatever runs or waits can be interrupted. Run under ThreadSanitizer, too.
#include <array>
#include <atomic>
#include <functional>
#include <thread>

#include "handle_fixture.h"

namespace handles {
namespace {

#if defined(__SANITIZE_THREAD__) || defined(__SANITIZE_ADDRESS__)
constexpr int rounds = 60;
#else
constexpr int rounds = 300;
#endif

class HandleThreads : public HandleTest {
 protected:
  // Opens it anew with a durability, and no limit on how long commands wait for a transaction.
  void openWith(std::uint32_t durability) {
    close();
    options.durability = durability;
    options.transaction_wait_milliseconds = VELMORA_NO_LIMIT;
    ASSERT_EQ(open(), "");
  }
  static void runAll(const std::vector<std::function<void()>>& works) {
    std::vector<std::thread> threads;
    for (const auto& work : works) threads.emplace_back(work);
    for (std::thread& thread : threads) thread.join();
  }
  // In a thread: what is not answered so is counted.
  void expect(const std::string& command, const std::string& answer) {
    const std::string actual = run(command);
    if (actual == answer) return;
    const std::scoped_lock lock(linesMutex);
    lines.push_back(command + ": " + actual);
  }
  void expectNoFaults() {
    for (const std::string& line : lines) ADD_FAILURE() << line;
    lines.clear();
  }

  // Two rows that together are 100 between any two transactions.
  void makeAccounts() {
    run("CREATE TABLE a id ApexInt n int");
    run("INSERT INTO a n = 100");
    run("INSERT INTO a n = 0");
    run("CREATE TABLE log id ApexInt n int s string 2");
  }
  void transfer(int worker) {
    for (int i = 0; i < rounds; ++i) {
      const std::string amount = std::to_string((worker * 31 + i * 7) % 101);
      expect("BEGIN", "0 rows");
      expect("UPDATE a SET n = " + amount + " WHERE id = 1", "1 row");
      const bool isTaken = i % 3 == 2;
      const std::string rest = std::to_string(100 - (worker * 31 + i * 7) % 101);
      expect("UPDATE a SET n = " + rest + " WHERE id = 2", "1 row");
      expect(isTaken ? "ROLLBACK" : "COMMIT", "0 rows");
    }
  }
  void readSums() {
    velmora_statement* statement = nullptr;
    const std::string_view text = "SELECT SUM(n), COUNT(*) FROM a WHERE id > ?";
    velmora_prepare(db, text.data(), text.size(), &statement, nullptr);
    const Bound zero(0);
    velmora_bind(statement, 1, &zero, nullptr);
    for (int i = 0; i < rounds; ++i) {
      velmora_result* result = nullptr;
      velmora_statement_run(statement, &result, nullptr);
      if (shown(result) != "100 2") expect("SELECT", shown(result));
      velmora_result_destroy(result);
      expect("SELECT SUM(n) FROM a AT 1800000000", "100");
    }
    velmora_statement_destroy(statement);
  }
  void addRows() {
    for (int i = 0; i < rounds; ++i) {
      const std::string answer = run("INSERT INTO log n = 1 s = 'a' --> 'b' @ 5 s c");
      if (answer.rfind("1 row, number ", 0) != 0) expect("INSERT", answer);
      run("SELECT s, COUNT(*) FROM log GROUP BY s");
      run("SHOW SCHEDULE FROM log");
    }
  }
  void lookAfter() {
    for (int i = 0; i < rounds / 20; ++i) {
      expect("CHECKPOINT", "0 rows");
      const std::string copy = (directory / ("copy" + std::to_string(i))).string();
      if (velmora_backup(db, copy.data(), copy.size(), nullptr) != VELMORA_OK) expect("backup", "");
      run("VACUUM log");
      expectCopy(copy);
    }
  }
  void expectCopy(const std::string& copy) {
    velmora_db* other = nullptr;
    if (velmora_open(copy.data(), copy.size(), nullptr, &other, nullptr) != VELMORA_OK) {
      expect("open", "");
      return;
    }
    const std::string sum = handles::run(other, "SELECT SUM(n) FROM a");
    if (sum != "100") expect("SUM", sum);
    velmora_close(other, nullptr);
  }
  void changeTables() {
    for (int i = 0; i < rounds / 10; ++i) {
      expect("CREATE TABLE c p int", "0 rows");
      expect("INSERT INTO c p = 1", "1 row");
      expect("LINK c.p --> a.id", "0 rows");
      expect("DELETE FROM a", "! 8 a.id: Rows are linked to the key '1' of table 'a'");
      expect("DROP TABLE c", "0 rows");
    }
  }
};

// More than have a place of their own where readers are noted, and threads that come after others.
TEST_F(HandleThreads, ReadByKeyInAnyNumberWhileRowsChange) {
  run("CREATE TABLE a id ApexInt n int m int");
  run("INSERT INTO a n = 0 m = 0");
  const auto readRow = [&] {
    velmora_statement* statement = nullptr;
    const std::string_view text = "SELECT id, n, m FROM a WHERE id = ?";
    velmora_prepare(db, text.data(), text.size(), &statement, nullptr);
    for (int i = 0; i < rounds; ++i) {
      const Bound first(1);
      velmora_bind(statement, 1, &first, nullptr);
      velmora_result* result = nullptr;
      velmora_statement_run(statement, &result, nullptr);
      const bool isWhole =
          velmora_result_integer(result, 0, 0) == 1 &&
          velmora_result_integer(result, 0, 1) == velmora_result_integer(result, 0, 2);
      if (!isWhole) expect("SELECT", shown(result));
      velmora_result_destroy(result);
    }
    velmora_statement_destroy(statement);
  };
  const auto changeRow = [&] {
    for (int i = 0; i < rounds; ++i) {
      const std::string number = std::to_string(i);
      expect("UPDATE a SET n = " + number + " m = " + number + " WHERE id = 1", "1 row");
      expect("INSERT INTO a n = 1 m = 1", "1 row, number " + std::to_string(i + 2));
    }
  };
  std::vector<std::function<void()>> works = {changeRow};
  works.insert(works.end(), 40, readRow);
  runAll(works);
  works.assign(40, readRow);
  runAll(works);
  expectNoFaults();
}

TEST_F(HandleThreads, seeWholeTransactionsAndKeepWhatWasAnswered) {
  for (const std::uint32_t durability :
       {VELMORA_DURABILITY_OFF, VELMORA_DURABILITY_EVERYSEC, VELMORA_DURABILITY_ALWAYS}) {
    openWith(durability);
    makeAccounts();
    runAll({[&] { transfer(1); }, [&] { transfer(2); }, [&] { readSums(); }, [&] { readSums(); },
            [&] { addRows(); }, [&] { lookAfter(); }, [&] { changeTables(); }});
    expectNoFaults();
    const std::string rows = std::to_string(rounds);
    EXPECT_EQ(run("SELECT COUNT(*), MAX(id), SUM(n) FROM log"), rows + " " + rows + " " + rows);
    const std::string accounts = run("SELECT * FROM a");
    EXPECT_EQ(crash(), "");
    EXPECT_EQ(run("SELECT * FROM a"), accounts);
    EXPECT_EQ(run("SELECT COUNT(*), MAX(id), SUM(n) FROM log"), rows + " " + rows + " " + rows);
    EXPECT_EQ(run("DROP TABLE a"), "0 rows");
    EXPECT_EQ(run("DROP TABLE log"), "0 rows");
    for (int i = 0; i < rounds / 20; ++i) {
      std::filesystem::remove_all(directory / ("copy" + std::to_string(i)));
    }
  }
}

TEST_F(HandleThreads, areInterruptedWhereverTheyRunOrWait) {
  openWith(VELMORA_DURABILITY_OFF);
  makeAccounts();
  run("CREATE TABLE big n int");
  velmora_statement* statement = nullptr;
  const std::string_view text = "INSERT INTO big n = ?";
  ASSERT_EQ(velmora_prepare(db, text.data(), text.size(), &statement, nullptr), VELMORA_OK);
  const std::vector<velmora_value> numbers(20000, Bound(1));
  EXPECT_EQ(velmora_statement_run_many(statement, numbers.data(), 20000, nullptr, nullptr),
            VELMORA_OK);
  velmora_statement_destroy(statement);
  std::atomic<int> running = 4;
  const auto untilInterrupted = [&](const std::string& command) {
    while (run(command) != "! 16: Interrupted") {
    }
    --running;
  };
  EXPECT_EQ(run("BEGIN"), "0 rows");
  std::thread waiting([&] { untilInterrupted("INSERT INTO a n = 1"); });
  std::thread reading([&] { untilInterrupted("SELECT * FROM a"); });
  std::thread saving([&] { untilInterrupted("CHECKPOINT"); });
  std::thread cleaning([&] { untilInterrupted("VACUUM"); });
  while (running > 0) {
    velmora_interrupt(db);
    std::this_thread::yield();
  }
  for (std::thread* const each : {&waiting, &reading, &saving, &cleaning}) each->join();
  EXPECT_EQ(run("ROLLBACK"), "0 rows");
  running = 1;
  std::thread joining([&] { untilInterrupted("SELECT COUNT(*) FROM big JOIN big ON n = n"); });
  while (running > 0) {
    velmora_interrupt(db);
    std::this_thread::yield();
  }
  joining.join();
  EXPECT_EQ(run("SELECT SUM(n), COUNT(*) FROM a"), "100 2");
}

TEST_F(HandleThreads, readWhileACheckpointIsWritten) {
  static velmora_db* asked = nullptr;
  static std::vector<std::string> answers;
  options.progress = [](void*, const char* step, std::size_t length, std::uint64_t, std::uint64_t) {
    if (asked != nullptr && std::string_view(step, length) == "checkpoint") {
      std::thread([] { answers.push_back(handles::run(asked, "SELECT SUM(n) FROM a")); }).join();
    }
    return 0;
  };
  openWith(VELMORA_DURABILITY_OFF);
  makeAccounts();
  answers.clear();
  asked = db;
  EXPECT_EQ(run("CHECKPOINT"), "0 rows");
  asked = nullptr;
  EXPECT_EQ(answers, std::vector<std::string>(2, "100"));
}

// All rows are in one state at each second, and stay so whenever one of them is given anew.
TEST_F(HandleThreads, readTimedValuesAtAnySecondBesideOtherReadersAndChanges) {
  openWith(VELMORA_DURABILITY_OFF);
  run("CREATE TABLE t id ApexInt v int 2");
  const std::string timed = "v = 1 --> 2 @ 10 s c";
  for (int i = 0; i < 50; ++i) run("INSERT INTO t " + timed + " #TIME# 1000");
  const auto read = [&](int reader) {
    for (int i = 0; i < rounds; ++i) {
      const int at = 1000 + (reader * 7 + i * 3) % 200;
      const bool isFirst = at % 20 < 10;
      const std::string text = std::to_string(at);
      expect("SELECT SUM(v) FROM t AT " + text, isFirst ? "50" : "100");
      expect("SELECT COUNT(*) FROM t WHERE v = 2 AT " + text, isFirst ? "0" : "50");
      run("SHOW STORAGE");
    }
  };
  const auto change = [&] {
    for (int i = 0; i < rounds; ++i) {
      const std::string start = std::to_string(1000 - 20 * (i % 5));
      const std::string row = std::to_string(1 + i % 50);
      expect("UPDATE t SET " + timed + " WHERE id = " + row + " #TIME# " + start, "1 row");
    }
  };
  runAll({[&] { read(0); }, [&] { read(1); }, [&] { read(2); }, change});
  expectNoFaults();
}

TEST_F(HandleThreads, copyWithinATransactionThatACheckpointWaitsFor) {
  openWith(VELMORA_DURABILITY_OFF);
  makeAccounts();
  EXPECT_EQ(run("BEGIN"), "0 rows");
  EXPECT_EQ(run("UPDATE a SET n = 1 WHERE id = 1"), "1 row");
  std::thread saving([&] { expect("CHECKPOINT", "0 rows"); });
  for (int i = 0; i < rounds; ++i) {
    const std::string copy = (directory / ("own" + std::to_string(i))).string();
    EXPECT_EQ(velmora_backup(db, copy.data(), copy.size(), nullptr), VELMORA_OK);
    if (i + 1 == rounds) expectCopy(copy);
    std::filesystem::remove_all(copy);
  }
  EXPECT_EQ(run("COMMIT"), "0 rows");
  saving.join();
  expectNoFaults();
}

TEST_F(HandleThreads, closeWithATransactionOfAnotherThread) {
  openWith(VELMORA_DURABILITY_EVERYSEC);
  makeAccounts();
  std::thread([&] {
    expect("BEGIN", "0 rows");
    expect("DELETE FROM a", "2 rows");
  }).join();
  expectNoFaults();
  EXPECT_EQ(reopen(), "");
  EXPECT_EQ(run("SELECT * FROM a"), "1 100; 2 0");
}

TEST_F(HandleThreads, openAndCloseTheSameDirectoryOneAfterTheOther) {
  close();
  options.open_wait_milliseconds = 60000;
  const auto work = [&] {
    for (int i = 0; i < rounds / 20; ++i) {
      velmora_db* own = nullptr;
      const std::string name = path().string();
      const int code = velmora_open(name.data(), name.size(), &options, &own, nullptr);
      const std::string made = handles::run(own, "CREATE TABLE t n int");
      const std::string added = handles::run(own, "INSERT INTO t n = 1");
      if (code != VELMORA_OK || added != "1 row") expect("open", made + added);
      velmora_close(own, nullptr);
    }
  };
  runAll({work, work, work});
  ASSERT_EQ(open(), "");
  expectNoFaults();
  EXPECT_EQ(run("SELECT COUNT(*) FROM t"), std::to_string(rounds / 20 * 3));
}

}  // namespace
}  // namespace handles
