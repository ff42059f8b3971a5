// The records of the catalogue: columns, links and tables. A table is the only place where rows
// change: it keeps their values and its key map in step with each other. What a change means for
// links, transactions and files is left to the engine.
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
#include "column.h"
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

// Whether the engine gives the column its numbers.
inline bool isNumbered(const Column& column) noexcept {
  return std::string_view(column.type) == "ApexInt";
}

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

class Table {
 public:
  std::string tableName;
  std::vector<Column> columns;
  // How many columns, from the first, have a type that values are checked against: all of them,
  // but for a table whose creation failed half-way.
  std::size_t typedColumns = 0;
  std::string primaryKeyColumn;  // empty when the table has none
  std::int32_t primaryKeyIndex = -1;
  std::vector<LinkRecord> links;  // the links of which this table is the child, in order

  Table(std::string name, std::vector<Column> columns_);
  Table(Table&&) = default;
  Table& operator=(Table&&) = default;
  ~Table() { values_.clear(); }

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
  // The column's kind of values, and the values.
  ValueKind kind(std::size_t column) const { return values_[column]->kind(); }
  const ColumnValues& values(std::size_t column) const { return *values_[column]; }

  std::size_t rowCount() const noexcept { return rows_->size(); }
  bool isLive(std::size_t row) const noexcept { return rows_->isLive(row); }
  // The chunks of rows, for who takes many rows at a time.
  const Rows& rows() const noexcept { return *rows_; }
  // The text that a cell shows at the second `now`; see ColumnValues::text.
  std::string_view text(std::size_t row, std::size_t column, std::int64_t now,
                        TextRoom& room) const {
    return values_[column]->text(row, now, room);
  }
  // What rows, timed values and keys take, about; not what rows know of their children.
  std::size_t memoryBytes() const;
  // The first second behind `now` at which a live row shows another value; the largest number if
  // none does.
  std::int64_t nextChange(std::int64_t now) const;
  // Has the row brought into the cache, if it is a usual one, or else its first cells.
  [[gnu::always_inline]] void prefetch(std::size_t row) const noexcept {
    constexpr std::size_t mostCells = 16;
    const std::size_t cells = values_.size() < mostCells ? values_.size() : mostCells;
    __builtin_prefetch(rows_->deleted(Rows::chunkOf(row)) + Rows::placeOf(row));
    for (std::size_t i = 0; i < cells; ++i) values_[i]->prefetch(row);
  }

  // Appends a live row without values, but for zeros where integers belong; returns its index. The
  // key map is left to fileRow.
  std::size_t appendRow() {
    appendRows(1);
    return rowCount() - 1;
  }
  // Takes the last row off again, which must not be filed any more.
  void removeLastRow() noexcept;
  // Gives a cell that is no key another value. A failure changes nothing.
  void set(std::size_t row, std::size_t column, const Cell& cell, std::int64_t now) {
    values_[column]->set(row, cell, now);
    dirtyRows_.mark(row);
  }
  // The same for a value that is not timed in many rows, of which a failure may leave some changed.
  void setRows(std::span<const std::int32_t> rows, std::size_t column, const Cell& cell) {
    dirtyRows_.mark(rows);
    values_[column]->setTexts(rows, cell.value);
  }
  // The same for a cell that was taken from here, whose key text stays as it was; the row must not
  // be filed meanwhile.
  void restore(std::size_t row, std::size_t column, const Cell& cell, std::int64_t now) {
    values_[column]->restore(row, cell, now);
    dirtyRows_.mark(row);
  }
  void setNumber(std::size_t row, std::size_t column, std::int32_t number) noexcept {
    values_[column]->setNumber(row, number);
    dirtyRows_.mark(row);
  }
  // The same for a value of the strict language.
  void setValue(std::size_t row, std::size_t column, const TypedValue& value) {
    values_[column]->setValue(row, value);
    dirtyRows_.mark(row);
  }
  void setValue(std::size_t row, std::size_t column, const Value& value) {
    setValue(row, column, typedValue(value));
  }
  void setDeleted(std::size_t row, bool isDeleted) noexcept {
    rows_->setDeleted(row, isDeleted);
    for (const auto& column : values_) column->noteLife(row);
    dirtyRows_.markLife(row);
  }
  // The same for a loader, which puts the values into the columns' arrays itself: at most so many
  // rows, and none beyond the end of their chunk. Returns how many.
  std::size_t appendRows(std::size_t count);
  // The same for any number of rows, which makeRows has to make before anything else is done with
  // the table, piece by piece; several threads may, each for chunks of its own.
  void extend(std::size_t count) { rows_->extend(count); }
  void makeRows(std::size_t first, std::size_t count) noexcept;

