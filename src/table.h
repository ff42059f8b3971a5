// The records of the catalogue: columns, rows, links and tables.
//
// A table keeps its rows in fixed-size chunks that never move: a row's header and its cells lie
// side by side, so reading a row touches adjacent cache lines and appending one never copies the
// others. Rows are never taken out of the middle (a delete marks them), so a row's index is its
// name everywhere: in the key map, links, undo records, scheduled changes and files.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "cell.h"
#include "key_map.h"
#include "text.h"

namespace velmora {

inline constexpr std::int32_t defaultStringSize = 60;

struct Column {
  std::string name;
  std::string type;
  std::int32_t maxStates = 0;  // the most states of a timed value; 0 refuses timed values
  std::int32_t stringSize = defaultStringSize;  // bytes of a "string" cell in the table file

  bool operator==(const Column& other) const { return name == other.name; }
};

// The child side of a link, as a parent row remembers it.
struct ForeignRelation {
  Text childTable;
  Text childColumn;
  bool operator==(const ForeignRelation&) const = default;
};

// The child rows that were linked to a parent row through one relation, by ascending row index. A
// child that has moved to another key since stays listed; who asks compares its current key.
struct Dependents {
  ForeignRelation relation;
  std::vector<std::int32_t> childRows;
};
using RowLinks = std::vector<Dependents>;

// The header of a stored row; its cells follow it in memory. Made and destroyed by Rows alone.
struct Row {
  Text rowKey;                      // carried with the row, read by nobody
  std::unique_ptr<RowLinks> links;  // null while nothing has been linked to this row
  std::uint32_t cellCount = 0;
  bool isReferenced = false;  // set when a child row was linked; tells deletes to look at links
  bool isDeleted = false;

  std::span<Cell> cells() noexcept { return {reinterpret_cast<Cell*>(this + 1), cellCount}; }
  std::span<const Cell> cells() const noexcept {
    return {reinterpret_cast<const Cell*>(this + 1), cellCount};
  }

  Row() = default;
  Row(const Row&) = delete;
  Row& operator=(const Row&) = delete;
};

static_assert(sizeof(Row) == 32 && alignof(Row) >= alignof(Cell));

// A row's content on its own, deep-copied: what an undo record holds. The links of a row are not
// part of it: they only say which children to ask, and nothing that undoes a change may forget one.
struct RowCopy {
  Text rowKey;
  std::vector<Cell> cells;
};
RowCopy copyOf(const Row& row);

// The row sequence of one table.
class Rows {
 public:
  explicit Rows(std::size_t cellsPerRow = 0);
  ~Rows();
  Rows(Rows&& other) noexcept;
  Rows& operator=(Rows&& other) noexcept;

  std::size_t size() const noexcept { return size_; }
  bool empty() const noexcept { return size_ == 0; }
  Row& operator[](std::size_t index) noexcept { return *rowAt(index); }
  const Row& operator[](std::size_t index) const noexcept { return *rowAt(index); }
  // Throws std::out_of_range for an index outside the sequence.
  Row& at(std::size_t index);
  const Row& at(std::size_t index) const;
  Row& back() noexcept { return *rowAt(size_ - 1); }

  // Appends a row of default cells; references to other rows stay valid. Throws std::runtime_error
  // "Table is full" when row indices have run out.
  Row& emplaceBack();
  void popBack() noexcept;

 private:
  Row* rowAt(std::size_t index) const noexcept {
    return reinterpret_cast<Row*>(chunks_[index >> chunkShift_] +
                                  (index & ((std::size_t{1} << chunkShift_) - 1)) * rowBytes_);
  }
  void clear() noexcept;

  std::size_t cellsPerRow_;
  std::size_t rowBytes_;
  unsigned chunkShift_;  // log2 of the rows in a chunk
  std::size_t size_ = 0;
  std::vector<std::byte*> chunks_;
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

struct Table {
  std::string tableName;
  std::vector<Column> columns;
  // How many columns, from the first, have a type that values are checked against: all of them,
  // but for a table whose creation failed half-way.
  std::size_t typedColumns = 0;
  Rows rows;
  std::vector<bool> deletedRows;  // one bit a row; always the same as the rows' own marks
  std::string primaryKeyColumn;   // empty when the table has none
  std::int32_t primaryKeyIndex = -1;
  PrimaryKeyMap primaryKeyMap;
  std::vector<LinkRecord> links;  // the links of which this table is the child, in order

  Table() = default;
  Table(std::string name, std::vector<Column> columns_);

  // The position of the first column called so, or noColumn. The hint is where to look first.
  std::size_t columnPosition(std::string_view name, std::size_t hint = 0) const;
  // The column's heading, shared by its cells.
  ColumnHeading heading(std::size_t position) const { return headings_[position]; }
  // The column's kind of values.
  ValueKind kind(std::size_t position) const { return kinds_[position]; }

  bool hasPrimaryKey() const noexcept { return primaryKeyIndex >= 0; }
  bool isLive(std::size_t row) const { return !deletedRows[row]; }
  void setDeleted(std::size_t row, bool isDeleted);

  // Appends a row whose cells bear the columns' headings and no values. It does not touch the key
  // map.
  Row& appendRow();
  // Removes the last row.
  void removeLastRow() noexcept;

  // Makes the column the primary key and builds the key map from all rows, deleted ones included.
  // Throws std::runtime_error "Primary key not found", or "Cannot create Primary Key: Duplicate
  // value 'KEY' already exists in column"; std::invalid_argument or std::out_of_range ("stoi") for
  // an integer key that does not convert. After a failure the column is the key and the map holds
  // the rows before the failing one.
  // With preferLive a live row wins a key over a deleted one instead: the rows come from a file,
  // where reusing a deleted row's key was right.
  void setUpPrimaryKeyMap(const std::string& columnName, bool preferLive = false);

  // Prints header and rows to standard output, cells by their stored text.
  void display() const;

 private:
  std::vector<ColumnHeading> headings_;
  std::vector<ValueKind> kinds_;
  std::unordered_map<std::string, std::size_t, TextHash, std::equal_to<>> positions_;
};

}  // namespace velmora
