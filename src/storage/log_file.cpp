// velmora.wal: the write-ahead log, a text file of records
//
//   command text " #TIME# " seconds "\n"
//
// with the command exactly as it was given and the second at which it ran. A command may hold line
// feeds, so a record may span lines. It ends
// - at the first line that ends in the marker and its digits, or
// - outside a string literal, before a line that begins like a logged command, or
// - with the last line feed of the log,
// so that logs written by hand, one command a line and without markers, work too, and nothing
// inside a literal is ever taken for a command. A command with a line that would be read as another
// record ("DELETE FROM t\nINSERT INTO t a = 1" is one command, whose further words are ignored)
// is logged with blanks in the place of the line feeds between its words.
//
// A crash may have cut the last record off. It has not been acknowledged, and half a command may be
// another command ("UPDATE t SET a = 1" without its WHERE), so a torn tail is never run.
#include <stdexcept>
#include <utility>

#include "../lexer.h"
#include "../number.h"
#include "storage.h"

namespace velmora {

std::mutex walMutex;

namespace {

constexpr std::string_view marker = " #TIME# ";
// A second of today has ten digits; a marker with fewer at the end of the log may be cut off.
constexpr std::size_t completeDigits = 10;

// The log as the last append left it: still open, since opening and closing a file takes longer
// than writing a line to it.
struct OpenLog {
  std::optional<File> file;
  std::optional<FileIdentity> identity;  // when it was opened; nothing unless it is open

