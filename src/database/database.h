// Database: the engine. It owns the tables, the open transaction, the listeners and the queue of
// scheduled changes, and the lock that guards them.
//
// Locks, in the order in which they may be taken: the engine mutex of the exported functions;
// dbMutex, by every public operation as its first step, reads included, since these put the states
// in force into the columns' arrays. A function that needs it held says "dbMutex held".
//
// `now` is the second of the command, read once at its beginning: what is matched, checked,
// answered, scheduled and logged is all of that second.
//
// Failures leave as std::runtime_error with the message that the user sees; conversions of texts
// let InvalidNumber and NumberOutOfRange out, which name the place (../number.h). What stays
// changed after a failure is said at each operation; where nothing is said, nothing stays.
#pragma once

#include <cstdint>
#include <iostream>
#include <map>
#include <mutex>
#include <optional>
#include <set>
#include <span>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "../condition.h"
#include "../result_set.h"
#include "../storage/storage.h"
#include "../table.h"
#include "../webhook.h"

namespace velmora {

// The value a command gives to a column.
struct GivenValue {
  std::size_t column = 0;  // the column's position in its table
  Cell cell;
};

// One undo record of the open transaction.
struct TransactionAction {
  std::string kind;  // "INSERT", "DELETE" or "UPDATE"
  std::string tableName;
  std::int32_t rowIndex = 0;
  // What an UPDATE found in the columns that it changes; else none, since the row stays where it
  // is. Its links are not kept: they only say which children to ask, and nothing that undoes a
  // change may forget one.
  std::vector<GivenValue> cells;
};

// A column as a command names it; the table is empty when the name is bare.
struct ColumnReference {
  std::string table;
  std::string column;
};

// A child's value has no parent.
struct MissingParent : std::runtime_error {
  MissingParent(const LinkRecord& link_, std::string_view key_)
      : std::runtime_error("Primary table is missing required future key: " + std::string(key_)),
        link(link_),
        key(key_) {}
  LinkRecord link;
  std::string key;
};

class Database {
 public:
  Tables tables;
  bool inTransaction = false;
  std::vector<TransactionAction> transactionLog;  // oldest first; empty outside a transaction
  // True while the log is replayed: timed values schedule nothing then, it has been scheduled.
  bool isReplaying = false;
  // True where nothing but a checkpoint changes the files, and whoever owns the database keeps a
  // log.
  bool isSealed = false;
  std::map<std::string, std::set<Listener>, std::less<>> listeners;  // by table name
  // Scheduled changes as a binary heap, the first to fire on top.
  std::vector<WebhookTask> pendingWebhooks;
  Directory directory;  // where the files lie
  Log log;
  AppendFile listenersFile;
  AppendFile webhooksFile;
  mutable std::mutex dbMutex;

  explicit Database(Directory directory_ = {})
      : directory(directory_),
        log(directory_),
        listenersFile(directory_, listenersFileName),
        webhooksFile(directory_, webhooksFileName) {}
  Database(const Database&) = delete;
  Database& operator=(const Database&) = delete;

  // Catalogue (catalogue.cpp).

  // The table; throws "Syntax Error: Table 'NAME' does not exist.". dbMutex held.
  Table& getTable(std::string_view name);
  // Whether every column's type is a type name.
  static bool checkTypes(const std::vector<Column>& columns);
  // Creates a table and its files, replacing a table of that name in memory. Throws "Unknown type";
  // and, with the table staying in the catalogue, "A table can only have one ApexInt column",
  // "Column size error", "Failed to open file: NAME" or "Failed to write file: NAME".
  void createTable(const std::string& name, const std::vector<Column>& columns);
  // Removes a table, its listeners and its files. Throws as getTable does.
  void dropTable(const std::string& name);

  // Rows (rows.cpp). A table that does not exist comes into being, empty and without columns.

