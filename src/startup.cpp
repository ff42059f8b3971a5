// The start-up load: everything on disk that calls back into the engine, and the order of it.
//
// Tables first, then the links, which need them; then listeners and scheduled changes; then the
// log, whose commands run through a parser of their own with logging off, each at the second at
// which it first ran; a second thread reads those behind them. Nothing on disk changes before
// everything has been read, so that a start that fails leaves what it found: a checkpoint that was
// interrupted is read from its new files and completed afterwards, and what is torn is cut off
// last.
#include <algorithm>
#include <cerrno>
#include <new>
#include <optional>
#include <ostream>
#include <set>
#include <stdexcept>
#include <string>
#include <vector>

#include "clock.h"
#include "database/database.h"
#include "lexer.h"
#include "parser/parser.h"
#include "storage/block_io.h"
#include "storage/found_files.h"
#include "storage/halves.h"
#include "storage/log.h"
#include "storage/storage.h"
#include "text.h"

namespace velmora {
namespace {

void printSkipped(std::ostream& report, std::string_view what, const std::string& fileName,
                  std::string_view reason) {
  report << "[STORAGE] Skipped " << what << " " << printable(fileName) << ": " << printable(reason)
         << "\n";
}

void loadTables(Database& db, const std::vector<RelationFile>& relations, std::int64_t now,
                std::ostream& report) {
  for (const std::string& file : tableFiles(db.directory)) {
    std::optional<Table> table = Storage::loadTable(file, db.directory);
    if (!table) {
      if (wasTable(file, relations, db.directory))
        printSkipped(report, "file", file, "no table header");
      continue;
    }
    for (const Column& column : table->columns) {
      if (!isNumbered(column)) continue;
      const std::string name = column.name;
      table->setUpPrimaryKeyMap(name, now, KeyRule::liveFirstTimedLast);
      break;
    }
    const std::string name = table->tableName;
    db.tables.insert_or_assign(name, std::move(*table));
  }
}

// The links whose LINK command stands in the log. Rows logged before it need not satisfy it, so
// it must not hold before the command is replayed.
std::set<Relation> linksInLog(const Directory& directory) {
  std::set<Relation> links;
  File file(directory, logFileName, File::Mode::read);
  if (!file.isOpen() && errno == ENOENT) return links;
  LogReader reader(file);
  while (const auto command = reader.next()) {
    Lexer probe(*command);
    if (probe.getNextToken().value != "LINK") continue;
    Lexer lexer(*command);
    const std::vector<Token> tokens = lexer.tokenize();
    if (tokens.size() < 8) continue;
    const auto text = [&](std::size_t i) { return std::string(tokens[i].value); };
    links.insert({text(1), text(5), text(3), text(7)});
  }
  return links;
}

// Makes a stored link again; says so when it no longer holds.
void restoreLink(Database& db, const RelationFile& file, std::int64_t now, std::ostream& report) {
  const Relation& link = file.relation;
  try {
    db.link(link.childTable, link.childColumn, link.parentTable, link.parentColumn, now);
    db.saveRelation(link.childTable, link.childColumn, link.parentTable, now);
  } catch (const std::bad_alloc&) {
    throw;
  } catch (const NotRegularFile&) {
    throw;
  } catch (const std::exception& error) {
    printSkipped(report, "relation", file.name, error.what());
  }
}

// Makes the stored links again, but for those whose LINK command stands in the log, which are left
// to that command; these are the answer.
std::vector<RelationFile> loadRelations(Database& db, const std::vector<RelationFile>& files,
                                        std::int64_t now, std::ostream& report) {
  if (files.empty()) return {};
  std::vector<RelationFile> left;
  const std::set<Relation> logged = linksInLog(db.directory);
  for (const RelationFile& file : files) {
    if (logged.contains(file.relation)) {
      left.push_back(file);
    } else {
      restoreLink(db, file, now, report);
    }
  }
  return left;
}

// What the log's own command could not make again, a link of the files may still be.
void restoreLinksLeftToLog(Database& db, const std::vector<RelationFile>& left, std::int64_t now,
                           std::ostream& report) {
  for (const RelationFile& file : left) {
    const Relation& link = file.relation;
    const auto child = db.tables.find(link.childTable);
    const LinkRecord record{link.childColumn, link.parentTable, link.parentColumn};
    const bool isInForce = child != db.tables.end() &&
                           std::find(child->second.links.begin(), child->second.links.end(),
                                     record) != child->second.links.end();
    if (!isInForce) restoreLink(db, file, now, report);
  }
}

std::optional<StoredRecords> loadListeners(Database& db, std::ostream& report) {
  if (!identityOf(db.directory, listenersFileName)) return std::nullopt;
  report << "[STORAGE] Reloading Webhook Listeners...\n";
  return Storage::readListeners([&](const Listener& listener) { db.addListener(listener, true); },
                                db.directory);
}

std::optional<StoredRecords> loadWebhooks(Database& db, std::ostream& report) {
  if (!identityOf(db.directory, webhooksFileName)) return std::nullopt;
  report << "[STORAGE] Sweeping webhooks.bin for pending events...\n";
  std::vector<WebhookTask>& tasks = db.pendingWebhooks;
  const auto read = Storage::readWebhooks(
      [&](WebhookTask task) { tasks.push_back(std::move(task)); }, db.directory);
  std::make_heap(tasks.begin(), tasks.end(), WebhookTask::firesLater);
  report << "[STORAGE] Revived " << tasks.size() << " pending webhooks from the grave!\n";
  return read;
}

// Runs every logged command again; their answers and failures are discarded.
void replayLog(Database& db, LogReader& reader, std::ostream& report) {
  report << "[BOOTLOADER] Replaying Write-Ahead Log...\n";
  Parser parser(&db);
  const auto run = [&](const ReplayedCommand& command) {
    try {
      parser.replay(command);
    } catch (const std::bad_alloc&) {
      throw;  // no fault of the record's: a start with more memory can run it
    } catch (const std::exception&) {
      // It failed when it first ran, or fails now: the commands behind it are run in any case.
    }
  };
  ReplayedCommands read;
  ReplayedCommands coming;
  coming.read(reader);
  while (coming.goesOn()) {
    std::swap(read, coming);
    runBeside([&] { read.forEach(run); }, [&] { coming.read(reader); });
  }
  coming.forEach(run);
}

}  // namespace

void Database::loadFromDisk(std::ostream& report) {
  const std::int64_t now = clock::now();
  Storage::checkLeftOvers(directory);
  for (const char* const name : {logFileName, listenersFileName, webhooksFileName}) {
    requireRegular(directory, name);
  }
  const auto awaited = Storage::awaitedFiles(directory);
  directory.awaited = &awaited;
  deferred_.emplace();
  try {
    load(now, report);
  } catch (...) {
    directory.awaited = nullptr;
    if (deferred_) {
      for (const auto& [name, child] : deferred_->relations) {
        removeFile(directory, unfinishedName(name));
      }
      deferred_.reset();
    }
    throw;
  }
}

void Database::load(std::int64_t now, std::ostream& report) {
  const std::vector<RelationFile> relations = relationFiles(directory);
  loadTables(*this, relations, now, report);
  std::vector<RelationFile> left = loadRelations(*this, relations, now, report);
  const auto storedListeners = loadListeners(*this, report);
  const auto storedWebhooks = loadWebhooks(*this, report);
  File logFile(directory, logFileName, File::Mode::read);
  const bool hasLog = logFile.isOpen() || errno != ENOENT;
  if (hasLog && !logFile.isOpen()) throwUnreadable(logFileName);
  LogReader reader(logFile);
  if (hasLog) {
    isReplaying = true;
    replayLog(*this, reader, report);
    isReplaying = false;
  }
  std::erase_if(left, [&](const RelationFile& file) {
    const std::vector<std::string>& removals = deferred_->removals;  // a dropped table's among them
    return std::find(removals.begin(), removals.end(), file.name) != removals.end();
  });
  restoreLinksLeftToLog(*this, left, now, report);
  for (const std::string& name : deferred_->tables) checkMissingFiles(name);

  // Everything has been read.
  directory.awaited = nullptr;
  const DeferredChanges changes = std::move(*deferred_);
  deferred_.reset();
  Storage::finishCheckpoint(directory, log);
  std::vector<std::string> unfinished;
  for (const auto& [name, child] : changes.relations) {
    unfinished.push_back(unfinishedName(name));
  }
  Storage::sweepLeftOvers(unfinished, directory);
  if (!changes.removals.empty()) Storage::removeTable(changes.removals, directory);
  // Nor is a link's file to outlive its command in a power failure.
  if (hasLog && !changes.relations.empty() &&
      !File(directory, logFileName, File::Mode::read).sync()) {
    throw WriteFailure(std::string("cannot sync ") + logFileName);
  }
  for (const auto& [name, child] : changes.relations) putInPlace(directory, name);
  for (const std::string& name : changes.tables) saveTableIfMissing(name);
  if (storedListeners && storedListeners->hasTornTail()) {
    listenersFile.cutTo(storedListeners->completeSize);
  }
  if (storedWebhooks && storedWebhooks->hasTornTail()) {
    webhooksFile.cutTo(storedWebhooks->completeSize);
  }
  if (hasLog) {
    log.repair(reader);
    report << "[BOOTLOADER] WAL Replay Complete. RAM is 100% synced.\n";
  }
  report << std::flush;
}

}  // namespace velmora
