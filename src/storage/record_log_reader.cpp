// See record_log.h: the reader. Lines are found by their line feeds, and only where one ends as
// records end are the checksum and the quotes looked at.
#include <algorithm>
#include <cerrno>
#include <charconv>
#include <cstring>
#include <utility>

#include "../clock.h"
#include "../number.h"
#include "checkpoint_journal.h"
#include "checksum.h"
#include "file_names.h"
#include "record_form.h"
#include "record_log.h"
#include "record_values.h"

namespace velmora {
namespace {

// Takes " #TIME# " and a number off the text's end.
std::optional<std::int64_t> takeSecond(std::string_view& text) {
  std::size_t digits = text.size();
  while (digits > 0 && isDigit(text[digits - 1])) --digits;
  if (digits > 0 && text[digits - 1] == '-') --digits;
  const std::string_view front = text.substr(0, digits);
  std::int64_t second = 0;
  const auto [end, error] =
      std::from_chars(text.data() + digits, text.data() + text.size(), second);
  if (!front.ends_with(clockMarker) || error != std::errc() || end != text.data() + text.size()) {
    return std::nullopt;
  }
  text = front.substr(0, front.size() - clockMarker.size());
  return second;
}

std::optional<LoggedCommand> commandOf(std::string_view line) {
  LoggedCommand command;
  const auto second = takeSecond(line);
  if (!second) return std::nullopt;
  command.second = *second;
  command.clock = takeSecond(line);
  if (line.starts_with('?')) {
    line.remove_prefix(1);
    auto values = takeValues(line);
    if (!values || !(line.empty() || line.starts_with(": "))) return std::nullopt;
    line.remove_prefix(std::min<std::size_t>(line.size(), 2));
    command.values = std::move(*values);
  }
  command.text = line;
  return command;
}

constexpr std::string_view beginLine = "BEGIN\n";

}  // namespace

std::optional<RecordEnd> recordEndOf(std::string_view line) {
  if (line.size() < checksumDigits + 2) return std::nullopt;
  const std::size_t blank = line.size() - checksumDigits - 1;
  const std::string_view checksum = line.substr(blank + 1);
  constexpr std::string_view hexadecimal = "0123456789abcdef";
  if (line[blank] != ' ' || !isDigit(line[blank - 1])) return std::nullopt;
  if (checksum.find_first_not_of(hexadecimal) != std::string_view::npos) return std::nullopt;
  std::string_view front = line.substr(0, blank);
  const std::size_t number = front.rfind(' ') + 1;
  std::uint64_t sequence = 0;
  const auto [end, error] =
      std::from_chars(front.data() + number, front.data() + front.size(), sequence);
  if (number == 0 || error != std::errc() || end != front.data() + front.size()) {
    return std::nullopt;
  }
  front = front.substr(0, number - 1);
  if (!takeSecond(front)) return std::nullopt;
  return RecordEnd{blank, sequence, checksum};
}

std::optional<std::vector<LoggedCommand>> commandsOf(std::string_view record) {
  std::vector<LoggedCommand> commands;
  if (!record.starts_with(beginLine)) {
    auto command = commandOf(record);
    if (!command) return std::nullopt;
    commands.push_back(std::move(*command));
    return commands;
  }
  record.remove_prefix(beginLine.size());
  QuoteReader quotes;
  for (std::size_t start = 0;;) {
    const std::size_t end = record.find('\n', start);
    if (end == std::string_view::npos) break;
    quotes.read(record.substr(start, end - start));
    start = end + 1;
    auto command = quotes.isOpen() ? std::nullopt : commandOf(record.substr(0, end));
    if (!command) continue;
    commands.push_back(std::move(*command));
    record.remove_prefix(start);
    start = 0;
  }
  const auto commit = commandOf(record);
  if (!commit || commit->text != "COMMIT") return std::nullopt;
  return commands;
}

struct RecordLogReader::Parts {
  Parts(const Directory& directory, std::uint64_t firstSequence);

  AwaitedFiles awaited;  // of a checkpoint that was interrupted
  File file;
  std::int64_t fileSize = 0;
  std::int64_t contentEnd = 0;
  std::string buffer;           // from the current record on
  std::size_t recordStart = 0;  // in it
  std::int64_t completeSize = 0;
  std::uint64_t nextSequence;
  bool isAtEnd = false;
  bool hasTornTail = false;
  std::optional<std::string> fault;

