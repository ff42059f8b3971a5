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
#include <limits>
#include <stdexcept>

#include "../record_io.h"
#include "storage.h"

namespace velmora {
namespace {

constexpr std::size_t valueWidth = 25;
constexpr std::size_t recordSize = 85;
constexpr std::int32_t fireTimeOffset = 1;
static_assert(recordSize == 1 + 8 + 8 + 4 + 1 + 8 + 2 * nameWidth + valueWidth);

void putTask(RecordWriter& record, const WebhookTask& task) {
  record.byte(false).int64(task.fireTime).int64(task.startTime).int32(task.rowIndex);
  record.byte(task.repeat).int64(task.totalDuration);
  record.text(task.tableName, nameWidth).text(task.column, nameWidth);
  record.text(task.value, valueWidth);
}

}  // namespace

void Storage::appendWebhooks(std::vector<WebhookTask>& tasks, const Directory& directory) {
  File file(directory, webhooksFileName, File::Mode::create);
  const auto end = file.size();
  if (!end) return;
  const auto added = static_cast<std::int64_t>(tasks.size() * recordSize);
  if (*end > std::numeric_limits<std::int32_t>::max() - added) {
    throw std::runtime_error("webhooks.bin is full");
  }
  RecordWriter records;
  for (const WebhookTask& task : tasks) putTask(records, task);
  if (!file.writeAt(*end, records.bytes())) {
    file.truncate(*end);
    return;
  }
  for (std::size_t i = 0; i < tasks.size(); ++i) {
    tasks[i].filePosition =
        static_cast<std::int32_t>(*end + static_cast<std::int64_t>(i * recordSize));
  }
}

std::int32_t Storage::appendWebhook(const WebhookTask& task, const Directory& directory) {
  std::vector<WebhookTask> tasks{task};
  appendWebhooks(tasks, directory);
  return tasks.front().filePosition;
}

void Storage::markWebhookFired(std::int32_t position, const Directory& directory) {
  File file(directory, webhooksFileName, File::Mode::readWrite);
  if (file.isOpen()) file.writeAt(position, std::string_view("\1", 1));
}

void Storage::updateCycleTime(std::int32_t position, std::int64_t fireTime,
                              const Directory& directory) {
  RecordWriter time;
  time.int64(fireTime);
  File file(directory, webhooksFileName, File::Mode::readWrite);
  if (file.isOpen()) file.writeAt(position + fireTimeOffset, time.bytes());
}

std::optional<std::vector<WebhookTask>> Storage::readWebhooks(const Directory& directory) {
  const auto bytes = readFile(directory, webhooksFileName);
  if (!bytes) return std::nullopt;
  std::vector<WebhookTask> tasks;
  RecordReader record(*bytes);
  while (record.remaining() >= recordSize) {
    WebhookTask task;
    task.filePosition = static_cast<std::int32_t>(record.position());
    const bool isFired = record.byte();
    task.fireTime = record.int64();
    task.startTime = record.int64();
    task.rowIndex = record.int32();
    task.repeat = record.byte();
    task.totalDuration = record.int64();
    task.tableName = record.text(nameWidth);
    task.column = record.text(nameWidth);
    task.value = record.text(valueWidth);
    if (!isFired) tasks.push_back(std::move(task));
  }
  if (record.remaining() > 0) {
    File file(directory, webhooksFileName, File::Mode::readWrite);
    if (!file.truncate(static_cast<std::int64_t>(record.position()))) {
      throw std::runtime_error(std::string("Failed to repair file: ") + webhooksFileName);
    }
  }
  return tasks;
}

}  // namespace velmora
