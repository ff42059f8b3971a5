// See sealed.h: the load. First every file is held against its seal, the tables' own while their
// rows are read, then the tables are completed one by one; what the seals do not show to be right
// is written anew by the next checkpoint.
#include <algorithm>
#include <new>
#include <unordered_set>

#include "../text.h"
#include "exact_values.h"
#include "found_files.h"
#include "manifest.h"
#include "record_form.h"
#include "sealed.h"
#include "system_failure.h"

namespace velmora {
namespace {

bool isThere(const char* name, const Directory& directory) {
  const bool isOpen = File(directory, name, File::Mode::read).isOpen();
  if (!isOpen && errno != ENOENT) throwUnreadable(name);
  return isOpen;
}

// Whether only handles can have left the directory so, though its manifest is missing.
bool hasSealedFiles(const Directory& directory) {
  if (!listFiles(directory, exactExtension).empty()) return true;
  File log(directory, logFileName, File::Mode::read);
  if (!log.isOpen()) return false;
  std::string beginning(64 * 1024, '\0');
  beginning.resize(log.readAt(0, beginning.data(), beginning.size()).value_or(0));
  std::string_view rest = beginning;
  for (std::size_t end = rest.find('\n'); end != std::string_view::npos; end = rest.find('\n')) {
    if (recordEndOf(rest.substr(0, end))) return true;
    rest.remove_prefix(end + 1);
  }
  return false;
}

class Loader {
 public:
  Loader(const Directory& directory, const ReportFault& report, const Progress& progress)
      : awaited_(Storage::awaitedFiles(directory)),
        directory_{directory.descriptor, &awaited_},
        report_(report),
        progress_(progress) {}

  SealedState loadSealed() {
    readManifest();
    const auto isTable = [](std::string_view name) {
      return name.ends_with(tableExtension) && !isListOfRecords(name);
    };
    for (const auto& [name, seal] : manifest_.files) {
      // A table is read, and then completed.
      total_ += (isTable(name) ? 2 : 1) * static_cast<std::uint64_t>(seal.size);
    }
    std::vector<ReadTable> tables;
    for (const auto& [name, seal] : manifest_.files) {
      isTable(name) ? tables.push_back(readAndCheck(name, seal)) : check(name, seal);
    }
    if (!isThere(logFileName, directory_)) report_(logFileName, -1, "the file is missing");
    for (ReadTable& table : tables) keep(std::move(table));
    if (manifest_.files.contains(listenersFileName)) loadListeners();
    state_.links = std::move(manifest_.links);
    state_.nextSequence = manifest_.nextSequence;
    state_.second = manifest_.second;
    return std::move(state_);
  }

  SealedState loadPlain() {
    const std::vector<RelationFile> relations = relationFiles(directory_);
    std::vector<std::string> files = tableFiles(directory_);
    for (const std::string& name : files) {
      total_ += static_cast<std::uint64_t>(sizeOf(directory_, name));
    }
    for (const std::string& name : files) {
      if (!keep(readTable(name, nullptr)) && wasTable(name, relations, directory_)) {
        report_(name, 0, "the file has no table header");
      }
    }
    for (const RelationFile& file : relations) state_.links.push_back(file.relation);
    if (identityOf(directory_, listenersFileName)) loadListeners();
    if (sizeOf(directory_, logFileName) > 0) {
      report_(logFileName, 0, "the log holds commands of the plain functions");
    }
    return std::move(state_);
  }

 private:
  static bool isListOfRecords(std::string_view name) {
    return name == listenersFileName || name == webhooksFileName;
  }

  void readManifest() {
    const auto text = readFile(directory_, manifestFileName);
    if (!text) {
      report_(manifestFileName, -1, "the file is missing");
      findFiles();
      return;
    }
    manifest_ = parseManifest(*text, [&](std::int64_t offset) {
      report_(manifestFileName, offset, "the manifest is not what was written");
    });
  }

  // What the manifest would name, where it is missing. Which record the log begins with is not
  // known.
  void findFiles() {
    for (const DirectoryEntry& entry : listFiles(directory_, "")) {
      for (const std::string_view extension :
           {tableExtension, deletionExtension, wholeRowExtension, timedExtension, exactExtension}) {
        if (!entry.isRegular || !entry.name.ends_with(extension)) continue;
        if (const auto seal = sealOf(directory_, entry.name)) manifest_.files[entry.name] = *seal;
      }
    }
    for (const RelationFile& file : relationFiles(directory_)) {
      manifest_.links.push_back(file.relation);
    }
  }

  void advance(std::uint64_t count) {
    done_ += count;
    if (progress_ && !progress_(std::min(done_, total_), total_)) {
      throw Failure(Code::interrupted, "Interrupted");
    }
  }

  // Holds a file against its seal.
  void check(const std::string& name, const Seal& expected) {
    const auto fault = [&](std::int64_t offset, const std::string& meaning) {
      report_(name, offset, meaning);
      damaged_.insert(name.substr(0, name.rfind('.')));
    };
    std::optional<Seal> found;
    try {
      found = sealOf(directory_, name, [&](std::size_t count) { advance(count); });
    } catch (const NotRegularFile& error) {
      fault(-1, error.what());
      return;
    }
    if (!found) {
      fault(-1, "the file is missing");
    } else if (found->size != expected.size) {
      fault(std::min(found->size, expected.size), "the file has " + std::to_string(found->size) +
                                                      " bytes instead of " +
                                                      std::to_string(expected.size));
    } else if (found->crc != expected.crc) {
      fault(-1, "the file's checksum is wrong");
    }
  }

