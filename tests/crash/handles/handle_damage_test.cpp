// A small database with everything in it, and every bit of every file flipped in turn, every file
// shorter or longer by a byte, or missing: an open answers exactly as before, or reports it. What
// is reported can be repaired, with a copy kept of what was there.
#include "handle_fixture.h"

namespace velmora::handles {
namespace {

constexpr int corruptCode = static_cast<int>(Code::corrupt);

class HandleDamageTest : public HandleTest {
 protected:
  void prepare() {
    open(Durability::off);
    for (const char* const command :
         {"CREATE TABLE p code string(8) f float d double l long b bool",
          "CREATE TABLE q id ApexInt n int",
          "CREATE TABLE c p string(8) note string(20) level int 2", "LINK c.p --> p.code",
          "LISTEN p.INSERT --> 'hook' WHERE b = true"}) {
      ASSERT_TRUE(call({{command, {}}})) << failure_;
    }
    ASSERT_TRUE(call({{"INSERT INTO p code = 'a' f = 0.1 d = 0.1 l = 9007199254740993", {}}}));
    ASSERT_TRUE(call({{"INSERT INTO p code = 'b' b = true", {}}}));
    ASSERT_TRUE(call({{"INSERT INTO q n = 1", {}}}));
    ASSERT_TRUE(call({{"INSERT INTO p code = 'x'", {}}}));
    ASSERT_TRUE(call({{"DELETE FROM p WHERE code = 'x'", {}}}));
    ASSERT_TRUE(call({{"INSERT INTO c p = 'a' note = '#/#?' level = 1 --> 2 @ 5 s c", {}}}));
    ASSERT_TRUE(call({{"INSERT INTO c note = 'NULL'", {}}}));
    ASSERT_TRUE(call({{"CHECKPOINT", {}}}));
    ASSERT_TRUE(call({{"UPDATE p SET l = 5 WHERE code = 'a'", {}}}));
    ASSERT_TRUE(call({{"UPDATE c SET note = 'x' WHERE p = 'a'", {}}}));
    ASSERT_TRUE(call({{"CHECKPOINT", {}}}));
    ASSERT_EQ(filesIn(live_)["p.exact"].substr(0, 8), "velmexc2");
    ASSERT_EQ(filesIn(live_)["c.exact"].substr(0, 8), "velmexc2");
    ASSERT_TRUE(call({{"INSERT INTO c p = 'b' note = 'it''s'", {}}}));
    ASSERT_TRUE(call({{"INSERT INTO p code = 'c'", {}}, {"UPDATE c SET p = 'c'", {}}}));
    ASSERT_TRUE(call({{"DELETE FROM c WHERE note = 'NULL'", {}}}));
    expected_ = stateOf(*engine_);
    files_ = filesIn(live_);
    close();
  }

  // The code and text with which an open fails; empty if it succeeds and answers as before.
  std::string openedWith(OpenOptions chosen) {
    try {
      Engine engine(live_.string(), std::move(chosen));
      return stateOf(engine) == expected_ ? "" : "other answers";
    } catch (const Failure& failure) {
      if (static_cast<int>(failure.code) == corruptCode) return "corrupt";
      return std::to_string(static_cast<int>(failure.code)) + ": " + failure.what();
    }
  }

  void tryDamaged(const Files& files, bool isRepaired) {
    ++tried_;
    putLive(files);
    OpenOptions toRead = options(Durability::off);
    toRead.isReadOnly = true;
    const std::string found = openedWith(toRead);
    EXPECT_TRUE(found.empty() || found == "corrupt") << found;
    EXPECT_EQ(filesIn(live_), files) << "an open to be read has written";
    if (HasFailure() || !isRepaired) return;
    EXPECT_EQ(openedWith(options(Durability::off)), found);
    if (found == "corrupt") repair(files);
  }

  void repair(const Files& files) {
    EXPECT_EQ(filesIn(live_), files) << "an open that failed has written";
    std::vector<std::string> lines;
    OpenOptions repairing = options(Durability::off);
    repairing.mayRepair = true;
    repairing.callbacks.log = [&](LogLevel, std::string_view line) { lines.emplace_back(line); };
    std::string repaired;
    {
      Engine engine(live_.string(), repairing);
      EXPECT_FALSE(lines.empty());
      EXPECT_EQ(filesIn(live_ / "damaged-1"), files);
      repaired = stateOf(engine);
      execute(engine, "CREATE TABLE later n int");
      execute(engine, "DROP TABLE later");
    }
    Engine again(live_.string(), options(Durability::off));
    EXPECT_EQ(stateOf(again), repaired);
  }

  std::string expected_;
  Files files_;
};

TEST_F(HandleDamageTest, ofAnyBitIsReportedOrHarmless) {
  prepare();
  const std::size_t step = isThorough() ? 1 : slowness == 1 ? 5 : 29;
  const std::size_t repairs = isThorough() ? 7 : 97;
  std::size_t count = 0;
  for (const auto& [name, bytes] : files_) {
    for (std::size_t bit = 0; bit < 8 * bytes.size() && !HasFailure(); bit += step) {
      SCOPED_TRACE(name + " bit " + std::to_string(bit));
      Files files = files_;
      char& byte = files[name][bit / 8];
      byte = static_cast<char>(static_cast<unsigned char>(byte) ^ 1U << bit % 8);
      tryDamaged(files, ++count % repairs == 0);
    }
  }
}

// A log that is cut short by its last byte was cut by a crash: its last record was not answered.
TEST_F(HandleDamageTest, ofAFilesLengthIsReportedOrHarmless) {
  prepare();
  for (const auto& [name, bytes] : files_) {
    SCOPED_TRACE(name);
    Files files = files_;
    files.erase(name);
    tryDamaged(files, true);
    for (const char more : {'\0', '\n', 'x'}) {
      files[name] = bytes + more;
      tryDamaged(files, true);
    }
    if (bytes.empty() || name == "velmora.wal") continue;
    files[name] = bytes.substr(0, bytes.size() - 1);
    tryDamaged(files, true);
  }
}

}  // namespace
}  // namespace velmora::handles
