// See scratch_directory.h.
#include "scratch_directory.h"

#include <fcntl.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>

namespace velmora::fuzz {
namespace {

// The directory and the one that was current before, for the life of the process.
struct Place {
  std::string path;
  int descriptor = -1;
  int previous = -1;

  Place() {
    const bool hasMemoryFiles = access("/dev/shm", W_OK) == 0;
    path = hasMemoryFiles ? "/dev/shm/velmora-fuzz-XXXXXX" : "/tmp/velmora-fuzz-XXXXXX";
    if (mkdtemp(path.data()) == nullptr) std::abort();
    descriptor = open(path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    previous = open(".", O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  }
  ~Place() { std::filesystem::remove_all(path); }
};

Place& place() {
  static Place only;
  return only;
}

}  // namespace

ScratchDirectory::ScratchDirectory() {
  if (fchdir(place().descriptor) != 0) std::abort();
  clear();
}

ScratchDirectory::~ScratchDirectory() {
  if (fchdir(place().previous) != 0) std::abort();
}

void ScratchDirectory::clear() {
  for (const auto& entry : std::filesystem::directory_iterator(".")) {
    unlink(entry.path().c_str());
  }
}

void ScratchDirectory::write(const std::string& name, std::string_view bytes) {
  std::ofstream(name, std::ios::binary) << bytes;
}

void ScratchDirectory::write(const Files& files) {
  for (const auto& [name, bytes] : files) write(name, bytes);
}

Files ScratchDirectory::read() {
  Files files;
  for (const auto& entry : std::filesystem::directory_iterator(".")) {
    std::ifstream file(entry.path(), std::ios::binary);
    files[entry.path().filename()].assign(std::istreambuf_iterator<char>(file), {});
  }
  return files;
}

}  // namespace velmora::fuzz
