// See directory_lock.h.
#include "directory_lock.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <unistd.h>

#include <cerrno>
#include <cinttypes>
#include <cstdio>
#include <fstream>

namespace velmora {
namespace {

int lockWithoutWaiting(int descriptor, int operation) {
  int result = 0;
  do {
    result = flock(descriptor, operation | LOCK_NB);
  } while (result != 0 && errno == EINTR);
  return result;
}

}  // namespace

// The system's list of locks has lines such as
// "1: FLOCK  ADVISORY  WRITE 4711 08:01:131073 0 EOF".
std::int64_t holderOf(const Directory& directory) {
  struct stat status {};
  if (fstat(directory.descriptor, &status) != 0) return 0;
  std::ifstream locks("/proc/locks");
  for (std::string line; std::getline(locks, line);) {
    std::int64_t process = 0;
    unsigned int major = 0;
    unsigned int minor = 0;
    std::uint64_t inode = 0;
    const int count = std::sscanf(line.c_str(), "%*d: FLOCK %*s %*s %" SCNd64 " %x:%x:%" SCNu64,
                                  &process, &major, &minor, &inode);
    if (count == 4 && inode == status.st_ino && major == gnu_dev_major(status.st_dev) &&
        minor == gnu_dev_minor(status.st_dev)) {
      return process;
    }
  }
  return 0;
}

DirectoryLock::DirectoryLock(const std::string& path, Mode mode)
    : descriptor_(open(path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC)) {
  if (descriptor_ < 0) throw DirectoryFailure(errno);
  if (mode == Mode::none) return;
  if (lockWithoutWaiting(descriptor_, mode == Mode::alone ? LOCK_EX : LOCK_SH) != 0) {
    const std::int64_t holder = holderOf(directory());
    close(descriptor_);
    throw DirectoryInUse(holder);
  }
}

DirectoryLock::~DirectoryLock() { close(descriptor_); }

bool makeDirectory(const std::string& path) {
  return mkdir(path.c_str(), 0777) == 0 || errno == EEXIST;
}

}  // namespace velmora
