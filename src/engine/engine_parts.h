// What an engine is made of, for the sources that implement it; see engine.h.
//
// Locks, in this order: the gate, which lets commands to the tables; files, held while files other
// than the log are written or copied, and waited for only by who is not in the gate, or in with a
// transaction of its own; the log's own.
#pragma once

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "../query/query.h"
#include "../storage/directory_lock.h"
#include "../storage/record_log.h"
#include "changes.h"
#include "engine.h"
#include "gate.h"
#include "opening.h"

namespace velmora {

// Of a directory that cannot be opened.
Failure failureOf(const DirectoryFailure& error);

struct Prepared::Parts {
  strict::Statement statement;
  // What was looked up for a SELECT or an INSERT, and of which state of the catalogue that is.
  std::optional<Query> query;
  std::optional<InsertPlan> insert;
  std::uint64_t catalogueVersion = 0;
  RowHint hint;

  // Forgets what was looked up of another state.
  void keepOnly(std::uint64_t version) {
    if (std::exchange(catalogueVersion, version) == version) return;
    query.reset();
    insert.reset();
    hint = {};
  }
};

struct Engine::Parts {
  explicit Parts(OpenOptions options_);

  const OpenOptions options;
  std::unique_ptr<DirectoryLock> lock;  // goes last
  Interrupts interrupts;
  std::mutex files;
  std::uint64_t catalogueVersion = 1;  // in the gate's care, as what stands behind it
  Gate gate;
  std::optional<Database> database;
  std::optional<Changes> changes;
  std::optional<RecordLog> log;
  RecordText record;             // of the command that is run, or of the open transaction
  bool isBroken = false;         // something could not be taken back
  bool areFilesDamaged = false;  // and to be written anew
  // A change has been made and could not be put on the disk.
  std::atomic<bool> isUnsure = false;
  bool isSyncerStopped = false;  // see syncer
  // The second of the last command, and the latest that any has had: links are judged as of that
  // one, so that a clock that goes back breaks none.
  std::atomic<std::int64_t> lastSecond = 0;
  std::atomic<std::int64_t> latestSecond = 0;
  // Where the clock went back, for the log callback, which is called when no lock is held.
  std::atomic<std::int64_t> backFrom = 0;
  std::atomic<std::int64_t> backTo = 0;
  // Syncs the log once a second, where that is the durability.
  std::thread syncer;
  std::mutex syncerMutex;
  std::condition_variable syncerWakes;

  // opening and closing (engine_open.cpp)
  void open(const std::string& path);
  void makeDatabase();
  void convertPlain(const ReportFault& report, std::int64_t now);
  void openLog(const OpenedLog& opened, bool isDamaged);
  void keepDamagedFiles();
  void close() noexcept;
  void runSyncer();

  void tell(LogLevel level, std::string_view line) const noexcept;
  bool goOn(std::string_view step, std::uint64_t done, std::uint64_t total) const;
  Progress progressOf(std::string_view step) const;
  std::int64_t second();
  void tellOfClock() {
    if (backFrom.load(std::memory_order_relaxed) != 0) tellThatClockWentBack();
  }
  void tellThatClockWentBack();

  // commands (engine.cpp)
  void requireSure() const {
    if (isBroken || isUnsure) throwUnsure();
  }
  [[noreturn]] void throwUnsure() const;
  void requireWritable() const;
  void read(Prepared::Parts& prepared, std::span<const Value> values, Answer& answer);
  void change(Prepared::Parts& prepared, std::span<const Value> values, Answer& answer);
  void beginTransaction();
  void commitTransaction();
  void rollbackTransaction();
  void undoTo(std::size_t changeCount);
  void saveFiles();
  void checkpoint();
  void vacuum(const strict::Vacuum& command, Answer& answer);
  void syncIfAlways(std::int64_t end);
  // Runs steps as one transaction, or as one step of the open one.
  template <typename Steps>
  void asOne(Steps steps);
};

}  // namespace velmora