  // Adds a row; at most one value for each column. Throws "Duplicate entry 'KEY' for primary key",
  // "ApexInt is exhausted", and what linkRow throws.
  ResultSet insertInto(const std::string& tableName, std::vector<GivenValue>& values,
                       std::int64_t now);
  // Gives the new values to every matching row, value by value. Throws "ApexInt is an immutable
  // identity column and cannot be updated", "Cannot update a primary key that is referenced by an
  // active foreign table", "Duplicate entry 'KEY' for primary key", and what linkRow throws.
  // Values given before a failure stay: all earlier values in all rows, and this one in the rows
  // before the failing row (in it too, when linkRow failed).
  ResultSet update(const std::string& tableName, std::vector<GivenValue>& newValues,
                   const std::vector<Condition>& conditions, std::int64_t now);
  // Marks every matching row deleted. Refused with "Foreign key points at rows that were meant for
  // deletion": an answer and no exception, since a refusal is what hosts with links ask for often,
  // and unwinding would be most of its cost. Rows marked before the refused one stay deleted.
  ResultSet deleteRows(const std::string& tableName, const std::vector<Condition>& conditions,
                       std::int64_t now);

  // Reading (matching.cpp, select.cpp, join.cpp).

  // The indices of the live rows that satisfy the conditions, ascending, each once. dbMutex held.
  std::vector<std::int32_t> getRequestedRows(const std::vector<Condition>& conditions,
                                             const Table& table, std::int64_t now) const;
  // The live row that a filter which only asks for one key is about, or noRow; nothing for any
  // other filter.
  static std::optional<std::int32_t> findRequestedKey(const std::vector<Condition>& conditions,
                                                      const Table& table, std::int64_t now);
  // Has the row of a key brought into the cache, if that is a matter of moments: for a caller that
  // will ask for the row when it has read the rest of a command. Changes nothing.
  void prefetchRow(std::string_view tableName, std::string_view column, std::string_view key) const;
  // Reads columns of the matching rows. A table that does not exist comes into being, empty.
  // Throws "Requested column not found".
  ResultSet select(const std::string& tableName, const std::vector<std::string>& columns,
                   const std::vector<Condition>& conditions, std::int64_t now,
                   TextBuffer&& spare = {});
  // Reads columns of the pairs of rows whose join columns hold the same text. Tables that do not
  // exist come into being, empty. Throws "Unknown table prefix 'P' in WHERE clause." (or "in SELECT
  // list.", "in JOIN ON clause."), "Column 'C' not found in either table.", "JOIN ON needs a
  // column of each table"; all before a row is read.
  ResultSet selectJoin(const std::string& leftTable, const std::string& rightTable,
                       const ColumnReference& firstOn, const ColumnReference& secondOn,
                       const std::vector<ColumnReference>& columns,
                       const std::vector<Condition>& conditions, std::int64_t now,
                       TextBuffer&& spare = {});

  // Links (links.cpp).

  // Links a child column to a parent column, which becomes the parent's primary key if it has none.
  // Throws "None existant table", "Key does not exist", "Type mismatch: Cannot link different data
  // types", "Error: Floats and Booleans are volatile and cannot be used as Primary or Foreign
  // Keys.", "Relation file name is taken by another link", "Can't have two primary keys at once",
  // what Table::setUpPrimaryKeyMap throws, and "CRITICAL CORRUPTION: Missing active parent key: K"
  // (a primary key made stays).
  // Its relation file is left to saveRelation.
  void link(const std::string& childTable, const std::string& childColumn,
            const std::string& parentTable, const std::string& parentColumn, std::int64_t now);
  // Writes the relation file of a link that was just made. What could not be written goes
  // unreported; the next checkpoint writes it.
  void saveRelation(const std::string& childTable, const std::string& childColumn,
                    const std::string& parentTable, std::int64_t now);
  // Checks all links of one child row, then records the row with its parents. Throws "Primary table
  // is empty" or "Primary table is missing required future key: K"; nothing is recorded then.
  // dbMutex held.
  void linkRow(const Table& table, std::int32_t rowIndex, std::int64_t now);
  // The same for all rows of a table. dbMutex held.
  void linkRows(const Table& table, std::int64_t now);
  // Whether a live child row refers to the key of this parent row, now or in a coming state.
  // dbMutex held.
  bool isActivelyRestricted(const Table& parent, std::int32_t parentRow, std::string_view keyText,
                            std::int64_t now) const;

