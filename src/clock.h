// The engine's wall clock: whole seconds since the Unix epoch.
//
// Everything that asks for the time asks here, so that a test can choose the second and the replay
// of the log can run a command at the second at which it first ran.
#pragma once

#include <cstdint>

namespace velmora::clock {

using Source = std::int64_t (*)();

// The second it is, in this order: the frozen one of this thread, the source's, time()'s.
std::int64_t now() noexcept;

// Replaces time() for the whole process; null brings it back. Safe beside readers in other threads.
void setSource(Source source) noexcept;

// While it lives, now() answers `second` in this thread.
class Frozen {
 public:
  explicit Frozen(std::int64_t second) noexcept;
  ~Frozen();
  Frozen(const Frozen&) = delete;
  Frozen& operator=(const Frozen&) = delete;
};

}  // namespace velmora::clock
