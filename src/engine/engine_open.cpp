// How an engine gets hold of its directory and lets go of it; see engine.h.
#include <algorithm>
#include <cerrno>
#include <chrono>
#include <new>
#include <sstream>
#include <stdexcept>
#include <thread>
#include <utility>

#include "../clock.h"
#include "../failure.h"
#include "../storage/block_io.h"
#include "../storage/damaged_files.h"
#include "../storage/sealed.h"
#include "../storage/system_failure.h"
#include "../text.h"
#include "engine_parts.h"

namespace velmora {
namespace {

constexpr const char* skipped = "[STORAGE] Skipped ";

Failure failureOf(const DirectoryInUse& error) {
  const std::string holder =
      error.process > 0 ? " by process " + std::to_string(error.process) : std::string();
  Failure failure(Code::busy, error.what() + holder);
  failure.process = error.process;
  return failure;
}

// Waits for the directory as long as it may.
std::unique_ptr<DirectoryLock> lockDirectory(const std::string& path, const OpenOptions& options) {
  constexpr std::chrono::milliseconds step(5);
  const auto limit = std::chrono::steady_clock::now() + options.openWait;
  const auto mode = options.isReadOnly ? DirectoryLock::Mode::shared : DirectoryLock::Mode::alone;
  while (true) {
    try {
      return std::make_unique<DirectoryLock>(path, mode);
    } catch (const DirectoryInUse& error) {
      if (std::chrono::steady_clock::now() >= limit) throw failureOf(error);
      std::this_thread::sleep_for(step);
    } catch (const DirectoryFailure& error) {
      throw failureOf(error);
    }
  }
}

// A text that may have been read from a damaged file, with \xNN for each byte that is no text.
std::string readable(std::string_view text) {
  constexpr std::string_view digits = "0123456789abcdef";
  std::string shown;
  while (true) {
    const std::size_t valid = utf8Prefix(text);
    shown += printable(text.substr(0, valid));
    if (valid == text.size()) return shown;
    const auto byte = static_cast<unsigned char>(text[valid]);
    shown.append("\\x").append(1, digits[byte / 16]).append(1, digits[byte % 16]);
    text.remove_prefix(valid + 1);
  }
}

// The first of the faults, and how many there are.
class Faults {
 public:
  void add(const std::string& file, std::int64_t offset, const std::string& meaning) {
    if (count_++ > 0) return;
    first_ = "'" + readable(file) + "'";
    if (offset >= 0) first_ += " at byte " + std::to_string(offset);
    first_ += ": " + readable(meaning);
  }
  bool isEmpty() const noexcept { return count_ == 0; }
  std::string text() const {
    return count_ == 1 ? first_ : first_ + " (and " + std::to_string(count_ - 1) + " more faults)";
  }

