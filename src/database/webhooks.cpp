// Listeners, and the queue of scheduled changes of timed values. Both are kept for a consumer
// outside the engine, in memory and in their files; nothing here waits for a time to come or sends
// anything.
#include <algorithm>

#include "database.h"

namespace velmora {

void Database::registerWebhook(const std::string& tableName, std::int32_t rowIndex,
                               std::string_view column, const TempRule& rule) {
  const std::lock_guard lock(webhookMutex);
  const std::size_t stateCount = rule.states.size();
  const std::size_t taskCount = rule.repeat || stateCount == 0 ? stateCount : stateCount - 1;
  if (taskCount == 0) return;
  std::vector<WebhookTask> tasks(taskCount);
  auto fireTime = static_cast<std::uint64_t>(rule.startTime);
  for (std::size_t i = 0; i < taskCount; ++i) {
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
  Storage::appendWebhooks(tasks, directory);
  for (WebhookTask& task : tasks) {
    pendingWebhooks.push_back(std::move(task));
    std::push_heap(pendingWebhooks.begin(), pendingWebhooks.end(), WebhookTask::firesLater);
  }
}

void Database::addListener(const std::string& tableName, const std::string& event,
                           const std::string& target, const std::vector<Condition>& conditions,
                           bool fromDisk) {
  const std::unique_lock lock(dbMutex);
  WebhookListener listener{event, target, conditions};
  std::vector<WebhookListener>& known = listeners[tableName];
  if (std::find(known.begin(), known.end(), listener) != known.end()) return;
  if (known.size() == known.capacity()) known.reserve(2 * known.size() + 1);
  if (!fromDisk) Storage::saveListener(tableName, event, target, conditions, directory);
  known.push_back(std::move(listener));
}

}  // namespace velmora
