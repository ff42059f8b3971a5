// at: the answer of a SELECT as it is, was or will be at another second.
#include "complaint.h"
#include "failure.h"
#include "open.h"
#include "time_point.h"
#include "verbs/verbs.h"

namespace tool {
namespace {

struct Arguments {
  std::string time;
  std::string command;
};

velmora::Statement prepared(velmora::Database& database, const std::string& command) {
  try {
    return database.prepare(command);
  } catch (const velmora::Error& error) {
    throw Failure(exitFailed, complaintText(error, command));
  }
}

// The command with the second behind it, which only a SELECT without one takes.
std::string commandAt(velmora::Database& database, std::string command, std::int64_t second) {
  command.erase(command.find_last_not_of(" \t\r\n;") + 1);
  if (prepared(database, command).kind() != VELMORA_READS) {
    throw Failure(exitWrongUse, "Only a SELECT has an answer at another second");
  }
  const std::string whole = command + " AT " + std::to_string(second);
  try {
    database.prepare(whole);
  } catch (const velmora::Error& error) {
    if (error.code() != VELMORA_SYNTAX) throw;
    throw Failure(exitWrongUse,
                  "The command has to be a SELECT without an AT of its own, since the second is "
                  "given before it");
  }
  return whole;
}

}  // namespace

Run atVerb(CLI::App& app, Common& common) {
  addDirectory(app, common);
  const auto arguments = std::make_shared<Arguments>();
  app.add_option("TIME", arguments->time, timeHelp)->required();
  app.add_option("SELECT", arguments->command, "The command")->required();
  return [&common, arguments] {
    const std::int64_t second = secondOf(arguments->time, common.second());
    OpenDatabase database(common, toRead);
    const std::string command = commandAt(*database, arguments->command, second);
    try {
      print(common.format, database->run(command));
    } catch (const velmora::Error& error) {
      throw Failure(exitCodeOf(error), complaintText(error, command));
    }
    return exitDone;
  };
}

}  // namespace tool
