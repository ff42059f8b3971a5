// The records of scheduled state changes and of listeners. Nothing here sends anything: both are
// kept, in memory and in their files, for a consumer outside the engine.
// Times are seconds since the epoch.
#pragma once

#include <compare>
#include <cstdint>
#include <string>
#include <vector>

#include "condition.h"

namespace velmora {

// One coming change of a timed cell. Times are seconds since the epoch, durations seconds.
struct WebhookTask {
  std::int64_t fireTime = 0;
  std::string tableName;
  std::int32_t rowIndex = 0;
  std::string column;
  std::string value;  // what the cell shows from fireTime on
  bool repeat = false;
  std::int64_t totalDuration = 0;
  std::int64_t startTime = 0;
  std::int32_t filePosition = -1;  // byte offset of the task's record in "webhooks.bin", or -1

  // Heap order: the task that fires first is on top.
  static bool firesLater(const WebhookTask& a, const WebhookTask& b) {
    return a.fireTime > b.fireTime;
  }
};

struct Listener {
  std::string tableName;
  std::string event;   // the kind of change, as LISTEN named it
  std::string target;  // where a consumer should send it
  std::vector<Condition> conditions;

  auto operator<=>(const Listener&) const = default;
};

}  // namespace velmora
