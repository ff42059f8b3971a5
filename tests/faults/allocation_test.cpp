// Every allocation of every command, of a start and of a stop fails once, and then it and all that
// follow it, through the plain exported functions. Whatever happens then, the engine goes on: its
// locks are free, the tables are as they were or as the command makes them, and the command, given
// again, does its work.
#include <cstdio>
#include <exception>
#include <type_traits>

#include "failing_allocations.h"
#include "fault_fixture.h"
#include "velmora/velmora.h"

namespace velmora::faults {
namespace {

const std::vector<std::string> allTables = {"parents", "children",        "codes", "uses",
                                            "lamps",   "a_fifteen_bytes", "new"};

// Texts are longer than what a cell keeps without an allocation.
const std::vector<std::string> preparation = {
    "CREATE TABLE parents id ApexInt name string",
    "CREATE TABLE children id ApexInt parent int 3 note string",
    "CREATE TABLE codes code string worth float 2",
    "CREATE TABLE uses code string 2",
    "CREATE TABLE lamps colour string ( 20 ) 3 lit bool 2",
    "CREATE TABLE a_fifteen_bytes id ApexInt text string",
    "INSERT INTO a_fifteen_bytes text = 'in a table with a long name'",
    "CREATE TABLE spare n int",
    "CREATE TABLE many n int x float",
    "INSERT INTO parents name = 'a name of more than fifteen bytes'",
    "INSERT INTO parents name = 'another name of that kind'",
    "INSERT INTO parents name = 'a third one, to be deleted'",
    "DELETE FROM parents WHERE id = 3",
    "LINK children.parent --> parents.id",
    "INSERT INTO children parent = 1 note = 'the first note is a long one'",
    "INSERT INTO children parent = 1 --> 2 @ 1 h note = 'the second note as well'",
    "INSERT INTO codes code = 'a code of more than fifteen' worth = 1.5",
    "INSERT INTO codes code = 'another code of that kind' worth = 2.5 --> 3.5 @ 1 m c",
    "INSERT INTO uses code = 'a code of more than fifteen'",
    "INSERT INTO lamps colour = 'a red as of bricks' --> 'a green as of grass' @ 30 s c",
    "INSERT INTO lamps colour = 'a blue as of the sky' lit = true --> false @ 5 s",
};

struct Case {
  std::string name;
  std::string command;
  std::vector<std::string> before = {};  // given without failures first
  // Several rows, each of which changes completely or not at all.
  bool changesRowByRow = false;
  // False for a command that, given again after it has worked, fails or does more.
  bool mayBeRepeated = true;
  // Commands whose answers tell more of the state than the tables do.
  std::vector<std::string> probes = {};
};

std::ostream& operator<<(std::ostream& stream, const Case& each) { return stream << each.name; }

const std::vector<std::string> changesInTransaction = {
    "BEGIN",
    "INSERT INTO parents name = 'inserted and to be rolled back'",
    "INSERT INTO children parent = 2 note = 'inserted and to be rolled back'",
    "UPDATE codes SET code = 'updated and to be rolled back' WHERE worth > 2",
    "UPDATE lamps SET lit = false --> true @ 7 s",
    "DELETE FROM uses",
};

std::vector<Case> cases() {
  const std::vector<std::string> codesLink = {"LINK uses.code --> codes.code"};
  const std::vector<std::string> begin = {"BEGIN"};
  return {
      {"CreateTable", "CREATE TABLE new id ApexInt text string ( 30 ) 2 flag bool"},
      {"CreateTableThatExists", "CREATE TABLE parents id ApexInt"},
      {"CreateTableOfUnknownType", "CREATE TABLE new id number"},
      {"DropTable", "DROP TABLE children"},
      {"DropTableOfLongName", "DROP TABLE a_fifteen_bytes"},
      {"Insert", "INSERT INTO parents name = 'a new name of more than fifteen'"},
      {"InsertTimed",
       "INSERT INTO lamps colour = 'a violet as of plums' --> 'a yellow as of lemons' @ 5 m "
       "lit = false --> true @ 1 d"},
      {"InsertLinked", "INSERT INTO children parent = 1 --> 2 @ 5 s note = 'a new note, long'"},
      {"InsertOrphan", "INSERT INTO children parent = 9 note = 'an orphan among the notes'"},
      {"InsertDuplicate", "INSERT INTO codes code = 'a code of more than fifteen'", codesLink},
      {"InsertTextKey", "INSERT INTO codes code = 'a third code of that kind'", codesLink},
      {"InsertInTransaction", "INSERT INTO parents name = 'a new name within a transaction'",
       begin},
      {"SelectStar", "SELECT * FROM children"},
      {"SelectWhere", "SELECT name FROM parents WHERE id >= 1 && name != 'x' || id = 2"},
      {"SelectTextKey", "SELECT worth FROM codes WHERE code >= 'a code of more than fif'",
       codesLink},
      {"SelectUnknownTable", "SELECT something FROM a_table_that_is_not_there"},
      {"SelectJoin",
       "SELECT children.note, name FROM children JOIN parents ON parent = parents.id "
       "WHERE parents.name != 'a name that no row bears' && note > 'a'"},
      {"SelectScan", "SELECT n FROM many WHERE n >= 7 && x < 2"},
      {"SelectJoinScan", "SELECT many.n FROM many JOIN parents ON n = parents.id"},
      {"UpdateOneRow", "UPDATE parents SET name = 'a changed name, long' WHERE id = 1"},
      {"UpdateManyRows", "UPDATE parents SET name = 'one changed name for all of them'", {}, true},
      {"UpdateTimed", "UPDATE codes SET worth = 7 --> 8 @ 3 m --> 9 @ 1 s WHERE worth < 2"},
      {"UpdateToPlain", "UPDATE lamps SET colour = 'a white as of paper' lit = true", {}, true},
      {"UpdateLinked", "UPDATE children SET parent = 2 WHERE id = 1"},
      {"UpdateToOrphan", "UPDATE children SET note = 'no such parent' parent = 9", {}, true},
      {"UpdateKey", "UPDATE codes SET code = 'a changed code, long' WHERE worth > 2", codesLink},
      {"UpdateRestrictedKey", "UPDATE codes SET code = 'a changed code, long' WHERE worth < 2",
       codesLink},
      {"UpdateInTransaction", "UPDATE parents SET name = 'a name in a transaction'", begin, true},
      {"Delete", "DELETE FROM children WHERE note >= 'the second note'"},
      {"DeleteRestricted", "DELETE FROM parents WHERE id = 1"},
      {"DeleteInTransaction", "DELETE FROM lamps", begin, true},
      {"Link",
       "LINK uses.code --> codes.code",
       {},
       false,
       true,
       {"BEGIN", "INSERT INTO uses code = 'a code that nobody has'", "ROLLBACK"}},
      {"LinkThatDoesNotHold", "LINK codes.code --> uses.code"},
      {"Listen", "LISTEN lamps.UPDATE --> 'http://example.test/a/long/path' WHERE lit == true"},
      {"Begin", "BEGIN", {}, false, false},
      {"Commit", "COMMIT", changesInTransaction, false, false},
      {"Rollback", "ROLLBACK", changesInTransaction, true, false},
      {"Checkpoint", "CHECKPOINT"},
      {"SyntaxError", "SELECT name FROM parents WHERE id + 1"},
      {"FilterError", "DELETE FROM parents WHERE id = 1 && 'a literal in a column'"},
      {"LexerError", "INSERT INTO parents name = 'a literal without its end"},
      {"UnknownCommand", "EXPLAIN everything that is going on"},
  };
}

// A call under failing allocations. Nothing here allocates, so that the engine's allocations are
// the ones that are counted.
struct Outcome {
  bool hasFailed = false;  // an allocation has
  bool hasThrown = false;
  const char* answer = nullptr;
  char thrown[64] = "";

