// Long work, done by two threads.
#pragma once

#include <pthread.h>
#include <sched.h>

#include <cerrno>
#include <cstddef>
#include <exception>
#include <system_error>
#include <thread>

#include "files.h"

namespace velmora {

// Fewer rows are not worth a thread.
inline constexpr std::size_t leastRowsOfHalves = 64 * 1024;

// Moves a thread that has just been started to a processor other than this thread's. The system may
// have put both on one, where they take turns of milliseconds until it looks again.
inline void moveBeside(std::jthread& thread) {
  const pthread_t handle = thread.native_handle();
  const int here = sched_getcpu();
  cpu_set_t all;
  if (here < 0 || pthread_getaffinity_np(handle, sizeof all, &all) != 0) return;
  cpu_set_t others = all;
  CPU_CLR(static_cast<std::size_t>(here), &others);
  if (pthread_setaffinity_np(handle, sizeof others, &others) != 0) return;  // there is no other
  pthread_setaffinity_np(handle, sizeof all, &all);
}

// Calls first() here and second() in another thread, which have to be independent of each other,
// and returns when both have ended; one after the other where the system gives no thread, or where
// a hook counts on the order of the calls for files. What one of them throws is thrown, with errno
// as it was then.
template <typename First, typename Second>
void runBeside(const First& first, const Second& second) {
  std::exception_ptr thrown;
  int systemError = 0;
  const auto runSecond = [&] {
    try {
      second();
    } catch (...) {
      systemError = errno;
      thrown = std::current_exception();
    }
  };
  {
    std::jthread beside;  // waited for also where first() throws
    try {
      if (!hasFileHook()) beside = std::jthread(runSecond);
    } catch (const std::system_error&) {
    }
    if (beside.joinable()) moveBeside(beside);
    first();
    if (!beside.joinable()) runSecond();
  }
  if (thrown == nullptr) return;
  errno = systemError;
  std::rethrow_exception(thrown);
}

}  // namespace velmora
