// See opening.h.
#include "opening.h"

#include <algorithm>
#include <new>
#include <stdexcept>
#include <string>
#include <type_traits>
#include <utility>

#include "../clock.h"
#include "../failure.h"
#include "../strict/parser.h"

namespace velmora {
namespace {

template <typename T>
constexpr bool isRowChange = std::is_same_v<T, strict::Update> || std::is_same_v<T, strict::Delete>;
template <typename T>
constexpr bool isCatalogueChange =
    std::is_same_v<T, strict::CreateTable> || std::is_same_v<T, strict::DropTable> ||
    std::is_same_v<T, strict::Link> || std::is_same_v<T, strict::Unlink> ||
    std::is_same_v<T, strict::Listen> || std::is_same_v<T, strict::Unlisten>;

// Handles give no such keys: rows could come to have the same one without a command.
void refuseTimedKeys(const Table& parent, const std::string& keyColumn) {
  const std::size_t column = parent.columnPosition(keyColumn);
  if (column == noColumn || parent.columns[column].maxStates == 0) return;
  for (std::size_t row = 0; row < parent.rowCount(); ++row) {
    if (parent.isLive(row) && parent.values(column).rule(row) != nullptr) {
      throw std::runtime_error("A key is timed");
    }
  }
}

// Runs the commands of a log; one that is there again and again is parsed once.
class Replay {
 public:
  explicit Replay(Changes& changes) : changes_(changes) {}

  void run(const LoggedCommand& logged) {
    if (!logged.text.empty()) {
      plan_.reset();
      statement_.reset();
      statement_ = strict::parse(logged.text);
    }
    const bool fits =
        statement_ && logged.values.size() == static_cast<std::size_t>(statement_->parameterCount);
    if (!fits) throw std::runtime_error("its values have no command");
    Answer answer;
    const RunContext context{
        logged.values, logged.second, logged.clock.value_or(logged.second), {}};
    runChange(changes_, statement_->command, plan_, context, answer);
    changes_.undo().clear();
  }

 private:
  Changes& changes_;
  std::optional<strict::Statement> statement_;  // of the last command
  std::optional<InsertPlan> plan_;
};

// Whether handles have used the directory. What cannot be read is for the plain functions' own load
// to tell, unless there is a manifest.
bool isSealed(const Directory& directory) {
  try {
    return contentsOf(directory) == Contents::sealed;
  } catch (const Failure&) {
    if (identityOf(directory, manifestFileName)) throw;
    return false;
  }
}

}  // namespace

void takeTables(SealedState&& state, Database& database, const ReportFault& report,
                std::int64_t second) {
  database.isSealed = true;
  database.tables = std::move(state.tables);
  for (Listener& listener : state.listeners) {
    database.listeners[listener.tableName].insert(std::move(listener));
  }
  for (const Relation& link : state.links) {
    const auto parent = database.tables.find(link.parentTable);
    const bool hasKey = parent != database.tables.end() && parent->second.hasPrimaryKey();
    try {
      if (parent != database.tables.end()) refuseTimedKeys(parent->second, link.parentColumn);
      database.link(link.childTable, link.childColumn, link.parentTable, link.parentColumn, second);
    } catch (const std::bad_alloc&) {
      throw;
    } catch (const std::exception& error) {
      if (parent != database.tables.end() && !hasKey) parent->second.dropPrimaryKey();
      report(Storage::relationFileName(link), -1,
             "The link from " + link.childTable + "." + link.childColumn + " to " +
                 link.parentTable + "." + link.parentColumn + " does not hold: " + error.what());
    }
  }
}

OpenedLog openSealed(Database& database, Changes& changes, const ReportFault& report,
                     const StepProgress& progress) {
  SealedState state = loadSealed(
      database.directory, report,
      [&](std::uint64_t done, std::uint64_t total) { return progress("load", done, total); });
  OpenedLog opened;
  opened.second = state.second;
  RecordLogReader reader(database.directory, state.nextSequence);
  // The links held at the last second that these files have seen, whatever the clock says now.
  takeTables(std::move(state), database, report, opened.second);
  const auto total = static_cast<std::uint64_t>(sizeOf(database.directory, logFileName));
  std::uint64_t count = 0;
  Replay replay(changes);
  database.isReplaying = true;
  while (true) {
    const std::int64_t start = reader.completeSize();
    const auto commands = reader.next();
    if (!commands) break;
    for (const LoggedCommand& command : *commands) {
      opened.second = std::max(opened.second, command.second);
      try {
        replay.run(command);
      } catch (const std::bad_alloc&) {
        throw;
      } catch (const std::exception& error) {
        changes.undo().undoTo(0, command.second);
        report(logFileName, start, std::string("A command cannot be run again: ") + error.what());
      }
    }
    constexpr std::uint64_t recordsPerCall = 1024;
    if (++count % recordsPerCall == 0 &&
        !progress("replay", static_cast<std::uint64_t>(reader.completeSize()), total)) {
      throw Failure(Code::interrupted, "Interrupted");
    }
  }
  database.isReplaying = false;
  if (reader.fault()) report(logFileName, reader.completeSize(), *reader.fault());
  opened.nextSequence = reader.nextSequence();
  opened.size = reader.completeSize();
  opened.hasTornTail = reader.hasTornTail();
  opened.hasFault = reader.fault().has_value();
  return opened;
}

void runChange(Changes& changes, const strict::Command& command, std::optional<InsertPlan>& plan,
               const RunContext& context, Answer& answer) {
  std::visit(
      [&](const auto& each) {
        using T = std::remove_cvref_t<decltype(each)>;
        if constexpr (std::is_same_v<T, strict::Insert>) {
          if (!plan) plan = changes.planOf(each);
          changes.run(each, *plan, context, answer);
        } else if constexpr (isRowChange<T> || isCatalogueChange<T>) {
          changes.run(each, context, answer);
        } else {
          throw Failure(Code::internal, "The command changes nothing");
        }
      },
      command);
}

bool changesCatalogue(const strict::Command& command) {
  return std::visit(
      [](const auto& each) { return isCatalogueChange<std::remove_cvref_t<decltype(each)>>; },
      command);
}

void loadForPlainFunctions(Database& database) {
  if (isSealed(database.directory)) {
    const std::int64_t now = clock::now();
    Database sealed(database.directory);
    Changes changes(sealed);
    const auto refuse = [](const std::string& file, std::int64_t /*offset*/,
                           const std::string& meaning) {
      throw std::runtime_error("Corrupt file: " + file + ": " + meaning);
    };
    const OpenedLog opened = openSealed(sealed, changes, refuse, [](auto...) { return true; });
    if (!fitsPlainFiles(sealed.tables)) {
      throw std::runtime_error("Database holds what plain files cannot");
    }
    finishSealed(database.directory);
    unseal(sealed.tables, {sealed.listeners, opened.nextSequence, std::max(now, opened.second)},
           database.directory);
  }
  database.loadFromDisk();
}

}  // namespace velmora
