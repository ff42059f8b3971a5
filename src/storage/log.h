// velmora.wal: the write-ahead log, a text file of records
//
//   command text " #TIME# " seconds "\n"
//
// with the command exactly as it was given and the second at which it ran. A command may hold line
// feeds, so a record may span lines. It ends
// - at the first line that ends in the marker and its digits, or
// - outside a string literal, before a line that begins like a logged command, or
// - with the last line feed of a log in which no record before it bears its second,
// so that logs written by hand, one command a line and without markers, work too, and nothing
// inside a literal is ever taken for a command. A command with a line that would be read as another
// record ("DELETE FROM t\nINSERT INTO t a = 1" is one command, whose further words are ignored)
// is logged with blanks in the place of the line feeds between its words.
//
// A crash may have cut the last record off. It has not been acknowledged, and half a command may be
// another command ("UPDATE t SET a = 1" without its WHERE), so a torn tail is never run. The first
// record to bear its second, if it is one over lines, is put there at once, with a new file: cut
// behind a line feed it would read as a command of a log without seconds.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "append_file.h"
#include "files.h"

namespace velmora {

// Takes a log apart, record by record, in pieces of the file.
class LogReader {
 public:
  explicit LogReader(File& file);

  // The next complete record, clock marker included, until the next call; nothing after the last.
  // Throws std::runtime_error "Failed to read file: NAME".
  std::optional<std::string_view> next();

  // Once there is no next one: the bytes up to the end of the last complete record, and whether
  // that lacks its line feed.
  std::int64_t completeSize() const noexcept { return completeSize_; }
  bool lacksLineFeed() const noexcept { return lacksLineFeed_; }
  // Whether some record bears its second.
  bool hasSeconds() const noexcept { return hasSeconds_; }
  // Whether there is something behind the last complete record.
  bool hasTornTail() const noexcept { return completeSize_ < fileSize_; }

 private:
  struct Line {
    std::string_view text;  // without its line feed
    bool isWhole;
  };
  std::optional<Line> nextLine();
  bool readMore();
  std::string_view takeRecord(std::size_t end, std::size_t next);

  File& file_;
  std::int64_t fileSize_;
  std::int64_t contentEnd_;
  std::string buffer_;
  std::int64_t bufferStart_ = 0;  // where in the file that begins
  std::size_t recordStart_ = 0;   // of the record to come, in the buffer
  std::size_t lineStart_ = 0;     // of the line to come, in the buffer
  char quote_ = '\0';             // the quote that is open there
  bool hasSeconds_ = false;
  std::int64_t completeSize_ = 0;
  bool lacksLineFeed_ = false;
};

// The log of one engine, as commands are appended to it. Callers run one command at a time.
class Log {
 public:
  explicit Log(const Directory& directory);

  // To be called before a command that will be logged changes anything. Throws NotRegularFile. A
  // log that cannot be opened otherwise goes unreported.
  void check();
  // Appends one command with its clock marker. When the log cannot be written the line is lost,
  // what had been written of it is taken back, and the answer is false.
  bool append(const std::string& command, std::int64_t second);
  // Makes what was appended durable.
  bool sync() { return file_.sync(); }

  // Tells whether a checkpoint has a new log ready that still has to be put in the old one's place:
  // commands logged meanwhile belong there.
  void expectNew(bool isExpected);
  // Cuts the torn tail that the reader found off, or gives the last record the line feed it lacks.
  // Throws std::runtime_error "Failed to repair file: velmora.wal".
  void repair(const LogReader& reader);

 private:
  // Appends the line by putting a whole new file in the log's place.
  bool appendAtOnce();

  Directory directory_;
  AppendFile file_;
  bool isNewExpected_ = false;
  bool hasSeconds_ = false;  // some record of the log bears its second, unless the log is empty
  // Both keep their memory from one command to the next, and many commands run in one second.
  std::string line_;
  std::string recordEnd_;
  std::int64_t secondOfEnd_ = 0;
};

// The second in a record's last marker.
std::optional<std::int64_t> loggedSecond(std::string_view record);

}  // namespace velmora
