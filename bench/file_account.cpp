// The program's own fsync and fdatasync stand before the C library's for every library it loads;
// they make the system call and note its duration. Bytes are in the kernel's own account.
#include "file_account.h"

#include <sys/syscall.h>
#include <unistd.h>

#include <atomic>
#include <fstream>
#include <stdexcept>
#include <string>

#include "stopwatch.h"

namespace bench {

namespace {

std::atomic<double> syncSeconds = 0;

int timedCall(long number, int descriptor) {
  Stopwatch watch;
  const long result = syscall(number, descriptor);
  syncSeconds += watch.seconds();
  return static_cast<int>(result);
}

}  // namespace

double secondsInSync() { return syncSeconds; }

std::size_t bytesWritten() {
  std::ifstream account("/proc/self/io");
  std::string name;
  std::size_t bytes = 0;
  while (account >> name >> bytes) {
    if (name == "wchar:") return bytes;
  }
  throw std::runtime_error("Cannot read /proc/self/io");
}

}  // namespace bench

extern "C" __attribute__((visibility("default"))) int fsync(int descriptor) {
  return bench::timedCall(SYS_fsync, descriptor);
}

extern "C" __attribute__((visibility("default"))) int fdatasync(int descriptor) {
  return bench::timedCall(SYS_fdatasync, descriptor);
}
