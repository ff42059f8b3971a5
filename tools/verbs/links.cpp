// links: which columns are linked to which.
#include "failure.h"
#include "open.h"
#include "verbs/verbs.h"

namespace tool {

Run linksVerb(CLI::App& app, Common& common) {
  addDirectory(app, common);
  return [&common] {
    OpenDatabase database(common, toRead);
    print(common.format, database->run("SHOW LINKS"));
    return exitDone;
  };
}

}  // namespace tool
