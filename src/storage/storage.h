// Storage: every file the engine keeps, as static functions; each opens, uses and closes its own
// files. Only the log stays open between two appends.
//
//   <table>.bin   the table file: header and fixed-width rows     table_file.cpp
//   <table>.del   the deletion file: one byte a row               table_file.cpp
//   <table>.row   whole rows of a table whose rows overlap        table_file.cpp
//   <table>.tmp   the timed values                                timed_file.cpp
//   *.rel         one file a link                                 relation_file.cpp
//   listeners.bin, webhooks.bin                                   listener_file.cpp,
//   webhook_file.cpp velmora.wal   the write-ahead log                             log_file.cpp
//   velmora.ckpt, *.checkpoint   while a checkpoint is under way  checkpoint_files.cpp
//
// No function takes a lock but those of the log; they run under the engine's locks. The loaders
// that call the engine are declared here and defined with the start-up, so that no file of this
// room knows the engine. Every function takes the directory last.
#pragma once

#include <cstdint>
#include <ios>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "../table.h"
#include "../webhook.h"
#include "files.h"

namespace velmora {

class Database;

using Tables = std::map<std::string, Table, std::less<>>;

// Serialises the appends to the log.
extern std::mutex walMutex;

inline constexpr const char* listenersFileName = "listeners.bin";
inline constexpr const char* webhooksFileName = "webhooks.bin";
inline constexpr const char* logFileName = "velmora.wal";

// A link as its file names it.
struct Relation {
  std::string childTable;
  std::string parentTable;
  std::string childColumn;
  std::string parentColumn;
  auto operator<=>(const Relation&) const = default;
};

// A listener as its file holds it.
struct ListenerRecord {
  std::string tableName;
  std::string event;
  std::string target;
  std::vector<Condition> conditions;
};

// The log taken apart. The views point into the text it was made from.
struct LogRecords {
  std::vector<std::string_view> commands;  // in order, clock markers included
  std::size_t completeSize = 0;            // bytes up to the end of the last complete record
  bool lacksLineFeed = false;              // the last complete record has no line feed yet
};

class Storage {
 public:
  // Bytes of a type's value in the table file.
  static const std::map<std::string, int, std::less<>> typeSizes;
  // Bytes of a column in the table file: its value, and a flag byte if it can hold timed values.
  static std::int64_t getColumnBinSize(const Column& column);
  static std::int64_t rowSize(const std::vector<Column>& columns);
  static std::int64_t headerSize(std::size_t columnCount);
  // Whether the files can be called after the table: 1 to 15 bytes, none of '/', '.', NUL and line
  // feed.
  static bool isStorableName(std::string_view tableName);

  // The header of a table file.
  static std::string tableFileHeader(const Table& table);
  // Creates the row file of a new table, with its header, and the deletion file. Throws
  // std::runtime_error "Failed to open file: NAME", or "Column size error" when the file holds
  // columns already.
  static void saveTable(const std::string& fileName, const Table& table,
                        const Directory& directory = {});
  // Writes the deletion file with one live mark for each row of the table.
  static void setUpDeletesFile(const Table& table, const Directory& directory = {});
  // Writes one row: dir end appends it, and its live mark; dir beginning overwrites the row at the
  // byte offset, whose timed values keep their slots. A file that cannot be opened is left out
  // silently. Throws std::invalid_argument or std::out_of_range ("stoi", "stof") for a value that
  // does not convert; nothing of the row is written then.
  static void insertRow(const Table& table, const Row& row, std::int64_t offset,
                        std::ios_base::seekdir dir, const Directory& directory = {});
  // Rewrites the rows with these indices in place.
  static void update(const Table& table, const std::vector<std::int32_t>& rows,
                     const Directory& directory = {});
  // Marks rows deleted in the deletion file, if there is one.
  static void deleteAt(const std::string& tableName, std::int32_t index,
                       const Directory& directory = {});
  static void deleteBatch(const std::string& tableName, const std::vector<std::int32_t>& indices,
                          const Directory& directory = {});
  // The text of a fixed-width field; empty past the end of the file. Throws std::runtime_error
  // "Failed to read file: NAME".
  static std::string read(File& file, std::int64_t offset, std::size_t length = 15);
  // The columns that a table file declares; none if it has no column section. Throws
  // std::runtime_error "Corrupt table file: NAME" for a section that cannot be read.
  static std::vector<Column> getColumns(File& file, const std::string& fileName);
  // Reads a table from its files; nothing if the file is no table file. Throws as getColumns does.
  static std::optional<Table> loadTable(const std::string& fileName,
                                        const Directory& directory = {});
  // The files with extension ".bin", sorted by name.
  static std::vector<std::string> getBinFiles(const Directory& directory = {});
  // The files that a table can have, those of a checkpoint under way included; none for a name that
  // no file can have.
  static std::vector<std::string> filesOfTable(const std::string& tableName);

