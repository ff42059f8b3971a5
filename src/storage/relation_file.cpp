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
#include "../clock.h"
#include "../number.h"
#include "../record_io.h"
#include "storage.h"

namespace velmora {
namespace {

constexpr std::size_t namesSize = 4 * nameWidth;

// The row that the key names, or -1.
std::int32_t rowOfKey(const Table& referenced, std::string_view key) {
  try {
    return referenced.primaryKeyMap.find(key);
  } catch (const std::logic_error&) {
    return -1;  // a text that is no number is no integer key
  }
}

}  // namespace

void Storage::linkTables(const Table& linking, const Table& referenced, const std::string& column,
                         const Directory& directory) {
  const Relation relation{linking.tableName, referenced.tableName, column,
                          referenced.primaryKeyColumn};
  RecordWriter record;
  record.text(relation.childTable, nameWidth).text(relation.parentTable, nameWidth);
  record.text(relation.childColumn, nameWidth).text(relation.parentColumn, nameWidth);
  const std::size_t position = linking.columnPosition(column);
  const std::int64_t now = clock::now();
  for (std::size_t i = 0; position != noColumn && i < linking.rows.size(); ++i) {
    const Row& row = linking.rows[i];
    record.int32(row.isDeleted ? -1 : rowOfKey(referenced, row.cells()[position].valueAt(now)));
  }
  File file(directory, relationFileName(relation), File::Mode::create);
  if (file.isOpen() && file.writeAt(0, record.bytes())) {
    file.truncate(static_cast<std::int64_t>(record.bytes().size()));
  }
}

std::string Storage::relationFileName(const Relation& relation) {
  return relation.childTable + "-" + relation.childColumn + "_" + relation.parentTable + "-" +
         relation.parentColumn + ".rel";
}

std::vector<std::string> Storage::getRelFiles(const Directory& directory) {
  return listFiles(directory, ".rel");
}

std::optional<Relation> Storage::readRelation(const std::string& fileName,
                                              const Directory& directory) {
  const auto bytes = readFile(directory, fileName);
  if (!bytes || bytes->size() < namesSize) return std::nullopt;
  RecordReader record(*bytes);
  Relation relation;
  relation.childTable = record.text(nameWidth);
  relation.parentTable = record.text(nameWidth);
  relation.childColumn = record.text(nameWidth);
  relation.parentColumn = record.text(nameWidth);
  return relation;
}

}  // namespace velmora