  // Takes a child row out of its parents' dependents. dbMutex held.
  void unlinkRow(const Table& table, std::int32_t rowIndex, std::int64_t now);
  // Makes all parents forget a table's rows. dbMutex held.
  void forgetChildTable(const Table& table);

  // Transactions (transactions.cpp): one at a time for the whole engine.

  // Throws "Transaction is already active!".
  void beginTransaction();
  // Throws "No active transaction to commit!".
  void commitTransaction();
  // Undoes the transaction's changes in memory. Throws "No active transaction to rollback!".
  void rollbackTransaction(std::int64_t now);

  // Listeners and scheduled changes (webhooks.cpp).

  // Schedules the coming changes of a timed value. Throws "webhooks.bin is full". dbMutex held.
  void registerWebhook(const std::string& tableName, std::int32_t rowIndex, std::string_view column,
                       const TempRule& rule);
  // Adds a listener unless an equal one is there, or one that the file holds in its place; saves it
  // unless it came from the file.
  void addListener(const Listener& listener, bool fromDisk);

  // Durability (checkpoint.cpp, and ../startup.cpp for the load).

  // Writes all tables to their files and empties the log; see Storage::saveCheckpoint.
  void checkpoint(std::int64_t now);
  // Loads everything from the files and replays the log, with lines on what it does and what it has
  // to leave out. Called once, before any other operation.
  // Throws std::runtime_error ("Corrupt table file: NAME" and others); the database is then loaded
  // in part and must not be written. As long as not everything could be read, the files stay as
  // they were.
  void loadFromDisk(std::ostream& report = std::cout);

 private:
  // The creating access: the table, made empty and without columns if need be. dbMutex held.
  Table& tableOrNew(const std::string& name);
  // Gives one value to one row. dbMutex held.
  void applyValue(Table& table, std::int32_t rowIndex, const GivenValue& given, std::int64_t now);
  // Gives a row another key, and moves it in the key map. dbMutex held.
  void moveKey(Table& table, std::int32_t rowIndex, const Cell& cell, std::int64_t now);
  void undo(const TransactionAction& action, std::int64_t now);
  // Drops the undo records of a table that is going away. dbMutex held.
  void forgetUndo(std::string_view tableName);
  // Makes a column the primary key of a table that has none. dbMutex held.
  void makePrimaryKey(Table& parent, const std::string& column, std::int64_t now);

  // Looks at the log that the command will be appended to, before anything changes. Throws
  // NotRegularFile.
  void checkLog() {
    if (!isReplaying && !isSealed) log.check();
  }
  // Looks at the file that a command with timed values will append to, before anything changes.
  // Throws NotRegularFile.
  void checkSchedule(const std::vector<GivenValue>& values);
  void load(std::int64_t now, std::ostream& report);
  // Of a table that the log has created: whether its files are yet to be made; makes sure that they
  // can be; and makes them.
  bool lacksFiles(const std::string& name) const;
  void checkMissingFiles(const std::string& name) const;
  void saveTableIfMissing(const std::string& name);

  // What a start is to change on disk once everything has been read.
  struct DeferredChanges {
    // The relation files that were written beside their places, each with its linking table.
    std::map<std::string, std::string> relations;
    std::set<std::string> tables;  // created by the log
    std::vector<std::string> removals;
  };
  std::optional<DeferredChanges> deferred_;  // there as long as a start reads
  // Of a large join's second half, for the next one: what the system does where memory is touched
  // for the first time takes longer than printing the half.
  TextBuffer secondHalf_;
};

}  // namespace velmora
