// The three plain exported functions, and the process's one engine, which they share with the
// guarded ones. No engine logic lives here.
#include "velmora/velmora.h"

#include <optional>
#include <stdexcept>
#include <string>

#include "database/database.h"
#include "engine.h"

namespace velmora {

constinit std::mutex engine_mutex;
std::unique_ptr<Parser> global_parser;

namespace {

std::optional<DirectoryLock> global_directory;  // held from a start to its stop
std::unique_ptr<Database> global_db;
std::string last_result_buffer;

constexpr const char* notStarted = "{\"success\": false, \"message\": \"Engine not started.\"}";

void runCommand(const char* query) {
  static std::string command;  // keeps its memory from one command to the next
  if (query == nullptr) throw std::logic_error("ExecuteQuery needs a command");
  try {
    command = query;
    const ResultSet result = global_parser->handleCommand(command);
    renderJson(result, last_result_buffer);
  } catch (const std::runtime_error& error) {
    last_result_buffer = std::string("{\"success\": false, \"message\": \"") + error.what() + "\"}";
  }
}

}  // namespace

void startEngine() {
  if (global_db != nullptr) return;
  global_directory.emplace();
  try {
    global_db = std::make_unique<Database>(global_directory->directory());
  } catch (...) {
    global_directory.reset();
    throw;
  }
  // Deliberate: a load that fails leaves the database set and the parser null.
  global_db->loadFromDisk();
  global_parser = std::make_unique<Parser>(global_db.get());
}

void stopEngine() {
  if (global_db == nullptr) return;
  // A database that was loaded in part must not be written over the whole one on disk.
  if (global_parser != nullptr) global_db->checkpoint();
  global_parser.reset();
  global_db.reset();
  global_directory.reset();
}

}  // namespace velmora

extern "C" {

void StartEngine(void) {
  const std::lock_guard lock(velmora::engine_mutex);
  velmora::startEngine();
}

const char* ExecuteQuery(const char* query) {
  using namespace velmora;
  const std::lock_guard lock(engine_mutex);
  if (global_parser == nullptr) {
    last_result_buffer = notStarted;
  } else {
    runCommand(query);
  }
  return last_result_buffer.c_str();
}

void StopEngine(void) {
  const std::lock_guard lock(velmora::engine_mutex);
  velmora::stopEngine();
}

}  // extern "C"
