// backup and restore: a copy of a database, as it is at one moment, in another directory, read back
// before it is called good. The two differ in what their directories are called.
#include "failure.h"
#include "open.h"
#include "output/text.h"
#include "verbs/verbs.h"
#include "verify.h"

namespace tool {
namespace {

velmora::Result tablesOf(velmora::Database& database) { return database.run("SHOW TABLES"); }

void checkCopy(const Common& common, const std::string& target, const std::string& tables) {
  for (const Fault& fault : faultsOf(target)) {
    throw Failure(exitFailed,
                  "The copy is not right: " + visible(fault.file) + ": " + visible(fault.meaning));
  }
  Common ofCopy = common;
  ofCopy.directory = target;
  OpenDatabase copy(ofCopy, toRead);
  if (tablesOf(*copy).json() != tables) throw Failure(exitFailed, "The copy has other tables");
}

// The failure of a copy concerns the target, and where the source is in use, its host has to help.
int copyDatabase(const Common& common, const std::string& target) {
  OpenDatabase database(common, toRead);
  try {
    database->backup(target);
  } catch (const velmora::Error& error) {
    if (error.code() == VELMORA_INTERRUPTED) throw;
    throw Failure(exitFailed, openingText(target, error));
  }
  const velmora::Result tables = tablesOf(*database);
  checkCopy(common, target, tables.json());
  print(common.format, tables);
  tell("The copy in " + visible(target) + " has been read back, and is right");
  return exitDone;
}

int backUp(const Common& common, const std::string& target) {
  try {
    return copyDatabase(common, target);
  } catch (const InUse& failure) {
    throw Failure(failure.code, std::string(failure.what()) +
                                    "\nThe program that has it open can copy it meanwhile: "
                                    "velmora_backup.");
  }
}

}  // namespace

Run backupVerb(CLI::App& app, Common& common) {
  addDirectory(app, common);
  const auto target = std::make_shared<std::string>();
  app.add_option("DESTINATION", *target, "A directory that is empty or not there")->required();
  return [&common, target] { return backUp(common, *target); };
}

Run restoreVerb(CLI::App& app, Common& common) {
  app.add_option("BACKUP", common.directory, "The directory of the copy")->required();
  const auto target = std::make_shared<std::string>();
  app.add_option("DIRECTORY", *target, "A directory that is empty or not there")->required();
  return [&common, target] { return copyDatabase(common, *target); };
}

}  // namespace tool
