// Allocations that fail on request: this program's operator new is replaced, and throws
// std::bad_alloc or gives null at the one allocation asked for, or at that one and all later ones.
#pragma once

#include <cstdint>

namespace velmora::faults {

enum class Failing : std::uint8_t { once, fromThenOn };

// While it lives, this thread's allocations are counted and fail as asked for.
class FailingAllocations {
 public:
  // The first allocation has number 1; number 0 counts only.
  FailingAllocations(std::int64_t number, Failing failing);
  ~FailingAllocations();
  FailingAllocations(const FailingAllocations&) = delete;
  FailingAllocations& operator=(const FailingAllocations&) = delete;

  // How many there were since the last one of these began.
  static std::int64_t count();
  // Whether one has failed.
  static bool hasFailed();
};

}  // namespace velmora::faults
