// See sealed.h: the copy of a database. The manifest comes last, so that a copy that was broken off
// is none.
#include <algorithm>
#include <cerrno>

#include "block_io.h"
#include "checksum.h"
#include "manifest.h"
#include "sealed.h"
#include "system_failure.h"

namespace velmora {
namespace {

class Copier {
 public:
  Copier(const Directory& from, const Directory& to, const Progress& progress)
      : awaited_(Storage::awaitedFiles(from)),
        from_{from.descriptor, &awaited_},
        to_(to),
        progress_(progress) {}

  void copy(std::int64_t logSize) {
    const auto text = readFile(from_, manifestFileName);
    bool isWhole = text.has_value();
    const Manifest manifest =
        parseManifest(text.value_or(""), [&](std::int64_t) { isWhole = false; });
    if (!isWhole) throwCorrupt(manifestFileName);
    total_ = static_cast<std::uint64_t>(logSize);
    for (const auto& [name, seal] : manifest.files) total_ += static_cast<std::uint64_t>(seal.size);
    for (const auto& [name, seal] : manifest.files) {
      if (copyFile(name, seal.size) != seal) throwCorrupt(name);
    }
    if (copyFile(logFileName, logSize).size != logSize) throwCorrupt(logFileName);
    sync();
    writeBeside(to_, manifestFileName, *text);
    putInPlace(to_, manifestFileName);
    sync();
  }

 private:
  [[noreturn]] static void throwCorrupt(const std::string& name) {
    throw Failure(Code::corrupt, "The file is not what was written: " + name);
  }

  // Copies so many bytes of the file, or all; what it has copied.
  Seal copyFile(const std::string& name, std::int64_t size) {
    File source(from_, name, File::Mode::read);
    if (!source.isOpen() && errno != ENOENT) throwUnreadable(name);
    NewFile target(to_, name);
    BlockReader reader(source);
    Seal copied;
    while (source.isOpen() && copied.size < size) {
      constexpr std::int64_t blockSize = 256 * 1024;
      const auto wanted = static_cast<std::size_t>(std::min(blockSize, size - copied.size));
      const std::string_view bytes = reader.at(copied.size, wanted);
      if (bytes.empty()) break;
      target.write(bytes);
      copied.crc = crc32c(copied.crc, bytes);
      copied.size += static_cast<std::int64_t>(bytes.size());
      done_ += bytes.size();
      if (progress_ && !progress_(done_, total_)) throw Failure(Code::interrupted, "Interrupted");
    }
    target.finish();
    return copied;
  }

  void sync() const {
    if (!syncDirectory(to_)) throw WriteFailure("cannot sync the directory");
  }

  AwaitedFiles awaited_;
  Directory from_;
  Directory to_;
  const Progress& progress_;
  std::uint64_t done_ = 0;
  std::uint64_t total_ = 0;
};

}  // namespace

void copySealed(const Directory& from, std::int64_t logSize, const Directory& to,
                const Progress& progress) {
  asSystemFailure("", [&] { Copier(from, to, progress).copy(logSize); });
}

}  // namespace velmora
