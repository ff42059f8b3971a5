// DuckDB on a file or in memory, with prepared statements; rows are brought in by its appender. It
// takes the threads that it thinks best, and all else is as the library comes: on a file, each
// statement that commits waits for the disk.
#include <map>
#include <stdexcept>

#include "duckdb_answer.h"
#include "duckdb_library.h"
#include "engine.h"
#include "memory.h"
#include "stopwatch.h"

namespace bench {

namespace {

void require(bool isDone, const std::string& what, const char* message = "") {
  if (!isDone) throw std::runtime_error("DuckDB: " + what + " " + message);
}

// A handle that the given function of the library ends.
class Owned {
 public:
  explicit Owned(void (*end)(DuckdbHandle*)) : end_(end) {}
  ~Owned() { end_(&handle); }
  Owned(const Owned&) = delete;
  Owned& operator=(const Owned&) = delete;

  DuckdbHandle handle = nullptr;

 private:
  void (*end_)(DuckdbHandle*);
};

class Appender {
 public:
  // The table's name stands third in an INSERT.
  Appender(DuckdbHandle connection, const std::string& insert) {
    const std::size_t start = sizeof "INSERT INTO " - 1;
    const std::string table = insert.substr(start, insert.find(' ', start) - start);
    require(duckdb_.createAppender(connection, nullptr, table.c_str(), &handle_) == 0, table);
  }
  ~Appender() { duckdb_.destroyAppender(&handle_); }
  Appender(const Appender&) = delete;
  Appender& operator=(const Appender&) = delete;

  // Every table here begins with a key, which the other engines count by themselves.
  void append(int key, const Values& values) {
    duckdb_.appendInt(handle_, key);
    for (const Value& value : values) append(value);
    require(duckdb_.endAppendedRow(handle_) == 0, "a row cannot be appended");
  }

  void finish() { require(duckdb_.destroyAppender(&handle_) == 0, "rows cannot be appended"); }

 private:
  void append(const Value& value) {
    if (const auto* number = std::get_if<int>(&value)) {
      duckdb_.appendInt(handle_, *number);
    } else if (const auto* real = std::get_if<double>(&value)) {
      duckdb_.appendDouble(handle_, *real);
    } else {
      const auto& chars = std::get<std::string>(value);
      duckdb_.appendText(handle_, chars.data(), chars.size());
    }
  }

  const DuckdbLibrary& duckdb_ = duckdbLibrary();
  DuckdbHandle handle_ = nullptr;
};

class DuckdbEngine : public Engine {
 public:
  explicit DuckdbEngine(Mode mode) {
    const char* path = isFile(mode) ? "bench.duckdb" : ":memory:";
    require(duckdb_.open(path, &database_.handle) == 0, "the database cannot be opened");
    require(duckdb_.connect(database_.handle, &connection_.handle) == 0, "no connection");
  }

  const char* execute(const Statement& statement, const Values& values) override {
    const std::string& text = textOf(statement);
    if (text.empty()) return "";
    return run(ready(text), statement, values);
  }

  void fill(const Statement& insert, int count, const std::function<Values(int)>& values) override {
    Appender appender(connection_.handle, textOf(insert));
    for (int index = 0; index < count; ++index) appender.append(index + 1, values(index));
    appender.finish();
  }

  double load(const Statement& insert, const Batch& batch) override {
    freshMemory();
    const Stopwatch watch;
    Appender appender(connection_.handle, textOf(insert));
    int key = 0;
    for (const Values& values : batch) appender.append(++key, values);
    appender.finish();
    return watch.seconds();
  }

  void change(const Statement& statement, const Batch& batch) override {
    execute({"", "BEGIN"}, {});
    for (const Values& values : batch) execute(statement, values);
    execute({"", "COMMIT"}, {});
  }

  double time(const Statement& statement, const Batch& batch, std::vector<double>* each) override {
    if (each != nullptr) throw std::logic_error("DuckDB's single commands are not timed");
    DuckdbHandle prepared = ready(textOf(statement));
    freshMemory();
    const Stopwatch watch;
    for (const Values& values : batch) run(prepared, statement, values);
    return watch.seconds();
  }

  void checkpoint() override { execute({"", "CHECKPOINT"}, {}); }

 private:
  static const std::string& textOf(const Statement& statement) {
    return statement.duckdb.empty() ? statement.sqlite : statement.duckdb;
  }

  // The statement, prepared when it is first wanted.
  DuckdbHandle ready(const std::string& text) {
    Owned& prepared = prepared_.try_emplace(text, duckdb_.destroyStatement).first->second;
    if (prepared.handle == nullptr) {
      const bool isDone = duckdb_.prepare(connection_.handle, text.c_str(), &prepared.handle) == 0;
      require(isDone, text, duckdb_.prepareError(prepared.handle));
    }
    return prepared.handle;
  }

  void bind(DuckdbHandle prepared, const Values& values) {
    std::uint64_t place = 0;
    for (const Value& value : values) {
      ++place;
      if (const auto* number = std::get_if<int>(&value)) {
        duckdb_.bindInt(prepared, place, *number);
      } else if (const auto* real = std::get_if<double>(&value)) {
        duckdb_.bindDouble(prepared, place, *real);
      } else {
        const auto& chars = std::get<std::string>(value);
        duckdb_.bindText(prepared, place, chars.data(), chars.size());
      }
    }
  }

  const char* run(DuckdbHandle prepared, const Statement& statement, const Values& values) {
    bind(prepared, values);
    DuckdbResult result = {};
    const bool isDone = duckdb_.execute(prepared, &result) == 0;
    require(isDone, textOf(statement), duckdb_.resultError(&result));
    const char* answer = answer_.read(result);
    duckdb_.destroyResult(&result);
    return answer;
  }

  const DuckdbLibrary& duckdb_ = duckdbLibrary();
  Owned database_{duckdb_.close};
  Owned connection_{duckdb_.disconnect};
  DuckdbAnswer answer_;
  std::map<std::string, Owned> prepared_;
};

}  // namespace

std::unique_ptr<Engine> openDuckdb(Mode mode) { return std::make_unique<DuckdbEngine>(mode); }

std::string duckdbThreads() {
  DuckdbEngine engine(Mode::duckdbMemory);
  const std::string answer =
      engine.execute({"", "SELECT current_setting('threads')::INT AS threads"}, {});
  const std::size_t start = answer.find(": ", answer.find("threads")) + 2;
  return answer.substr(start, answer.find('}', start) - start);
}

}  // namespace bench
