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

bool isUsualSecond(std::int64_t second) noexcept {
  constexpr std::int64_t far = std::int64_t{1} << 60;
  return -far < second && second < far;
}

bool TempRule::isUsual() const noexcept {
  constexpr std::int64_t longest = std::int64_t{1} << 40;  // of a state
  return isUsualSecond(startTime) && isUsualSecond(cycleLength) &&
         cycleLength >= (repeat ? 1 : 0) &&
         std::all_of(states.begin(), states.end(), [&](const TempState& state) {
           return state.duration >= 0 && state.duration <= longest;
         });
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

std::int64_t TempRule::nextChange(std::int64_t now) const noexcept {
  if (states.empty() || now == never) return never;
  if (!isUsual() || !isUsualSecond(now)) return now + 1;
  // A first state of no length is passed over once a pass, before the start as well.
  const bool isPassedOver = repeat && states.front().duration == 0;
  if (now < startTime) return isPassedOver ? now + 1 : startTime;
  const std::size_t last = states.size() - 1;
  std::int64_t elapsed = now - startTime;
  if (!repeat && elapsed >= cycleLength) return never;
  if (repeat) elapsed %= cycleLength;
  std::int64_t end = states.front().duration;
  for (std::size_t i = 1; elapsed >= end && i <= last; ++i) end += states[i].duration;
  // A pass whose length is not its states' sum ends when its length says so.
  return now + (elapsed < end ? std::min(end, cycleLength) : cycleLength) - elapsed;
}

std::int64_t TempRule::nextValueChange(std::int64_t now) const noexcept {
  if (states.empty() || now == never) return never;
  if (!isUsual() || !isUsualSecond(now)) return now + 1;
  const std::string_view shown = states[calculateIndex(now)].value;
  const auto isOther = [&](std::size_t index) { return states[index].value != shown; };
  if (now < startTime && repeat && states.front().duration == 0) {  // it is passed over, see above
    const std::int64_t passedOver = startTime - (startTime - now - 1) / cycleLength * cycleLength;
    for (const std::int64_t second : {now + 1, passedOver}) {
      if (isOther(calculateIndex(second))) return second;
    }
  }
  // The rest of this pass, and the next one as far as to where this second lies in it.
  std::int64_t end = startTime;
  if (repeat && now > startTime) end += (now - startTime) / cycleLength * cycleLength;
  for (int passes = repeat ? 2 : 1; passes > 0; --passes) {
    const std::int64_t endOfPass = end + cycleLength;
    for (std::size_t i = 0; i < states.size(); ++i) {
      const std::int64_t begin = end;
      const bool isLast = i + 1 == states.size();
      end = isLast ? endOfPass : std::min(begin + states[i].duration, endOfPass);
      const bool isShown = begin < end || (isLast && !repeat);
      if (isShown && begin > now && isOther(i)) return begin;
    }
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
