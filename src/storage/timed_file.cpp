// <table>.tmp: the timed values of a table, one fixed-size record a slot.
//
// With S the largest states limit of the table's columns, slot k starts at k * (29 + 68 * S):
//
//   OFFSET  SIZE    MEANING
//        0     4    row number, a label
//        4     4    column index, a label
//        8     1    1 if the states cycle
//        9     8    start time, seconds since the epoch
//       17     8    length of one pass, seconds
//       25     4    number of states c
//       29  68 * S  the states: 8 bytes duration in seconds, 60 bytes value; zeros from c on
//
// Slots are never freed: a cell that is written again rewrites its slot.
#include "timed_file.h"

#include <limits>
#include <stdexcept>

#include "../record_io.h"
#include "storage.h"

namespace velmora {
namespace {

constexpr std::size_t fixedSize = 29;
constexpr std::size_t valueWidth = 60;
constexpr std::size_t stateSize = 8 + valueWidth;
static_assert(fixedSize == 4 + 4 + 1 + 8 + 8 + 4 && stateSize == 68);

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

std::string timedRecord(std::int32_t row, std::int32_t column, const TempRule& rule,
                        std::int32_t maxStates) {
  RecordWriter record;
  record.int32(row).int32(column).byte(rule.repeat).int64(rule.startTime).int64(rule.cycleLength);
  record.int32(static_cast<std::int32_t>(rule.states.size()));
  for (std::size_t i = 0; i < static_cast<std::size_t>(maxStates); ++i) {
    if (i < rule.states.size()) {
      record.int64(rule.states[i].duration).text(rule.states[i].value, valueWidth);
    } else {
      record.zeros(stateSize);
    }
  }
  return record.bytes();
}

std::unique_ptr<TempRule> timedRuleAt(std::string_view file, std::int32_t slot,
                                      std::int32_t maxStates) {
  const std::size_t size = timedRecordSize(maxStates);
  const auto index = static_cast<std::size_t>(slot);
  if (slot < 0 || index >= file.size() / size + 1) return nullptr;
  const std::size_t start = index * size;
  if (start > file.size() || file.size() - start < fixedSize) return nullptr;
  RecordReader record(file.substr(start));
  record.int32();
  record.int32();
  auto rule = std::make_unique<TempRule>();
  rule->repeat = record.byte();
  rule->startTime = record.int64();
  rule->cycleLength = record.int64();
  const std::int32_t count = record.int32();
  if (count < 1 || count > maxStates) return nullptr;
  if (static_cast<std::size_t>(count) > record.remaining() / stateSize) return nullptr;
  for (std::int32_t i = 0; i < count; ++i) {
    TempState state;
    state.duration = record.int64();
    state.value = record.text(valueWidth);
    rule->states.push_back(std::move(state));
  }
  return rule;
}

std::int32_t Storage::writeTempRule(const std::string& tableName, std::int32_t row,
                                    std::int32_t column, const TempRule* rule,
                                    std::int32_t maxStates, std::int32_t slot,
                                    const Directory& directory) {
  File file(directory, tableName + ".tmp", File::Mode::create);
  const auto size = static_cast<std::int64_t>(timedRecordSize(maxStates));
  // What a torn record left at the end is no slot, and is overwritten.
  if (slot == -1) slot = slotBehind(file.size().value_or(0) / size);
  file.writeAt(slot * size, timedRecord(row, column, *rule, maxStates));
  return slot;
}

std::unique_ptr<TempRule> Storage::readTempRule(const std::string& tableName, std::int32_t slot,
                                                std::int32_t maxStates,
                                                const Directory& directory) {
  const auto file = readFile(directory, tableName + ".tmp");
  return file ? timedRuleAt(*file, slot, maxStates) : nullptr;
}

}  // namespace velmora
