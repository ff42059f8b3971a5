// Listeners, and the queue of scheduled changes of timed values. Both are kept for a consumer
// outside the engine, in memory and in their files; nothing here waits for a time to come or sends
// anything.
#include <algorithm>

#include "database.h"

namespace velmora {

void Database::registerWebhook(const std::string& tableName, std::int32_t rowIndex,
                               std::string_view column, const TempRule& rule) {
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
  webhooksFile.check();
  Storage::appendWebhooks(tasks, webhooksFile);
  for (WebhookTask& task : tasks) {
    pendingWebhooks.push_back(std::move(task));
    std::push_heap(pendingWebhooks.begin(), pendingWebhooks.end(), WebhookTask::firesLater);
  }
}

void Database::checkSchedule(const std::vector<GivenValue>& values) {
  const bool hasRules = std::any_of(values.begin(), values.end(), [](const GivenValue& given) {
    return given.cell.tempRule != nullptr;
  });
  if (hasRules && !isReplaying) webhooksFile.check();
}

void Database::addListener(const Listener& listener, bool fromDisk) {
  const std::unique_lock lock(dbMutex);
  if (!fromDisk) listenersFile.check();
  std::set<Listener>& known = listeners[listener.tableName];
  // The file holds texts cut to its widths: a listener that is registered at every start is there.
  if (known.contains(listener) || known.contains(Storage::asStored(listener))) return;
  std::set<Listener> added = {listener};
  if (!fromDisk) listenersFile.append(Storage::listenerRecord(listener));
  known.merge(added);  // takes the node: what is in the file is in memory, whatever memory is left
}

}  // namespace velmora
