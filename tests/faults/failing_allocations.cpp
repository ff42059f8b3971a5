// See failing_allocations.h.
#include "failing_allocations.h"

#include <cstdlib>
#include <new>

namespace {

struct Plan {
  bool isArmed = false;
  bool hasFailed = false;
  std::int64_t number = 0;
  std::int64_t count = 0;
  velmora::faults::Failing failing = velmora::faults::Failing::once;
};
thread_local constinit Plan plan;

bool mustFail() {
  if (!plan.isArmed) return false;
  ++plan.count;
  const bool fails =
      plan.count == plan.number || (plan.failing == velmora::faults::Failing::fromThenOn &&
                                    plan.number > 0 && plan.count > plan.number);
  plan.hasFailed = plan.hasFailed || fails;
  return fails;
}

void* allocate(std::size_t size) noexcept {
  if (mustFail()) return nullptr;
  return std::malloc(size == 0 ? 1 : size);
}

void* allocateOrThrow(std::size_t size) {
  void* const memory = allocate(size);
  if (memory == nullptr) throw std::bad_alloc();
  return memory;
}

}  // namespace

namespace velmora::faults {

FailingAllocations::FailingAllocations(std::int64_t number, Failing failing) {
  plan = {true, false, number, 0, failing};
}

FailingAllocations::~FailingAllocations() { plan.isArmed = false; }

std::int64_t FailingAllocations::count() { return plan.count; }

bool FailingAllocations::hasFailed() { return plan.hasFailed; }

}  // namespace velmora::faults

void* operator new(std::size_t size) { return allocateOrThrow(size); }
void* operator new[](std::size_t size) { return allocateOrThrow(size); }
void* operator new(std::size_t size, const std::nothrow_t&) noexcept { return allocate(size); }
void* operator new[](std::size_t size, const std::nothrow_t&) noexcept { return allocate(size); }
void* operator new(std::size_t size, std::align_val_t alignment) {
  const auto unit = static_cast<std::size_t>(alignment);
  const std::size_t units = (size + unit - 1) / unit;  // aligned_alloc takes whole ones only
  void* const memory = mustFail() ? nullptr : std::aligned_alloc(unit, units * unit);
  if (memory == nullptr) throw std::bad_alloc();
  return memory;
}
void operator delete(void* memory, std::align_val_t) noexcept { std::free(memory); }
void operator delete(void* memory, std::size_t, std::align_val_t) noexcept { std::free(memory); }
void operator delete(void* memory) noexcept { std::free(memory); }
void operator delete[](void* memory) noexcept { std::free(memory); }
void operator delete(void* memory, std::size_t) noexcept { std::free(memory); }
void operator delete[](void* memory, std::size_t) noexcept { std::free(memory); }
void operator delete(void* memory, const std::nothrow_t&) noexcept { std::free(memory); }
void operator delete[](void* memory, const std::nothrow_t&) noexcept { std::free(memory); }
