// Engine: one database, open: its directory and the lock on it, its tables, its log, its clock. Any
// number of engines may be open in a process, each on a directory of its own. It speaks the strict
// language; commands are whole or not at all, and are answered once the log has them.
//
// Any thread may call any function at any time. Reads run side by side; a change waits for reads
// and holds up others. While a transaction is open, which is its thread's, the other threads wait
// up to the limit given.
//
// Failures leave as Failure (or std::bad_alloc), and change nothing.
#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "../answer.h"
#include "../value.h"
#include "disk_use.h"

namespace velmora {

enum class Durability : std::uint8_t {
  always,       // an answered change is on the disk
  everySecond,  // at most the changes of the last second are not
  off,          // changes are with the system, which keeps them when the process ends, not at a
                // power cut
};

enum class LogLevel : std::uint8_t { information, warning, error };

// What a host is told, and asked.
struct Callbacks {
  std::function<void(LogLevel, std::string_view line)> log;
  // Called now and then while something takes long ("load", "replay", "checkpoint", "backup",
  // "check"): how much of how much is done; false stops it.
  std::function<bool(std::string_view what, std::uint64_t done, std::uint64_t total)> progress;
  std::function<std::int64_t()> clock;  // the second it is, since the epoch; empty: the system's
};

struct OpenOptions {
  bool isReadOnly = false;  // changes nothing on the disk
  bool mayCreate = true;    // makes the directory and an empty database in it
  bool mustCreate = false;  // there must be none
  bool mayRepair = false;   // opens what is damaged, as far as it can be, and says what is lost
  Durability durability = Durability::always;
  std::chrono::milliseconds openWait{0};            // for a directory that is in use
  std::chrono::milliseconds transactionWait{5000};  // for another thread's transaction
  Callbacks callbacks;
};

// What a command does: it asks, changes what transactions are made of, begins or ends one, or looks
// after the files, outside of transactions.
enum class CommandKind : std::uint8_t { reads, changes, controls, maintains };

class RowHint;

// A command, parsed, with what has been looked up for it. Used by one thread at a time.
class Prepared {
 public:
  ~Prepared();
  int parameterCount() const noexcept;
  CommandKind kind() const noexcept;
  // What can be asked for as soon as a key is bound; there as long as this is.
  const RowHint& hint() const noexcept;

 private:
  friend class Engine;
  struct Parts;
  explicit Prepared(std::unique_ptr<Parts> parts);
  std::unique_ptr<Parts> parts_;
};

struct BatchCommand {
  std::string_view text;
  std::span<const Value> values;
};

// The values of a row, one a parameter; they have to stay until the next row's are asked for.
using ValuesOfRow = std::function<std::span<const Value>(std::size_t row)>;

class Engine {
 public:
  // Opens the database of a directory. Throws Failure: busy (with the holder's process id),
  // notFound, exists, corrupt, io, readOnly.
  Engine(std::string_view path, OpenOptions options);
  // Closes it: what the log holds stays in the log; see close.
  ~Engine();

  std::unique_ptr<Prepared> prepare(std::string_view text);
  // Runs a command with one value a parameter, into an empty answer.
  void run(Prepared& prepared, std::span<const Value> values, Answer& answer);
  // Runs the command once for each row of values, all as one transaction; the answer is the last
  // one's, with the rows affected by all.
  void runMany(Prepared& prepared, std::size_t rows, const ValuesOfRow& valuesOf, Answer& answer);
  // Runs the commands as one transaction; the answer is the last one's.
  void runBatch(std::span<const BatchCommand> commands, Answer& answer);

  // Whether this thread's transaction is open.
  bool isInTransaction() const noexcept;

  void checkpoint();
  // Copies the database into a directory that is empty or not there, while others work.
  void backup(std::string_view path);
  // Has every command that is running, or waiting, fail with Code::interrupted.
  void interrupt() noexcept;
  // Rolls an open transaction back, writes a checkpoint unless the database is only read, and lets
  // the directory go. What fails goes to the log callback: the log holds every change.
  void close() noexcept;

 private:
  struct Parts;
  std::unique_ptr<Parts> parts_;
};

struct Fault {
  std::string file;
  std::int64_t offset = -1;  // bytes; -1: of the file as a whole
  std::string meaning;
};
// What the database of a directory has on the disk, also while somebody has it open. Throws
// Failure: notFound, io.
DiskUse diskUse(std::string_view path, std::int64_t recentSecond, const ReportFile& report);
// Reads the database of a directory, changing nothing, and reports each fault. Throws Failure:
// busy, notFound, io.
void checkDatabase(std::string_view path, const Callbacks& callbacks,
                   const std::function<void(const Fault&)>& report);

}  // namespace velmora
