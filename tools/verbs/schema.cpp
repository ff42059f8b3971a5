// schema: the commands that make the tables, links and listeners again.
#include "schema.h"

#include "failure.h"
#include "open.h"
#include "verbs/verbs.h"

namespace tool {

Run schemaVerb(CLI::App& app, Common& common) {
  addDirectory(app, common);
  const auto table = std::make_shared<std::string>();
  app.add_option("TABLE", *table, "Only this table");
  return [&common, table] {
    OpenDatabase database(common, toRead);
    write(schemaCommands(*database, *table));
    return exitDone;
  };
}

}  // namespace tool
