// See gate.h.
#include "gate.h"

#include <algorithm>
#include <bit>
#include <utility>

namespace velmora {

constinit thread_local Gate::Thread Gate::thread_;
constinit std::atomic<std::uint32_t> Gate::takenCounters_ = (1U << sharedCounters) - 1;

// Gives a thread's counter to the next one that begins to read. What the thread still reads at its
// end, it does by one that is shared.
struct Gate::ThreadEnd {
  ~ThreadEnd() {
    takenCounters_.fetch_and(~(1U << std::exchange(thread_.counter, sharedCounter())));
  }
};

std::uint64_t Gate::threadNumber() noexcept {
  static constinit std::atomic<std::uint64_t> lastNumber = 0;
  if (thread_.number == 0) thread_.number = lastNumber.fetch_add(1) + 1;
  return thread_.number;
}

std::uint32_t Gate::sharedCounter() noexcept {
  return static_cast<std::uint32_t>(threadNumber() % sharedCounters);
}

std::uint32_t Gate::takeCounter() noexcept {
  static_assert(counterCount == 32, "A bit of takenCounters_ each");
  thread_.counter = sharedCounter();
  std::uint32_t taken = takenCounters_.load();
  while (~taken != 0) {
    const auto free = static_cast<std::uint32_t>(std::countr_one(taken));
    if (!takenCounters_.compare_exchange_weak(taken, taken | 1U << free)) continue;
    thread_.counter = free;
    thread_local const ThreadEnd end;
    break;
  }
  return thread_.counter;
}

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

void Gate::waitAsReader(Counter& counter, const Interrupt& interrupt) {
  do {
    leaveAsReader(counter);
    std::unique_lock lock(mutex_);
    waitUntil(lock, doorOpens_, interrupt, [&] { return !isClosed_.load(); });
    counter.readers.fetch_add(1);
  } while (isClosed_.load());
}

void Gate::tellWriter() noexcept {
  const std::lock_guard lock(mutex_);
  readerLeaves_.notify_one();
}

// A reader whose counter is its own does not wait until others see that it has left, and may look
// at the door before they do. If that was open then nobody tells the writer, which looks for
// itself: soon at first, since the last ones that can have seen an open door leave then.
void Gate::waitForReaders(std::unique_lock<std::mutex>& lock, const Interrupt& interrupt) {
  constexpr std::chrono::microseconds longestPause(10000);
  std::chrono::microseconds pause(20);
  while (hasReaders()) {
    interrupt.check();
    readerLeaves_.wait_for(lock, pause);
    pause = std::min(2 * pause, longestPause);
  }
}

void Gate::enterAsWriter(const Interrupt& interrupt) {
  std::unique_lock lock(mutex_);
  bool isIn = false;
  try {
    waitUntil(lock, writerLeaves_, interrupt, [&] { return !hasWriter_; });
    hasWriter_ = isIn = true;
    isClosed_.store(true);
    waitForReaders(lock, interrupt);
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