  std::string text() const {
    return hasThrown ? std::string("throws ") + thrown : answer == nullptr ? "" : answer;
  }
};

template <typename Call>
Outcome underFailures(std::int64_t number, Failing failing, Call call) {
  Outcome outcome;
  const Silence silence;
  const FailingAllocations failures(number, failing);
  try {
    if constexpr (std::is_void_v<decltype(call())>) {
      call();
    } else {
      outcome.answer = call();
    }
  } catch (const std::exception& error) {
    outcome.hasThrown = true;
    std::snprintf(outcome.thrown, sizeof outcome.thrown, "%s", error.what());
  }
  outcome.hasFailed = FailingAllocations::hasFailed();
  return outcome;
}

// Enough rows for a scan to make mirrors of columns.
constexpr int manyRows = 300;

class AllocationTest : public FaultTest {
 protected:
  void prepare() {
    ASSERT_EQ(start(), "");
    ASSERT_NO_FATAL_FAILURE(runAll(preparation));
    for (int i = 0; i < manyRows; ++i) {
      const std::string number = std::to_string(i % 10);
      ASSERT_NO_FATAL_FAILURE(runAll({"INSERT INTO many n = " + number + " x = " + number}));
    }
    ASSERT_EQ(stop(), "");
    prepared_ = files();
  }
  ~AllocationTest() override {
    total += points_;
    std::printf("             %d allocations failed, %d in all\n", points_, total);
    RecordProperty("points", points_);
  }

