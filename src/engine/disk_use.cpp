// See disk_use.h. Nothing keeps the files as they are meanwhile, so what does not fit together is
// read again.
#include "disk_use.h"

#include <algorithm>
#include <stdexcept>

#include "../failure.h"
#include "../storage/block_io.h"
#include "../storage/directory_lock.h"
#include "../storage/file_names.h"
#include "../storage/manifest.h"
#include "../storage/record_log.h"
#include "../storage/sealed.h"

namespace velmora {
namespace {

std::string_view tableOf(std::string_view file) {
  if (file == listenersFileName || file == webhooksFileName) return {};
  for (const std::string_view extension :
       {tableExtension, deletionExtension, wholeRowExtension, timedExtension, exactExtension}) {
    if (file.ends_with(extension)) return file.substr(0, file.size() - extension.size());
  }
  return {};
}

// Counts the log's records; whether they go on from the manifest.
bool readLog(const Directory& directory, std::int64_t recentSecond, DiskUse& use) {
  const AwaitedFiles awaited = Storage::awaitedFiles(directory);
  const Directory from{directory.descriptor, &awaited};
  const Manifest manifest =
      parseManifest(readFile(from, manifestFileName).value_or(""), [](std::int64_t) {});
  RecordLogReader reader(from, manifest.nextSequence);
  use.logRecords = use.recentRecords = 0;
  use.lastSecond = manifest.second;
  while (const auto commands = reader.next()) {
    ++use.logRecords;
    use.lastSecond = std::max(use.lastSecond, commands->back().second);
    if (commands->back().second >= recentSecond) ++use.recentRecords;
  }
  use.records = reader.nextSequence() - 1;
  return !reader.fault().has_value();
}

void readFiles(const Directory& directory, DiskUse& use, const ReportFile& report) {
  for (const DirectoryEntry& entry : listFiles(directory, "")) {
    if (!entry.isRegular) continue;
    const auto bytes = static_cast<std::uint64_t>(sizeOf(directory, entry.name));
    use.fileBytes += bytes;
    if (entry.name == logFileName) use.logBytes = bytes;
    report(entry.name, tableOf(entry.name), bytes);
  }
}

}  // namespace

DiskUse diskUseOf(const Directory& directory, std::int64_t recentSecond, const ReportFile& report) {
  const Contents contents = contentsOf(directory);
  if (contents == Contents::nothing) {
    throw Failure(Code::notFound, "There is no database in the directory");
  }
  DiskUse use;
  use.process = holderOf(directory);
  readFiles(directory, use, report);
  constexpr int mostTries = 5;
  for (int i = 0; contents == Contents::sealed && i < mostTries; ++i) {
    if (readLog(directory, recentSecond, use)) break;
  }
  return use;
}

}  // namespace velmora
