// report: a page to look at.
#include <cerrno>
#include <fstream>
#include <memory>

#include "failure.h"
#include "open.h"
#include "output/text.h"
#include "report/page.h"
#include "verbs/verbs.h"

namespace tool {
namespace {

struct ReportOptions {
  std::string file;
  std::size_t rows = 12;
};

void writePage(const std::string& name, const std::string& page) {
  if (name.empty()) return write(page);
  std::ofstream file(name, std::ios::binary);
  file << page;
  file.close();
  if (!file) throwSystem(visible(name), errno);
}

int report(Common& common, const ReportOptions& options) {
  common.now = common.second();
  Facts facts;
  facts.directory = common.directory;
  facts.now = *common.now;
  facts.faults = findFaults(common.directory);
  // What is damaged is not opened.
  if (facts.faults.empty()) {
    OpenDatabase database(common, toRead);
    readFacts(*database, options.rows, facts);
  }
  measureFiles(facts);
  writePage(options.file, pageOf(facts));
  return facts.faults.empty() ? exitDone : exitFailed;
}

}  // namespace

Run reportVerb(CLI::App& app, Common& common) {
  const auto options = std::make_shared<ReportOptions>();
  addDirectory(app, common);
  app.add_option("-o,--output", options->file, "The HTML file; usual is standard output")
      ->type_name("FILE");
  app.add_option("--rows", options->rows,
                 "The most timed values of a table, and changes, that are shown; usual are 12");
  return [&common, options] { return report(common, *options); };
}

}  // namespace tool
