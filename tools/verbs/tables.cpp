// tables: what tables there are, and how large.
#include "failure.h"
#include "open.h"
#include "verbs/verbs.h"

namespace tool {

Run tablesVerb(CLI::App& app, Common& common) {
  addDirectory(app, common);
  return [&common] {
    OpenDatabase database(common, toRead);
    print(common.format, database->run("SHOW TABLES"));
    return exitDone;
  };
}

}  // namespace tool
