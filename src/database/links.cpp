// Foreign-key links.
//
// A link ties a child column to a parent column, the parent's primary key: every text that a child
// cell shows now or can show in a coming state must be the key of a live parent row when the child
// is written, and a parent row to which a live child refers can be neither deleted nor given
// another key. Each parent row remembers which child rows were linked to it; whether such a child
// still refers to it is asked of the child's cell when it matters, so children that moved on or
// were deleted need no clearing up.
#include <algorithm>
#include <cstddef>
#include <memory_resource>
#include <stdexcept>

#include "../storage/block_io.h"
#include "database.h"

namespace velmora {
namespace {

bool refersTo(const ColumnValues& column, std::size_t row, std::string_view keyText,
              std::int64_t now) {
  bool found = false;
  column.forEachComingText(row, now,
                           [&](std::string_view text) { found = found || text == keyText; });
  return found;
}

// Fails when a link may not be made between these columns.
void checkLinkable(const Column& child, const Column& parent) {
  const bool bothIntegers =
      valueKind(child.type) == ValueKind::integer && valueKind(parent.type) == ValueKind::integer;
  if (child.type != parent.type && !bothIntegers) {
    throw std::runtime_error("Type mismatch: Cannot link different data types");
  }
  if (child.type == "float" || child.type == "bool") {
    throw std::runtime_error(
        "Error: Floats and Booleans are volatile and cannot be used as Primary or Foreign Keys.");
  }
}

Relation relationOf(const std::string& childTable, const LinkRecord& link) {
  return {childTable, link.parentTable, link.column, link.parentColumn};
}

// Whether another link of the catalogue is kept in the file that this one would be kept in.
bool fileIsTaken(const Tables& tables, const Relation& relation) {
  const std::string fileName = Storage::relationFileName(relation);
  for (const auto& [name, table] : tables) {
    for (const LinkRecord& link : table.links) {
      const Relation other = relationOf(name, link);
      if (other != relation && Storage::relationFileName(other) == fileName) return true;
    }
  }
  return false;
}

// Where a child's key stands.
struct ChildCell {
  const Table& table;
  std::size_t column;
  std::size_t row;
};

// Calls use(row) for the index of every live row whose parent column shows the text of the child's
// key; false when there is none. dbMutex held.
template <typename Use>
bool forEachParent(const Database& database, const ChildCell& child, const Table& parent,
                   std::size_t parentColumn, std::string_view key, std::int64_t now, Use use) {
  if (parentColumn == noColumn) return false;
  if (static_cast<std::int32_t>(parentColumn) == parent.primaryKeyIndex) {
    const std::int32_t row =
        atPlace(child.table, child.column, child.row, [&] { return parent.findLive(key, now); });
    if (row != PrimaryKeyMap::noRow) use(row);
    return row != PrimaryKeyMap::noRow;
  }
  // A parent table made anew without this key: what a filter on the column would find.
  const std::vector<std::int32_t> rows = database.getRequestedRows(
      {{"", parent.columns[parentColumn].name, std::string(key), "=", 'o'}}, parent, now);
  for (const std::int32_t row : rows) use(row);
  return !rows.empty();
}

struct Pair {
  std::int32_t child;
  std::int32_t parent;
};

}  // namespace

void Database::link(const std::string& childTable, const std::string& childColumn,
                    const std::string& parentTable, const std::string& parentColumn,
                    std::int64_t now) {
  const std::unique_lock lock(dbMutex);
  const Relation relation{childTable, parentTable, childColumn, parentColumn};
  const auto childEntry = tables.find(childTable);
  const auto parentEntry = tables.find(parentTable);
  if (childEntry == tables.end() || parentEntry == tables.end()) {
    throw std::runtime_error("None existant table");
  }
  Table& child = childEntry->second;
  Table& parent = parentEntry->second;
  const std::size_t childPosition = child.columnPosition(childColumn);
  const std::size_t parentPosition = parent.columnPosition(parentColumn);
  if (childPosition == noColumn || parentPosition == noColumn) {
    throw std::runtime_error("Key does not exist");
  }
  checkLinkable(child.columns[childPosition], parent.columns[parentPosition]);
  const LinkRecord record{childColumn, parentTable, parentColumn};
  if (fileIsTaken(tables, relation)) {
    throw std::runtime_error("Relation file name is taken by another link");
  }
  if (!deferred_ && !isSealed) {
    checkLog();
    requireRegular(directory, Storage::relationFileName(relation));
  }
  if (parent.primaryKeyColumn != parentColumn) {
    if (parent.hasPrimaryKey()) throw std::runtime_error("Can't have two primary keys at once");
    makePrimaryKey(parent, parentColumn, now);
  }

  std::vector<Pair> pairs;
  for (std::size_t i = 0; i < child.rowCount(); ++i) {
    if (!child.isLive(i)) continue;
    const ChildCell childCell{child, childPosition, i};
    child.values(childPosition).forEachComingText(i, now, [&](std::string_view key) {
      if (isSealed && key == missingValue) return;
      const bool isThere =
          forEachParent(*this, childCell, parent, parentPosition, key, now, [&](std::int32_t row) {
            pairs.push_back({static_cast<std::int32_t>(i), row});
          });
      if (!isThere) {
        throw std::runtime_error("CRITICAL CORRUPTION: Missing active parent key: " +
                                 std::string(key));
      }
    });
  }
  const ForeignRelation dependents{Text(childTable), Text(childColumn)};
  for (const Pair& pair : pairs) {
    addDependent(parent.dependentsPlace(static_cast<std::size_t>(pair.parent)), dependents,
                 pair.child);
  }
  if (std::find(child.links.begin(), child.links.end(), record) == child.links.end()) {
    child.links.push_back(record);
  }
}

void Database::saveRelation(const std::string& childTable, const std::string& childColumn,
                            const std::string& parentTable, std::int64_t now) {
  const std::unique_lock lock(dbMutex);
  const Table& child = getTable(childTable);
  const Table& parent = getTable(parentTable);
  const std::string fileName =
      Storage::relationFileName({childTable, parentTable, childColumn, parent.primaryKeyColumn});
  try {
    Storage::writeRelation(child, parent, childColumn, now, directory);
    if (deferred_) {
      deferred_->relations.insert_or_assign(fileName, childTable);
    } else {
      // After a power failure, too, the file must not be there without its command.
      if (!log.sync()) throw WriteFailure("cannot sync the log");
      putInPlace(directory, fileName);
    }
  } catch (const WriteFailure&) {
    removeFile(directory, unfinishedName(fileName));
  }
}

void Database::makePrimaryKey(Table& parent, const std::string& column, std::int64_t now) {
  try {
    // What was loaded or is replayed may have reused a deleted row's key since the link was made.
    const bool mayRepeat = deferred_ || isSealed;
    parent.setUpPrimaryKeyMap(column, now, mayRepeat ? KeyRule::liveFirst : KeyRule::noDuplicates);
  } catch (...) {
    // A half-built map must not be taken for the rows' keys.
    parent.dropPrimaryKey();
    throw;
  }
}

void Database::linkRow(const Table& table, std::int32_t rowIndex, std::int64_t now) {
  if (table.links.empty()) return;
  struct Found {
    const LinkRecord* link;
    Table* parent;
    std::size_t row;
  };
  std::byte memory[8 * sizeof(Found)];  // enough for a usual row
  std::pmr::monotonic_buffer_resource resource(memory, sizeof memory);
  std::pmr::vector<Found> found(&resource);
  for (const LinkRecord& link : table.links) {
    const auto parentEntry = tables.find(link.parentTable);
    // A value that is null needs no parent.
    if (parentEntry == tables.end() || (parentEntry->second.rowCount() == 0 && !isSealed)) {
      throw std::runtime_error("Primary table is empty");
    }
    Table& parent = parentEntry->second;
    const std::size_t parentPosition = parent.columnPosition(link.parentColumn);
    const ChildCell child{table, table.columnPosition(link.column),
                          static_cast<std::size_t>(rowIndex)};
    table.values(child.column).forEachComingText(child.row, now, [&](std::string_view key) {
      if (isSealed && key == missingValue) return;
      const bool isThere =
          forEachParent(*this, child, parent, parentPosition, key, now, [&](std::int32_t index) {
            found.push_back({&link, &parent, static_cast<std::size_t>(index)});
          });
      if (!isThere) {
        throw MissingParent(link, key);
      }
    });
  }
  // Nothing is recorded before every link has been checked.
  for (const Found& each : found) {
    addDependent(each.parent->dependentsPlace(each.row),
                 {Text(table.tableName), Text(each.link->column)}, rowIndex);
  }
}

void Database::linkRows(const Table& table, std::int64_t now) {
  if (table.links.empty()) return;
  for (std::size_t row = 0; row < table.rowCount(); ++row) {
    if (table.isLive(row)) linkRow(table, static_cast<std::int32_t>(row), now);
  }
}

bool Database::isActivelyRestricted(const Table& parent, std::int32_t parentRow,
                                    std::string_view keyText, std::int64_t now) const {
  for (const Dependents* linked = parent.dependents(static_cast<std::size_t>(parentRow));
       linked != nullptr; linked = linked->next.get()) {
    const auto child = tables.find(linked->relation.childTable.view());
    if (child == tables.end()) continue;
    const Table& table = child->second;
    const std::size_t position = table.columnPosition(linked->relation.childColumn);
    if (position == noColumn) continue;
    for (std::size_t i = 0; i < linked->childRows.size(); ++i) {
      const auto row = static_cast<std::size_t>(linked->childRows[i]);
      if (row >= table.rowCount() || !table.isLive(row)) continue;
      if (refersTo(table.values(position), row, keyText, now)) return true;
    }
  }
  return false;
}

void Database::unlinkRow(const Table& table, std::int32_t rowIndex, std::int64_t now) {
  for (const LinkRecord& link : table.links) {
    const auto parentEntry = tables.find(link.parentTable);
    if (parentEntry == tables.end()) continue;
    Table& parent = parentEntry->second;
    const std::size_t parentPosition = parent.columnPosition(link.parentColumn);
    const ChildCell child{table, table.columnPosition(link.column),
                          static_cast<std::size_t>(rowIndex)};
    table.values(child.column).forEachComingText(child.row, now, [&](std::string_view key) {
      if (isSealed && key == missingValue) return;
      forEachParent(*this, child, parent, parentPosition, key, now, [&](std::int32_t index) {
        for (Dependents* linked = parent.dependents(static_cast<std::size_t>(index));
             linked != nullptr; linked = linked->next.get()) {
          if (linked->relation.childTable != table.tableName) continue;
          linked->childRows.remove(rowIndex);
        }
      });
    });
  }
}

void Database::forgetChildTable(const Table& table) {
  for (const LinkRecord& link : table.links) {
    const auto parentEntry = tables.find(link.parentTable);
    if (parentEntry == tables.end()) continue;
    Table& parent = parentEntry->second;
    for (std::size_t i = 0; i < parent.rowCount(); ++i) {
      if (parent.dependents(i) == nullptr) continue;
      std::unique_ptr<Dependents>* linked = &parent.dependentsPlace(i);
      while (*linked != nullptr) {
        if ((*linked)->relation.childTable == table.tableName) {
          *linked = std::move((*linked)->next);
        } else {
          linked = &(*linked)->next;
        }
      }
    }
  }
}

}  // namespace velmora
