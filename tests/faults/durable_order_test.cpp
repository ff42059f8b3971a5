// The order of durable steps: which writes, syncs, renames and removals a command or a start is
// made of, and what becomes of a checkpoint that is interrupted between them by a failure.
#include <unistd.h>

#include <cerrno>
#include <string>
#include <vector>

#include "fault_fixture.h"
#include "storage/files.h"

namespace velmora::faults {
namespace {

using Steps = std::vector<std::string>;

// What has been done; a file hook has no state of its own. The calls of one step are written once,
// removals and renames of files that are not there are left out.
Steps steps;
std::string refused;      // the step that is to fail
std::string refusedNext;  // the step behind that, to fail as well

std::string textOf(const FileEvent& event) {
  const std::string name = event.name;
  switch (event.operation) {
    case FileOperation::write:
      return "write " + name;
    case FileOperation::sync:
      return "sync " + name;
    case FileOperation::truncate:
      return "truncate " + name;
    case FileOperation::rename:
      return access(event.name, F_OK) == 0 ? "rename " + name + " " + event.target : "";
    case FileOperation::remove:
      return access(event.name, F_OK) == 0 ? "remove " + name : "";
    default:
      return "";
  }
}

int record(const FileEvent& event) {
  const std::string step = textOf(event);
  if (step.empty()) return 0;
  const bool isBehind = !refusedNext.empty() && !steps.empty() && steps.back() == refused;
  if (steps.empty() || steps.back() != step) steps.push_back(step);
  if (!refusedNext.empty()) return isBehind && step == refusedNext ? EIO : 0;
  return step == refused ? EIO : 0;
}

class DurableOrderTest : public FaultTest {
 protected:
  template <typename Call>
  static Steps stepsOf(Call call) {
    steps.clear();
    setFileHook(record);
    call();
    setFileHook(nullptr);
    return steps;
  }
  static Steps stepsOfCommand(const std::string& command) {
    return stepsOf([&] { EXPECT_TRUE(succeeded(run(command))) << command; });
  }

  // The steps of a checkpoint that fails because that step does, or the one behind it.
  static Steps stepsOfFailure(const std::string& step, const std::string& next,
                              const std::string& message) {
    refused = step;
    refusedNext = next;
    std::string answer;
    const Steps done = stepsOf([&] { answer = run("CHECKPOINT"); });
    EXPECT_NE(answer.find("Error: Checkpoint failed: " + message + "\""), std::string::npos)
        << answer;
    refused.clear();
    refusedNext.clear();
    return done;
  }

  // What a kill would leave is started from.
  static void restartOver(const Files& files) {
    ASSERT_EQ(stop(), "");
    replaceFiles(files);
    ASSERT_EQ(start(), "");
  }

  // The steps behind (and with) the last one that is so.
  static Steps from(const Steps& all, const std::string& step) {
    std::size_t i = all.size();
    while (i > 0 && all[i - 1] != step) --i;
    return i == 0 ? Steps() : Steps(all.begin() + static_cast<std::ptrdiff_t>(i) - 1, all.end());
  }

