// See cell.h.
#include "cell.h"

#include <algorithm>
#include <limits>

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

constexpr std::int64_t never = std::numeric_limits<std::int64_t>::max();

// Whether the rule's next change can be told from its durations: what no clock shows and no command
// gives may wrap.
bool isUsual(const TempRule& rule, std::int64_t now) noexcept {
  constexpr std::int64_t far = std::int64_t{1} << 60;
  constexpr std::int64_t longest = std::int64_t{1} << 40;  // of a state
  const auto isNear = [](std::int64_t seconds) { return -far < seconds && seconds < far; };
  return isNear(now) && isNear(rule.startTime) && isNear(rule.cycleLength) &&
         rule.cycleLength >= (rule.repeat ? 1 : 0) &&
         std::all_of(rule.states.begin(), rule.states.end(), [&](const TempState& state) {
           return state.duration >= 0 && state.duration <= longest;
         });
}

}  // namespace

bool isStoredType(std::string_view typeName) noexcept {
  return typeName == longType || typeName == doubleType ||
         std::find(typeNames.begin(), typeNames.end(), typeName) != typeNames.end();
}

ValueKind valueKind(std::string_view typeName) noexcept {
  if (typeName == "string") return ValueKind::text;
  if (typeName == "int" || typeName == "ApexInt") return ValueKind::integer;
  if (typeName == "float") return ValueKind::real;
  if (typeName == "bool") return ValueKind::boolean;
  if (typeName == longType) return ValueKind::longInteger;
  if (typeName == doubleType) return ValueKind::doubleReal;
  return ValueKind::unknown;
}

std::size_t TempRule::calculateIndex(std::int64_t now) const noexcept {
  if (states.empty()) return 0;
  const std::size_t last = states.size() - 1;
  std::int64_t elapsed = wrappingSubtract(now, startTime);
  if (!repeat && elapsed >= cycleLength) return last;
  // A start in the future keeps elapsed negative, which selects the first state.
  if (repeat && cycleLength > 0) elapsed %= cycleLength;
  std::int64_t sum = 0;
  for (std::size_t i = 0; i < last; ++i) {
    sum = wrappingAdd(sum, states[i].duration);
    if (elapsed < sum) return i;
  }
  return last;
}

std::string_view TempRule::valueAt(std::int64_t now) const {
  return states.at(calculateIndex(now)).value.view();
}

TempRule::Moment TempRule::momentAt(std::int64_t now) const noexcept {
  if (states.empty() || now == never) return {calculateIndex(now), never};
  if (!isUsual(*this, now)) return {calculateIndex(now), now + 1};
  if (now < startTime) {
    // A first state of no length is passed over once a pass, before the start as well.
    return {calculateIndex(now), states.front().duration > 0 ? startTime : now + 1};
  }
  const std::size_t last = states.size() - 1;
  std::int64_t elapsed = now - startTime;
  if (!repeat && elapsed >= cycleLength) return {last, never};
  if (repeat) elapsed %= cycleLength;
  std::size_t index = 0;
  std::int64_t end = states.front().duration;
  while (elapsed >= end && index < last) end += states[++index].duration;
  // A pass whose length is not its states' sum ends when its length says so.
  return {index, now + (elapsed < end ? std::min(end, cycleLength) : cycleLength) - elapsed};
}

std::int64_t TempRule::nextValueChange(std::int64_t now) const noexcept {
  if (states.empty() || now == never) return never;
  const std::string_view shown = states[calculateIndex(now)].value;
  std::int64_t second = now;
  // The start, each state of a pass, and that of the next one in which this second lies.
  for (std::size_t i = 0; i < states.size() + 2; ++i) {
    if (!isUsual(*this, second)) return second + 1;
    second = nextChange(second);
    if (second == never) return never;
    if (states[calculateIndex(second)].value != shown) return second;
  }
  return never;
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
    case ValueKind::longInteger:
      return parseLong(a) < parseLong(b);
    case ValueKind::doubleReal:
      return parseDouble(a) < parseDouble(b);
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
