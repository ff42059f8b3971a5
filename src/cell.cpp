// See cell.h.
#include "cell.h"

#include <atomic>

#include "number.h"

namespace velmora {
namespace {

// Seconds wrap like two's complement, so that absurd durations stay defined.
std::int64_t wrappingAdd(std::int64_t a, std::int64_t b) noexcept {
  return static_cast<std::int64_t>(static_cast<std::uint64_t>(a) + static_cast<std::uint64_t>(b));
}
std::int64_t wrappingSubtract(std::int64_t a, std::int64_t b) noexcept {
  return static_cast<std::int64_t>(static_cast<std::uint64_t>(a) - static_cast<std::uint64_t>(b));
}

}  // namespace

ValueKind valueKind(std::string_view typeName) noexcept {
  if (typeName == "string") return ValueKind::text;
  if (typeName == "int" || typeName == "ApexInt") return ValueKind::integer;
  if (typeName == "float") return ValueKind::real;
  if (typeName == "bool") return ValueKind::boolean;
  return ValueKind::unknown;
}

std::int32_t TempRule::calculateIndex(std::int64_t now) const noexcept {
  const std::atomic_ref<std::int32_t> cached(currentIndex);
  std::int64_t elapsed = wrappingSubtract(now, startTime);
  if (states.empty()) return cached.load(std::memory_order_relaxed);
  const auto last = static_cast<std::int32_t>(states.size() - 1);
  std::int32_t found = last;
  const bool isOver = !repeat && elapsed >= cycleLength;
  if (!isOver) {
    // A start in the future keeps elapsed negative, which selects the first state.
    if (repeat && cycleLength > 0) elapsed %= cycleLength;
    std::int64_t sum = 0;
    for (std::int32_t i = 0; i <= last; ++i) {
      sum = wrappingAdd(sum, states[static_cast<std::size_t>(i)].duration);
      if (elapsed < sum) {
        found = i;
        break;
      }
    }
  }
  cached.store(found, std::memory_order_relaxed);
  return found;
}

std::string_view TempRule::valueAt(std::int64_t now) const {
  return states.at(static_cast<std::size_t>(calculateIndex(now))).value.view();
}

std::size_t TempRule::firstComingState(std::int64_t now) const noexcept {
  return repeat ? 0 : static_cast<std::size_t>(calculateIndex(now));
}

Cell::Cell(const Cell& other)
    : value(other.value),
      tempRule(other.tempRule ? std::make_unique<TempRule>(*other.tempRule) : nullptr) {}

Cell& Cell::operator=(const Cell& other) {
  if (this != &other) *this = Cell(other);
  return *this;
}

bool comesBefore(ValueKind kind, std::string_view a, std::string_view b) {
  switch (kind) {
    case ValueKind::integer:
      return parseInt(a) < parseInt(b);
    case ValueKind::real:
      return parseFloat(a) < parseFloat(b);
    case ValueKind::boolean:
      return a == "false" && b == "true";
    case ValueKind::text:
      return a < b;
    case ValueKind::unknown:
      break;
  }
  return false;
}

}  // namespace velmora