  bool readMore();
  std::size_t findLineFeed(std::size_t from);
  std::optional<std::vector<LoggedCommand>> readRecord();
  void judgeTail();
};

RecordLogReader::Parts::Parts(const Directory& directory, std::uint64_t firstSequence)
    : awaited(readJournal(directory).value_or(AwaitedFiles())),
      file({directory.descriptor, &awaited}, logFileName, File::Mode::read),
      nextSequence(firstSequence) {
  const bool isMissing = !file.isOpen() && errno == ENOENT;
  const auto size = file.size();
  if (!size && !isMissing) throwUnreadable(logFileName);
  fileSize = size.value_or(0);
  contentEnd = isMissing ? 0 : file.contentEnd().value_or(0);
}

RecordLogReader::RecordLogReader(const Directory& directory, std::uint64_t firstSequence)
    : parts_(std::make_unique<Parts>(directory, firstSequence)) {}

RecordLogReader::~RecordLogReader() = default;

bool RecordLogReader::Parts::readMore() {
  constexpr std::int64_t blockSize = 256 * 1024;
  buffer.erase(0, std::exchange(recordStart, 0));
  const std::size_t held = buffer.size();
  const std::int64_t offset = completeSize + static_cast<std::int64_t>(held);
  const auto wanted = static_cast<std::size_t>(std::clamp(contentEnd - offset, 0L, blockSize));
  buffer.resize(held + wanted);
  const auto count = file.readAt(offset, buffer.data() + held, wanted);
  if (!count) throwUnreadable(logFileName);
  buffer.resize(held + *count);
  return *count > 0;
}

// In the record, counted from its beginning; npos if there is none.
std::size_t RecordLogReader::Parts::findLineFeed(std::size_t from) {
  std::size_t found = buffer.find('\n', recordStart + from);
  while (found == std::string::npos) {
    from = buffer.size() - recordStart;
    if (!readMore()) return std::string::npos;
    found = buffer.find('\n', recordStart + from);
  }
  return found - recordStart;
}

std::optional<std::vector<LoggedCommand>> RecordLogReader::Parts::readRecord() {
  QuoteReader quotes;
  std::uint32_t crc = 0;
  std::size_t checked = 0;  // bytes of the record that are in these
  for (std::size_t start = 0;;) {
    const std::size_t end = findLineFeed(start);
    if (end == std::string::npos) return std::nullopt;
    const std::string_view record = std::string_view(buffer).substr(recordStart, end);
    const auto found = recordEndOf(record.substr(start));
    if (found) {
      const std::size_t size = start + found->crcStart;
      const std::string_view unchecked = record.substr(0, size).substr(checked);
      crc = crc32c(crc, unchecked);
      quotes.read(unchecked);
      checked = size;
      if (found->sequence == nextSequence && isChecksum(found->checksum, crc) && !quotes.isOpen()) {
        auto commands = commandsOf(record.substr(0, record.rfind(' ', size - 1)));
        if (!commands) return std::nullopt;
        recordStart += end + 1;
        completeSize += static_cast<std::int64_t>(end) + 1;
        ++nextSequence;
        return commands;
      }
    }
    start = end + 1;
  }
}

void RecordLogReader::Parts::judgeTail() {
  isAtEnd = true;
  if (completeSize == fileSize) return;
  while (readMore()) {
  }
  fault = faultOfTail(std::move(buffer), completeSize, nextSequence);
  hasTornTail = !fault;
}

std::optional<std::vector<LoggedCommand>> RecordLogReader::next() {
  if (parts_->isAtEnd) return std::nullopt;
  auto commands = parts_->readRecord();
  if (!commands) parts_->judgeTail();
  return commands;
}

std::int64_t RecordLogReader::completeSize() const noexcept { return parts_->completeSize; }
std::uint64_t RecordLogReader::nextSequence() const noexcept { return parts_->nextSequence; }
bool RecordLogReader::hasTornTail() const noexcept { return parts_->hasTornTail; }
const std::optional<std::string>& RecordLogReader::fault() const noexcept { return parts_->fault; }

}  // namespace velmora
