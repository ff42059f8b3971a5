// How a sealed database gets into memory: its files, its links, and then its log, command by
// command, each at the second at which it first ran. A command that stands in the log has been
// accepted, so it is run, and none that is newer than it may judge it.
#pragma once

#include <cstdint>
#include <functional>
#include <optional>

#include "../database/database.h"
#include "../storage/record_log.h"
#include "../storage/sealed.h"
#include "changes.h"

namespace velmora {

// What a database's log goes on from.
struct OpenedLog {
  std::uint64_t nextSequence = 1;
  std::int64_t size = 0;    // bytes up to the end of its last right record
  std::int64_t second = 0;  // the latest that a command has run at
  bool hasTornTail = false;
  bool hasFault = false;  // behind that size lies what is no torn record
};

// How far a step has come: its name, how much of how much is done; false stops it (Failure,
// interrupted).
using StepProgress =
    std::function<bool(std::string_view step, std::uint64_t done, std::uint64_t total)>;

// Puts what loadSealed or loadPlain has read into an empty database, its links as of the second.
// Faults go to the report; what is left out then is not there.
void takeTables(SealedState&& state, Database& database, const ReportFault& report,
                std::int64_t second);
// Loads a sealed database, log and all. Nothing on disk changes.
OpenedLog openSealed(Database& database, Changes& changes, const ReportFault& report,
                     const StepProgress& progress);

// Runs a command that changes something. The plan is what an INSERT has looked up before, or empty
// and made.
void runChange(Changes& changes, const strict::Command& command, std::optional<InsertPlan>& plan,
               const RunContext& context, Answer& answer);
// Whether the command changes tables, links or listeners rather than rows.
bool changesCatalogue(const strict::Command& command);

// The load of the plain functions: what Database::loadFromDisk does, or, where handles have used
// the directory, what they have left, brought into plain files. Throws as that does, and
// std::runtime_error "Database holds what plain files cannot"; nothing has changed then.
void loadForPlainFunctions(Database& database);

}  // namespace velmora
