// The thread that runs a database's asynchronous calls, first in, first out: a transaction belongs
// to the thread that began it, so they all need the same one.
#pragma once

#include <condition_variable>
#include <cstdint>
#include <deque>
#include <functional>
#include <memory>
#include <mutex>
#include <thread>

#include "addon.h"

namespace velmora_node {

struct Job {
  // On the worker. Returns a velmora_code, and leaves result and error here.
  std::function<int(Job& job)> work;
  // On the thread of JavaScript, before the promise is settled; may be empty.
  std::function<void(const Job& job)> conclude;
  napi_deferred promise = nullptr;
  std::int64_t second = 0;  // by the clock of JavaScript, when it was posted
  int code = VELMORA_OK;
  velmora_result* result = nullptr;
  velmora_error* error = nullptr;

  Job() = default;
  Job(const Job&) = delete;
  Job& operator=(const Job&) = delete;
  ~Job() {
    velmora_result_destroy(result);
    velmora_error_destroy(error);
  }
};

class Worker {
 public:
  using Perform = std::function<void(std::unique_ptr<Job> job)>;

  explicit Worker(Perform perform) : perform_(std::move(perform)) {}
  ~Worker() {
    stop([] {});
  }
  Worker(const Worker&) = delete;
  Worker& operator=(const Worker&) = delete;

  // The thread begins with the first job.
  void post(std::unique_ptr<Job> job);
  // Drops the jobs that have not begun, and waits for the one that has; hurry, which may be called
  // again and again, is to make it end.
  void stop(const std::function<void()>& hurry);

 private:
  void work();
  std::unique_ptr<Job> next();

  const Perform perform_;
  std::mutex mutex_;  // guards what follows, but for the thread
  std::condition_variable changed_;
  std::deque<std::unique_ptr<Job>> jobs_;
  bool isStopping_ = false;
  bool hasEnded_ = false;
  std::thread thread_;
};

}  // namespace velmora_node
