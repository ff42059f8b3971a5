// The program's own fsync and fdatasync stand before the C library's for every library it loads;
// they make the system call and note its duration.
#include "sync_clock.h"

#include <sys/syscall.h>
#include <unistd.h>

#include "stopwatch.h"

namespace bench {

namespace {

double syncSeconds = 0;

int timedCall(long number, int descriptor) {
  Stopwatch watch;
  const long result = syscall(number, descriptor);
  syncSeconds += watch.seconds();
  return static_cast<int>(result);
}

}  // namespace

double secondsInSync() { return syncSeconds; }

}  // namespace bench

extern "C" __attribute__((visibility("default"))) int fsync(int descriptor) {
  return bench::timedCall(SYS_fsync, descriptor);
}

extern "C" __attribute__((visibility("default"))) int fdatasync(int descriptor) {
  return bench::timedCall(SYS_fdatasync, descriptor);
}
