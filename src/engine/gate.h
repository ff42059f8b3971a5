// Who may be in an engine's tables: any number of readers, or one writer, or the thread whose
// transaction is open.
//
// A reader notes itself in one of several counters, each in a cache line of its own, so that
// readers on different processors do not pass a line to and fro: that would cost more than a
// look-up.
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
  // was given.
  Counter& enterAsReader(const Interrupt& interrupt);
  void leaveAsReader(Counter& counter) noexcept;
  void enterAsWriter(const Interrupt& interrupt);
  // The writer stays in, and changes nothing from now on: readers come in beside it.
  void letReadersIn() noexcept;
  void leaveAsWriter() noexcept;

  // The writer stays in, until the same thread ends the transaction; it need not enter meanwhile.
  void beginTransaction() noexcept;
  void endTransaction() noexcept;
  // Whether this thread's transaction is open.
  bool isInTransaction() const noexcept;
  // Ends whoever's transaction it is, for an engine that is closed; that becomes this thread's.
  bool takeOverTransaction() noexcept;

  // Lets those who wait look whether they have been interrupted.
  void wakeAll() noexcept;

 private:
  static constexpr std::size_t counterCount = 32;

  Counter& ownCounter() noexcept;
  bool hasReaders() const noexcept;
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
  ReaderVisit(Gate& gate, const Interrupt& interrupt);
  ~ReaderVisit();
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
