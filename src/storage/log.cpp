// See log.h.
#include "log.h"

#include <algorithm>
#include <stdexcept>
#include <utility>

#include "../clock.h"
#include "../lexer.h"
#include "../number.h"
#include "block_io.h"
#include "file_names.h"

namespace velmora {
namespace {

// A second of today has ten digits; a marker with fewer at the end of the log may be cut off.
constexpr std::size_t completeDigits = 10;

// The number of digits behind a marker that ends the line; 0 if none does.
std::size_t closingDigits(std::string_view line) {
  std::size_t digits = 0;
  while (digits < line.size() && isDigit(line[line.size() - 1 - digits])) ++digits;
  return line.substr(0, line.size() - digits).ends_with(clockMarker) ? digits : 0;
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

// Whether the command's record would end at one of its lines.
bool wouldBeCut(std::string_view command) {
  char quote = '\0';
  std::size_t recordStart = 0;
  std::size_t start = 0;
  while (true) {
    const std::size_t end = command.find('\n', start);
    const std::string_view line = command.substr(start, end - start);
    if (start > recordStart && quote == '\0' && beginsLikeCommand(line)) return true;
    if (end == std::string_view::npos) return false;
    if (closingDigits(line) > 0) return true;
    quote = openQuoteBehind(line, quote);
    if (line.empty() && start == recordStart) recordStart = end + 1;
    start = end + 1;
  }
}

// Puts blanks in the place of the line feeds outside of literals.
void joinLines(std::string& command) {
  char quote = '\0';
  for (char& c : command) {
    quote = openQuoteBehind(c, quote);
    if (c == '\n' && quote == '\0') c = ' ';
  }
}

}  // namespace

Log::Log(const Directory& directory) : directory_(directory), file_(directory, logFileName) {}

void Log::check() {
  if (isNewExpected_) {
    const std::string newName = checkpointName(logFileName);
    file_.setName(identityOf(directory_, newName.c_str()) ? newName : logFileName);
  }
  file_.check();
}

bool Log::append(const std::string& command, std::int64_t second) {
  if (recordEnd_.empty() || secondOfEnd_ != second) {
    std::string next(clockMarker);
    appendInt(next, second);
    next += '\n';
    recordEnd_ = std::move(next);
    secondOfEnd_ = second;
  }
  line_ = command;
  if (wouldBeCut(line_)) joinLines(line_);
  line_ += recordEnd_;
  const bool isOverLines = command.find('\n') != std::string::npos;
  const bool isFirst = isOverLines && !isNewExpected_ && (!hasSeconds_ || file_.end() == 0);
  const bool isWritten = isFirst ? appendAtOnce() : file_.append(line_);
  hasSeconds_ = hasSeconds_ || isWritten;
  return isWritten;
}

bool Log::appendAtOnce() {
  try {
    std::string whole = readFile(directory_, logFileName).value_or("");
    whole.resize(std::min(whole.size(), static_cast<std::size_t>(file_.end().value_or(0))));
    writeBeside(directory_, logFileName, whole.append(line_));
    putInPlace(directory_, logFileName);
  } catch (const std::runtime_error&) {
    removeFile(directory_, unfinishedName(logFileName));
    return false;
  }
  file_.forget();
  return true;
}

void Log::expectNew(bool isExpected) {
  isNewExpected_ = isExpected;
  file_.forget();
  file_.setName(logFileName);
}

void Log::repair(const LogReader& reader) {
  hasSeconds_ = reader.hasSeconds();
  if (reader.hasTornTail()) {
    file_.cutTo(reader.completeSize());
  } else if (reader.lacksLineFeed()) {
    file_.check();
    if (file_.end() != reader.completeSize() || !file_.append("\n")) {
      throw std::runtime_error(std::string("Failed to repair file: ") + logFileName);
    }
  }
}

LogReader::LogReader(File& file)
    : file_(file), fileSize_(file.size().value_or(0)), contentEnd_(file.contentEnd().value_or(0)) {}

// The record ends there in the buffer, and another one begins at `next`.
std::string_view LogReader::takeRecord(std::size_t end, std::size_t next) {
  const std::string_view record = std::string_view(buffer_).substr(0, end).substr(recordStart_);
  recordStart_ = next;
  quote_ = '\0';
  completeSize_ = bufferStart_ + static_cast<std::int64_t>(next);
  return record;
}

std::optional<std::string_view> LogReader::next() {
  while (const auto line = nextLine()) {
    const std::size_t start = lineStart_;
    const std::size_t end = start + line->text.size();
    if (start > recordStart_ && quote_ == '\0' && beginsLikeCommand(line->text)) {
      return takeRecord(start - 1, start);
    }
    lineStart_ = line->isWhole ? end + 1 : end;
    const std::size_t digits = closingDigits(line->text);
    if (line->isWhole ? digits > 0 : digits >= completeDigits) {
      hasSeconds_ = true;
      lacksLineFeed_ = !line->isWhole;
      return takeRecord(end, lineStart_);
    }
    if (line->text.empty() && start == recordStart_) {
      takeRecord(start, lineStart_);
    } else {
      quote_ = openQuoteBehind(line->text, quote_);
    }
  }
  // What is left may be a command, or the beginning of one that a crash cut behind a line feed.
  const bool isLeft = recordStart_ < buffer_.size();
  if (!isLeft || quote_ != '\0' || hasSeconds_ || !buffer_.ends_with('\n')) return std::nullopt;
  return takeRecord(buffer_.size() - 1, buffer_.size());
}

std::optional<LogReader::Line> LogReader::nextLine() {
  std::size_t lineFeed = buffer_.find('\n', lineStart_);
  while (lineFeed == std::string::npos) {
    std::size_t searched = buffer_.size() - lineStart_;
    if (!readMore()) break;
    lineFeed = buffer_.find('\n', lineStart_ + searched);
  }
  if (lineStart_ == buffer_.size()) return std::nullopt;
  const std::string_view rest = std::string_view(buffer_).substr(lineStart_);
  const bool isWhole = lineFeed != std::string::npos;
  return Line{isWhole ? rest.substr(0, lineFeed - lineStart_) : rest, isWhole};
}

// Reads the file's next block behind the current record, which moves to the buffer's beginning.
bool LogReader::readMore() {
  constexpr std::int64_t blockSize = 256 * 1024;
  buffer_.erase(0, recordStart_);
  bufferStart_ += static_cast<std::int64_t>(recordStart_);
  lineStart_ -= recordStart_;
  recordStart_ = 0;
  const std::size_t held = buffer_.size();
  const std::int64_t offset = bufferStart_ + static_cast<std::int64_t>(held);
  const std::int64_t wanted = std::min(blockSize, contentEnd_ - offset);
  if (wanted <= 0) return false;
  buffer_.resize(held + static_cast<std::size_t>(wanted));
  const auto count = file_.readAt(offset, buffer_.data() + held, static_cast<std::size_t>(wanted));
  if (!count) throwUnreadable(file_.name());
  buffer_.resize(held + *count);
  return *count > 0;
}

std::optional<std::int64_t> loggedSecond(std::string_view record) {
  const std::size_t marker = record.rfind(clockMarker);
  std::int64_t second = 0;
  if (marker == std::string_view::npos ||
      convertLong(record.substr(marker + clockMarker.size()), second) != Conversion::ok) {
    return std::nullopt;
  }
  return second;
}

}  // namespace velmora
