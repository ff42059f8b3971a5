// One command text of any bytes, given to a started engine that holds a small database with every
// kind of column, a link, timed values, a listener and deleted rows; then once more to the guarded
// functions, as a command and as a bound value. The engine must answer or let a documented
// exception out, stay usable, and stop and start again.
#include <string>

#include "engine_run.h"
#include "json_check.h"
#include "sample_database.h"
#include "scratch_directory.h"
#include "velmora/velmora.h"

namespace {

using namespace velmora::fuzz;

void runOnce(const std::string& command) {
  textThrownBy([&] { ExecuteQuery(command.c_str()); });
}

// Whatever a guarded function is given, it answers in JSON.
void checkGuardedAnswer(char* answer) {
  require(answer != nullptr, "Out of memory");
  if (!isJson(answer)) fail("Not JSON:\n" + std::string(answer));
  velmora_free(answer);
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
  checkGuardedAnswer(velmora_query(command.c_str()));
  velmora_value value = {};
  value.type = VELMORA_TEXT;
  value.text = command.data();
  value.text_size = command.size();
  checkGuardedAnswer(velmora_query_bound("INSERT INTO tags name = ?", &value, 1));
  checkGuardedAnswer(velmora_query_bound(command.c_str(), &value, 1));
  checkGuardedAnswer(velmora_query("SELECT * FROM tags"));
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
