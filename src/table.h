// The records of the catalogue: columns, links and tables. A table keeps its rows, its key map and
// its column mirrors in step with each other; what a change means for links, transactions and files
// is left to the engine.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "cell.h"
#include "column_mirror.h"
#include "dirty_rows.h"
#include "key_map.h"
#include "number.h"
#include "rows.h"

namespace velmora {

inline constexpr std::int32_t defaultStringSize = 60;

struct Column {
  std::string name;
  std::string type;
  std::int32_t maxStates = 0;  // the most states of a timed value; 0 refuses timed values
  std::int32_t stringSize = defaultStringSize;  // bytes of a "string" cell in the table file

  bool operator==(const Column& other) const { return name == other.name; }
};

// What a child table remembers of one of its links.
struct LinkRecord {
  std::string column;
  std::string parentTable;
  std::string parentColumn;
  bool operator==(const LinkRecord&) const = default;
};

// Lets string-keyed hash maps be asked with a view.
struct TextHash {
  using is_transparent = void;
  std::size_t operator()(std::string_view text) const noexcept {
    return std::hash<std::string_view>()(text);
  }
};

inline constexpr std::size_t noColumn = static_cast<std::size_t>(-1);

// What becomes of a key that two rows show when a key map is built.
enum class KeyRule : std::uint8_t {
  noDuplicates,
  // A live row wins over a deleted one: rows that come from a file may have reused a key rightly.
  liveFirst,
  // The same, and timed keys come last: one that shows another row's key at this second, or no
  // number, has no entry, and its row is found by scans only. What the clock makes of an identity
  // must not end a start.
  liveFirstTimedLast,
};

struct Table {
  std::string tableName;
  std::vector<Column> columns;
  // How many columns, from the first, have a type that values are checked against: all of them,
  // but for a table whose creation failed half-way.
  std::size_t typedColumns = 0;
  Rows rows;
  std::vector<std::uint8_t> deletedRows;  // 1 or 0 a row
  std::string primaryKeyColumn;           // empty when the table has none
  std::int32_t primaryKeyIndex = -1;
  PrimaryKeyMap primaryKeyMap;
  std::vector<LinkRecord> links;  // the links of which this table is the child, in order

  Table(std::string name, std::vector<Column> columns_);

  // The position of the first column called so, or noColumn. The hint is where to look first.
  std::size_t columnPosition(std::string_view name, std::size_t hint = 0) const {
    // The one behind it as well: commands that name columns in their order leave some out, an
    // identity column for example. A name given twice means its first column.
    const bool areNamesUnique = positions_.size() == columns.size();
    for (std::size_t i = hint; i < columns.size() && i < hint + 2 && areNamesUnique; ++i) {
      if (columns[i].name == name) return i;
    }
    return searchColumn(name);
  }
  // The column's kind of values.
  ValueKind kind(std::size_t position) const { return kinds_[position]; }

  bool hasPrimaryKey() const noexcept { return primaryKeyIndex >= 0; }
  // The live row whose key shows this very text at the second `now`, or PrimaryKeyMap::noRow; the
  // table has a primary key. Throws as PrimaryKeyMap::find does.
  std::int32_t findLive(std::string_view key, std::int64_t now) const;
  bool isLive(std::size_t row) const { return deletedRows[row] == 0; }
  void setDeleted(std::size_t row, bool isDeleted) {
    deletedRows[row] = isDeleted ? 1 : 0;
    dirtyRows_.mark(row);
  }

  // Appends a row whose cells have no values. It does not touch the key map.
  Row& appendRow();
  // Removes the last row.
  void removeLastRow() noexcept;

  // A column's values as plain numbers, for a scan; stays as it is until the table changes. May be
  // asked for beside other readers.
  const ColumnMirror& mirror(std::size_t column) const { return mirrors_->of(column, rows); }
  // To be called behind every change of a cell of a row that was there before the change.
  void cellChanged(std::size_t row, std::size_t column) {
    dirtyRows_.mark(row);
    mirrors_->refresh(rows, row, column);
  }
  void rowChanged(std::size_t row) {
    dirtyRows_.mark(row);
    mirrors_->refreshRow(rows, row);
  }

  // What a checkpoint has to write: whether there is anything, and which rows. A new table is all
  // dirty, which says that nothing is known of its files.
  bool isDirty() const noexcept { return dirtyRows_.isAny(rows.size()); }
  bool isAllDirty() const noexcept { return dirtyRows_.isAll(); }
  template <typename Use>
  void forEachDirtyRun(Use use) const {
    dirtyRows_.forEachRun(rows.size(), use);
  }
  // How many rows the table's files hold, unless it is all dirty.
  std::size_t storedRowCount() const noexcept { return dirtyRows_.storedCount(); }
  void markAllDirty() noexcept { dirtyRows_.markAll(); }
  // The files hold the table as it is, or will when an interrupted checkpoint has been completed.
  void markClean() noexcept { dirtyRows_.markNone(rows.size()); }

  // Makes the column the primary key and builds the key map from all rows, deleted ones included.
  // Throws std::runtime_error "Primary key not found", or "Cannot create Primary Key: Duplicate
  // value 'KEY' already exists in column"; std::invalid_argument or std::out_of_range ("stoi") for
  // an integer key that does not convert. After a failure the column is the key and the map holds
  // the rows before the failing one.
  void setUpPrimaryKeyMap(const std::string& columnName, std::int64_t now,
                          KeyRule rule = KeyRule::noDuplicates);

 private:
  std::size_t searchColumn(std::string_view name) const;
  void fileKey(std::size_t row, KeyRule rule);
  void fileTimedKeys();

  std::vector<ValueKind> kinds_;
  DirtyRows dirtyRows_;
  std::unique_ptr<ColumnMirrors> mirrors_;
  std::unordered_map<std::string, std::size_t, TextHash, std::equal_to<>> positions_;
};

// Fills in where the text of a failed conversion stands, unless that is known already: in the
// column of a row, or, without a row, in the command, for this column.
void tellPlace(FailedConversion& failure, const Table& table, std::size_t column,
               std::optional<std::size_t> row);

// What convert() gives; a conversion that fails in it tells this place.
template <typename Convert>
auto atPlace(const Table& table, std::size_t column, std::optional<std::size_t> row,
             Convert convert) -> decltype(convert()) {
  try {
    return convert();
  } catch (FailedConversion& failure) {
    tellPlace(failure, table, column, row);
    throw;
  }
}

}  // namespace velmora
