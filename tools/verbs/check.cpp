// check: reads all files of a database that nobody has open, and lists what is wrong with them.
#include "failure.h"
#include "interrupt.h"
#include "open.h"
#include "output/text.h"
#include "verbs/verbs.h"
#include "verify.h"

namespace tool {
namespace {

void printFaults(Format format, const std::vector<Fault>& faults) {
  std::vector<std::vector<velmora::Value>> rows;
  for (const Fault& fault : faults) {
    rows.push_back({fault.file, fault.offset < 0 ? velmora::Value() : velmora::Value(fault.offset),
                    fault.meaning});
  }
  print(format, {{"file"}, {"offset", VELMORA_INTEGER}, {"meaning"}}, rows);
}

}  // namespace

Run checkVerb(CLI::App& app, Common& common) {
  addDirectory(app, common);
  return [&common] {
    letInterruptsEnd();
    const std::vector<Fault> faults = faultsOf(common.directory);
    if (faults.empty()) {
      tell(visible(common.directory) + ": no faults");
      return exitDone;
    }
    printFaults(common.format, faults);
    return exitFailed;
  };
}

}  // namespace tool
