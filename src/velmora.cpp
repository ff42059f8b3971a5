// The three plain exported functions, and the process's one plain engine. No engine logic lives
// here. The rules of the locks stand in database/database.h.
#include "velmora/velmora.h"

#include <memory>
#include <mutex>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <utility>

#include "clock.h"
#include "database/database.h"
#include "engine/opening.h"
#include "number.h"
#include "parser/parser.h"
#include "storage/directory_lock.h"

namespace velmora {
namespace {

// Serialises every call of the exported functions; held around everything below.
constinit std::mutex engine_mutex;
std::optional<DirectoryLock> global_directory;  // held from a start to its stop
std::unique_ptr<Database> global_db;
// Null while the engine is stopped, and after a start that failed while loading.
std::unique_ptr<Parser> global_parser;
TextBuffer last_result_buffer;  // keeps its memory from one command to the next

constexpr const char* notStarted = "{\"success\": false, \"message\": \"Engine not started.\"}";

void setResult(std::string_view text) {
  last_result_buffer.clear();
  last_result_buffer.append(text);
}

void runCommand(const char* query) {
  static std::string command;  // keeps its memory from one command to the next
  if (query == nullptr) throw std::logic_error("ExecuteQuery needs a command");
  try {
    command = query;
    ResultSet result = global_parser->handleCommand(command, std::move(last_result_buffer));
    last_result_buffer = renderJson(std::move(result));
  } catch (const std::runtime_error& error) {
    setResult(std::string("{\"success\": false, \"message\": \"") + error.what() + "\"}");
  }
}

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
  loadForPlainFunctions(*global_db);
  global_parser = std::make_unique<Parser>(global_db.get());
}

void stopEngine() {
  if (global_db == nullptr) return;
  // A database that was loaded in part must not be written over the whole one on disk.
  if (global_parser != nullptr) global_db->checkpoint(clock::now());
  global_parser.reset();
  global_db.reset();
  global_directory.reset();
}

}  // namespace
}  // namespace velmora

extern "C" {

void StartEngine(void) {
  const std::lock_guard lock(velmora::engine_mutex);
  velmora::withStandardExceptions(velmora::startEngine);
}

const char* ExecuteQuery(const char* query) {
  using namespace velmora;
  const std::lock_guard lock(engine_mutex);
  if (global_parser == nullptr) {
    setResult(notStarted);
  } else {
    withStandardExceptions([=] { runCommand(query); });
  }
  return last_result_buffer.terminated();
}

void StopEngine(void) {
  const std::lock_guard lock(velmora::engine_mutex);
  velmora::withStandardExceptions(velmora::stopEngine);
}

}  // extern "C"
