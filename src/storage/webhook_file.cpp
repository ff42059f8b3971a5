// webhooks.bin: the scheduled changes of timed values, records of 85 bytes back to back.
//
//   OFFSET  SIZE  MEANING
//        0     1  0 while pending, 1 once fired
//        1     8  fire time, seconds since the epoch
//        9     8  start time of the timed value
//       17     4  row index
//       21     1  1 if the timed value cycles
//       22     8  length of one pass, seconds
//       30    15  table name
//       45    15  column name
//       60    25  the value the cell takes, cut at 25
#include <algorithm>
#include <cerrno>
#include <limits>
#include <stdexcept>

#include "../record_io.h"
#include "block_io.h"
#include "storage.h"

namespace velmora {
namespace {

constexpr std::size_t valueWidth = 25;
constexpr std::size_t recordSize = 85;
static_assert(recordSize == 1 + 8 + 8 + 4 + 1 + 8 + 2 * nameWidth + valueWidth);

}  // namespace

std::vector<WebhookTask> Storage::comingChanges(const std::string& tableName, std::int32_t rowIndex,
                                                std::string_view column, const TempRule& rule) {
  const std::size_t stateCount = rule.states.size();
  std::vector<WebhookTask> tasks(rule.repeat || stateCount == 0 ? stateCount : stateCount - 1);
  auto fireTime = static_cast<std::uint64_t>(rule.startTime);
  for (std::size_t i = 0; i < tasks.size(); ++i) {
    // A state's end is the next one's beginning; sums wrap like two's complement.
    fireTime += static_cast<std::uint64_t>(rule.states[i].duration);
    WebhookTask& task = tasks[i];
    task.fireTime = static_cast<std::int64_t>(fireTime);
    task.tableName = tableName;
    task.rowIndex = rowIndex;
    task.column = column;
    // Deliberate: the last task of a cycling value carries the last state, not the first.
    task.value = rule.states[std::min(i + 1, stateCount - 1)].value.view();
    task.repeat = rule.repeat;
    task.totalDuration = rule.cycleLength;
    task.startTime = rule.startTime;
  }
  return tasks;
}

std::string Storage::webhookRecords(const std::vector<WebhookTask>& tasks) {
  RecordWriter records;
  for (const WebhookTask& task : tasks) {
    records.byte(false).int64(task.fireTime).int64(task.startTime).int32(task.rowIndex);
    records.byte(task.repeat).int64(task.totalDuration);
    records.text(task.tableName, nameWidth).text(task.column, nameWidth);
    records.text(task.value, valueWidth);
  }
  return records.bytes();
}

void Storage::appendWebhooks(std::vector<WebhookTask>& tasks, AppendFile& file) {
  const auto end = file.end();
  if (!end) return;
  const auto added = static_cast<std::int64_t>(tasks.size() * recordSize);
  if (*end > std::numeric_limits<std::int32_t>::max() - added) {
    throw std::runtime_error("webhooks.bin is full");
  }
  if (!file.append(webhookRecords(tasks))) return;
  auto position = static_cast<std::int32_t>(*end);
  for (WebhookTask& task : tasks) {
    task.filePosition = position;
    position += static_cast<std::int32_t>(recordSize);
  }
}

std::optional<StoredRecords> Storage::readWebhooks(const std::function<void(WebhookTask)>& use,
                                                   const Directory& directory) {
  File file(directory, webhooksFileName, File::Mode::read);
  if (!file.isOpen() && errno == ENOENT) return std::nullopt;
  const auto fileSize = file.size();
  const auto end = file.contentEnd();
  if (!fileSize || !end) throwUnreadable(webhooksFileName);
  StoredRecords read{0, *fileSize};
  BlockReader reader(file);
  constexpr auto step = static_cast<std::int64_t>(recordSize);
  for (std::int64_t offset = 0; offset + step <= *end; offset += step) {
    const std::string_view bytes = reader.at(offset, recordSize);
    if (bytes.size() < recordSize) break;
    if (isAllZero(bytes)) continue;  // no task has a table without a name
    read.completeSize = offset + step;
    RecordReader record(bytes);
    WebhookTask task;
    task.filePosition = static_cast<std::int32_t>(offset);
    const bool isFired = record.byte();
    task.fireTime = record.int64();
    task.startTime = record.int64();
    task.rowIndex = record.int32();
    task.repeat = record.byte();
    task.totalDuration = record.int64();
    task.tableName = record.text(nameWidth);
    task.column = record.text(nameWidth);
    task.value = record.text(valueWidth);
    if (!isFired) use(std::move(task));
  }
  return read;
}

}  // namespace velmora
