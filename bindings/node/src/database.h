// A database: its engine, its statements, its worker, and what the engine's threads have for that
// of JavaScript. All but what is said to be for other threads is for that of JavaScript only.
#pragma once

#include <atomic>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <unordered_set>
#include <utility>
#include <vector>

#include "addon.h"
#include "worker.h"

namespace velmora_node {

struct Statement;

// What other threads have for that of JavaScript.
struct LogLine {
  int level;
  std::string text;
};
struct Progress {
  std::string what;
  std::uint64_t done;
  std::uint64_t total;
};
struct Mail {
  std::vector<LogLine> lines;
  std::optional<Progress> progress;  // the latest
  std::vector<std::unique_ptr<Job>> jobs;
};

// Functions of the program; null: it has given none.
struct ScriptCallbacks {
  napi_ref log = nullptr;
  napi_ref progress = nullptr;
  napi_ref clock = nullptr;
};

class Database : public std::enable_shared_from_this<Database> {
 public:
  Database(Addon& addon, const velmora_options& options, const ScriptCallbacks& callbacks);
  ~Database();
  Database(const Database&) = delete;
  Database& operator=(const Database&) = delete;

  // To be called once, when a shared pointer holds the object.
  void begin();
  // Opens it, on this thread or the worker; then says on this one whether that has gone well.
  int open(const std::string& path, velmora_error** error);
  void hasOpened(bool isOpen);

  velmora_db* engine() const { return db_; }
  bool isInTransaction() const { return isOpen_ && velmora_in_transaction(db_) != 0; }
  void interrupt();
  // Throws EngineFailure when it is closed, when one of its callbacks is running, or, unless that
  // is no matter, when an asynchronous transaction has it.
  void requireUsable() const;
  void requireFree() const;
  void reserve(bool isReserved) { isReserved_ = isReserved; }

  std::unordered_set<Statement*> statements;

  // Has the work done by the worker. Returns the promise of its result.
  napi_value post(std::function<int(Job& job)> work, std::function<void(const Job&)> conclude = {});
  bool hasJobs() const { return jobCount_ > 0; }

  // Ends the statements, and refuses all calls but those of the worker.
  void endCalls();
  int closeEngine(velmora_error** error);  // on any thread
  // After that: ends the threads, and lets the environment go.
  void end();
  // Closes it in whatever state it is.
  void abandon() noexcept;

  // Gives the program the lines that are to be logged, and settles promises.
  void deliver() noexcept;

 private:
  friend class UnderWay;

  static void log(void* context, int level, const char* text, std::size_t length);
  static int progress(void* context, const char* what, std::size_t length, std::uint64_t done,
                      std::uint64_t total);
  static std::int64_t clock(void* context);

  void perform(std::unique_ptr<Job> job);  // on the worker
  void ring();                             // on any thread
  bool mayCallScript() const;              // on any thread
  napi_value callScript(napi_ref function, std::initializer_list<napi_value> arguments) const;
  // What a callback has thrown with no call to leave becomes an exception that nobody has caught.
  void handOverException() const;
  void beginCall();
  std::int64_t scriptSecond() const;
  bool goesOn(const Progress& progress) const noexcept;
  void deliverMail();
  void settle(Job& job);

  const std::shared_ptr<Addon> addon_;
  const napi_env env_;
  velmora_options options_;
  ScriptCallbacks callbacks_;
  std::mutex engineMutex_;  // while the engine comes and goes, and while it is interrupted
  velmora_db* db_ = nullptr;
  bool isOpen_ = false;
  bool isReserved_ = false;  // by an asynchronous transaction
  int callsUnderWay_ = 0;    // of the engine, on this thread
  std::size_t jobCount_ = 0;
  napi_threadsafe_function bell_ = nullptr;

  std::atomic<std::int64_t> second_ = 0;  // by the program's clock, as it was last asked
  std::atomic<bool> isToStop_ = false;    // the job that the worker has
  std::atomic<bool> isAbandoned_ = false;
  std::atomic<bool> hasMail_ = false;
  std::mutex mutex_;  // guards the mail
  Mail mail_;
  Worker worker_;
};

// A call of the engine, on the thread of JavaScript, from its beginning to its end. The program's
// clock is asked before it, so that a clock that throws (Thrown) stops it; what has been logged
// during it is delivered behind it.
class UnderWay {
 public:
  explicit UnderWay(Database& database) : database_(database) { database_.beginCall(); }
  ~UnderWay() {
    --database_.callsUnderWay_;
    if (database_.hasMail_) database_.deliver();
  }
  UnderWay(const UnderWay&) = delete;
  UnderWay& operator=(const UnderWay&) = delete;

 private:
  Database& database_;
};

// What JavaScript holds of a database.
struct DatabaseHandle {
  explicit DatabaseHandle(std::shared_ptr<Database> own) : database(std::move(own)) {}
  ~DatabaseHandle() { database->abandon(); }
  DatabaseHandle(const DatabaseHandle&) = delete;
  DatabaseHandle& operator=(const DatabaseHandle&) = delete;

  std::shared_ptr<Database> database;
};

inline Database& databaseOf(const Call& call, std::size_t index) {
  return *call.handle<DatabaseHandle>(index).database;
}

}  // namespace velmora_node