  static std::string rows(const std::string& table) { return run("SELECT * FROM " + table); }
};

// Two tables with every kind of file between them, and a link.
const Steps fullDatabase = {
    "CREATE TABLE p id ApexInt",
    "CREATE TABLE t a int 2 s string ( 20 )",
    "INSERT INTO p id = 1",
    "INSERT INTO p id = 1",
    "INSERT INTO t a = 1 --> 2 @ 5 s s = 'x'",
    "LISTEN t.INSERT --> 'x'",
    "LINK t.a --> p.id",
};

TEST_F(DurableOrderTest, ofATableItsHeaderIsDurableBeforeItBearsItsName) {
  ASSERT_EQ(start(), "");
  EXPECT_EQ(stepsOfCommand("CREATE TABLE t a int"),
            (Steps{"write t.bin.unfinished", "sync t.bin.unfinished",
                   "rename t.bin.unfinished t.bin", "write velmora.wal"}));
  // Rows of an old table are durably gone where they would be read.
  EXPECT_EQ(stepsOfCommand("CREATE TABLE s a string ( 20 )"),
            (Steps{"sync .", "write s.bin.unfinished", "sync s.bin.unfinished",
                   "rename s.bin.unfinished s.bin", "write velmora.wal"}));
  EXPECT_EQ(stepsOfCommand("DROP TABLE t"), (Steps{"remove t.bin", "sync .", "remove t.del"}));
}

TEST_F(DurableOrderTest, ofALinkTheCommandIsDurableBeforeItsFileBearsItsName) {
  ASSERT_EQ(start(), "");
  runAll({"CREATE TABLE p id ApexInt", "CREATE TABLE t a int", "INSERT INTO p id = 1"});
  EXPECT_EQ(
      stepsOfCommand("LINK t.a --> p.id"),
      (Steps{"write velmora.wal", "write t-a_p-id.rel.unfinished", "sync t-a_p-id.rel.unfinished",
             "sync velmora.wal", "rename t-a_p-id.rel.unfinished t-a_p-id.rel"}));
  ASSERT_EQ(stop(), "");
  EXPECT_EQ(stepsOf([] { EXPECT_EQ(start(), ""); }),
            (Steps{"write t-a_p-id.rel.unfinished", "sync t-a_p-id.rel.unfinished",
                   "sync velmora.wal", "rename t-a_p-id.rel.unfinished t-a_p-id.rel"}));
}

// The steps that make the marker durable, and those that do what it says: of the one table little
// has changed, the other one's files are written anew.
const Steps making = {"write velmora.ckpt", "sync velmora.ckpt"};
const Steps completing = {
    "write p.bin",
    "sync p.bin",
    "write p.del",
    "sync p.del",
    "rename t.bin.checkpoint t.bin",
    "rename t.del.checkpoint t.del",
    "rename t.row.checkpoint t.row",
    "rename t.tmp.checkpoint t.tmp",
    "rename velmora.wal.checkpoint velmora.wal",
    "sync .",
    "truncate velmora.ckpt",
    "sync velmora.ckpt",
    "remove velmora.ckpt",
};

// Files that have nothing in them are synced all the same.
TEST_F(DurableOrderTest, ofACheckpoint) {
  ASSERT_EQ(start(), "");
  runAll(fullDatabase);
  Steps expected = {
      "write t.del.checkpoint",
      "sync t.del.checkpoint",
      "write t.row.checkpoint",
      "sync t.row.checkpoint",
      "write t.bin.checkpoint",
      "sync t.bin.checkpoint",
      "write t.tmp.checkpoint",
      "sync t.tmp.checkpoint",
      "sync listeners.bin",
      "sync webhooks.bin",
      "sync t-a_p-id.rel",
      "sync velmora.wal.checkpoint",
      "sync .",
  };
  expected.insert(expected.end(), making.begin(), making.end());
  expected.insert(expected.end(), completing.begin(), completing.end());
  EXPECT_EQ(stepsOfCommand("CHECKPOINT"), expected);
}

// What one changed row costs.
TEST_F(DurableOrderTest, ofACheckpointBehindOneChange) {
  ASSERT_EQ(start(), "");
  runAll({"CREATE TABLE p id ApexInt n int", "CREATE TABLE q a int 2"});
  for (int i = 0; i < 2000; ++i) runAll({"INSERT INTO p n = 1"});
  runAll({"INSERT INTO q a = 1 --> 2 @ 5 s", "CHECKPOINT", "UPDATE p SET n = 2 WHERE id = 1000"});
  const Steps expected = {"sync webhooks.bin",
                          "sync velmora.wal.checkpoint",
                          "sync .",
                          "write velmora.ckpt",
                          "sync velmora.ckpt",
                          "write p.bin",
                          "sync p.bin",
                          "rename velmora.wal.checkpoint velmora.wal",
                          "sync .",
                          "truncate velmora.ckpt",
                          "sync velmora.ckpt",
                          "remove velmora.ckpt"};
  EXPECT_EQ(stepsOfCommand("CHECKPOINT"), expected);
}

TEST_F(DurableOrderTest, ofALinksFileThatIsNotWhatItShouldBeBeforeTheLogIsEmptied) {
  ASSERT_EQ(start(), "");
  runAll(fullDatabase);
  runAll({"CHECKPOINT"});
  const std::string name = "t-a_p-id.rel";
  const std::string whole = bytesOf(name);
  for (const std::string& found : {std::string(), whole.substr(0, 59), "u" + whole.substr(1)}) {
    write(name, found);
    if (found.empty()) unlink(name.c_str());
    const Steps all = stepsOfCommand("CHECKPOINT");
    Steps expected = {"write " + name + ".unfinished",
                      "sync " + name + ".unfinished",
                      "rename " + name + ".unfinished " + name,
                      "sync " + name,
                      "sync velmora.wal.checkpoint",
                      "sync .",
                      "write velmora.ckpt"};
    Steps behind = from(all, expected.front());
    behind.resize(expected.size());
    EXPECT_EQ(behind, expected);
    EXPECT_EQ(bytesOf(name), whole);
    restartOver(files());
    EXPECT_FALSE(succeeded(run("INSERT INTO t a = 9")));
  }
}

TEST_F(DurableOrderTest, ofAStartThatCompletesACheckpoint) {
  ASSERT_EQ(start(), "");
  runAll(fullDatabase);
  const std::string before = shown({"p", "t"});
  const Steps failed = stepsOfFailure("write p.bin", "", "cannot write p.bin");
  EXPECT_EQ(failed.back(), "write p.bin");
  const Files interrupted = files();
  ASSERT_EQ(stop(), "");
  replaceFiles(interrupted);
  const Steps all = stepsOf([] { EXPECT_EQ(start(), ""); });
  // The link's file has been made beside its place; it gets there when the checkpoint has.
  Steps expected = {"write t-a_p-id.rel.unfinished", "sync t-a_p-id.rel.unfinished",
                    "sync velmora.ckpt", "sync ."};
  expected.insert(expected.end(), completing.begin(), completing.end());
  expected.insert(expected.end(),
                  {"sync velmora.wal", "rename t-a_p-id.rel.unfinished t-a_p-id.rel"});
  EXPECT_EQ(all, expected);
  EXPECT_EQ(shown({"p", "t"}), before);
  EXPECT_EQ(bytesOf("velmora.wal"), "");
}

TEST_F(DurableOrderTest, ofAMarkerThatCannotBeMadeDurable) {
  ASSERT_EQ(start(), "");
  runAll(fullDatabase);
  const std::string before = shown({"p", "t"});
  const std::string log = bytesOf("velmora.wal");
  Steps expected = making;
  const Steps takingBack = {"truncate velmora.ckpt",   "sync velmora.ckpt",
                            "remove velmora.ckpt",     "remove t.bin.checkpoint",
                            "remove t.del.checkpoint", "remove t.row.checkpoint",
                            "remove t.tmp.checkpoint", "remove velmora.wal.checkpoint"};
  expected.insert(expected.end(), takingBack.begin(), takingBack.end());
  const Steps all =
      stepsOfFailure("write velmora.ckpt", "sync velmora.ckpt", "cannot sync velmora.ckpt");
  EXPECT_EQ(from(all, "write velmora.ckpt"), expected);
  EXPECT_EQ(bytesOf("velmora.wal"), log);
  EXPECT_EQ(shownAfterKill({"p", "t"}), before);
  runAll({"CHECKPOINT"});
  EXPECT_EQ(shownAfterKill({"p", "t"}), before);
}

// A marker that stands, emptied, behind a failure is durably gone before its files are touched.
TEST_F(DurableOrderTest, ofAnEmptiedMarkerThatIsLeftOver) {
  ASSERT_EQ(start(), "");
  runAll(fullDatabase);
  Files left = files();
  left["velmora.ckpt"] = "";
  left["t.bin.checkpoint"] = "whatever";
  const Steps removal = {"remove velmora.ckpt", "sync ."};
  ASSERT_EQ(stop(), "");
  replaceFiles(left);
  Steps all = from(stepsOf([] { EXPECT_EQ(start(), ""); }), removal.front());
  all.resize(3);
  EXPECT_EQ(all, (Steps{"remove velmora.ckpt", "sync .", "remove t.bin.checkpoint"}));
  EXPECT_FALSE(files().contains("t.bin.checkpoint"));
  replaceFiles(left);
  all = stepsOfCommand("CHECKPOINT");
  EXPECT_EQ(Steps(all.begin(), all.begin() + 2), removal);
  EXPECT_EQ(from(all, "remove t.bin.checkpoint").at(1), "write t.row.checkpoint");
}

TEST_F(DurableOrderTest, ofAMarkerThatCannotBeRemoved) {
  ASSERT_EQ(start(), "");
  runAll(fullDatabase);
  stepsOfFailure("remove velmora.ckpt", "", "cannot remove velmora.ckpt");
  EXPECT_TRUE(files().contains("velmora.ckpt"));
  runAll({"INSERT INTO p id = 1", "INSERT INTO t a = 2 s = 'meanwhile'"});
  const std::string before = shown({"p", "t"});
  const Files left = files();

  restartOver(left);
  EXPECT_EQ(shown({"p", "t"}), before);
  EXPECT_FALSE(files().contains("velmora.ckpt"));

  replaceFiles(left);
  stepsOfFailure("remove velmora.ckpt", "", "cannot remove velmora.ckpt");
  const Steps all = stepsOfCommand("CHECKPOINT");
  EXPECT_EQ(Steps(all.begin(), all.begin() + 2), (Steps{"remove velmora.ckpt", "sync ."}));
  EXPECT_EQ(bytesOf("velmora.wal"), "");
  restartOver(files());
  EXPECT_EQ(shown({"p", "t"}), before);
}

TEST_F(DurableOrderTest, ofAMarkerThatWasCutNothingIsCompleted) {
  ASSERT_EQ(start(), "");
  runAll(fullDatabase);
  const std::string before = shown({"p", "t"});
  stepsOfFailure("write p.bin", "", "cannot write p.bin");
  const Files interrupted = files();
  const std::string marker = interrupted.at("velmora.ckpt");
  const std::string log = interrupted.at("velmora.wal");
  ASSERT_NE(log, "");
  for (std::size_t size = 0; size <= marker.size(); ++size) {
    SCOPED_TRACE("cut to " + std::to_string(size) + " bytes");
    Files torn = interrupted;
    torn["velmora.ckpt"].resize(size);
    ASSERT_NO_FATAL_FAILURE(restartOver(torn));
    EXPECT_EQ(bytesOf("velmora.wal"), size < marker.size() ? log : "");
    EXPECT_EQ(shown({"p", "t"}), before);
    for (const auto& [name, bytes] : files()) {
      EXPECT_FALSE(name.ends_with(".checkpoint") || name == "velmora.ckpt") << name;
    }
  }
}

}  // namespace
}  // namespace velmora::faults
