// See clock.h.
#include "clock.h"

#include <atomic>
#include <ctime>

namespace velmora::clock {
namespace {

std::atomic<Source> replacedSource = nullptr;

struct FrozenSecond {
  bool isSet = false;
  std::int64_t second = 0;
};
thread_local constinit FrozenSecond frozen;

}  // namespace

std::int64_t now() noexcept {
  if (frozen.isSet) return frozen.second;
  const Source source = replacedSource.load(std::memory_order_relaxed);
  return source != nullptr ? source() : static_cast<std::int64_t>(std::time(nullptr));
}

void setSource(Source source) noexcept { replacedSource.store(source, std::memory_order_relaxed); }

Frozen::Frozen(std::int64_t second) noexcept { frozen = {true, second}; }
Frozen::~Frozen() { frozen = {}; }

}  // namespace velmora::clock
