// Which of a directory's files are tables and links, where nothing names them but the files
// themselves.
#pragma once

#include <string>
#include <vector>

#include "storage.h"

namespace velmora {

// The table files, each with its table's name. Where two files would give one table, the one named
// plainly is it.
std::vector<std::string> tableFiles(const Directory& directory);

struct RelationFile {
  std::string name;
  Relation relation;
};
std::vector<RelationFile> relationFiles(const Directory& directory);

// Whether a file without a header was a table's: other files show it. An empty deletion file shows
// it only beside what may be the beginning of a header, since commands leave one behind for every
// name that they were given for a table.
bool wasTable(const std::string& fileName, const std::vector<RelationFile>& relations,
              const Directory& directory);

}  // namespace velmora
