// Long work, done by two threads.
#pragma once

#include <cerrno>
#include <cstddef>
#include <future>

#include "files.h"

namespace velmora {

// Fewer rows are not worth a thread.
inline constexpr std::size_t leastRowsOfHalves = 64 * 1024;

// Calls first() here and second() in another thread, which have to be independent of each other,
// and returns when both have ended; one after the other where the system gives no thread, or where
// a hook counts on the order of the calls for files. What one of them throws is thrown, with errno
// as it was then.
template <typename First, typename Second>
void runBeside(const First& first, const Second& second) {
  int systemError = 0;
  const auto policy =
      hasFileHook() ? std::launch::deferred : std::launch::async | std::launch::deferred;
  std::future<void> done = std::async(policy, [&] {
    try {
      second();
    } catch (...) {
      systemError = errno;
      throw;
    }
  });
  first();
  try {
    done.get();
  } catch (...) {
    errno = systemError;
    throw;
  }
}

}  // namespace velmora
