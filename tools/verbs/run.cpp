// run: commands out of files, texts or standard input.
#include "failure.h"
#include "open.h"
#include "runner.h"
#include "verbs/verbs.h"

namespace tool {
namespace {

struct Arguments {
  std::vector<std::string> files;
  std::vector<std::string> texts;
  bool isAtomic = false;
  bool isReadOnly = false;
  bool mayCreate = false;
  RunOptions options;
};

// What is to be run, in this order; standard input where nothing is named.
bool runAll(Runner& runner, const Arguments& arguments) {
  for (const std::string& text : arguments.texts) {
    if (!runner.runText(text, "-c")) return false;
  }
  for (const std::string& file : arguments.files) {
    if (!runner.runFile(file)) return false;
  }
  if (arguments.texts.empty() && arguments.files.empty()) return runner.runFile("-");
  return true;
}

int runWhole(velmora::Database& database, Runner& runner, const Arguments& arguments) {
  if (!arguments.isAtomic) {
    runAll(runner, arguments);
    return runner.hasFailed() ? exitFailed : exitDone;
  }
  velmora::Transaction transaction(database);
  if (!runAll(runner, arguments)) {
    tell("Nothing has been changed");
    return exitFailed;
  }
  transaction.commit();
  return exitDone;
}

}  // namespace

Run runVerb(CLI::App& app, Common& common) {
  addDirectory(app, common);
  const auto arguments = std::make_shared<Arguments>();
  app.add_option("FILE", arguments->files, "Files of commands; - is standard input");
  app.add_option("-c,--command", arguments->texts, "Commands, run before those of files")
      ->type_name("TEXT");
  auto* const atomic =
      app.add_flag("--atomic", arguments->isAtomic, "All of them in one transaction: all or none");
  app.add_flag("--keep-going", arguments->options.keepsGoing,
               "Go on behind a command that has failed")
      ->excludes(atomic);
  app.add_flag("--create", arguments->mayCreate, "Make the database where there is none");
  app.add_flag("--read-only", arguments->isReadOnly, "Open the database to be read");
  const auto ends = std::make_shared<bool>(false);
  app.add_flag("--semicolon", *ends,
               "Commands end at \";\" alone, so that they may have several lines");
  return [&common, arguments, ends] {
    arguments->options.format = common.format;
    if (*ends) arguments->options.ends = Splitter::Ends::atSemicolon;
    OpenDatabase database(common, changeFlags(arguments->isReadOnly, arguments->mayCreate));
    Runner runner(*database, arguments->options);
    return runWhole(*database, runner, *arguments);
  };
}

}  // namespace tool
