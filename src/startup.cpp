// The start-up load: everything on disk that calls back into the engine, and the order of it.
//
// Tables first, then the links, which need them; then listeners and scheduled changes; then the
// log, whose commands run through a parser of their own with logging off, each at the second at
// which it first ran. A checkpoint that was interrupted is completed, or swept away, before
// anything is read.
#include <algorithm>
#include <iostream>
#include <new>
#include <optional>
#include <set>
#include <stdexcept>
#include <string>
#include <vector>

#include "clock.h"
#include "database/database.h"
#include "lexer.h"
#include "number.h"
#include "parser/parser.h"
#include "storage/storage.h"

namespace velmora {
namespace {

constexpr std::string_view clockMarker = " #TIME# ";

// The table files, each with its table's name. Where two files would give one table, the one named
// plainly is it.
std::vector<std::string> tableFiles(const Directory& directory) {
  std::vector<std::string> plain;
  std::vector<std::string> dotted;
  std::set<std::string> names;
  for (std::string& file : Storage::getBinFiles(directory)) {
    if (file == listenersFileName || file == webhooksFileName) continue;
    const std::string name = file.substr(0, file.find('.'));
    // A file that no checkpoint could write is left alone.
    if (!Storage::isStorableName(name)) continue;
    if (file == name + ".bin") {
      names.insert(name);
      plain.push_back(std::move(file));
    } else {
      dotted.push_back(std::move(file));
    }
  }
  for (std::string& file : dotted) {
    if (names.insert(file.substr(0, file.find('.'))).second) plain.push_back(std::move(file));
  }
  return plain;
}

void loadTables(Database& db) {
  for (const std::string& file : tableFiles(db.directory)) {
    std::optional<Table> table = Storage::loadTable(file, db.directory);
    if (!table) continue;
    for (const Column& column : table->columns) {
      if (column.type != "ApexInt") continue;
      const std::string name = column.name;
      table->setUpPrimaryKeyMap(name, true);
      break;
    }
    const std::string name = table->tableName;
    db.tables.insert_or_assign(name, std::move(*table));
  }
}

// The links whose LINK command stands in the log. Rows logged before it need not satisfy it, so
// it must not hold before the command is replayed.
std::set<Relation> linksInLog(const LogRecords& records) {
  std::set<Relation> links;
  for (const std::string_view command : records.commands) {
    Lexer probe(command);
    if (probe.getNextToken().value != "LINK") continue;
    Lexer lexer(command);
    const std::vector<Token> tokens = lexer.tokenize();
    if (tokens.size() < 8) continue;
    const auto text = [&](std::size_t i) { return std::string(tokens[i].value); };
    links.insert({text(1), text(5), text(3), text(7)});
  }
  return links;
}

// The second in the record's last marker.
std::optional<std::int64_t> loggedSecond(std::string_view record) {
  const std::size_t marker = record.rfind(clockMarker);
  std::int64_t second = 0;
  if (marker == std::string_view::npos ||
      convertLong(record.substr(marker + clockMarker.size()), second) != Conversion::ok) {
    return std::nullopt;
  }
  return second;
}

}  // namespace

void Storage::loadRelations(Database* db) {
  const std::vector<std::string> files = getRelFiles(db->directory);
  if (files.empty()) return;
  const std::string log = readFile(db->directory, logFileName).value_or("");
  const std::set<Relation> logged = linksInLog(splitLog(log));
  for (const std::string& file : files) {
    const auto relation = readRelation(file, db->directory);
    if (!relation || logged.contains(*relation)) continue;
    try {
      db->link(relation->childTable, relation->childColumn, relation->parentTable,
               relation->parentColumn);
    } catch (const std::bad_alloc&) {
      throw;
    } catch (const std::exception& error) {
      std::cout << "[STORAGE] Skipped relation " << file << ": " << error.what() << "\n";
    }
  }
}

void Storage::loadListeners(Database* db) {
  const auto listeners = readListeners(db->directory);
  if (!listeners) return;
  std::cout << "[STORAGE] Reloading Webhook Listeners...\n";
  for (const ListenerRecord& listener : *listeners) {
    db->addListener(listener.tableName, listener.event, listener.target, listener.conditions, true);
  }
}

void Storage::loadWebhooks(Database* db) {
  auto tasks = readWebhooks(db->directory);
  if (!tasks) return;
  std::cout << "[STORAGE] Sweeping webhooks.bin for pending events...\n";
  const std::size_t count = tasks->size();
  {
    const std::lock_guard lock(db->webhookMutex);
    for (WebhookTask& task : *tasks) {
      db->pendingWebhooks.push_back(std::move(task));
    }
    std::make_heap(db->pendingWebhooks.begin(), db->pendingWebhooks.end(), WebhookTask::firesLater);
  }
  std::cout << "[STORAGE] Revived " << count << " pending webhooks from the grave!\n";
}

void Storage::replayWAL(Database* db) {
  const auto log = readFile(db->directory, logFileName);
  if (!log) return;
  std::cout << "[BOOTLOADER] Replaying Write-Ahead Log...\n";
  const LogRecords records = splitLog(*log);
  Parser parser(db);
  parser.isReplaying = true;
  std::string command;
  for (const std::string_view record : records.commands) {
    std::optional<clock::Frozen> frozen;
    if (const auto second = loggedSecond(record)) frozen.emplace(*second);
    try {
      command = record;
      parser.handleCommand(command);
    } catch (const std::bad_alloc&) {
      throw;  // no fault of the record's: a start with more memory can run it
    } catch (const std::exception&) {
      // It failed when it first ran, or fails now: the commands behind it are run in any case.
    }
  }
  repairLog(records, log->size(), db->directory);
  std::cout << "[BOOTLOADER] WAL Replay Complete. RAM is 100% synced.\n";
}

void Database::loadFromDisk() {
  Storage::finishCheckpoint(directory);
  Storage::sweepCheckpoint(directory);
  isLoading = true;
  loadTables(*this);
  Storage::loadRelations(this);
  isLoading = false;
  Storage::loadListeners(this);
  Storage::loadWebhooks(this);
  isReplaying = true;
  Storage::replayWAL(this);
  isReplaying = false;
  std::cout << std::flush;
}

}  // namespace velmora