  void close() {
    identity.reset();
    file.reset();
  }
};
OpenLog openLog;  // guarded by walMutex

// An append that failed and could not be taken back: where the log has to be cut before the next.
struct TornAppend {
  bool isPending = false;
  std::uint64_t inode = 0;
  std::int64_t size = 0;
};
TornAppend tornAppend;  // guarded by walMutex

// Set while some checkpoint has reached its point of no return and its log is not in place yet.
bool isNewLogExpected = false;  // guarded by walMutex
constexpr const char* newLogName = "velmora.wal.checkpoint";

// The number of digits behind a marker that ends the line; 0 if none does.
std::size_t closingDigits(std::string_view line) {
  std::size_t digits = 0;
  while (digits < line.size() && isDigit(line[line.size() - 1 - digits])) ++digits;
  return line.substr(0, line.size() - digits).ends_with(marker) ? digits : 0;
}

bool beginsLikeCommand(std::string_view line) {
  Lexer lexer(line);
  const Token first = lexer.getNextToken();
  if (first.type != TokenType::KEYWORD) return false;
  const Token second = lexer.getNextToken();
  if (first.value == "CREATE") return second.value == "TABLE";
  if (first.value == "INSERT") return second.value == "INTO";
  if (first.value == "DELETE") return second.value == "FROM";
  if (first.value == "UPDATE") return lexer.getNextToken().value == "SET";
  if (first.value == "LINK") return lexer.getNextToken().value == ".";
  return false;
}

// The quote that is open behind the character, 0 if none, given the one open before it.
char openQuoteBehind(char c, char quote) {
  if (quote != '\0') return c == quote ? '\0' : quote;
  return c == '\'' || c == '"' ? c : '\0';
}

char openQuoteBehind(std::string_view line, char quote) {
  for (const char c : line) quote = openQuoteBehind(c, quote);
  return quote;
}

// Puts blanks in the place of a record's line feeds outside of literals, but for the last.
void joinLines(std::string& record) {
  char quote = '\0';
  for (char& c : record) {
    quote = openQuoteBehind(c, quote);
    if (c == '\n' && quote == '\0') c = ' ';
  }
  record.back() = '\n';
}

// The log that its name leads to, open for appending, or null. The one that is open already is the
// same as opening the name again would give, unless another file has been put there, the log was
// taken away, or another may use it now. walMutex held.
File* logForAppending(const Directory& directory) {
  const bool goesToNewLog =
      isNewLogExpected && File(directory, newLogName, File::Mode::read).isOpen();
  const char* const name = goesToNewLog ? newLogName : logFileName;
  if (openLog.identity && openLog.identity == identityOf(directory, name)) return &*openLog.file;
  openLog.close();
  openLog.file.emplace(directory, name, File::Mode::append);
  openLog.identity = openLog.file->identity();
  return openLog.file->isOpen() ? &*openLog.file : nullptr;
}

}  // namespace

bool Storage::appendToWAL(const std::string& command, std::int64_t second,
                          const Directory& directory) {
  const std::lock_guard lock(walMutex);
  // Both keep their memory from one command to the next, and many commands run in one second.
  static std::string line;
  static std::string recordEnd;
  static std::int64_t secondOfEnd = 0;
  if (recordEnd.empty() || secondOfEnd != second) {
    std::string next(marker);
    appendInt(next, second);
    next += '\n';
    recordEnd = std::move(next);
    secondOfEnd = second;
  }
  line.assign(command).append(recordEnd);
  const bool hasLines = command.find('\n') != std::string::npos;
  if (hasLines && splitLog(line).commands.size() > 1) joinLines(line);

  File* const file = logForAppending(directory);
  if (file == nullptr) return false;
  const auto inode = [] { return openLog.identity.value_or(FileIdentity()).inode; };
  if (tornAppend.isPending) {
    const bool isThere = inode() == tornAppend.inode && file->size().value_or(0) > tornAppend.size;
    if (isThere && !file->truncate(tornAppend.size)) return false;
    tornAppend.isPending = false;
  }
  if (file->write(line)) return true;
  const auto written = static_cast<std::int64_t>(file->lastWritten());
  const auto size = file->size();
  if (written > 0 && size && !file->truncate(*size - written)) {
    tornAppend = {true, inode(), *size - written};
  }
  return false;
}

void Storage::closeLog() {
  const std::lock_guard lock(walMutex);
  openLog.close();
}

LogRecords Storage::splitLog(std::string_view log) {
  LogRecords records;
  std::size_t recordStart = 0;
  char quote = '\0';
  const auto endRecord = [&](std::size_t end, std::size_t nextStart) {
    if (end > recordStart) records.commands.push_back(log.substr(recordStart, end - recordStart));
    recordStart = nextStart;
    quote = '\0';
  };
  std::size_t lineStart = 0;
  while (lineStart < log.size()) {
    const std::size_t lineFeed = log.find('\n', lineStart);
    const bool isWhole = lineFeed != std::string_view::npos;
    const std::size_t lineEnd = isWhole ? lineFeed : log.size();
    const std::string_view line = log.substr(lineStart, lineEnd - lineStart);
    if (lineStart > recordStart && quote == '\0' && beginsLikeCommand(line)) {
      endRecord(lineStart - 1, lineStart);
    }
    const std::size_t digits = closingDigits(line);
    if (isWhole ? digits > 0 : digits >= completeDigits) {
      endRecord(lineEnd, isWhole ? lineEnd + 1 : lineEnd);
      records.lacksLineFeed = !isWhole;
    } else if (line.empty() && lineStart == recordStart) {
      endRecord(lineStart, lineStart + 1);
    } else {
      quote = openQuoteBehind(line, quote);
    }
    lineStart = isWhole ? lineEnd + 1 : log.size();
  }
  const bool endsInLineFeed = log.ends_with('\n');
  if (recordStart < log.size() && endsInLineFeed && quote == '\0') {
    endRecord(log.size() - 1, log.size());
  }
  records.completeSize = recordStart;
  return records;
}

void Storage::repairLog(const LogRecords& records, std::size_t logSize,
                        const Directory& directory) {
  bool isRepaired = true;
  if (records.completeSize < logSize) {
    File file(directory, logFileName, File::Mode::readWrite);
    isRepaired = file.truncate(static_cast<std::int64_t>(records.completeSize));
  } else if (records.lacksLineFeed) {
    File file(directory, logFileName, File::Mode::append);
    isRepaired = file.write("\n");
  }
  // The next command would grow onto the torn one, and be lost with it.
  if (!isRepaired) throw std::runtime_error(std::string("Failed to repair file: ") + logFileName);
  const std::lock_guard lock(walMutex);
  tornAppend = {};
}

void Storage::expectNewLog(bool isExpected) {
  const std::lock_guard lock(walMutex);
  isNewLogExpected = isExpected;
  tornAppend = {};
  openLog.close();
}

void Storage::clearWAL(const Directory& directory) {
  const File emptied(directory, logFileName, File::Mode::replace);
  const std::lock_guard lock(walMutex);
  tornAppend = {};
}

}  // namespace velmora
