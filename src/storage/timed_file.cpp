// See timed_file.h.
#include "timed_file.h"

#include <algorithm>
#include <cerrno>
#include <limits>
#include <stdexcept>
#include <utility>

#include "../record_io.h"
#include "file_names.h"

namespace velmora {
namespace {

constexpr std::size_t fixedSize = 29;
constexpr std::size_t valueWidth = 60;
constexpr std::size_t stateSize = 8 + valueWidth;
static_assert(fixedSize == 4 + 4 + 1 + 8 + 8 + 4 && stateSize == 68);

// How many whole slots the file has; none when it is not there. What a torn record left at the end
// is no slot.
std::size_t slotsIn(File& file, std::int32_t maxStates) {
  if (!file.isOpen() && errno == ENOENT) return 0;
  const auto size = file.size();
  if (!size) throwUnreadable(file.name());
  return static_cast<std::size_t>(*size) / timedRecordSize(maxStates);
}

}  // namespace

std::size_t timedRecordSize(std::int32_t maxStates) {
  return fixedSize + stateSize * static_cast<std::size_t>(maxStates);
}

std::int32_t slotBehind(std::int64_t count) {
  if (count > std::numeric_limits<std::int32_t>::max()) {
    throw std::runtime_error("Too many timed values");
  }
  return static_cast<std::int32_t>(count);
}

TimedReader::TimedReader(const Directory& directory, const std::string& fileName,
                         std::int32_t maxStates)
    : maxStates_(maxStates),
      file_(directory, fileName, File::Mode::read),
      reader_(file_),
      // One more: a record that is cut off behind its states is read all the same.
      isClaimed_(slotsIn(file_, maxStates) + 1) {}

std::unique_ptr<TempRule> TimedReader::claim(std::int32_t slot) {
  if (slot < 0 || static_cast<std::size_t>(slot) >= isClaimed_.size()) return nullptr;
  if (disputed_.contains(slot)) return nullptr;
  if (isClaimed_[static_cast<std::size_t>(slot)]) {
    isDisputeNew_ = true;
    disputed_.insert(slot);
    return nullptr;
  }
  isClaimed_[static_cast<std::size_t>(slot)] = true;
  return read(slot);
}

bool TimedReader::hasNewDispute() {
  isClaimed_.assign(isClaimed_.size(), false);
  return std::exchange(isDisputeNew_, false);
}

std::unique_ptr<TempRule> TimedReader::read(std::int32_t slot) {
  if (!file_.isOpen()) return nullptr;
  const std::int64_t start = slot * static_cast<std::int64_t>(timedRecordSize(maxStates_));
  const std::string_view fixed = reader_.at(start, fixedSize);
  if (fixed.size() < fixedSize) return nullptr;
  RecordReader record(fixed);
  record.int32();
  record.int32();
  auto rule = std::make_unique<TempRule>();
  rule->repeat = record.byte();
  rule->startTime = record.int64();
  rule->cycleLength = record.int64();
  const std::int32_t count = record.int32();
  if (count < 1 || count > maxStates_) return nullptr;
  const std::size_t statesSize = static_cast<std::size_t>(count) * stateSize;
  const std::string_view states =
      reader_.at(start + static_cast<std::int64_t>(fixedSize), statesSize);
  if (states.size() < statesSize) return nullptr;
  RecordReader stateReader(states);
  for (std::int32_t i = 0; i < count; ++i) {
    TempState state;
    state.duration = stateReader.int64();
    state.value = stateReader.text(valueWidth);
    rule->states.push_back(std::move(state));
  }
  return rule;
}

bool TimedReader::isAsWritten(std::int32_t slot, std::int32_t row, std::int32_t column) {
  if (slot < 0 || !file_.isOpen()) return false;
  const std::size_t size = timedRecordSize(maxStates_);
  const std::string_view bytes = reader_.at(slot * static_cast<std::int64_t>(size), size);
  if (bytes.size() < size) return false;
  RecordReader record(bytes);
  const bool isLabelled = record.int32() == row && record.int32() == column;
  const auto repeat = static_cast<unsigned char>(record.character());
  record.int64();
  record.int64();
  const std::int32_t count = record.int32();
  if (!isLabelled || repeat > 1 || count < 1 || count > maxStates_) return false;
  std::string_view states = bytes.substr(fixedSize);
  for (std::int32_t i = 0; i < count; ++i) {
    if (!isPadded(states.substr(stateSize - valueWidth, valueWidth))) return false;
    states.remove_prefix(stateSize);
  }
  return isAllZero(states);
}

TimedWriter::TimedWriter(const Directory& directory, const std::string& fileName,
                         std::int32_t maxStates, PatchWriter* patch)
    : directory_(directory), fileName_(fileName), maxStates_(maxStates), patch_(patch) {}

void TimedWriter::begin() {
  hasBegun_ = true;
  if (patch_ == nullptr) file_.emplace(directory_, checkpointName(fileName_));
  File old(directory_, fileName_, File::Mode::read);
  isTaken_.resize(slotsIn(old, maxStates_));
  slotCount_ = static_cast<std::int64_t>(isTaken_.size());
  if (file_) copy(old);
}

void TimedWriter::copy(File& old) {
  const auto end = slotCount_ * static_cast<std::int64_t>(timedRecordSize(maxStates_));
  BlockReader reader(old);
  constexpr std::int64_t blockSize = 64 * 1024;
  for (std::int64_t offset = 0; offset < end; offset += blockSize) {
    const std::int64_t size = std::min(blockSize, end - offset);
    const std::string_view block = reader.at(offset, static_cast<std::size_t>(size));
    if (isAllZero(block)) {
      file_->seek(offset + size);
    } else {
      file_->write(block);
    }
  }
}

std::int32_t TimedWriter::put(std::int32_t oldSlot, std::int32_t row, std::int32_t column,
                              const TempRule& rule) {
  if (!hasBegun_) begin();
  const auto old = static_cast<std::size_t>(oldSlot);
  std::int32_t slot = oldSlot;
  if (oldSlot >= 0 && old < isTaken_.size() && !isTaken_[old]) {
    isTaken_[old] = true;
  } else {
    slot = slotBehind(slotCount_++);
  }
  RecordWriter record;
  record.int32(row).int32(column);
  record.byte(rule.repeat).int64(rule.startTime).int64(rule.cycleLength);
  record.int32(static_cast<std::int32_t>(rule.states.size()));
  for (const TempState& state : rule.states) {
    record.int64(state.duration).text(state.value, valueWidth);
  }
  record.zeros(timedRecordSize(maxStates_) - record.bytes().size());
  const std::int64_t offset = slot * static_cast<std::int64_t>(timedRecordSize(maxStates_));
  if (patch_ != nullptr) {
    patch_->put(offset, record.bytes());
  } else {
    file_->seek(offset);
    file_->write(record.bytes());
  }
  return slot;
}

bool TimedWriter::finish() {
  const std::int64_t size = slotCount_ * static_cast<std::int64_t>(timedRecordSize(maxStates_));
  if (hasBegun_ && patch_ != nullptr) patch_->finish(size);
  if (file_) file_->finish();
  return file_.has_value();
}

}  // namespace velmora
