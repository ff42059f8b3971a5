// <child>-<column>_<parent>-<key>.rel: one link.
//
//   OFFSET  SIZE      MEANING
//        0    15      linking (child) table name
//       15    15      referenced (parent) table name
//       30    15      linking column name
//       45    15      referenced key column name
//       60     4 * n  for each row of the linking table, in row order: the index of the row of the
//                     referenced table that its value names; -1 for a deleted row or no such row
//
// Only the names are read back: the link is made again from the tables' rows.
#include <cerrno>
#include <stdexcept>

#include "../record_io.h"
#include "block_io.h"
#include "storage.h"

namespace velmora {
namespace {

constexpr std::size_t namesSize = 4 * nameWidth;
constexpr std::size_t rowWidth = 4;

// The row that the key names, or -1.
std::int32_t rowOfKey(const Table& referenced, std::string_view key) {
  try {
    return referenced.keys().find(key);
  } catch (const std::logic_error&) {
    return -1;  // a text that is no number is no integer key
  }
}

}  // namespace

void Storage::writeRelation(const Table& linking, const Table& referenced,
                            const std::string& column, std::int64_t now,
                            const Directory& directory) {
  const Relation relation{linking.tableName, referenced.tableName, column,
                          referenced.primaryKeyColumn};
  writeRelationTo(unfinishedName(relationFileName(relation)), linking, referenced, column, now,
                  directory);
}

void Storage::writeRelationTo(const std::string& fileName, const Table& linking,
                              const Table& referenced, const std::string& column, std::int64_t now,
                              const Directory& directory) {
  const Relation relation{linking.tableName, referenced.tableName, column,
                          referenced.primaryKeyColumn};
  NewFile file(directory, fileName);
  RecordWriter names;
  names.text(relation.childTable, nameWidth).text(relation.parentTable, nameWidth);
  names.text(relation.childColumn, nameWidth).text(relation.parentColumn, nameWidth);
  file.write(names.bytes());
  const std::size_t position = linking.columnPosition(column);
  for (std::size_t i = 0; position != noColumn && i < linking.rowCount(); ++i) {
    TextRoom room;
    const std::int32_t parent =
        linking.isLive(i) ? rowOfKey(referenced, linking.text(i, position, now, room)) : -1;
    file.written(putInt32(file.room(rowWidth), parent));
  }
  file.finish();
}

std::string Storage::relationFileName(const Relation& relation) {
  std::string name = relation.childTable + "-" + relation.childColumn + "_" + relation.parentTable +
                     "-" + relation.parentColumn;
  // No table and no column has such a name; one that had would lead out of the directory.
  if (name.find('/') != std::string::npos) throw std::runtime_error("Forbidden relation name");
  return name.append(relationExtension);
}

std::vector<std::string> Storage::getRelFiles(const Directory& directory) {
  std::vector<std::string> names;
  for (DirectoryEntry& entry : listFiles(directory, relationExtension)) {
    if (!entry.isRegular) throw NotRegularFile(entry.name);
    names.push_back(std::move(entry.name));
  }
  return names;
}

std::optional<Relation> Storage::readRelation(const std::string& fileName,
                                              const Directory& directory) {
  File file(directory, fileName, File::Mode::read);
  if (!file.isOpen() && errno == ENOENT) return std::nullopt;
  char bytes[namesSize];
  const auto count = file.readAt(0, bytes, namesSize);
  if (!count) throwUnreadable(fileName);
  if (*count < namesSize) return std::nullopt;
  RecordReader record({bytes, namesSize});
  Relation relation;
  relation.childTable = record.text(nameWidth);
  relation.parentTable = record.text(nameWidth);
  relation.childColumn = record.text(nameWidth);
  relation.parentColumn = record.text(nameWidth);
  return relation;
}

}  // namespace velmora
