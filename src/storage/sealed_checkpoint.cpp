// See sealed.h: the checkpoint. What it writes is told here, how it is all or nothing in
// checkpoint_steps.cpp.
//
// A file that is written is read again to be sealed, through what the journal is about to do, so
// that a seal is of what will be found; of a file that is changed in place only the changes are,
// and the rest is as the seal says that it has. What is not written keeps its seal.
#include <algorithm>

#include "checkpoint_files.h"
#include "checkpoint_steps.h"
#include "checksum.h"
#include "exact_values.h"
#include "manifest.h"
#include "sealed.h"
#include "system_failure.h"
#include "table_rows.h"

namespace velmora {
namespace {

constexpr auto ignoreNewLog = [](bool) {};
constexpr const char* failed = "Checkpoint failed: ";

class SealedCheckpoint {
 public:
  SealedCheckpoint(const Tables& tables, const SealedRest& rest, const Directory& directory,
                   const Progress& progress, bool isSealed)
      : tables_(tables),
        rest_(rest),
        directory_(directory),
        progress_(progress),
        isSealed_(isSealed) {
    new_.nextSequence = rest.nextSequence;
    new_.second = rest.second;
  }

  void write(CheckpointJournal& journal) {
    readManifest();
    for (const auto& [name, table] : tables_) writeTable(table, journal);
    for (const auto& [name, table] : tables_) writeRelations(table, journal);
    writeListeners(journal);
    writeWebhooks(journal);
    seal(journal);
    for (const auto& [name, oldSeal] : found_.files) {
      if (!new_.files.contains(name)) journal.awaited().removed.insert(name);
    }
    if (isSealed_) {
      writeManifest(journal);
    } else if (identityOf(directory_, manifestFileName)) {
      journal.awaited().removed.insert(manifestFileName);
    }
  }

 private:
  void readManifest() {
    const auto text = readFile(directory_, manifestFileName);
    if (text) found_ = parseManifest(*text, [](std::int64_t) {});
    if (!rest_.areFilesDamaged) old_ = found_;
  }

  bool isKnown(const std::string& name) const { return old_.files.contains(name); }

  void keep(std::string name) { names_.push_back(std::move(name)); }

  void writeTable(const Table& table, CheckpointJournal& journal) {
    advance();
    const auto file = [&](std::string_view extension) {
      return fileNameOf(table.tableName, extension);
    };
    const bool areFilesKnown = isKnown(file(tableExtension));
    const bool hasChanged = table.isDirty() || !areFilesKnown;
    const bool hasStates = largestMaxStates(table.columns) > 0;
    const bool haveRulesChanged = hasStates && (table.haveRulesChanged() || !areFilesKnown);
    haveRulesChanged_ = haveRulesChanged_ || haveRulesChanged;
    velmora::writeTable(table, directory_, journal);
    keep(file(tableExtension));
    keep(file(deletionExtension));
    if (rowsAreShifted(table.columns)) keep(file(wholeRowExtension));
    if (hasStates) keep(file(timedExtension));
    if (!isSealed_) return;
    if (hasExactValues(table, hasChanged, journal)) keep(file(exactExtension));
  }

  // Writes them where they may have changed.
  bool hasExactValues(const Table& table, bool hasChanged, CheckpointJournal& journal) const {
    const auto found = old_.files.find(fileNameOf(table.tableName, exactExtension));
    const bool hadThem = found != old_.files.end();
    if (!hasChanged) return hadThem;
    std::optional<std::int64_t> oldSize;
    if (isKnown(fileNameOf(table.tableName, tableExtension))) {
      oldSize = hadThem ? found->second.size : 0;
    }
    return writeExactValues(table, oldSize, directory_, journal);
  }

  void writeRelations(const Table& table, CheckpointJournal& journal) {
    for (const LinkRecord& link : table.links) {
      const Relation relation{table.tableName, link.parentTable, link.column, link.parentColumn};
      const std::string name = Storage::relationFileName(relation);
      const bool isOld = isKnown(name) && std::find(old_.links.begin(), old_.links.end(),
                                                    relation) != old_.links.end();
      if (name.find('\n') != std::string::npos) throw WriteFailure("a link's name has two lines");
      if (!isOld) {
        Storage::writeRelationTo(addNewFile(journal, name, directory_), table,
                                 tables_.at(link.parentTable), link.column, rest_.second,
                                 directory_);
      }
      new_.links.push_back(relation);
      keep(name);
    }
  }

  void writeListeners(CheckpointJournal& journal) {
    std::string bytes;
    for (const auto& [name, listeners] : rest_.listeners) {
      for (const Listener& listener : listeners) bytes += Storage::listenerRecord(listener);
    }
    if (bytes.empty()) return;
    keep(listenersFileName);
    const Seal wanted{static_cast<std::int64_t>(bytes.size()), crc32c(0, bytes)};
    const auto known = old_.files.find(listenersFileName);
    if (known != old_.files.end() && known->second == wanted) return;
    NewFile file(directory_, addNewFile(journal, listenersFileName, directory_));
    file.write(bytes);
    file.finish();
  }

