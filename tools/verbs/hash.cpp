// hash: one text that tells whether two databases have the same content.
#include "copy/content.h"
#include "failure.h"
#include "open.h"
#include "verbs/verbs.h"

namespace tool {

Run hashVerb(CLI::App& app, Common& common) {
  addDirectory(app, common);
  return [&common] {
    OpenDatabase database(common, toRead);
    write(contentHash(*database) + "\n");
    return exitDone;
  };
}

}  // namespace tool
