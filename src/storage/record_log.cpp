// See record_log.h: the writer.
//
// A position is where a record ends in the file, counted on over checkpoints that emptied it, so
// that a thread that waits for its record to be synced need not know of them.
#include "record_log.h"

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <condition_variable>
#include <mutex>
#include <utility>

#include "../clock.h"
#include "../number.h"
#include "checkpoint_journal.h"
#include "checksum.h"
#include "file_names.h"
#include "record_values.h"
#include "system_failure.h"

namespace velmora {
namespace {

[[noreturn]] void throwUnwritten(const char* what) {
  const int error = errno;
  throw systemFailure(std::string(what) + " " + logFileName, error);
}

void appendSecond(std::string& record, std::int64_t second) {
  record += clockMarker;
  appendInt(record, second);
}

}  // namespace

void RecordText::add(std::string_view text, std::span<const Value> values, std::int64_t second,
                     std::optional<std::int64_t> clock) {
  if (values.empty()) {
    lastText_.clear();
    bytes_ += text;
  } else {
    bytes_ += '?';
    appendValues(bytes_, values);
    if (lastText_ != text) {
      lastText_ = text;
      bytes_.append(": ").append(text);
    }
  }
  if (clock) appendSecond(bytes_, *clock);
  appendSecond(bytes_, second);
  bytes_ += '\n';
  ++count_;
  lastSecond_ = second;
}

void RecordText::makeRoom(std::size_t count, const Mark& mark) {
  constexpr std::size_t most = 1U << 26U;
  const std::size_t size = bytes_.size() - mark.size;
  if (size > 0) bytes_.reserve(bytes_.size() + std::min(count, most / size) * size);
}

void RecordText::cutTo(const Mark& mark) noexcept {
  lastText_.clear();
  bytes_.resize(mark.size);
  count_ = mark.count;
}

void RecordText::clear() noexcept {
  wasWritten();
  lastText_.clear();
}

void RecordText::wasWritten() noexcept {
  constexpr std::size_t most = 1U << 20U;
  bytes_.resize(beginning.size());
  count_ = 0;
  if (bytes_.capacity() > most) bytes_.shrink_to_fit();
}

std::string_view RecordText::complete(std::uint64_t sequence) {
  if (count_ == 1) {
    bytes_.pop_back();
  } else {
    bytes_ += "COMMIT";
    appendSecond(bytes_, lastSecond_);
  }
  const std::size_t start = count_ == 1 ? beginning.size() : 0;
  bytes_ += ' ';
  bytes_ += std::to_string(sequence);
  char digits[checksumDigits];
  writeChecksum(digits, crc32c(0, std::string_view(bytes_).substr(start)));
  bytes_.append(1, ' ').append(digits, sizeof digits).append(1, '\n');
  return std::string_view(bytes_).substr(start);
}

struct RecordLog::Parts {
  Parts(const Directory& directory_, std::int64_t size_, std::uint64_t nextSequence_)
      : directory(directory_), size(size_), nextSequence(nextSequence_) {}

  Directory directory;
  std::optional<File> file;  // not open before the first record or sync
  // The mutex guards what is below, and is held to open and close the file, which is written and
  // synced without it.
  std::mutex mutex;
  std::condition_variable syncDone;
  std::int64_t size;
  std::int64_t emptied = 0;  // bytes that earlier files had
  std::int64_t synced = 0;   // a position
  std::uint64_t nextSequence;
  bool isSyncing = false;
  // Records that no sync has begun with yet; how many there may be soon, as threads that the last
  // sync let go come back; and how long that sync took.
  std::size_t unsynced = 0;
  std::size_t expected = 0;
  std::chrono::steady_clock::duration syncTime{0};
  std::condition_variable areBack;
  std::atomic<bool> hasFailed = false;  // read without the mutex as well

