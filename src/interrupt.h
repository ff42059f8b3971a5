// How a command that is running is stopped from another thread: whoever wants that counts up, and
// the command, which noted the count at its beginning, looks now and then whether it has changed.
#pragma once

#include <atomic>
#include <cstdint>

#include "failure.h"

namespace velmora {

class Interrupts {
 public:
  void interruptAll() noexcept { count_.fetch_add(1, std::memory_order_relaxed); }
  std::uint64_t count() const noexcept { return count_.load(std::memory_order_relaxed); }

 private:
  std::atomic<std::uint64_t> count_ = 0;
};

// What a command looks at.
class Interrupt {
 public:
  // Never interrupted.
  Interrupt() = default;
  explicit Interrupt(const Interrupts& interrupts)
      : interrupts_(&interrupts), start_(interrupts.count()) {}

  bool isSet() const noexcept { return interrupts_ != nullptr && interrupts_->count() != start_; }
  // Throws Failure with Code::interrupted. To be called about once a chunk of rows.
  void check() const {
    if (isSet()) throw Failure(Code::interrupted, "Interrupted");
  }

 private:
  const Interrupts* interrupts_ = nullptr;
  std::uint64_t start_ = 0;
};

}  // namespace velmora
