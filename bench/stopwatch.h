// Seconds since construction. Everything that the benchmark times is timed with this.
#pragma once

#include <time.h>

namespace bench {

// CLOCK_MONOTONIC, or CLOCK_PROCESS_CPUTIME_ID on a machine too busy for it.
inline clockid_t stopwatchClock = CLOCK_MONOTONIC;

class Stopwatch {
 public:
  double seconds() const { return now() - start_; }

 private:
  static double now() {
    timespec time = {};
    clock_gettime(stopwatchClock, &time);
    return static_cast<double>(time.tv_sec) + 1e-9 * static_cast<double>(time.tv_nsec);
  }

  double start_ = now();
};

}  // namespace bench
