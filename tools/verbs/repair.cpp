// repair: makes a damaged database one that opens, of what can be read. The engine keeps a copy of
// the damaged files within the directory.
#include "failure.h"
#include "open.h"
#include "output/text.h"
#include "verbs/verbs.h"
#include "verify.h"

namespace tool {

Run repairVerb(CLI::App& app, Common& common) {
  addDirectory(app, common);
  return [&common] {
    if (faultsOf(common.directory).empty()) {
      tell(visible(common.directory) + ": no faults, nothing to repair");
      return exitDone;
    }
    std::vector<std::vector<velmora::Value>> lost;
    {
      OpenDatabase database(common, VELMORA_REPAIR, [&](int level, std::string_view line) {
        const char* const what = level == VELMORA_LOG_ERROR ? "lost" : "note";
        lost.push_back({what, std::string(line)});
      });
    }
    print(common.format, {{"what"}, {"text"}}, lost);
    if (const std::vector<Fault> left = faultsOf(common.directory); !left.empty()) {
      throw Failure(exitFailed, visible(common.directory) + ": there are faults left");
    }
    tell(visible(common.directory) + ": repaired");
    return exitDone;
  };
}

}  // namespace tool