  Files prepared_;
  int points_ = 0;

 private:
  static inline int total = 0;  // of all tests of this run
};

class CommandAllocationTest : public AllocationTest, public testing::WithParamInterface<Case> {
 protected:
  static const Case& tried() { return GetParam(); }

  // The prepared engine, right before the command.
  void startPrepared() {
    replaceFiles(prepared_);
    ASSERT_EQ(start(), "");
    ASSERT_NO_FATAL_FAILURE(runAll(tried().before));
  }

  struct State {
    std::string tables;
    std::string rest;
    bool operator==(const State&) const = default;
  };
  static State state() {
    State state{shown(allTables), std::to_string(bytesOf("listeners.bin").size())};
    for (const std::string& probe : tried().probes) state.rest += "\n" + run(probe);
    return state;
  }

  // What the command does when nothing fails.
  void learn() {
    ASSERT_NO_FATAL_FAILURE(startPrepared());
    before_ = state();
    expectedAnswer_ = run(tried().command);
    after_ = state();
    ASSERT_EQ(stop(), "");
  }

  // False when the command had made all its allocations before the failing one's turn.
  bool failAt(std::int64_t number, Failing failing) {
    startPrepared();
    if (HasFatalFailure()) return false;
    const char* const command = tried().command.c_str();
    const Outcome outcome = underFailures(number, failing, [=] { return ExecuteQuery(command); });
    const std::string answer = outcome.text();
    if (outcome.hasFailed) {
      ++points_;
      check(answer);
    } else {
      EXPECT_EQ(answer, expectedAnswer_);
    }
    EXPECT_EQ(stop(), "");
    return outcome.hasFailed && !HasFailure();
  }

 private:
  bool isInTransaction() const {
    return !tried().before.empty() && tried().before.front() == "BEGIN";
  }

  void check(const std::string& answer) {
    const Case& each = tried();
    // The log does not know of transactions.
    if (!each.changesRowByRow && !isInTransaction()) checkKill(answer);
    State now = state();
    if (answer == expectedAnswer_) {
      EXPECT_EQ(now, after_);
    } else if (!each.changesRowByRow) {
      EXPECT_TRUE(now == before_ || now == after_) << answer << "\n" << now.tables << now.rest;
    }
    EXPECT_TRUE(succeeded(run("INSERT INTO spare n = 1"))) << "the engine is not usable";

    if (now != after_ || (each.mayBeRepeated && before_ == after_)) {
      EXPECT_EQ(run(each.command), expectedAnswer_) << "given again after " << answer;
      now = state();
      EXPECT_EQ(now.tables, after_.tables) << "given again after " << answer;
      EXPECT_EQ(now.rest, after_.rest) << "given again after " << answer;
    }

    // What is in memory survives a stop.
    if (isInTransaction()) run("COMMIT");
    const std::string live = shown(allTables);
    EXPECT_EQ(stop(), "");
    EXPECT_EQ(start(), "");
    EXPECT_EQ(shown(allTables), live) << "after a restart";
  }

  void checkKill(const std::string& answer) {
    const std::string killed = shownAfterKill(allTables);
    if (succeeded(answer)) {
      EXPECT_EQ(killed, after_.tables) << "after a kill";
    } else {
      EXPECT_TRUE(killed == before_.tables || killed == after_.tables)
          << "after a kill: " << killed;
    }
  }

