// load: rows of a CSV or JSON Lines file into a table, which is made if it is not there.
#include <unistd.h>

#include <cstdio>
#include <filesystem>
#include <iostream>
#include <memory>

#include "copy/catalogue.h"
#include "failure.h"
#include "load/loader.h"
#include "load/plan.h"
#include "open.h"
#include "output/text.h"
#include "verbs/verbs.h"

namespace tool {
namespace {

namespace fs = std::filesystem;

struct LoadArguments : LoadOptions {
  bool isCsv = false;
  bool isJson = false;
  bool hasNoHeader = false;
  bool isSure = false;
  bool isDry = false;
  std::string delimiter = ",";
  std::string nullText;
  bool hasNullText = false;
};

void settle(LoadArguments& arguments) {
  const bool isNamedJson =
      arguments.file.ends_with(".jsonl") || arguments.file.ends_with(".ndjson");
  if (arguments.file == "-" && !arguments.isCsv && !arguments.isJson) {
    throw Failure(exitWrongUse, "Standard input needs --csv or --jsonl");
  }
  arguments.form.isJson = arguments.isJson || (isNamedJson && !arguments.isCsv);
  arguments.form.hasHeader = !arguments.hasNoHeader;
  if (arguments.hasNullText) arguments.form.nullText = arguments.nullText;
  if (arguments.delimiter == "\\t") arguments.delimiter = "\t";
  if (arguments.delimiter.size() != 1 ||
      arguments.delimiter.find_first_of("\"\r\n") != std::string::npos) {
    throw Failure(exitWrongUse, "--delimiter takes one character, or \\t");
  }
  arguments.form.delimiter = arguments.delimiter[0];
}

// Asks a person, where there is one.
bool isWanted(const LoadArguments& arguments) {
  if (arguments.isSure || arguments.file == "-") return true;
  if (isatty(STDIN_FILENO) == 0 || isatty(STDERR_FILENO) == 0) return true;
  std::fputs("Load? [y/N] ", stderr);
  std::string answer;
  std::getline(std::cin, answer);
  return answer == "y" || answer == "Y" || answer == "yes";
}

// The database, which is only made when rows are to come.
class Destination {
 public:
  Destination(const Common& common, const LoadArguments& arguments) : common_(common) {
    isMissing_ = !fs::exists(common.directory);
    isNew_ = isMissing_ || fs::is_empty(common.directory);
    if (isNew_) return;
    database_.emplace(common, arguments.isDry ? toRead : toWrite);
    const Catalogue catalogue = readCatalogue(**database_);
    const TableShape* const table = catalogue.table(arguments.table);
    if (table != nullptr) table_ = *table;
  }

  // Null where there is none.
  const TableShape* table() const { return table_ ? &*table_ : nullptr; }

  void run(const std::function<void(velmora::Database&)>& work) {
    if (isNew_) database_.emplace(common_, VELMORA_CREATE);
    try {
      work(**database_);
    } catch (...) {
      database_.reset();
      // Nothing but what the engine has just put there.
      if (isMissing_) fs::remove_all(common_.directory);
      throw;
    }
  }

 private:
  const Common& common_;
  bool isMissing_ = false;
  bool isNew_ = false;
  std::optional<OpenDatabase> database_;
  std::optional<TableShape> table_;
};

int load(const Common& common, LoadArguments& arguments) {
  settle(arguments);
  const Input input(arguments.file);
  Destination destination(common, arguments);
  const LoadPlan plan = makePlan(input, arguments, destination.table());
  const std::string shown = planText(plan, input);
  if (arguments.isDry) {
    write(shown);
    return exitDone;
  }
  std::fputs(shown.c_str(), stderr);
  if (!isWanted(arguments)) throw Failure(exitFailed, "Nothing is loaded");
  std::size_t rejected = 0;
  destination.run([&](velmora::Database& database) {
    Loader loader(database, input, arguments, plan);
    loader.run();
    rejected = loader.rejected();
    write(arguments.table + ": " + std::to_string(loader.loaded()) + " rows loaded" +
          (rejected > 0 ? ", " + std::to_string(rejected) + " rejected" : "") + "\n");
  });
  return rejected > 0 ? exitFailed : exitDone;
}

}  // namespace

Run loadVerb(CLI::App& app, Common& common) {
  const auto arguments = std::make_shared<LoadArguments>();
  addDirectory(app, common);
  app.add_option("TABLE", arguments->table, "The table; made if it is not there")->required();
  app.add_option("FILE", arguments->file, ".csv, .jsonl, or - for standard input")->required();
  auto* const csv = app.add_flag("--csv", arguments->isCsv, "FILE is CSV, whatever it is called");
  app.add_flag("--jsonl", arguments->isJson, "FILE has a JSON object a line")->excludes(csv);
  app.add_option("--delimiter", arguments->delimiter, "What stands between fields; usual is ,")
      ->type_name("CHARACTER");
  app.add_option_function<std::string>(
         "--null",
         [arguments](const std::string& text) {
           arguments->nullText = text;
           arguments->hasNullText = true;
         },
         "What a null field is; usual is an empty one without quotes")
      ->type_name("TEXT");
  app.add_flag("--no-header", arguments->hasNoHeader, "The first record has values, too");
  app.add_option("--types", arguments->types,
                 "\"name type, ...\": the types of these columns, which are guessed else; columns "
                 "that FILE has not, such as \"id ApexInt\", are added");
  app.add_option("--dates", arguments->dates,
                 "COLUMN or COLUMN=FORM: dates (2027-01-31, 2027-01-31T10:00:00Z, or as FORM says, "
                 "written as for strptime; UTC where nothing else is said) become seconds")
      ->type_name("COLUMN");
  app.add_option("--rejects", arguments->rejects,
                 "Write bad records into this file and go on; without, the first one stops all")
      ->type_name("FILE");
  app.add_flag("--dry-run", arguments->isDry, "Show what would be made, and stop");
  app.add_flag("--yes", arguments->isSure, "Do not ask");
  return [&common, arguments] { return load(common, *arguments); };
}

}  // namespace tool
