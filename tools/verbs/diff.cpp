// diff: what differs between two databases.
#include <memory>

#include "copy/difference.h"
#include "failure.h"
#include "open.h"
#include "verbs/verbs.h"

namespace tool {
namespace {

velmora::Value textOrNull(const std::optional<std::string>& text) {
  if (!text) return {};
  return *text;
}
velmora::Value textOrNull(const std::string& text) {
  if (text.empty()) return {};
  return text;
}

void printDifferences(Format format, const std::vector<Difference>& found) {
  std::vector<std::vector<velmora::Value>> rows;
  for (const Difference& difference : found) {
    rows.push_back({difference.what, difference.table, textOrNull(difference.key),
                    textOrNull(difference.column), textOrNull(difference.first),
                    textOrNull(difference.second)});
  }
  print(format, {{"what"}, {"table"}, {"key"}, {"column"}, {"first"}, {"second"}}, rows);
}

}  // namespace

Run diffVerb(CLI::App& app, Common& common) {
  const auto second = std::make_shared<Common>();
  app.add_option("FIRST", common.directory, "The directory of a database")->required();
  app.add_option("SECOND", second->directory, "The directory of another one")->required();
  return [&common, second] {
    common.now = second->now = common.second();
    OpenDatabase first(common, toRead);
    OpenDatabase other(*second, toRead);
    const std::vector<Difference> found = differences(*first, *other);
    if (found.empty()) return exitDone;
    printDifferences(common.format, found);
    return exitFailed;
  };
}

}  // namespace tool
