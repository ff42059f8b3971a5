// See clock.h.
#include "clock.h"

#include <atomic>
#include <ctime>

namespace velmora::clock {
namespace {

std::atomic<Source> replacedSource = nullptr;

}  // namespace

std::int64_t now() noexcept {
  const Source source = replacedSource.load(std::memory_order_relaxed);
  return source != nullptr ? source() : static_cast<std::int64_t>(std::time(nullptr));
}

void setSource(Source source) noexcept { replacedSource.store(source, std::memory_order_relaxed); }

}  // namespace velmora::clock
