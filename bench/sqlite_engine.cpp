// SQLite in its four ways: on a file (write-ahead log, no syncs: the durability that velmora has)
// or in memory, with prepared statements or texts. A statement that commits is a transaction of its
// own. The page cache is large enough for every workload; all else is as the library comes.
#include <sqlite3.h>

#include <filesystem>
#include <map>
#include <stdexcept>

#include "engine.h"
#include "memory.h"
#include "sqlite_answer.h"
#include "stopwatch.h"

namespace bench {

namespace {

constexpr char fileName[] = "bench.db";
constexpr char copyName[] = "copy.db";  // what a database in memory is checkpointed to

struct Closer {
  void operator()(sqlite3* database) const { sqlite3_close_v2(database); }
};
using Connection = std::unique_ptr<sqlite3, Closer>;

struct Finalizer {
  void operator()(sqlite3_stmt* statement) const { sqlite3_finalize(statement); }
};
using Prepared = std::unique_ptr<sqlite3_stmt, Finalizer>;

Connection connect(const char* name) {
  sqlite3* database = nullptr;
  const int outcome = sqlite3_open(name, &database);
  Connection connection(database);
  if (outcome != SQLITE_OK) throw std::runtime_error("SQLite cannot open the database");
  return connection;
}

void copyDatabase(sqlite3* from, sqlite3* to) {
  sqlite3_backup* copy = sqlite3_backup_init(to, "main", from, "main");
  if (copy == nullptr || sqlite3_backup_step(copy, -1) != SQLITE_DONE ||
      sqlite3_backup_finish(copy) != SQLITE_OK) {
    throw std::runtime_error("SQLite cannot copy the database");
  }
}

class SqliteEngine : public Engine {
 public:
  explicit SqliteEngine(Mode mode)
      : isPrepared_(isPrepared(mode)),
        isFile_(isFile(mode)),
        connection_(connect(isFile_ ? fileName : ":memory:")),
        answer_(connection_.get()) {
    if (!isFile_ && std::filesystem::exists(copyName)) {
      copyDatabase(connect(copyName).get(), connection_.get());
    }
    run("PRAGMA cache_size = -1000000");
    if (isFile_) {
      run("PRAGMA journal_mode = WAL");
      run("PRAGMA synchronous = OFF");
    }
    run("PRAGMA foreign_keys = ON");
  }

  const char* execute(const Statement& statement, const Values& values) override {
    if (statement.sqlite.empty()) return "";
    sqlite3_stmt* prepared = ready(statement.sqlite);
    bind(prepared, values);
    const char* answer = answer_.run(prepared);
    sqlite3_reset(prepared);
    requireOutcome(statement);
    return answer;
  }

  void fill(const Statement& insert, int count, const std::function<Values(int)>& values) override {
    run("BEGIN");
    for (int index = 0; index < count; ++index) execute(insert, values(index));
    run("COMMIT");
  }

  double load(const Statement& insert, const Batch& batch) override {
    freshMemory();
    const Stopwatch watch;
    change(insert, batch);
    return watch.seconds();
  }

  void change(const Statement& statement, const Batch& batch) override {
    run("BEGIN");
    for (const Values& values : batch) execute(statement, values);
    run("COMMIT");
  }

  double time(const Statement& statement, const Batch& batch, std::vector<double>* each) override {
    return isPrepared_ ? timePrepared(statement, batch, each) : timeTexts(statement, batch, each);
  }

  double timeReading(const Statement& query, const Batch& batch) override {
    sqlite3_stmt* prepared = ready(query.sqlite);
    freshMemory();
    const Stopwatch watch;
    for (const Values& values : batch) {
      bind(prepared, values);
      readRows(prepared);
      sqlite3_reset(prepared);
    }
    return watch.seconds();
  }

  void checkpoint() override {
    if (isFile_) {
      run("PRAGMA wal_checkpoint(TRUNCATE)");
      return;
    }
    std::filesystem::remove(copyName);
    const Connection target = connect(copyName);
    sqlite3_exec(target.get(), "PRAGMA synchronous = OFF", nullptr, nullptr, nullptr);
    copyDatabase(connection_.get(), target.get());
  }

 private:
  double timePrepared(const Statement& statement, const Batch& batch, std::vector<double>* each) {
    sqlite3_stmt* prepared = ready(statement.sqlite);
    if (each != nullptr) each->reserve(each->size() + batch.size());
    freshMemory();
    const Stopwatch watch;
    double before = 0;
    for (const Values& values : batch) {
      bind(prepared, values);
      answer_.run(prepared);
      sqlite3_reset(prepared);
      requireOutcome(statement);
      if (each != nullptr) {
        const double now = watch.seconds();
        each->push_back(now - before);
        before = now;
      }
    }
    return watch.seconds();
  }

  double timeTexts(const Statement& statement, const Batch& batch, std::vector<double>* each) {
    if (each != nullptr) throw std::logic_error("Single commands are timed in prepared modes");
    std::vector<std::string> texts;
    texts.reserve(batch.size());
    for (const Values& values : batch) texts.push_back(renderText(statement.sqlite, values));
    freshMemory();
    const Stopwatch watch;
    for (const std::string& text : texts) {
      const Prepared prepared = prepare(text);
      answer_.run(prepared.get());
      answer_.forgetColumns();
      requireOutcome(statement);
    }
    return watch.seconds();
  }

  void run(const char* text) {
    char* message = nullptr;
    if (sqlite3_exec(connection_.get(), text, nullptr, nullptr, &message) != SQLITE_OK) {
      throw std::runtime_error(std::string("SQLite: ") + text + ": " + message);
    }
  }

  Prepared prepare(const std::string& text) {
    sqlite3_stmt* statement = nullptr;
    const int size = static_cast<int>(text.size()) + 1;
    if (sqlite3_prepare_v2(connection_.get(), text.c_str(), size, &statement, nullptr) !=
        SQLITE_OK) {
      throw std::runtime_error("SQLite: " + text + ": " + sqlite3_errmsg(connection_.get()));
    }
    return Prepared(statement);
  }

  // The statement, prepared when it is first wanted.
  sqlite3_stmt* ready(const std::string& text) {
    Prepared& prepared = prepared_[text];
    if (!prepared) {
      prepared = prepare(text);
      answer_.forgetColumns();
    }
    return prepared.get();
  }

  static void bind(sqlite3_stmt* prepared, const Values& values) {
    int place = 0;
    for (const Value& value : values) {
      ++place;
      if (const auto* number = std::get_if<int>(&value)) {
        sqlite3_bind_int(prepared, place, *number);
      } else if (const auto* real = std::get_if<double>(&value)) {
        sqlite3_bind_double(prepared, place, *real);
      } else {
        const auto& chars = std::get<std::string>(value);
        sqlite3_bind_text(prepared, place, chars.data(), static_cast<int>(chars.size()),
                          SQLITE_STATIC);
      }
    }
  }

  void requireOutcome(const Statement& statement) const {
    if (answer_.isSuccess() == statement.isRefused) {
      throw std::runtime_error("SQLite: " + statement.sqlite + ": " +
                               sqlite3_errmsg(connection_.get()));
    }
  }

  bool isPrepared_;
  bool isFile_;
  Connection connection_;
  SqliteAnswer answer_;
  std::map<std::string, Prepared> prepared_;
};

}  // namespace

std::unique_ptr<Engine> openSqlite(Mode mode) { return std::make_unique<SqliteEngine>(mode); }

}  // namespace bench
