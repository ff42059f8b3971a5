// See damaged_files.h.
#include "damaged_files.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>

#include "block_io.h"
#include "page_bytes.h"

namespace velmora {
namespace {

// Makes the first directory of that name which is not there yet.
std::string makeNewDirectory(const Directory& directory) {
  constexpr int mostTries = 10000;
  for (int i = 1; i <= mostTries; ++i) {
    std::string name = "damaged-" + std::to_string(i);
    if (mkdirat(directory.descriptor, name.c_str(), 0777) == 0) return name;
    if (errno != EEXIST) break;
  }
  throw WriteFailure("cannot make a directory for the damaged files");
}

void copyInto(const Directory& from, const std::string& name, const Directory& to) {
  File source(from, name, File::Mode::read);
  if (!source.isOpen()) throwUnreadable(name);
  File copy(to, name, File::Mode::create);
  PageBytes block(std::size_t{1} << 20);
  std::int64_t offset = 0;
  while (true) {
    const auto count = source.readAt(offset, block.data(), block.size());
    if (!count) throwUnreadable(name);
    if (*count == 0) break;
    if (!copy.write({block.data(), *count})) throw WriteFailure("cannot write " + name);
    offset += static_cast<std::int64_t>(*count);
  }
  if (!copy.sync()) throw WriteFailure("cannot sync " + name);
}

}  // namespace

std::string keepDamaged(const Directory& directory) {
  std::string name = makeNewDirectory(directory);
  const int descriptor =
      openat(directory.descriptor, name.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  if (descriptor < 0) throw WriteFailure("cannot open " + name);
  try {
    const Directory target{descriptor};
    for (const DirectoryEntry& entry : listFiles(directory, "")) {
      if (entry.isRegular) copyInto(directory, entry.name, target);
    }
    if (!syncDirectory(target) || !syncDirectory(directory)) {
      throw WriteFailure("cannot sync " + name);
    }
  } catch (...) {
    close(descriptor);
    throw;
  }
  close(descriptor);
  return name;
}

}  // namespace velmora
