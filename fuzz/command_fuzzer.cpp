// One command text of any bytes, given to a started engine that holds a small database with every
// kind of column, a link, timed values, a listener and deleted rows. The engine must answer or let
// a documented exception out, stay usable, and stop and start again.
#include <string>

#include "engine_run.h"
#include "sample_database.h"
#include "scratch_directory.h"
#include "velmora/velmora.h"

namespace {

using namespace velmora::fuzz;

void runOnce(const std::string& command) {
  textThrownBy([&] { ExecuteQuery(command.c_str()); });
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  prepareProcess();
  static const Files sample = sampleFiles();
  const ScratchDirectory directory;
  ScratchDirectory::write(sample);

  StartEngine();
  const std::string command(reinterpret_cast<const char*>(data), size);
  runOnce(command);
  require(std::string(ExecuteQuery("SELECT id FROM customers WHERE id = 0")).find("true") !=
              std::string::npos,
          "The engine is not usable after the command");
  runOnce("ROLLBACK");
  // A text that does not convert to its column's type stops the stop; in a deleted row it does not.
  if (textThrownBy(StopEngine)) {
    for (const char* const table : sampleTables) runOnce(std::string("DELETE FROM ") + table);
    StopEngine();
  }
  return 0;
}
