// Listeners, and the queue of scheduled changes of timed values. Both are kept for a consumer
// outside the engine, in memory and in their files; nothing here waits for a time to come or sends
// anything.
#include <algorithm>

#include "database.h"

namespace velmora {

void Database::registerWebhook(const std::string& tableName, std::int32_t rowIndex,
                               std::string_view column, const TempRule& rule) {
  std::vector<WebhookTask> tasks = Storage::comingChanges(tableName, rowIndex, column, rule);
  if (tasks.empty()) return;
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
