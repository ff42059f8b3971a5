// Commands and logs so large that two threads share the work: what comes of it is what the rows and
// the log's order say.

#include <cstddef>
#include <fstream>

#include "engine_fixture.h"
#include "rows.h"
#include "storage/halves.h"

namespace velmora {
namespace {

struct Child {
  int parent;
  int amount;
  bool isLive = true;
};

class LargeJoin : public EngineTest {
 protected:
  static constexpr int parentCount = 97;
  static constexpr std::size_t childCount = leastRowsOfHalves + 4567;
  // Where the second half begins.
  static constexpr std::size_t middle = childCount / 2 / Rows::chunkRows * Rows::chunkRows;

  LargeJoin() {
    run("CREATE TABLE parents id ApexInt name string kind int");
    run("CREATE TABLE children id ApexInt parent int label string amount int weight float 2");
    for (int i = 1; i <= parentCount; ++i) {
      run("INSERT INTO parents name = '" + nameOf(i) + "' kind = " + std::to_string(i % 7));
    }
    for (std::size_t i = 0; i < childCount; ++i) {
      // Every eleventh child has no parent that there is.
      const int parent = i % 11 == 3 ? parentCount + 5 : static_cast<int>(i * 31 % parentCount) + 1;
      children_.push_back({parent, static_cast<int>(i % 1000)});
      run("INSERT INTO children parent = " + std::to_string(parent) + " label = '" +
          nameOf(parent) + "' amount = " + std::to_string(children_.back().amount) +
          " weight = 0.5");
    }
    for (const std::size_t row : {std::size_t{0}, middle - 1, middle, childCount - 1}) {
      run("DELETE FROM children WHERE id = " + std::to_string(row + 1));
      children_[row].isLive = false;
    }
  }

  static std::string nameOf(int parent) {
    return (parent % 3 == 0 ? "a name that is longer than fifteen bytes " : "name ") +
           std::to_string(parent);
  }
  // The answer to a join that asks for the parent's name and the child's amount and weight.
  template <typename IsMeant>
  std::string expected(const IsMeant& isMeant) const {
    std::string lines;
    int count = 0;
    for (const Child& child : children_) {
      if (!child.isLive || child.parent > parentCount || !isMeant(child)) continue;
      if (count++ > 0) lines += ",\n";
      lines += "    {\"parents.name\": \"" + nameOf(child.parent) +
               "\", \"children.amount\": " + std::to_string(child.amount) +
               ", \"children.weight\": 0.5}";
    }
    return "{\n  \"success\": true,\n  \"message\": \"success!\",\n  \"rows_affected\": " +
           std::to_string(count) + ",\n  \"data\": [\n" + lines + "\n  ]\n}";
  }
  // Whether the join's answer is the one expected; EXPECT_EQ would print megabytes.
  template <typename IsMeant>
  bool answers(const std::string& onAndWhere, const IsMeant& isMeant) const {
    return answer(
               "SELECT parents.name, children.amount, children.weight FROM children JOIN "
               "parents ON " +
               onAndWhere) == expected(isMeant);
  }
  static bool any(const Child&) { return true; }

  std::vector<Child> children_;
};

TEST_F(LargeJoin, AnswersThePairsInTheOrderOfTheLeftRows) {
  EXPECT_TRUE(answers("children.parent = parents.id", any));
  EXPECT_TRUE(answers("children.label = parents.name", any)) << "texts are joined";
}

TEST_F(LargeJoin, AnswersWhatTheConditionsOfEitherTableLeave) {
  EXPECT_TRUE(answers("children.parent = parents.id WHERE parents.kind = 3",
                      [](const Child& child) { return child.parent % 7 == 3; }));
  EXPECT_TRUE(answers("children.parent = parents.id WHERE children.amount < 995",
                      [](const Child& child) { return child.amount < 995; }));
  EXPECT_TRUE(answers("children.parent = parents.id WHERE children.amount = 7",
                      [](const Child& child) { return child.amount == 7; }))
      << "few left rows, which one thread takes";
}

TEST_F(LargeJoin, AnswersTimedValuesAsTheyAre) {
  run("UPDATE children SET weight = 0.5 --> 0.75 @ 60 s WHERE id = 50000");
  EXPECT_TRUE(answers("children.parent = parents.id", any));
  second += 60;
  EXPECT_FALSE(answers("children.parent = parents.id", any));
  EXPECT_EQ(rows("SELECT children.weight FROM children JOIN parents ON children.parent = "
                 "parents.id WHERE children.weight > 0.6"),
            Texts{"0.75"});
}

class LongLog : public EngineTest {
 protected:
  // Starts the engine on a log.
  static void startOn(const std::string& log) {
    stop();
    std::ofstream("velmora.wal", std::ios::binary) << log;
    ASSERT_EQ(sizeOf("velmora.wal"), log.size());
    start();
  }
  static std::string marker(std::int64_t at) { return " #TIME# " + std::to_string(at) + "\n"; }
};

TEST_F(LongLog, EachCommandRunsInItsOrderAndAtItsSecond) {
  constexpr int count = 30000;
  std::string log = "CREATE TABLE items id ApexInt name string age int" + marker(startSecond - 9);
  Texts expected;
  for (int i = 1; i <= count; ++i) {
    // Lines of other lengths, so that what is read together ends anywhere.
    const std::string name = std::string(static_cast<std::size_t>(i % 41), 'x') + std::to_string(i);
    log += "INSERT INTO items" + std::string(i % 500 == 0 ? "\n" : " ") + "name = '" + name +
           "' age = " + std::to_string(i % 100);
    log += marker(startSecond - 9);
    if (i % 1000 == 0) {
      log += "INSERT INTO items age = 'none'" + marker(startSecond - 9);
      log += "INSERT INTO items name = 'open" + marker(startSecond - 9);
      log += "no command" + marker(startSecond - 9);
    }
    expected.push_back(std::to_string(i) + " \"" + name + "\"");
  }
  ASSERT_GT(log.size(), std::size_t{3} * 512 * 1024);
  startOn(log);
  EXPECT_TRUE(rows("SELECT id, name FROM items") == expected);
}

TEST_F(LongLog, TimedValuesStartAtTheirOwnMarkerOrAtTheLoggedSecondOrNow) {
  const std::string insert = "INSERT INTO signs colour = 'red' --> 'green' @ 10 s";
  std::string log = "CREATE TABLE signs id ApexInt colour string 2" + marker(startSecond - 30);
  Texts expected;
  constexpr int count = 4000;
  for (int i = 0; i < count; ++i) {
    log += insert + marker(startSecond - 30);
    log += insert + " #TIME# " + std::to_string(startSecond - 5) + marker(startSecond - 30);
    // Refused when it was given, and left out now.
    log += insert + " #TIME# 99999999999999999999" + marker(startSecond - 30);
    log += insert + "\n";
    for (const char* const colour : {"\"green\"", "\"red\"", "\"red\""}) expected.push_back(colour);
  }
  ASSERT_GT(log.size(), std::size_t{512} * 1024);
  startOn(log + insert + marker(startSecond - 30));
  expected.push_back("\"green\"");
  EXPECT_TRUE(rows("SELECT colour FROM signs") == expected);
  second += 5;
  for (std::size_t i = 1; i < expected.size(); i += 3) expected[i] = "\"green\"";
  EXPECT_TRUE(rows("SELECT colour FROM signs") == expected);
}

}  // namespace
}  // namespace velmora
