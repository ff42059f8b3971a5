// The thread's loop.
#include "worker.h"

#include <chrono>
#include <utility>

namespace velmora_node {

void Worker::post(std::unique_ptr<Job> job) {
  if (!thread_.joinable()) thread_ = std::thread(&Worker::work, this);
  const std::lock_guard lock(mutex_);
  jobs_.push_back(std::move(job));
  changed_.notify_all();
}

void Worker::stop(const std::function<void()>& hurry) {
  if (!thread_.joinable()) return;
  std::unique_lock lock(mutex_);
  isStopping_ = true;
  jobs_.clear();
  changed_.notify_all();
  // A command that had not quite begun when it was hurried does not know of it.
  constexpr std::chrono::milliseconds again(5);
  while (!hasEnded_) {
    hurry();
    changed_.wait_for(lock, again);
  }
  lock.unlock();
  thread_.join();
}

void Worker::work() {
  while (std::unique_ptr<Job> job = next()) perform_(std::move(job));
  const std::lock_guard lock(mutex_);
  hasEnded_ = true;
  changed_.notify_all();
}

std::unique_ptr<Job> Worker::next() {
  std::unique_lock lock(mutex_);
  changed_.wait(lock, [this] { return isStopping_ || !jobs_.empty(); });
  if (isStopping_) return nullptr;
  std::unique_ptr<Job> job = std::move(jobs_.front());
  jobs_.pop_front();
  return job;
}

}  // namespace velmora_node