  void open();
  void openOnce();
  void sync(std::unique_lock<std::mutex>& lock);
};

RecordLog::RecordLog(const Directory& directory, std::int64_t size, std::uint64_t nextSequence)
    : parts_(std::make_unique<Parts>(directory, size, nextSequence)) {}

RecordLog::~RecordLog() = default;

// Opens the file. A torn tail is gone for good before another record takes its place: no power cut
// may leave a mixture of both.
void RecordLog::Parts::open() {
  // A checkpoint that counts and is not completed has the new log ready under its other name.
  const auto awaited = readJournal(directory);
  const std::string newName = checkpointName(logFileName);
  const bool isNew =
      awaited && awaited->replaced.contains(logFileName) && identityOf(directory, newName.c_str());
  file.emplace(directory, isNew ? newName : logFileName, File::Mode::change);
  const auto found = file->size();
  const bool isLonger = found && *found > size;
  if (!found || *found < size || (isLonger && !(file->truncate(size) && file->sync()))) {
    if (found && *found < size) errno = EIO;
    const int error = errno;
    file.reset();
    errno = error;
    throwUnwritten("cannot open");
  }
}

void RecordLog::Parts::openOnce() {
  const std::scoped_lock lock(mutex);
  if (!file) open();
}

void RecordLog::fail() noexcept {
  const std::scoped_lock lock(parts_->mutex);
  parts_->hasFailed = true;
  parts_->syncDone.notify_all();
}

std::int64_t RecordLog::append(RecordText& record) {
  Parts& parts = *parts_;
  errno = EIO;
  if (hasFailed()) throwUnwritten("an earlier record is missing in");
  parts.openOnce();
  const std::string_view bytes = record.complete(parts.nextSequence);
  if (!parts.file->writeAt(parts.size, bytes)) {
    const int error = errno;
    if (!parts.file->truncate(parts.size) || !parts.file->sync()) fail();
    errno = error;
    throwUnwritten("cannot write");
  }
  const std::scoped_lock lock(parts.mutex);
  parts.size += static_cast<std::int64_t>(bytes.size());
  ++parts.nextSequence;
  if (++parts.unsynced == parts.expected) parts.areBack.notify_one();
  return parts.emptied + parts.size;
}

// Syncs the file for all who wait by now; the lock is let go meanwhile.
void RecordLog::Parts::sync(std::unique_lock<std::mutex>& lock) {
  // Records that were found are not known to be on the disk.
  if (!file) open();
  isSyncing = true;
  if (unsynced < expected) {
    areBack.wait_for(lock, syncTime / 2, [&] { return unsynced >= expected; });
  }
  const std::size_t count = std::exchange(unsynced, 0);
  const std::int64_t end = emptied + size;
  lock.unlock();
  const auto start = std::chrono::steady_clock::now();
  const bool isDone = file->sync();
  const int error = errno;
  lock.lock();
  syncTime = std::chrono::steady_clock::now() - start;
  expected = count + unsynced;
  isSyncing = false;
  if (isDone) {
    synced = std::max(synced, end);
  } else {
    hasFailed = true;
  }
  syncDone.notify_all();
  errno = error;
}

void RecordLog::syncTo(std::int64_t end) {
  Parts& parts = *parts_;
  std::unique_lock lock(parts.mutex);
  while (parts.synced < end) {
    errno = EIO;
    if (!parts.hasFailed && !parts.isSyncing) parts.sync(lock);
    if (parts.synced >= end) break;
    if (parts.hasFailed) throwUnwritten("cannot sync");
    // Another thread may be syncing again by the time that this one wakes.
    parts.syncDone.wait(lock, [&] { return parts.synced >= end || !parts.isSyncing; });
  }
}

bool RecordLog::hasFailed() const noexcept { return parts_->hasFailed; }

std::int64_t RecordLog::size() const noexcept {
  const std::scoped_lock lock(parts_->mutex);
  return parts_->size;
}

std::int64_t RecordLog::end() const noexcept {
  const std::scoped_lock lock(parts_->mutex);
  return parts_->emptied + parts_->size;
}

std::uint64_t RecordLog::nextSequence() const noexcept {
  const std::scoped_lock lock(parts_->mutex);
  return parts_->nextSequence;
}

void RecordLog::wasEmptied() {
  Parts& parts = *parts_;
  std::unique_lock lock(parts.mutex);
  parts.syncDone.wait(lock, [&] { return !parts.isSyncing; });
  parts.emptied += std::exchange(parts.size, 0);
  parts.synced = parts.emptied;
  parts.unsynced = parts.expected = 0;
  parts.file.reset();  // the name leads to a new one
  parts.syncDone.notify_all();
}

}  // namespace velmora
