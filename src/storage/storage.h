// Storage: every file the engine keeps, as static functions; each opens, uses and closes its own
// files.
//
//   <table>.bin   the table file: header and fixed-width rows     table_file.cpp
//   <table>.del   the deletion file: one byte a row               table_file.cpp
//   <table>.row   whole rows of a table whose rows overlap        table_file.cpp
//   <table>.tmp   the timed values                                timed_file.cpp
//   *.rel         one file a link                                 relation_file.cpp
//   listeners.bin, webhooks.bin                                   listener_file.cpp,
//                                                                 webhook_file.cpp
//   velmora.wal   the write-ahead log                             log.cpp
//   velmora.ckpt  a checkpoint's journal                          checkpoint_journal.cpp
//   *.checkpoint  while a checkpoint is under way                 checkpoint.cpp
//   velmora.manifest, <table>.exact, of a database for handles  manifest.cpp, exact_values.cpp
//   *.spare       what a checkpoint's new files replaced          checkpoint_files.cpp
//   *.unfinished  what is being made, until it is whole           block_io.cpp
//
// The loaders that call the engine are defined with the start-up, so that no file of this room
// knows the engine. What is opened under a name that bears anything but a regular file throws
// NotRegularFile. Every function takes the directory last.
#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "../table.h"
#include "../webhook.h"
#include "append_file.h"
#include "file_names.h"
#include "files.h"
#include "log.h"

namespace velmora {

using Tables = std::map<std::string, Table, std::less<>>;

// A link as its file names it.
struct Relation {
  std::string childTable;
  std::string parentTable;
  std::string childColumn;
  std::string parentColumn;
  auto operator<=>(const Relation&) const = default;
};

// What floats that come from a table file are: what their texts of six decimals read as, or the
// very ones that it has.
enum class FloatTexts : std::uint8_t { sixDecimals, shortest };

// How far a file of records could be read.
struct StoredRecords {
  std::int64_t completeSize = 0;  // bytes up to the end of the last record that is one
  std::int64_t fileSize = 0;
  bool hasTornTail() const noexcept { return completeSize < fileSize; }
};

struct GrowingSeal;  // block_io.h

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
  // Whether a table file can hold a column called so: 1 to 15 bytes, neither '/' nor NUL, and no
  // type name.
  static bool isStorableColumn(std::string_view columnName);

  // The header of a table file.
  static std::string tableFileHeader(const Table& table);
  // Whether the table's file declares columns. Throws std::runtime_error "Failed to open file:
  // NAME".
  static bool hasTable(const std::string& tableName, const Directory& directory = {});
  // Creates the files of a new table without rows; the header is durable before it bears its name.
  // Throws std::runtime_error "Failed to open file: NAME" or "Failed to write file: NAME", or
  // "Column size error" when there is a table file already; nothing of the table is there then.
  static void saveTable(const Table& table, const Directory& directory = {});
  // The columns that a table file declares; none if it has no column section. Throws
  // std::runtime_error "Corrupt table file: NAME" for a section that cannot be read.
  static std::vector<Column> getColumns(File& file, const std::string& fileName);
  // Reads a table from its files; nothing if the file is no table file. Where the rows are read
  // from the table file one behind the other its seal grows with that. Throws as getColumns does.
  static std::optional<Table> loadTable(const std::string& fileName,
                                        const Directory& directory = {},
                                        FloatTexts floats = FloatTexts::sixDecimals,
                                        GrowingSeal* growing = nullptr);
  // The files with extension ".bin", sorted by name.
  static std::vector<std::string> getBinFiles(const Directory& directory = {});
  // The files that a table can have, those of a checkpoint under way included; none for a name that
  // no file can have.
  static std::vector<std::string> filesOfTable(const std::string& tableName);
  // Removes those files and others of the table, as far as they can be: the table file first and
  // durably, since it would be half a table without the others.
  static void removeTable(const std::vector<std::string>& files, const Directory& directory);

  // Writes the relation file of the link from the column of the linking table to the key of the
  // referenced one, beside its place: putInPlace puts it there. Throws WriteFailure.
  static void writeRelation(const Table& linking, const Table& referenced,
                            const std::string& column, std::int64_t now,
                            const Directory& directory = {});
  // The same into a file of this name.
  static void writeRelationTo(const std::string& fileName, const Table& linking,
                              const Table& referenced, const std::string& column, std::int64_t now,
                              const Directory& directory);
  // Throws std::runtime_error "Forbidden relation name" for names that would lead elsewhere.
  static std::string relationFileName(const Relation& relation);
  static std::vector<std::string> getRelFiles(const Directory& directory = {});
  // The relation a file names; nothing when it is missing or too short.
  static std::optional<Relation> readRelation(const std::string& fileName,
                                              const Directory& directory = {});

  // A listener's record in its file; and the listener that is read from it, whose texts may be cut.
  static std::string listenerRecord(const Listener& listener);
  static Listener asStored(const Listener& listener);
  // Calls use(listener) for the stored listeners; nothing when there is no file.
  static std::optional<StoredRecords> readListeners(const std::function<void(Listener)>& use,
                                                    const Directory& directory = {});

  // The coming changes of a timed value, for its whole life or one pass; and the records of some.
  static std::vector<WebhookTask> comingChanges(const std::string& tableName, std::int32_t rowIndex,
                                                std::string_view column, const TempRule& rule);
  static std::string webhookRecords(const std::vector<WebhookTask>& tasks);
  // Appends the tasks' records, unfired, and sets their file positions; these stay -1 when the file
  // cannot be written. Throws std::runtime_error "webhooks.bin is full" before a position outgrows
  // 32 bits.
  static void appendWebhooks(std::vector<WebhookTask>& tasks, AppendFile& file);
  // Calls use(task) for the unfired tasks, with their positions; nothing when there is no file.
  static std::optional<StoredRecords> readWebhooks(const std::function<void(WebhookTask)>& use,
                                                   const Directory& directory = {});

  // Brings the files of all tables up to date and empties the log, all or nothing: until it
  // returns, and after it has thrown, a start finds either everything as it was before or
  // everything new. Throws std::invalid_argument or std::out_of_range ("stoi", "stof") for a text
  // that does not convert, std::runtime_error "Checkpoint failed: " + reason for a file system
  // failure.
  static void saveCheckpoint(Tables& tables, std::int64_t now, const Directory& directory,
                             Log& log);
  // What a checkpoint that reached its point of no return and was interrupted has still to do. See
  // Directory::awaited.
  static AwaitedFiles awaitedFiles(const Directory& directory);
  // Completes such a checkpoint. To be called before a table's files are made, which it would take
  // for others. Throws std::runtime_error "Checkpoint failed: " + reason; it can be
  // called again.
  static void finishCheckpoint(const Directory& directory, Log& log);
  // What is left over of files that were being made: throws NotRegularFile if something else is
  // called so; and removes it, but for what is to be kept.
  static void checkLeftOvers(const Directory& directory);
  static void sweepLeftOvers(const std::vector<std::string>& kept, const Directory& directory);

 private:
  static std::string read(File& file, std::int64_t offset);
};

}  // namespace velmora
