// The files that are no more than beginnings or ends of others: what a start finds of them, and
// what goes with a dropped table.
#include <algorithm>
#include <string>
#include <vector>

#include "storage.h"

namespace velmora {
namespace {

bool isOurs(std::string_view fileName) {
  return fileName == logFileName || fileName == manifestFileName ||
         fileName.ends_with(tableExtension) || fileName.ends_with(exactExtension) ||
         fileName.ends_with(deletionExtension) || fileName.ends_with(wholeRowExtension) ||
         fileName.ends_with(timedExtension) || fileName.ends_with(relationExtension);
}

// The files of these names in the directory that are no more than the beginnings of others.
std::vector<DirectoryEntry> leftOvers(const Directory& directory) {
  std::vector<DirectoryEntry> found;
  for (const std::string_view suffix : {checkpointSuffix, unfinishedSuffix, spareSuffix}) {
    for (DirectoryEntry& entry : listFiles(directory, suffix)) {
      const std::size_t size = entry.name.size() - suffix.size();
      if (isOurs(std::string_view(entry.name).substr(0, size))) found.push_back(std::move(entry));
    }
  }
  return found;
}

}  // namespace

void Storage::checkLeftOvers(const Directory& directory) {
  for (const DirectoryEntry& entry : leftOvers(directory)) {
    if (!entry.isRegular) throw NotRegularFile(entry.name);
  }
}

void Storage::sweepLeftOvers(const std::vector<std::string>& kept, const Directory& directory) {
  for (const DirectoryEntry& entry : leftOvers(directory)) {
    const bool isKept = std::find(kept.begin(), kept.end(), entry.name) != kept.end();
    const std::string owner = entry.name.substr(0, entry.name.rfind('.'));
    const bool isSpare = entry.name.ends_with(spareSuffix) && identityOf(directory, owner.c_str());
    if (!isKept && !isSpare) removeFile(directory, entry.name);
  }
}

std::vector<std::string> Storage::filesOfTable(const std::string& tableName) {
  if (!isStorableName(tableName)) return {};
  std::vector<std::string> names;
  for (const std::string_view extension :
       {tableExtension, deletionExtension, timedExtension, wholeRowExtension}) {
    const std::string name = fileNameOf(tableName, extension);
    // A table left behind under such a name has no file of its own there.
    if (name == listenersFileName || name == webhooksFileName) continue;
    names.push_back(name);
    names.push_back(checkpointName(name));
    names.push_back(unfinishedName(name));
    names.push_back(spareName(name));
  }
  return names;
}

void Storage::removeTable(const std::vector<std::string>& files, const Directory& directory) {
  const auto isTableFile = [](const std::string& name) {
    for (const std::string_view suffix : {std::string_view(), checkpointSuffix, unfinishedSuffix}) {
      if (name.ends_with(std::string(tableExtension).append(suffix))) return true;
    }
    return false;
  };
  for (const std::string& name : files) {
    if (isTableFile(name)) removeFile(directory, name);
  }
  syncDirectory(directory);
  for (const std::string& name : files) {
    if (!isTableFile(name)) removeFile(directory, name);
  }
}

}  // namespace velmora