  // What the row knows of its children; null while nothing has been linked to it.
  Dependents* dependents(std::size_t row) const noexcept { return rows_->dependents(row); }
  std::unique_ptr<Dependents>& dependentsPlace(std::size_t row) {
    return rows_->dependentsPlace(row);
  }

  bool hasPrimaryKey() const noexcept { return primaryKeyIndex >= 0; }
  const PrimaryKeyMap& keys() const noexcept { return primaryKeyMap_; }
  // The key text under which a row is filed; the table has a primary key.
  std::string_view keyText(std::size_t row, TextRoom& room) const {
    return values_[static_cast<std::size_t>(primaryKeyIndex)]->keyText(row, room);
  }
  // The row that a row's key names, or PrimaryKeyMap::noRow.
  std::int32_t keyHolder(std::size_t row) const;
  // Has the key of a row name it, or no longer name it. Throws as PrimaryKeyMap does.
  void fileRow(std::size_t row);
  void unfileRow(std::size_t row);
  // Gives a row another key, under which it is filed from then on. A failure changes nothing.
  void setKey(std::size_t row, const Cell& cell, std::int64_t now);
  // The number of an integer key that is neither timed nor spelled unusually, else null.
  const std::int32_t* plainKey(std::size_t row) const noexcept {
    const ColumnValues& keys = *values_[static_cast<std::size_t>(primaryKeyIndex)];
    return keys.kind() == ValueKind::integer ? keys.plainNumber(row) : nullptr;
  }
  // The live row whose key shows this very text at the second `now`, or PrimaryKeyMap::noRow; the
  // table has a primary key. Throws as PrimaryKeyMap::find does.
  std::int32_t findLive(std::string_view key, std::int64_t now) const;
  // What an identity column numbers a row that comes behind the others: one more than the last
  // one's number, deleted or not. Numbers that damage has given to other rows are passed over.
  std::int64_t nextNumber(std::size_t column, std::size_t row, std::int64_t now) const;
  // While a table is loaded: see Rows::setHugePages.
  void setHugePages(bool isWanted) noexcept { rows_->setHugePages(isWanted); }

  // What a checkpoint has to write: whether there is anything, and which rows. A new table is all
  // dirty, which says that nothing is known of its files.
  bool isDirty() const noexcept { return dirtyRows_.isAny(rowCount()); }
  bool isAllDirty() const noexcept { return dirtyRows_.isAll(); }
  template <typename Use>
  void forEachDirtyRun(Use use) const {
    dirtyRows_.forEachRun(rowCount(), use);
  }
  // Whether other rows may be deleted than the files say.
  bool haveDeletionsChanged() const noexcept { return dirtyRows_.isAnyLife(rowCount()); }
  // Whether timed values of live rows may be others than the files hold.
  bool haveRulesChanged() const noexcept;
  // How many rows the table's files hold, unless it is all dirty.
  std::size_t storedRowCount() const noexcept { return dirtyRows_.storedCount(); }
  // Has the next checkpoint write the table whole: how tests compare that way with the other.
  void markAllDirty() noexcept { dirtyRows_.markAll(); }
  // The files hold the table as it is, or will when an interrupted checkpoint has been completed.
  void markClean() noexcept;

  // Makes the column the primary key and builds the key map from all rows, deleted ones included.
  // Throws std::runtime_error "Primary key not found", or "Cannot create Primary Key: Duplicate
  // value 'KEY' already exists in column"; std::invalid_argument or std::out_of_range ("stoi") for
  // an integer key that does not convert. After a failure the column is the key and the map holds
  // the rows before the failing one.
  void setUpPrimaryKeyMap(const std::string& columnName, std::int64_t now,
                          KeyRule rule = KeyRule::noDuplicates);
  // Leaves the table without a primary key.
  void dropPrimaryKey();

 private:
  std::size_t searchColumn(std::string_view name) const;
  void fileKey(std::size_t row, KeyRule rule);
  void fileTimedKeys();

  PrimaryKeyMap primaryKeyMap_;
  DirtyRows dirtyRows_;
  // The columns end before the rows that they refer to: a move replaces them in this order, and the
  // destructor sees to it.
  std::vector<std::unique_ptr<ColumnValues>> values_;
  std::unique_ptr<Rows> rows_;
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
