// One engine as a workload sees it, whichever it is and however it takes its statements. A workload
// says each statement once in each dialect, with places ?1, ?2 and so on for values; the engine
// decides whether that becomes a command text or a prepared statement with bound values.
#pragma once

#include <functional>
#include <memory>
#include <string>
#include <variant>
#include <vector>

namespace bench {

// velmora takes part in two ways, SQLite in four, DuckDB in two.
enum class Mode {
  velmora,  // by its plain functions
  handle,   // by a handle, with prepared statements; as durable as by the plain functions
  filePrepared,
  fileText,
  memoryPrepared,
  memoryText,
  duckdbFile,
  duckdbMemory
};

inline constexpr Mode allModes[] = {Mode::velmora,    Mode::handle,         Mode::filePrepared,
                                    Mode::fileText,   Mode::memoryPrepared, Mode::memoryText,
                                    Mode::duckdbFile, Mode::duckdbMemory};

const char* modeName(Mode mode);
inline bool isVelmora(Mode mode) { return mode == Mode::velmora || mode == Mode::handle; }
inline bool isDuckdb(Mode mode) { return mode == Mode::duckdbFile || mode == Mode::duckdbMemory; }
inline bool isFile(Mode mode) {
  return mode == Mode::filePrepared || mode == Mode::fileText || mode == Mode::duckdbFile;
}
inline bool isPrepared(Mode mode) {
  return mode == Mode::filePrepared || mode == Mode::memoryPrepared;
}

using Value = std::variant<int, double, std::string>;
using Values = std::vector<Value>;
using Batch = std::vector<Values>;

struct Statement {
  std::string velmora;  // empty: this engine has nothing to do here
  std::string sqlite;
  bool isRefused = false;   // the engine must answer with a failure
  std::string duckdb = {};  // empty: that of SQLite
};

// The template with its places replaced by the values, texts in single quotes.
std::string renderText(const std::string& text, const Values& values);

class Engine {
 public:
  Engine() = default;
  virtual ~Engine() = default;
  Engine(const Engine&) = delete;
  Engine& operator=(const Engine&) = delete;

  // Runs one statement and returns its answer, which stays until the next call.
  virtual const char* execute(const Statement& statement, const Values& values = {}) = 0;
  // Inserts rows with the values of 0 to count - 1, untimed and as fast as the engine can.
  virtual void fill(const Statement& insert, int count,
                    const std::function<Values(int)>& values) = 0;
  // Inserts rows of these values as fast as the engine can, and returns the seconds that took.
  virtual double load(const Statement& insert, const Batch& batch) = 0;
  // Runs the statement with each of the values, untimed, in one transaction where that is faster.
  virtual void change(const Statement& statement, const Batch& batch) = 0;
  // Runs the statement once for each entry of the batch, each a durable command of its own, and
  // returns the seconds that took; preparation of texts and statements is not timed. With each,
  // also notes the seconds of every single command there.
  virtual double time(const Statement& statement, const Batch& batch,
                      std::vector<double>* each = nullptr) = 0;
  // The seconds of a batch of queries whose rows are read value by value, by the values' types, and
  // made no text of. Where an answer is a text that is what is timed.
  virtual double timeReading(const Statement& query, const Batch& batch) {
    return time(query, batch);
  }
  // Moves everything from the log into the files of the tables.
  virtual void checkpoint() = 0;
};

// Starts the engine in the current directory. Destroying it stops it in the orderly way.
std::unique_ptr<Engine> openEngine(Mode mode);
std::unique_ptr<Engine> openVelmora();
std::unique_ptr<Engine> openHandle();
std::unique_ptr<Engine> openSqlite(Mode mode);
std::unique_ptr<Engine> openDuckdb(Mode mode);
// How many threads DuckDB runs a statement in.
std::string duckdbThreads();

}  // namespace bench
