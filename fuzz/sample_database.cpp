// See sample_database.h.
#include "sample_database.h"

#include "engine_run.h"

namespace velmora::fuzz {

const char* const sampleCommands =
    "CREATE TABLE customers id ApexInt name string score float active bool\n"
    "INSERT INTO customers name = 'Ada' score = 1.5 active = true\n"
    "INSERT INTO customers name = 'Bob' active = false\n"
    "INSERT INTO customers name = 'Cy' score = -0.25\n"
    "DELETE FROM customers WHERE name = 'Bob'\n"
    "CREATE TABLE orders id ApexInt customer int 3 note string\n"
    "LINK orders.customer --> customers.id\n"
    "INSERT INTO orders customer = 1 note = 'first'\n"
    "INSERT INTO orders customer = 1 --> 3 @ 5 m note = 'moves'\n"
    "CREATE TABLE lamps name string colour string 3 bright int 2\n"
    "INSERT INTO lamps name = 'north' colour = 'red' --> 'green' @ 30 s --> 'amber' @ 5 s c\n"
    "INSERT INTO lamps name = 'south' bright = 1 --> 2 @ 1 h\n"
    "CREATE TABLE tags name string ( 20 ) lit bool 2 weight float 2\n"
    "INSERT INTO tags name = 'one' lit = true --> false @ 10 s c weight = 1.0\n"
    "INSERT INTO tags name = 'two' lit = false weight = 2.5 --> 3.5 @ 1 d\n"
    "LISTEN lamps.UPDATE --> 'http://example.test/lamps' WHERE bright > 0 && colour = 'red'\n"
    "CHECKPOINT\n"
    "INSERT INTO customers name = 'Dee' score = 2\n"
    "UPDATE lamps SET colour = 'blue' WHERE name = 'south'\n"
    "INSERT INTO tags name = 'three' lit = true\n"
    "DELETE FROM tags WHERE name = 'one'\n";

Files sampleFiles() {
  const ScratchDirectory directory;
  {
    auto engine = Engine::started();
    for (const std::string& command : linesOf(sampleCommands)) {
      const std::string answer = engine->run(command);
      if (answer.find("\"success\": true") == std::string::npos) fail(command + ": " + answer);
    }
  }
  return ScratchDirectory::read();
}

}  // namespace velmora::fuzz