  // The coming changes of all timed cells.
  void writeWebhooks(CheckpointJournal& journal) {
    const bool isTableGone =
        std::any_of(old_.files.begin(), old_.files.end(), [&](const auto& each) {
          return std::string_view(each.first).ends_with(timedExtension) &&
                 std::find(names_.begin(), names_.end(), each.first) == names_.end();
        });
    if (!haveRulesChanged_ && !isTableGone) {
      if (isKnown(webhooksFileName)) keep(webhooksFileName);
      return;
    }
    std::optional<NewFile> file;
    for (const auto& entry : tables_) {
      const Table& table = entry.second;
      forEachRule(table, [&](std::size_t row, std::size_t column, const TempRule& rule) {
        if (!file) file.emplace(directory_, addNewFile(journal, webhooksFileName, directory_));
        file->write(Storage::webhookRecords(Storage::comingChanges(
            table.tableName, static_cast<std::int32_t>(row), table.columns[column].name, rule)));
      });
    }
    if (!file) return;
    file->finish();
    keep(webhooksFileName);
  }

  template <typename Use>
  static void forEachRule(const Table& table, Use use) {
    if (largestMaxStates(table.columns) == 0) return;
    for (std::size_t row = 0; row < table.rowCount(); ++row) {
      for (std::size_t column = 0; column < table.columns.size() && table.isLive(row); ++column) {
        if (const TempRule* const rule = table.values(column).rule(row)) use(row, column, *rule);
      }
    }
  }

  // Seals what the checkpoint writes, and what has no seal yet.
  void seal(CheckpointJournal& journal) {
    journal.flush();
    const AwaitedFiles& awaited = journal.awaited();
    const Directory pending{directory_.descriptor, &awaited};
    for (const std::string& name : names_) {
      const auto known = old_.files.find(name);
      const auto patch = awaited.patched.find(name);
      const bool isPatched = patch != awaited.patched.end();
      std::optional<Seal> made;
      if (known == old_.files.end() || awaited.replaced.contains(name)) {
        made = sealOf(pending, name);
      } else if (isPatched) {
        made = sealBehind(pending, name, patch->second, known->second);
      } else {
        made = known->second;
      }
      if (made) new_.files.emplace(name, *made);
    }
  }

  // In place where there is one: making a file and giving one's blocks back took a fifth of a
  // checkpoint of one row.
  void writeManifest(CheckpointJournal& journal) const {
    const std::string text = manifestText(new_);
    if (isPatchable(directory_, manifestFileName)) {
      PatchWriter patch(journal, directory_, manifestFileName);
      patch.put(0, text);
      patch.finish(static_cast<std::int64_t>(text.size()));
    } else {
      NewFile file(directory_, addNewFile(journal, manifestFileName, directory_));
      file.write(text);
      file.finish();
    }
  }

  void advance() {
    if (progress_ && !progress_(done_++, tables_.size())) {
      throw Failure(Code::interrupted, "Interrupted");
    }
  }

  const Tables& tables_;
  const SealedRest& rest_;
  const Directory& directory_;
  const Progress& progress_;
  bool isSealed_;
  Manifest found_;  // as it is
  Manifest old_;    // the same, if it can be relied on
  Manifest new_;
  std::vector<std::string> names_;  // of the files that there will be
  bool haveRulesChanged_ = false;
  std::uint64_t done_ = 0;
};

void save(Tables& tables, const SealedRest& rest, const Directory& directory,
          const Progress& progress, bool isSealed) {
  SealedCheckpoint writer(tables, rest, directory, progress, isSealed);
  Checkpoint checkpoint;
  bool isCounted = false;
  checkpoint.write = [&](CheckpointJournal& journal) { writer.write(journal); };
  checkpoint.expectNewLog = ignoreNewLog;
  checkpoint.counts = [&] {
    isCounted = true;
    for (auto& [name, table] : tables) {
      if (table.isDirty()) table.markClean();
    }
  };
  try {
    asSystemFailure(failed, [&] { runCheckpoint(checkpoint, directory); });
  } catch (const Failure& failure) {
    if (isCounted) return;
    if (checkpoint.isInDoubt) throw CheckpointInDoubt(failure);
    throw;
  }
}

}  // namespace

void saveSealed(Tables& tables, const SealedRest& rest, const Directory& directory,
                const Progress& progress) {
  save(tables, rest, directory, progress, true);
}

void unseal(Tables& tables, const SealedRest& rest, const Directory& directory) {
  save(tables, rest, directory, {}, false);
}

bool fitsPlainFiles(const Tables& tables) {
  return std::all_of(tables.begin(), tables.end(),
                     [](const auto& each) { return needsNoExactValues(each.second); });
}

void finishSealed(const Directory& directory) {
  asSystemFailure(failed, [&] {
    completeCheckpoint(ignoreNewLog, directory);
    Storage::sweepLeftOvers({}, directory);
  });
}

}  // namespace velmora
