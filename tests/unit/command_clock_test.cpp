// One command, one second: whatever a command matches, checks, answers, schedules and logs, it
// reads the clock once, at its beginning. A clock that moves on at every reading would show each
// further reading as another second.
#include <cstdint>
#include <string>

#include "database_fixture.h"
#include "parser/parser.h"

namespace velmora {
namespace {

class CommandClockTest : public DatabaseTest {
 protected:
  CommandClockTest() {
    readings = 0;
    clock::setSource([] { return second + readings++; });
  }

  // Runs the command and expects one reading of the clock.
  void runOnce(const std::string& command) {
    readings = 0;
    const ResultSet result = parser_.handleCommand(command);
    EXPECT_TRUE(result.success) << command << ": " << result.message;
    EXPECT_EQ(readings, 1) << command;
  }
  ResultSet run(const std::string& command) { return parser_.handleCommand(command); }

  static inline std::int64_t readings = 0;

 private:
  Parser parser_{&database};
};

TEST_F(CommandClockTest, EveryCommandReadsTheClockOnce) {
  for (const char* const command : {"CREATE TABLE p id ApexInt 2 s string 2",
                                    "CREATE TABLE c pid int 2 s string 2",
                                    "INSERT INTO p s = 'a' --> 'b' @ 1 h",
                                    "INSERT INTO p s = 'x'",
                                    "INSERT INTO c pid = 1 --> 2 @ 1 h s = 'a'",
                                    "LINK c.pid --> p.id",
                                    "INSERT INTO c pid = 2 --> 1 @ 1 m c s = 'b' --> 'c' @ 1 m",
                                    "SELECT * FROM c WHERE pid >= 1 && s != 'z'",
                                    "SELECT p.s, c.s FROM p JOIN c ON p.id = c.pid WHERE c.s = 'a'",
                                    "UPDATE c SET s = 'd' --> 'e' @ 5 s pid = 1 WHERE s = 'a'",
                                    "DELETE FROM c WHERE s = 'd'",
                                    "BEGIN",
                                    "INSERT INTO c pid = 1",
                                    "DELETE FROM c",
                                    "UPDATE p SET s = 'y'",
                                    "ROLLBACK",
                                    "BEGIN",
                                    "COMMIT",
                                    "LISTEN p.INSERT --> 'hook'",
                                    "CHECKPOINT",
                                    "DROP TABLE c"}) {
    runOnce(command);
  }
}

// A second that passes inside a command must not make the log say what did not happen.
TEST_F(CommandClockTest, AChangeIsLoggedWithTheSecondThatItMatched) {
  run("CREATE TABLE l s string 2 n int");
  readings = 0;
  run("INSERT INTO l s = 'red' --> 'green' @ 10 s");
  const std::int64_t start = second;
  // The last second of red, with a clock that says green whenever it is asked again.
  second = start + 9;
  readings = 0;
  EXPECT_EQ(run("UPDATE l SET n = 1 WHERE s = 'green'").rowsAffected, 0);
  second = start + 10;
  readings = 0;
  EXPECT_EQ(run("UPDATE l SET n = 2 WHERE s = 'green'").rowsAffected, 1);
  const std::string log = bytesOf("velmora.wal");
  EXPECT_NE(log.find("SET n = 2 WHERE s = 'green' #TIME# " + std::to_string(start + 10) + "\n"),
            std::string::npos)
      << log;
  second = start;
}

}  // namespace
}  // namespace velmora