  // What a table file was found to be: neither a table nor a fault without a table's header.
  struct ReadTable {
    std::string fileName;
    std::optional<Table> table;
    std::optional<std::string> fault;
  };

  ReadTable readTable(const std::string& fileName, GrowingSeal* growing) {
    ReadTable read{fileName, {}, {}};
    try {
      read.table = Storage::loadTable(fileName, directory_, FloatTexts::shortest, growing);
    } catch (const Unreadable&) {
      throw;
    } catch (const Failure&) {  // of who is told how far it is
      throw;
    } catch (const std::runtime_error& error) {
      read.fault = error.what();
    }
    return read;
  }

  // Reads the file once: the seal is made on the way. Only where it is not the expected one, or the
  // rows are read otherwise, the file is read again to tell what is wrong.
  ReadTable readAndCheck(const std::string& fileName, const Seal& expected) {
    GrowingSeal growing{{}, [&](std::size_t count) { advance(count); }};
    ReadTable read = readTable(fileName, &growing);
    const bool isRight = growing.seal == expected && sizeOf(directory_, fileName) == expected.size;
    if (!isRight) check(fileName, expected);
    return read;
  }

  // False for a file without a table's header.
  bool keep(ReadTable&& read) {
    if (read.fault) report_(read.fileName, -1, *read.fault);
    if (read.table) {
      complete(*read.table);
      state_.tables.insert_or_assign(read.table->tableName, std::move(*read.table));
    }
    advance(static_cast<std::uint64_t>(sizeOf(directory_, read.fileName)));
    return read.table || read.fault;
  }

  // What the table file alone does not give.
  void complete(Table& table) {
    const bool isClean = !table.isDirty();
    const bool isSealed = !manifest_.files.empty();
    const std::string exactName = fileNameOf(table.tableName, exactExtension);
    bool isDamaged = damaged_.contains(table.tableName);
    const auto attempt = [&](const std::string& name, auto step) {
      try {
        step();
      } catch (const std::bad_alloc&) {
        throw;
      } catch (const Unreadable&) {
        throw;
      } catch (const std::exception& error) {
        report_(name, -1, error.what());
        isDamaged = true;
      }
    };
    if (manifest_.files.contains(exactName)) {
      attempt(exactName, [&] { readExactValues(table, directory_); });
    }
    const auto identity = std::find_if(table.columns.begin(), table.columns.end(), isNumbered);
    if (identity != table.columns.end()) {
      const std::string column = identity->name;
      const std::string fileName = fileNameOf(table.tableName, tableExtension);
      bool hasKeys = false;
      const auto setUpKeys = [&] {
        table.setUpPrimaryKeyMap(column, manifest_.second, KeyRule::liveFirstTimedLast);
        hasKeys = true;
      };
      attempt(fileName, setUpKeys);
      if (!hasKeys && leaveOutRepeated(table, column)) attempt(fileName, setUpKeys);
      if (!hasKeys) table.dropPrimaryKey();
    }
    if (isDamaged) {
      table.markAllDirty();
    } else if (isClean || isSealed) {
      table.markClean();
    }
  }

  // Marks rows deleted that have the key of an earlier one, as damage can give it to them: what a
  // repair has brought into order has to open again. Whether there were any.
  bool leaveOutRepeated(Table& table, const std::string& keyColumn) {
    const std::size_t column = table.columnPosition(keyColumn);
    std::unordered_set<std::string> keys;
    std::size_t count = 0;
    for (std::size_t row = 0; row < table.rowCount(); ++row) {
      TextRoom room;
      if (!table.isLive(row)) continue;
      if (keys.emplace(table.text(row, column, manifest_.second, room)).second) continue;
      table.setDeleted(row, true);
      ++count;
    }
    if (count == 0) return false;
    report_(
        fileNameOf(table.tableName, tableExtension), -1,
        "Rows with the key of an earlier one, which a repair leaves out: " + std::to_string(count));
    return true;
  }

  void loadListeners() {
    const auto read = Storage::readListeners(
        [&](Listener listener) { state_.listeners.push_back(std::move(listener)); }, directory_);
    if (read && read->hasTornTail()) {
      report_(listenersFileName, read->completeSize, "the last record is not whole");
    }
  }

  AwaitedFiles awaited_;
  Directory directory_;
  const ReportFault& report_;
  const Progress& progress_;
  Manifest manifest_;
  std::set<std::string, std::less<>> damaged_;  // names without extensions
  SealedState state_;
  std::uint64_t done_ = 0;
  std::uint64_t total_ = 0;
};

}  // namespace

Contents contentsOf(const Directory& directory) {
  return asSystemFailure("", [&] {
    const AwaitedFiles awaited = Storage::awaitedFiles(directory);
    const Directory reading{directory.descriptor, &awaited};
    if (isThere(manifestFileName, reading) || hasSealedFiles(reading)) return Contents::sealed;
    for (const char* const name : {logFileName, listenersFileName, webhooksFileName}) {
      if (isThere(name, reading)) return Contents::plain;
    }
    const bool hasFiles = !tableFiles(reading).empty() || !relationFiles(reading).empty();
    return hasFiles ? Contents::plain : Contents::nothing;
  });
}

SealedState loadSealed(const Directory& directory, const ReportFault& report,
                       const Progress& progress) {
  return asSystemFailure("", [&] { return Loader(directory, report, progress).loadSealed(); });
}

SealedState loadPlain(const Directory& directory, const ReportFault& report,
                      const Progress& progress) {
  return asSystemFailure("", [&] { return Loader(directory, report, progress).loadPlain(); });
}

}  // namespace velmora