  State before_;
  State after_;
  std::string expectedAnswer_;
};

TEST_P(CommandAllocationTest, leavesTheEngineUsableAndTheTablesWhole) {
  ASSERT_NO_FATAL_FAILURE(prepare());
  ASSERT_NO_FATAL_FAILURE(learn());
  for (const Failing failing : {Failing::once, Failing::fromThenOn}) {
    std::int64_t number = 1;
    for (bool goesOn = true; goesOn; ++number) {
      SCOPED_TRACE("allocation " + std::to_string(number) +
                   (failing == Failing::once ? "" : " and all that follow"));
      goesOn = failAt(number, failing);
    }
    if (HasFailure()) return;
    EXPECT_GT(number, 2) << "the command has not allocated";
  }
}

std::string nameOfTrial(const testing::TestParamInfo<Case>& trial) { return trial.param.name; }
INSTANTIATE_TEST_SUITE_P(Commands, CommandAllocationTest, testing::ValuesIn(cases()), nameOfTrial);

// A directory with every kind of file, and a log of every kind of command.
class LifeAllocationTest : public AllocationTest {
 protected:
  const std::string log_ =
      "CREATE TABLE new id ApexInt text string #TIME# 1700000000\n"
      "INSERT INTO new text = 'a text of more than fifteen' #TIME# 1700000000\n"
      "INSERT INTO parents name = 'a name out of the log' #TIME# 1700000000\n"
      "UPDATE children SET parent = 4 WHERE id = 1 #TIME# 1700000000\n"
      "LINK uses.code --> codes.code #TIME# 1700000000\n"
      "DELETE FROM lamps WHERE lit = false #TIME# 1700000000\n"
      "INSERT INTO codes code = 'torn";

  void prepareLog() {
    ASSERT_NO_FATAL_FAILURE(prepare());
    ASSERT_EQ(start(), "");
    ASSERT_NO_FATAL_FAILURE(
        runAll({"LISTEN lamps.UPDATE --> 'http://example.test/' WHERE lit = true"}));
    ASSERT_EQ(stop(), "");
    prepared_ = files();
    prepared_["velmora.wal"] = log_;
    replaceFiles(prepared_);
    expected_ = shownAfterKill(allTables);
  }

  std::string expected_;
};

TEST_F(LifeAllocationTest, aStartThatFailsCanBeRepeatedAndLosesNothing) {
  ASSERT_NO_FATAL_FAILURE(prepareLog());
  for (const Failing failing : {Failing::once, Failing::fromThenOn}) {
    for (std::int64_t number = 1;; ++number) {
      SCOPED_TRACE("allocation " + std::to_string(number));
      replaceFiles(prepared_);
      const Outcome outcome = underFailures(number, failing, StartEngine);
      if (outcome.hasFailed) ++points_;
      if (outcome.hasThrown) {
        EXPECT_EQ(stop(), "") << "frees what the start has left";
        EXPECT_EQ(start(), "");
      }
      EXPECT_EQ(shown(allTables), expected_);
      EXPECT_EQ(stop(), "");
      EXPECT_EQ(start(), "");
      EXPECT_EQ(shown(allTables), expected_) << "after a further restart";
      EXPECT_EQ(stop(), "");
      if (!outcome.hasFailed || HasFailure()) break;
    }
  }
}

TEST_F(LifeAllocationTest, aStopThatFailsCanBeRepeatedAndLosesNothing) {
  ASSERT_NO_FATAL_FAILURE(prepareLog());
  for (const Failing failing : {Failing::once, Failing::fromThenOn}) {
    for (std::int64_t number = 1;; ++number) {
      SCOPED_TRACE("allocation " + std::to_string(number));
      replaceFiles(prepared_);
      ASSERT_EQ(start(), "");
      const Outcome outcome = underFailures(number, failing, StopEngine);
      if (outcome.hasFailed) ++points_;
      if (outcome.hasThrown) {
        EXPECT_EQ(shownAfterKill(allTables), expected_) << "after a kill";
        EXPECT_EQ(shown(allTables), expected_);
        EXPECT_EQ(stop(), "");
      }
      EXPECT_EQ(start(), "");
      EXPECT_EQ(shown(allTables), expected_) << "after a restart";
      EXPECT_EQ(stop(), "");
      if (!outcome.hasFailed || HasFailure()) break;
    }
  }
}

}  // namespace
}  // namespace velmora::faults
