// See file_watch.h.
#include "file_watch.h"

#include <unistd.h>

#ifdef __linux__
#include <linux/magic.h>
#include <sys/inotify.h>
#include <sys/ioctl.h>
#include <sys/vfs.h>
#endif

#include <string>

namespace velmora {

FileWatch::~FileWatch() {
  if (notes_ >= 0) close(notes_);
}

#ifdef __linux__
namespace {

// Whether a file lies on a disk or in memory of this system, where nobody else changes it.
bool isLocal(int file) {
  struct statfs system = {};
  if (fstatfs(file, &system) != 0) return false;
  return system.f_type == EXT4_SUPER_MAGIC || system.f_type == XFS_SUPER_MAGIC ||
         system.f_type == BTRFS_SUPER_MAGIC || system.f_type == TMPFS_MAGIC;
}

}  // namespace

bool FileWatch::isQuiet(int file) {
  if (notes_ == none) {
    if (++questions_ < questionsBefore) return false;
    notes_ = isLocal(file) ? inotify_init1(IN_NONBLOCK | IN_CLOEXEC) : impossible;
    // By its descriptor, since the name may lead to another file by now. A new name and a removal
    // change the file's number of names, which is an attribute.
    const std::string path = "/proc/self/fd/" + std::to_string(file);
    if (notes_ >= 0 && inotify_add_watch(notes_, path.c_str(), IN_ATTRIB | IN_MOVE_SELF) < 0) {
      close(notes_);
      notes_ = impossible;
    }
    return false;
  }
  int size = 0;
  if (notes_ < 0 || ioctl(notes_, FIONREAD, &size) != 0) return false;
  if (size == 0) return true;
  char taken[4096];
  while (read(notes_, taken, sizeof taken) > 0) continue;
  return false;
}
#else
bool FileWatch::isQuiet(int /*file*/) { return false; }
#endif

}  // namespace velmora
