// See found_files.h.
#include "found_files.h"

#include <algorithm>
#include <set>
#include <utility>

namespace velmora {

std::vector<std::string> tableFiles(const Directory& directory) {
  std::vector<std::string> plain;
  std::vector<std::string> dotted;
  std::set<std::string> names;
  for (std::string& file : Storage::getBinFiles(directory)) {
    if (file == listenersFileName || file == webhooksFileName) continue;
    const std::string name = file.substr(0, file.find('.'));
    // A file that no checkpoint could write is left alone.
    if (!Storage::isStorableName(name)) continue;
    if (file == fileNameOf(name, tableExtension)) {
      names.insert(name);
      plain.push_back(std::move(file));
    } else {
      dotted.push_back(std::move(file));
    }
  }
  for (std::string& file : dotted) {
    if (names.insert(file.substr(0, file.find('.'))).second) plain.push_back(std::move(file));
  }
  return plain;
}

std::vector<RelationFile> relationFiles(const Directory& directory) {
  std::vector<RelationFile> files;
  for (std::string& name : Storage::getRelFiles(directory)) {
    auto relation = Storage::readRelation(name, directory);
    if (relation) files.push_back({std::move(name), std::move(*relation)});
  }
  return files;
}

bool wasTable(const std::string& fileName, const std::vector<RelationFile>& relations,
              const Directory& directory) {
  const std::string name = fileName.substr(0, fileName.find('.'));
  for (const std::string_view extension : {deletionExtension, wholeRowExtension, timedExtension}) {
    if (sizeOf(directory, fileNameOf(name, extension)) > 0) return true;
  }
  const bool hasMarks =
      identityOf(directory, fileNameOf(name, deletionExtension).c_str()).has_value();
  File file(directory, fileName, File::Mode::read);
  std::string beginning(name.size(), '\0');
  beginning.resize(file.readAt(0, beginning.data(), beginning.size()).value_or(0));
  if (hasMarks && name.starts_with(beginning)) return true;
  return std::any_of(relations.begin(), relations.end(), [&](const RelationFile& each) {
    return each.relation.childTable == name || each.relation.parentTable == name;
  });
}

}  // namespace velmora