  // Writes one timed value's record and returns its slot; slot -1 means a new one at the end. The
  // row and column numbers are labels. Failing writes go unreported.
  static std::int32_t writeTempRule(const std::string& tableName, std::int32_t row,
                                    std::int32_t column, const TempRule* rule,
                                    std::int32_t maxStates, std::int32_t slot,
                                    const Directory& directory = {});
  // The timed value in a slot, or null when its record cannot be read whole.
  static std::unique_ptr<TempRule> readTempRule(const std::string& tableName, std::int32_t slot,
                                                std::int32_t maxStates,
                                                const Directory& directory = {});

  // Writes (or rewrites) the relation file of the link from the column of the linking table to the
  // key of the referenced one.
  static void linkTables(const Table& linking, const Table& referenced, const std::string& column,
                         const Directory& directory = {});
  static std::string relationFileName(const Relation& relation);
  static std::vector<std::string> getRelFiles(const Directory& directory = {});
  // The relation a file names, or nothing when it is too short.
  static std::optional<Relation> readRelation(const std::string& fileName,
                                              const Directory& directory = {});
  // Makes every stored link again; one that no longer holds is skipped with a line on standard
  // output, and one whose LINK command stands in the log is left to that command.
  static void loadRelations(Database* db);

  // Appends a listener. Unreported when the file cannot be written.
  static void saveListener(const std::string& tableName, const std::string& event,
                           const std::string& target, const std::vector<Condition>& conditions,
                           const Directory& directory = {});
  // The stored listeners, or nothing when there is no file. A torn record at the end is cut off;
  // throws std::runtime_error "Failed to repair file: listeners.bin" when it cannot be.
  static std::optional<std::vector<ListenerRecord>> readListeners(const Directory& directory = {});
  static void loadListeners(Database* db);

  // Appends the tasks' records, unfired, and sets their file positions; -1 when the file cannot be
  // written. Throws std::runtime_error "webhooks.bin is full" before a position outgrows 32 bits.
  static void appendWebhooks(std::vector<WebhookTask>& tasks, const Directory& directory = {});
  // Appends one task's record and returns its position.
  static std::int32_t appendWebhook(const WebhookTask& task, const Directory& directory = {});
  // For a consumer of due tasks: sets the fired flag, or the fire time, of the record at a
  // position.
  static void markWebhookFired(std::int32_t position, const Directory& directory = {});
  static void updateCycleTime(std::int32_t position, std::int64_t fireTime,
                              const Directory& directory = {});
  // The unfired tasks with their positions, or nothing when there is no file. A torn record at the
  // end is cut off; throws std::runtime_error "Failed to repair file: webhooks.bin" when it cannot
  // be.
  static std::optional<std::vector<WebhookTask>> readWebhooks(const Directory& directory = {});
  static void loadWebhooks(Database* db);

  // Appends one command with its clock marker, to the file that the log's name leads to. When the
  // log cannot be written the line is lost, what had been written of it is taken back, and the
  // answer is false.
  static bool appendToWAL(const std::string& command, std::int64_t second,
                          const Directory& directory = {});
  // Closes the log that the last append left open; the next one opens it again.
  static void closeLog();
  // Takes the log's text apart.
  static LogRecords splitLog(std::string_view log);
  // Cuts a torn tail off the log, or gives its last record the line feed it lacks. Throws
  // std::runtime_error "Failed to repair file: velmora.wal".
  static void repairLog(const LogRecords& records, std::size_t logSize,
                        const Directory& directory = {});
  // Tells whether a checkpoint has a new log ready that still has to be put in the old one's place;
  // commands logged meanwhile belong there.
  static void expectNewLog(bool isExpected);
  // Runs every logged command again; their answers and failures are discarded.
  static void replayWAL(Database* db);
  // Empties the log.
  static void clearWAL(const Directory& directory = {});

  // Writes all tables to their files and empties the log, all or nothing: until it returns, and
  // after it has thrown, a start finds either everything as it was before or everything new.
  // Throws std::invalid_argument or std::out_of_range ("stoi", "stof") for a text that does not
  // convert, std::runtime_error "Checkpoint failed: " + reason for a file system failure.
  static void saveCheckpoint(const Tables& tables, const Directory& directory = {});
  // Completes a checkpoint that had reached its point of no return and was interrupted. Throws
  // std::runtime_error "Checkpoint failed: " + reason; it can be called again.
  static void finishCheckpoint(const Directory& directory = {});
  // Removes what an interrupted checkpoint left behind that had not come so far.
  static void sweepCheckpoint(const Directory& directory = {});
};

}  // namespace velmora
