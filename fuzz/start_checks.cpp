// See start_checks.h.
#include "start_checks.h"

#include "engine_run.h"
#include "scratch_directory.h"

namespace velmora::fuzz {
namespace {

// A start completes or sweeps an interrupted checkpoint first, whatever follows.
bool holdsCheckpoint(const Files& files) {
  for (const auto& [name, bytes] : files) {
    if (name == "velmora.ckpt" || name.ends_with(".checkpoint")) return true;
  }
  return false;
}

// One of each command on each table that has been loaded.
void runCommandsOnTables(Engine& engine) {
  std::vector<std::string> names;
  for (const auto& [name, table] : engine.database().tables) names.push_back(name);
  for (const std::string& name : names) {
    const std::string quoted = '\'' + name + '\'';
    const velmora::Table& table = engine.database().getTable(name);
    if (table.columns.empty()) continue;
    const std::string column = table.columns.back().name;
    const std::string type = table.columns.back().type;
    const std::string value = type == "string" ? "'x'" : type == "bool" ? "true" : "7";
    engine.run("SELECT * FROM " + quoted);
    engine.run("SELECT * FROM " + quoted + " WHERE " + column + " >= " + value);
    const std::string join = " JOIN " + quoted + " ON " + column + " = " + column;
    engine.run("SELECT * FROM " + quoted + join);
    engine.run("SELECT " + column + " FROM " + quoted + join);
    engine.run("BEGIN");
    engine.run("INSERT INTO " + quoted + ' ' + column + " = " + value);
    engine.run("UPDATE " + quoted + " SET " + column + " = " + value);
    engine.run("ROLLBACK");
    engine.run("INSERT INTO " + quoted + ' ' + column + " = " + value);
    engine.run("UPDATE " + quoted + " SET " + column + " = " + value + " --> " + value + " @ 5 s");
    engine.run("DELETE FROM " + quoted + " WHERE " + column + " = " + value);
  }
}

}  // namespace

void checkStart() {
  const Files before = ScratchDirectory::read();
  std::string error;
  auto engine = Engine::started(&error);
  if (!engine) {
    const bool isUntouched = holdsCheckpoint(before) || ScratchDirectory::read() == before;
    if (!isUntouched) fail("A failed start has written: " + error);
    return;
  }
  runCommandsOnTables(*engine);
  checkRestarts(std::move(*engine));
}

}  // namespace velmora::fuzz
