// See gate.h.
#include "gate.h"

#include <algorithm>

namespace velmora {
namespace {

std::uint64_t threadNumber() noexcept {
  static std::atomic<std::uint64_t> lastNumber = 0;
  constinit thread_local static std::uint64_t number = 0;
  if (number == 0) number = lastNumber.fetch_add(1) + 1;
  return number;
}

}  // namespace

Gate::Counter& Gate::ownCounter() noexcept { return counters_[threadNumber() % counterCount]; }

bool Gate::hasReaders() const noexcept {
  return std::any_of(counters_.begin(), counters_.end(),
                     [](const Counter& counter) { return counter.readers.load() != 0; });
}

template <typename Ready>
void Gate::waitUntil(std::unique_lock<std::mutex>& lock, std::condition_variable& changed,
                     const Interrupt& interrupt, Ready ready) {
  if (ready()) return;  // as nearly always, and then nobody asks what time it is
  using Clock = std::chrono::steady_clock;
  const bool isLimited = transactionWait_ != std::chrono::milliseconds::max();
  const auto limit = isLimited ? Clock::now() + transactionWait_ : Clock::time_point::max();
  while (!ready()) {
    interrupt.check();
    const bool isOpen = transactionThread_.load() != 0;
    if (isOpen && isLimited && Clock::now() >= limit) {
      throw Failure(Code::busy, "Another thread's transaction is open");
    }
    if (isOpen && isLimited) {
      changed.wait_until(lock, limit);
    } else {
      changed.wait(lock);
    }
  }
}

Gate::Counter& Gate::enterAsReader(const Interrupt& interrupt) {
  Counter& counter = ownCounter();
  while (true) {
    // Noted before the look at the door, as the writer closes the door before it looks at the
    // notes.
    counter.readers.fetch_add(1);
    if (!isClosed_.load()) return counter;
    leaveAsReader(counter);
    std::unique_lock lock(mutex_);
    waitUntil(lock, doorOpens_, interrupt, [&] { return !isClosed_.load(); });
  }
}

void Gate::leaveAsReader(Counter& counter) noexcept {
  counter.readers.fetch_sub(1);
  if (!isClosed_.load()) return;
  const std::lock_guard lock(mutex_);
  readerLeaves_.notify_one();
}

void Gate::enterAsWriter(const Interrupt& interrupt) {
  std::unique_lock lock(mutex_);
  bool isIn = false;
  try {
    waitUntil(lock, writerLeaves_, interrupt, [&] { return !hasWriter_; });
    hasWriter_ = isIn = true;
    isClosed_.store(true);
    waitUntil(lock, readerLeaves_, interrupt, [&] { return !hasReaders(); });
  } catch (...) {
    // One that has been woken and does not go in lets the next one know.
    if (isIn) openDoor();
    writerLeaves_.notify_one();
    throw;
  }
}

void Gate::letReadersIn() noexcept {
  const std::lock_guard lock(mutex_);
  isClosed_.store(false);
  doorOpens_.notify_all();
}

void Gate::leaveAsWriter() noexcept {
  const std::lock_guard lock(mutex_);
  openDoor();
}

// The mutex is held.
void Gate::openDoor() noexcept {
  hasWriter_ = false;
  isClosed_.store(false);
  doorOpens_.notify_all();
  writerLeaves_.notify_one();
}

// Those who wait already do so as long as a transaction may make them.
void Gate::beginTransaction() noexcept {
  transactionThread_.store(threadNumber());
  wakeAll();
}

void Gate::endTransaction() noexcept {
  transactionThread_.store(0);
  leaveAsWriter();
}

bool Gate::isInTransaction() const noexcept {
  const std::uint64_t thread = transactionThread_.load();
  return thread != 0 && thread == threadNumber();
}

bool Gate::takeOverTransaction() noexcept {
  if (transactionThread_.load() == 0) return false;
  beginTransaction();
  return true;
}

void Gate::wakeAll() noexcept {
  const std::lock_guard lock(mutex_);
  doorOpens_.notify_all();
  readerLeaves_.notify_all();
  writerLeaves_.notify_all();
}

ReaderVisit::ReaderVisit(Gate& gate, const Interrupt& interrupt) : gate_(gate) {
  if (!gate.isInTransaction()) counter_ = &gate.enterAsReader(interrupt);
}

ReaderVisit::~ReaderVisit() {
  if (counter_ != nullptr) gate_.leaveAsReader(*counter_);
}

WriterVisit::WriterVisit(Gate& gate, const Interrupt& interrupt)
    : gate_(gate), isIn_(!gate.isInTransaction()) {
  if (isIn_) gate.enterAsWriter(interrupt);
}

void WriterVisit::leave() noexcept {
  if (isIn_) gate_.leaveAsWriter();
  isIn_ = false;
}

void WriterVisit::handToTransaction() noexcept {
  gate_.beginTransaction();
  isIn_ = false;
}

}  // namespace velmora