 private:
  std::size_t count_ = 0;
  std::string first_;
};

}  // namespace

Failure failureOf(const DirectoryFailure& error) {
  const bool isMissing = error.systemError == ENOENT || error.systemError == ENOTDIR;
  if (!isMissing) return Failure(Code::io, error.what()).because(error.systemError);
  return Failure(Code::notFound, "The database directory is not there").because(error.systemError);
}

Engine::Parts::Parts(OpenOptions options_)
    : options(std::move(options_)), gate(options.transactionWait) {}

void Engine::Parts::tell(LogLevel level, std::string_view line) const noexcept {
  if (!options.callbacks.log) return;
  try {
    options.callbacks.log(level, line);
  } catch (...) {
    // A line is lost, for want of memory; that is no reason to fail.
  }
}

bool Engine::Parts::goOn(std::string_view step, std::uint64_t done, std::uint64_t total) const {
  return !options.callbacks.progress || options.callbacks.progress(step, done, total);
}

Progress Engine::Parts::progressOf(std::string_view step) const {
  return [this, step](std::uint64_t done, std::uint64_t total) { return goOn(step, done, total); };
}

std::int64_t Engine::Parts::second() {
  const std::int64_t now = options.callbacks.clock ? options.callbacks.clock() : clock::now();
  std::int64_t last = lastSecond.load(std::memory_order_relaxed);
  if (now == last) return now;
  lastSecond.store(now, std::memory_order_relaxed);
  std::int64_t latest = latestSecond.load();
  while (now > latest && !latestSecond.compare_exchange_weak(latest, now)) {
  }
  if (now < last) {
    backFrom.store(last);
    backTo.store(now);
  }
  return now;
}

void Engine::Parts::tellThatClockWentBack() {
  const std::int64_t from = backFrom.exchange(0);
  if (from == 0) return;
  tell(LogLevel::warning, "The clock went back from second " + std::to_string(from) + " to " +
                              std::to_string(backTo.load()) + ": timed values go back, too");
}

void Engine::Parts::open(const std::string& path) {
  if (options.mayCreate && !options.isReadOnly && !makeDirectory(path)) {
    throw Failure(Code::io, "Failed to make the database directory").because(errno);
  }
  lock = lockDirectory(path, options);
  database.emplace(lock->directory());
  database->isSealed = true;
  changes.emplace(*database);
  Faults faults;
  const ReportFault report = [&](const std::string& file, std::int64_t offset,
                                 const std::string& meaning) {
    faults.add(file, offset, meaning);
    tell(LogLevel::error, "'" + readable(file) + "': " + readable(meaning));
  };
  const std::int64_t now = options.callbacks.clock ? options.callbacks.clock() : clock::now();
  OpenedLog opened;
  switch (contentsOf(database->directory)) {
    case Contents::nothing:
      if (!options.mayCreate || options.isReadOnly) {
        throw Failure(Code::notFound, "There is no database in the directory");
      }
      makeDatabase();
      return;
    case Contents::plain:
      if (options.mustCreate) throw Failure(Code::exists, "There is a database in the directory");
      convertPlain(report, now);
      opened.second = now;
      break;
    case Contents::sealed:
      if (options.mustCreate) throw Failure(Code::exists, "There is a database in the directory");
      opened = openSealed(*database, *changes, report,
                          [this](std::string_view step, std::uint64_t done, std::uint64_t total) {
                            return goOn(step, done, total);
                          });
      break;
  }
  if (!faults.isEmpty() && !options.mayRepair) throw Failure(Code::corrupt, faults.text());
  lastSecond = latestSecond = opened.second;
  openLog(opened, !faults.isEmpty());
}

void Engine::Parts::makeDatabase() {
  log.emplace(database->directory, 0, 1);
  saveFiles();
}

// What the plain functions have left is loaded and brought to the files as they do it; then it is
// read as handles read it.
void Engine::Parts::convertPlain(const ReportFault& report, std::int64_t now) {
  if (options.isReadOnly) {
    throw Failure(Code::readOnly,
                  "The directory was last used by the plain functions: open it once to be written");
  }
  std::ostringstream lines;
  {
    Database plain(database->directory);
    plain.loadFromDisk(lines);
    plain.checkpoint(now);
  }
  std::istringstream each(lines.str());
  for (std::string line; std::getline(each, line);) {
    if (line.starts_with(skipped)) report(line.substr(std::string_view(skipped).size()), -1, line);
  }
  takeTables(loadPlain(database->directory, report, progressOf("load")), *database, report, now);
}

// Goes on with the log that was read. What is damaged is kept aside and written anew.
void Engine::Parts::openLog(const OpenedLog& opened, bool isDamaged) {
  if (options.isReadOnly) {
    log.emplace(database->directory, opened.size, opened.nextSequence);
    return;
  }
  const bool isPlain = contentsOf(database->directory) == Contents::plain;
  if (isDamaged) keepDamagedFiles();
  if (!isPlain) finishSealed(database->directory);
  if (opened.hasTornTail && !isDamaged) {
    File file(database->directory, logFileName, File::Mode::change);
    const auto fileSize = file.size();
    if (!file.truncate(opened.size) || !file.sync()) {
      throw Failure(Code::io, "Failed to cut the end of the log").because(errno);
    }
    tell(LogLevel::warning, "The log ended within a record: " +
                                std::to_string(fileSize.value_or(opened.size) - opened.size) +
                                " bytes, of which nobody was told, were cut off");
  }
  log.emplace(database->directory, opened.size, opened.nextSequence);
  if (!isPlain && !isDamaged) {
    // Who wrote it may have been killed before it was synced; from now on it is shown.
    if (options.durability != Durability::off) log->syncTo(log->end());
    return;
  }
  for (auto& [name, table] : database->tables) table.markAllDirty();
  areFilesDamaged = isDamaged;
  saveFiles();
}

// Copies all that is there into a directory of its own within.
void Engine::Parts::keepDamagedFiles() {
  const std::string name = keepDamaged(database->directory);
  tell(LogLevel::warning, "The damaged files are kept in '" + name + "'");
}

Engine::Engine(std::string_view path, OpenOptions options)
    : parts_(std::make_unique<Parts>(std::move(options))) {
  try {
    parts_->open(std::string(path));
  } catch (const Failure&) {
    throw;
  } catch (const std::bad_alloc&) {
    throw;
  } catch (const FailedConversion& error) {
    throw Failure(Code::type, "'" + printable(error.text) + "' is no number")
        .of(error.table, error.column);
  } catch (const Unreadable& error) {
    throw Failure(Code::io, error.what()).because(errno);
  } catch (const WriteFailure& error) {
    throw Failure(Code::io, error.what()).because(errno);
  } catch (const std::exception& error) {
    throw Failure(Code::corrupt, error.what());
  }
  if (parts_->options.durability == Durability::everySecond && !parts_->options.isReadOnly) {
    parts_->syncer = std::thread([parts = parts_.get()] { parts->runSyncer(); });
  }
}

Engine::~Engine() {
  if (parts_ != nullptr) parts_->close();
}

void Engine::Parts::runSyncer() {
  std::unique_lock guard(syncerMutex);
  while (
      !syncerWakes.wait_for(guard, std::chrono::seconds(1), [this] { return isSyncerStopped; })) {
    guard.unlock();
    try {
      log->syncTo(log->end());
    } catch (const std::exception& error) {
      log->fail();
      tell(LogLevel::error, error.what());
      return;
    }
    guard.lock();
  }
}

void Engine::Parts::close() noexcept {
  if (lock == nullptr) return;
  if (syncer.joinable()) {
    {
      const std::lock_guard guard(syncerMutex);
      isSyncerStopped = true;
    }
    syncerWakes.notify_all();
    syncer.join();
  }
  try {
    if (gate.takeOverTransaction()) rollbackTransaction();
    if (!options.isReadOnly && log && !log->hasFailed() && !isBroken && log->size() > 0) {
      checkpoint();
    }
  } catch (const std::exception& error) {
    tell(LogLevel::error, "No checkpoint was written; the log has every change");
    tell(LogLevel::error, error.what());
  }
  lock.reset();
}

void Engine::backup(std::string_view path) {
  Parts& engine = *parts_;
  const std::string target(path);
  if (!makeDirectory(target)) {
    throw Failure(Code::io, "Failed to make the directory of the copy").because(errno);
  }
  OpenOptions options;
  const std::unique_ptr<DirectoryLock> lock = lockDirectory(target, options);
  if (!listFiles(lock->directory(), "").empty()) {
    throw Failure(Code::exists, "The directory of the copy is not empty");
  }
  const std::lock_guard guard(engine.files);
  try {
    copySealed(engine.database->directory, engine.log->size(), lock->directory(),
               engine.progressOf("backup"));
  } catch (...) {
    // Nothing else is there, so that a copy can be tried again.
    for (const DirectoryEntry& entry : listFiles(lock->directory(), "")) {
      removeFile(lock->directory(), entry.name);
    }
    throw;
  }
}

DiskUse diskUse(std::string_view path, std::int64_t recentSecond, const ReportFile& report) {
  try {
    const DirectoryLock opened(std::string(path), DirectoryLock::Mode::none);
    return asSystemFailure("", [&] { return diskUseOf(opened.directory(), recentSecond, report); });
  } catch (const DirectoryFailure& error) {
    throw failureOf(error);
  }
}

void checkDatabase(std::string_view path, const Callbacks& callbacks,
                   const std::function<void(const Fault&)>& report) {
  OpenOptions options;
  options.isReadOnly = true;
  const std::unique_ptr<DirectoryLock> lock = lockDirectory(std::string(path), options);
  const Directory directory = lock->directory();
  const ReportFault fault = [&](const std::string& file, std::int64_t offset,
                                const std::string& meaning) {
    report({readable(file), offset, readable(meaning)});
  };
  const auto progress = [&](std::string_view /*step*/, std::uint64_t done, std::uint64_t total) {
    return !callbacks.progress || callbacks.progress("check", done, total);
  };
  Database database(directory);
  const std::int64_t now = callbacks.clock ? callbacks.clock() : clock::now();
  switch (contentsOf(directory)) {
    case Contents::nothing:
      throw Failure(Code::notFound, "There is no database in the directory");
    case Contents::plain: {
      const Progress load = [&](auto done, auto total) { return progress("load", done, total); };
      takeTables(loadPlain(directory, fault, load), database, fault, now);
      return;
    }
    case Contents::sealed: {
      Changes changes(database);
      const OpenedLog opened = openSealed(database, changes, fault, progress);
      if (opened.hasTornTail) {
        report({logFileName, opened.size,
                "The log ends within a record, which the next open cuts off"});
      }
      return;
    }
  }
}

}  // namespace velmora
