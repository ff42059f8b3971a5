// See cell.h.
#include "cell.h"

#include <atomic>
#include <map>
#include <mutex>

#include "clock.h"
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

struct HeadingTexts {
  std::string name;
  std::string type;
  auto operator<=>(const HeadingTexts&) const = default;
};

// Headings by index. Blocks never move once published, so readers need no lock.
class HeadingRegistry {
 public:
  static constexpr std::size_t blockSize = 1024;
  static constexpr std::size_t blockCount = 65536;

  HeadingRegistry() { find("", ""); }

  std::uint32_t find(std::string_view name, std::string_view type) {
    const std::lock_guard lock(mutex_);
    HeadingTexts texts{std::string(name), std::string(type)};
    const auto known = indices_.find(texts);
    if (known != indices_.end()) return known->second;
    const std::size_t index = indices_.size();
    if (index >= blockSize * blockCount) throw std::length_error("Too many column names");
    std::atomic<HeadingTexts*>& block = blocks_[index / blockSize];
    if (block.load(std::memory_order_relaxed) == nullptr) {
      block.store(new HeadingTexts[blockSize], std::memory_order_release);
    }
    block.load(std::memory_order_relaxed)[index % blockSize] = texts;
    indices_.emplace(std::move(texts), static_cast<std::uint32_t>(index));
    return static_cast<std::uint32_t>(index);
  }

  const HeadingTexts& at(std::uint32_t index) const noexcept {
    return blocks_[index / blockSize].load(std::memory_order_acquire)[index % blockSize];
  }

 private:
  std::mutex mutex_;
  std::map<HeadingTexts, std::uint32_t> indices_;
  std::array<std::atomic<HeadingTexts*>, blockCount> blocks_ = {};
};

// Never destroyed: cells in objects of static duration may outlive any order of destruction.
HeadingRegistry& headings() {
  static HeadingRegistry* const registry = new HeadingRegistry;
  return *registry;
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

std::int32_t TempRule::calculateIndex() const noexcept { return calculateIndex(clock::now()); }

std::string_view TempRule::valueAt(std::int64_t now) const {
  return states.at(static_cast<std::size_t>(calculateIndex(now))).value.view();
}

std::size_t TempRule::firstComingState(std::int64_t now) const noexcept {
  return repeat ? 0 : static_cast<std::size_t>(calculateIndex(now));
}

ColumnHeading::ColumnHeading(std::string_view name, std::string_view type)
    : index_(headings().find(name, type)) {}

std::string_view ColumnHeading::name() const noexcept { return headings().at(index_).name; }
std::string_view ColumnHeading::type() const noexcept { return headings().at(index_).type; }

Cell::Cell(const Cell& other)
    : value(other.value),
      tempRule(other.tempRule ? std::make_unique<TempRule>(*other.tempRule) : nullptr),
      heading(other.heading),
      tag(other.tag) {}

Cell& Cell::operator=(const Cell& other) {
  if (this != &other) *this = Cell(other);
  return *this;
}

std::string Cell::getVal() const {
  if (tempRule == nullptr) return std::string(value.view());
  return std::string(tempRule->valueAt(clock::now()));
}

bool Cell::operator==(const Cell& other) const {
  const std::int64_t now = clock::now();
  return columnName() == other.columnName() && valueAt(now) == other.valueAt(now);
}

bool Cell::operator<(const Cell& other) const {
  const std::int64_t now = clock::now();
  return comesBefore(valueKind(type()), valueAt(now), other.valueAt(now));
}

bool Cell::operator>(const Cell& other) const {
  const std::int64_t now = clock::now();
  return comesBefore(valueKind(type()), other.valueAt(now), valueAt(now));
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
