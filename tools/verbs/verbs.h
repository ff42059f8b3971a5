// The verbs: each adds its arguments to its own part of the command line, and gives what is run
// when it is called, which returns the exit code.
#pragma once

#include <functional>

#include "common.h"

namespace tool {

using Run = std::function<int()>;

// A verb adds what it takes beside the common options; `common` outlives what it returns.
Run shellVerb(CLI::App& app, Common& common);
Run runVerb(CLI::App& app, Common& common);
Run diffVerb(CLI::App& app, Common& common);
Run dumpVerb(CLI::App& app, Common& common);
Run hashVerb(CLI::App& app, Common& common);
Run loadVerb(CLI::App& app, Common& common);
Run reportVerb(CLI::App& app, Common& common);
Run tablesVerb(CLI::App& app, Common& common);
Run schemaVerb(CLI::App& app, Common& common);
Run linksVerb(CLI::App& app, Common& common);
Run scheduleVerb(CLI::App& app, Common& common);
Run atVerb(CLI::App& app, Common& common);
Run checkVerb(CLI::App& app, Common& common);
Run repairVerb(CLI::App& app, Common& common);
Run statVerb(CLI::App& app, Common& common);
Run backupVerb(CLI::App& app, Common& common);
Run restoreVerb(CLI::App& app, Common& common);

}  // namespace tool
