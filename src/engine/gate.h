// Who may be in an engine's tables: any number of readers, or one writer, or the thread whose
// transaction is open.
//
// A reader notes itself in one of several counters, each in a cache line of its own, so that
// readers on different processors do not pass a line to and fro: that would cost more than a
// look-up. Most counters are each one thread's, as long as there are enough; such a thread takes
// its note back with a plain store, which does not wait for what it has read of the tables to come
// from memory.
#pragma once

#include <array>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <mutex>

#include "../interrupt.h"

namespace velmora {

class Gate {
 public:
  // How long to wait while another thread's transaction is open; for all else it is waited.
  explicit Gate(std::chrono::milliseconds transactionWait) : transactionWait_(transactionWait) {}

  // The readers that have noted themselves in one place.
  struct alignas(64) Counter {
    std::atomic<std::uint32_t> readers = 0;
  };
  // They throw Failure: busy after that time, interrupted. A reader leaves by the counter that it
  // was given, on the same thread.
  Counter& enterAsReader(const Interrupt& interrupt) {
    const std::uint32_t place = thread_.counter;
    Counter& counter = counters_[place != noCounter ? place : takeCounter()];
    // Noted before the look at the door, as the writer closes the door before it looks at the
    // notes.
    counter.readers.fetch_add(1);
    if (isClosed_.load()) waitAsReader(counter, interrupt);
    return counter;
  }
  void leaveAsReader(Counter& counter) noexcept {
    if (&counter < &counters_[sharedCounters]) {
      counter.readers.fetch_sub(1);
    } else {
      counter.readers.store(counter.readers.load(std::memory_order_relaxed) - 1,
                            std::memory_order_release);
    }
    if (isClosed_.load()) tellWriter();
  }
  void enterAsWriter(const Interrupt& interrupt);
  // The writer stays in, and changes nothing from now on: readers come in beside it.
  void letReadersIn() noexcept;
  void leaveAsWriter() noexcept;

  // The writer stays in, until the same thread ends the transaction; it need not enter meanwhile.
  void beginTransaction() noexcept;
  void endTransaction() noexcept;
  // Whether this thread's transaction is open.
  bool isInTransaction() const noexcept {
    const std::uint64_t thread = transactionThread_.load();
    return thread != 0 && thread == threadNumber();
  }
  // Ends whoever's transaction it is, for an engine that is closed; that becomes this thread's.
  bool takeOverTransaction() noexcept;

  // Lets those who wait look whether they have been interrupted.
  void wakeAll() noexcept;

 private:
  static constexpr std::uint32_t counterCount = 32;
  static constexpr std::uint32_t sharedCounters = 8;  // the first ones
  static constexpr std::uint32_t noCounter = counterCount;

  // What a thread is known by. A plain record, looked at without asking whether it has been made.
  struct Thread {
    std::uint64_t number = 0;  // from 1 on; 0: not given yet
    std::uint32_t counter = noCounter;
  };
  struct ThreadEnd;
  static constinit thread_local Thread thread_;
  static std::atomic<std::uint32_t> takenCounters_;  // a bit each

  static std::uint64_t threadNumber() noexcept;
  static std::uint32_t sharedCounter() noexcept;
  static std::uint32_t takeCounter() noexcept;
  void waitAsReader(Counter& counter, const Interrupt& interrupt);
  void tellWriter() noexcept;
  bool hasReaders() const noexcept;
  void waitForReaders(std::unique_lock<std::mutex>& lock, const Interrupt& interrupt);
  template <typename Ready>
  void waitUntil(std::unique_lock<std::mutex>& lock, std::condition_variable& changed,
                 const Interrupt& interrupt, Ready ready);
  void openDoor() noexcept;

  std::array<Counter, counterCount> counters_;
  alignas(64) std::atomic<bool> isClosed_ = false;    // to readers: a writer is in, or about to be
  std::atomic<std::uint64_t> transactionThread_ = 0;  // 0: no transaction is open
  const std::chrono::milliseconds transactionWait_;
  std::mutex mutex_;  // guards what follows
  // Apart, so that each wakes only those whose turn it is.
  std::condition_variable doorOpens_;     // for readers
  std::condition_variable readerLeaves_;  // for the writer that is in
  std::condition_variable writerLeaves_;  // for the next writer
  bool hasWriter_ = false;
};

// A visit, until it is destroyed. A thread is let in as it is where its transaction is open.
class ReaderVisit {
 public:
  ReaderVisit(Gate& gate, const Interrupt& interrupt) : gate_(gate) {
    if (!gate.isInTransaction()) counter_ = &gate.enterAsReader(interrupt);
  }
  ~ReaderVisit() {
    if (counter_ != nullptr) gate_.leaveAsReader(*counter_);
  }
  ReaderVisit(const ReaderVisit&) = delete;
  ReaderVisit& operator=(const ReaderVisit&) = delete;

 private:
  Gate& gate_;
  Gate::Counter* counter_ = nullptr;  // none where the thread is in already
};
class WriterVisit {
 public:
  WriterVisit(Gate& gate, const Interrupt& interrupt);
  ~WriterVisit() { leave(); }
  WriterVisit(const WriterVisit&) = delete;
  WriterVisit& operator=(const WriterVisit&) = delete;

  void letReadersIn() noexcept { gate_.letReadersIn(); }
  // Leaves early.
  void leave() noexcept;
  // The transaction is the writer from now on.
  void handToTransaction() noexcept;

 private:
  Gate& gate_;
  bool isIn_;
};

}  // namespace velmora
