// velmora-tool VERB ...: the verbs' table, the command line, and how the process ends. Results go
// to standard output, all else to standard error.
#include <clocale>
#include <cstdio>
#include <iostream>
#include <list>

#include "failure.h"
#include "interrupt.h"
#include "output/text.h"
#include "verbs/verbs.h"

namespace tool {
namespace {

struct Verb {
  const char* name;
  const char* summary;
  const char* example;
  Run (*add)(CLI::App& app, Common& common);
};

constexpr Verb verbs[] = {
    {"shell", "A prompt for commands", "velmora-tool shell shop --read-only", shellVerb},
    {"tables", "What tables there are, and how large", "velmora-tool tables shop", tablesVerb},
    {"schema", "The commands that make the tables again", "velmora-tool schema shop lamps",
     schemaVerb},
    {"run", "Runs commands out of files, texts or standard input",
     "velmora-tool run shop --atomic changes.vel", runVerb},
    {"links", "Which columns are linked to which", "velmora-tool links shop", linksVerb},
    {"schedule", "What changes by itself, to what, when",
     "velmora-tool schedule shop --until +1d --table lamps", scheduleVerb},
    {"at", "The answer of a SELECT at another second",
     "velmora-tool at shop +2h 'SELECT name, colour FROM lamps'", atVerb},
    {"check", "Reads all files and lists what is wrong with them", "velmora-tool check shop",
     checkVerb},
    {"repair", "Saves what can be read of a damaged database", "velmora-tool repair shop",
     repairVerb},
    {"stat", "Sizes, and how many changes are made", "velmora-tool stat shop --watch 2", statVerb},
    {"backup", "Copies a database", "velmora-tool backup shop /backup/monday", backupVerb},
    {"restore", "Makes a database of a copy", "velmora-tool restore /backup/monday shop",
     restoreVerb},
    {"dump", "The database as commands, files of rows, or SQL", "velmora-tool dump shop > shop.vel",
     dumpVerb},
    {"diff", "What differs between two databases", "velmora-tool diff shop copy", diffVerb},
    {"load", "Rows of a CSV or JSON Lines file into a table",
     "velmora-tool load shop people people.csv", loadVerb},
    {"report", "A page to look at: tables, links, what changes when",
     "velmora-tool report shop -o shop.html", reportVerb},
    {"hash", "A hash of the content", "velmora-tool hash shop", hashVerb},
};

// A verb on the command line.
struct Choice {
  CLI::App* app;
  Common common;
  Run run;
};

void addVerbs(CLI::App& app, std::list<Choice>& choices) {
  for (const Verb& verb : verbs) {
    Choice& choice = choices.emplace_back();
    choice.app = app.add_subcommand(verb.name, verb.summary);
    choice.app->group("Verbs");
    choice.app->footer(std::string("Example: ") + verb.example);
    choice.run = verb.add(*choice.app, choice.common);
    addOptions(*choice.app, choice.common);
  }
}

// Writes what CLI11 has to say: help, or what is wrong with the command line.
int explain(const CLI::App& app, const CLI::ParseError& error) {
  std::ostringstream out;
  std::ostringstream complaint;
  const int code = app.exit(error, out, complaint);
  write(out.str());
  if (code == 0) return exitDone;
  std::fprintf(stderr, "velmora-tool: %s", complaint.str().c_str());
  return exitWrongUse;
}

int complain(const std::exception& error, int code) {
  tell(error.what());
  return code;
}

int run(int argumentCount, char** arguments) {
  CLI::App app("Looks after velmora databases.", "velmora-tool");
  app.set_version_flag("--version", std::string("velmora-tool ") + velmora_version());
  app.get_formatter()->label("SUBCOMMAND", "VERB");
  app.require_subcommand(0, 1);
  std::list<Choice> choices;  // what the verbs refer to stays where it is
  addVerbs(app, choices);
  try {
    app.parse(argumentCount, arguments);
  } catch (const CLI::ParseError& error) {
    return explain(app, error);
  }
  for (const Choice& choice : choices) {
    if (choice.app->parsed()) return choice.run();
  }
  throw Failure(exitWrongUse, "No verb; velmora-tool --help lists them");
}

int runSafely(int argumentCount, char** arguments) {
  try {
    catchInterrupts();
    const int code = run(argumentCount, arguments);
    flush();
    return code;
  } catch (const Failure& failure) {
    return complain(failure, failure.code);
  } catch (const velmora::Error& error) {
    return complain(error, exitCodeOf(error));
  } catch (const std::bad_alloc&) {
    return complain(Failure(exitFailed, "Out of memory"), exitFailed);
  } catch (const std::exception& error) {
    return complain(error, exitFailed);
  }
}

}  // namespace
}  // namespace tool

int main(int argumentCount, char** arguments) {
  // Widths of characters; the words of the system stay English.
  std::setlocale(LC_CTYPE, "C.UTF-8");
  const int code = tool::runSafely(argumentCount, arguments);
  std::fflush(stdout);
  return code;
}
