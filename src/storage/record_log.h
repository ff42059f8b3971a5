// The log of a database that handles use: velmora.wal with a sequence number and a checksum behind
// each record, so that what is wrong can be told from what was cut off by a crash.
//
//   COMMAND #TIME# SECOND SEQUENCE CRC                one command, and the second at which it ran
//   COMMAND #TIME# START #TIME# SECOND SEQUENCE CRC   the same with the clock that it was given
//
// A command is its text. One with bound values is "?", the values, each behind a blank, and ": "
// and its text, which is left out where it is that of the command before: a command that is run
// again and again is written, and read, once. See record_values.h for the values.
//
// A transaction is one record: a line BEGIN, its commands, each with its second (and clock), each
// on lines of its own, and the line COMMIT #TIME# SECOND SEQUENCE CRC. Numbers are decimal; the CRC
// is the CRC-32C, in eight hexadecimal digits, of all bytes of the record before the blank in front
// of it. Sequence numbers go up by one. A record ends with a line feed; a text of a command may
// hold more.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "../value.h"
#include "files.h"

namespace velmora {

struct LoggedCommand {
  std::string text;                   // empty: that of the command before it in the log
  std::int64_t second = 0;            // at which it ran
  std::optional<std::int64_t> clock;  // at which its timed values start, if it was told
  std::vector<Value> values = {};     // bound to its parameters, but for the clock's
};

// The commands of one record, in the form in which they are written. Keeps its memory.
class RecordText {
 public:
  // Where a caller can go back to.
  struct Mark {
    std::size_t size = beginning.size();
    std::size_t count = 0;
  };

  void add(std::string_view text, std::span<const Value> values, std::int64_t second,
           std::optional<std::int64_t> clock);

  // Makes room for as many more commands like those since the mark, as far as that is not much.
  void makeRoom(std::size_t count, const Mark& mark);

  bool isEmpty() const noexcept { return count_ == 0; }
  Mark mark() const noexcept { return {bytes_.size(), count_}; }
  void cutTo(const Mark& mark) noexcept;
  // To be called when the record stands in the log, to begin the next.
  void wasWritten() noexcept;
  // To be called when it never will, and when the log has been emptied.
  void clear() noexcept;

 private:
  friend class RecordLog;
  static constexpr std::string_view beginning = "BEGIN\n";

  // Writes the record to its end, and gives it.
  std::string_view complete(std::uint64_t sequence);

  std::string bytes_ = std::string(beginning);
  std::size_t count_ = 0;
  std::int64_t lastSecond_ = 0;
  std::string lastText_;  // of the last command here or in the log; empty: not known, or no values
};

class RecordLog {
 public:
  // The directory has to stay. Records go behind the given size, which is that of the records that
  // a reader found, and are numbered from the sequence number on. What lies behind it, a torn tail,
  // is cut off before the first of them is written.
  RecordLog(const Directory& directory, std::int64_t size, std::uint64_t nextSequence);
  ~RecordLog();

  // Appends the commands as one record, which is to be cleared behind it; returns what syncTo has
  // to be given for it, which goes up from one record to the next. One thread at a time. Throws
  // Failure (full or io, with the system's error) when it cannot be written; the file then is as
  // before, or the log has failed and takes no record any more.
  std::int64_t append(RecordText& record);
  // Returns once everything up to there is on the disk, also by way of a checkpoint. Threads that
  // wait at the same time share a sync. Throws Failure with io when the system refuses; the log has
  // failed then.
  void syncTo(std::int64_t end);
  // Whether something was not written, so that nothing more may be.
  bool hasFailed() const noexcept;
  std::int64_t size() const noexcept;
  // What syncTo has to be given for all records.
  std::int64_t end() const noexcept;
  std::uint64_t nextSequence() const noexcept;
  // A checkpoint has emptied the file.
  void wasEmptied();
  // Has it take no record any more.
  void fail() noexcept;

 private:
  struct Parts;
  std::unique_ptr<Parts> parts_;
};

// Reads such a log from its beginning; of a checkpoint that was interrupted and counts, the new
// one. Throws std::runtime_error "Failed to read file: velmora.wal".
class RecordLogReader {
 public:
  // The first record has to have this sequence number.
  RecordLogReader(const Directory& directory, std::uint64_t firstSequence);
  ~RecordLogReader();

  // The next record's commands, or nothing at the end and at the first fault.
  std::optional<std::vector<LoggedCommand>> next();
  // Of the records read: where the last one ends, and the number behind its own.
  std::int64_t completeSize() const noexcept;
  std::uint64_t nextSequence() const noexcept;
  // Behind the end: whether a record follows that was cut off while it was written.
  bool hasTornTail() const noexcept;
  // What is wrong behind the records read, if it is no torn tail; it begins at completeSize.
  const std::optional<std::string>& fault() const noexcept;

 private:
  struct Parts;
  std::unique_ptr<Parts> parts_;
};

}  // namespace velmora
