// schedule: what changes by itself, to what, when.
#include "failure.h"
#include "open.h"
#include "time_point.h"
#include "verbs/verbs.h"

namespace tool {
namespace {

struct Arguments {
  std::string table;
  std::string until;
};

// SHOW SCHEDULE's columns, with the second as a time beside it.
void printSchedule(Format format, const velmora::Result& result) {
  std::vector<Column> columns = columnsOf(result);
  columns.insert(columns.begin() + 1, Column{"time", VELMORA_TEXT});
  Output output(format, columns);
  std::vector<velmora_value> values(columns.size() - 1);
  for (std::size_t row = 0; row < result.size(); ++row) {
    result.values(row, 1, values);
    const std::string time = timeText(values[0].integer);
    std::vector<velmora_value> shown = values;
    shown.insert(shown.begin() + 1, velmora::detail::bound(time));
    output.add(shown);
  }
  output.finish();
}

}  // namespace

Run scheduleVerb(CLI::App& app, Common& common) {
  addDirectory(app, common);
  const auto arguments = std::make_shared<Arguments>();
  app.add_option("--table", arguments->table, "Only this table")->type_name("TABLE");
  app.add_option(
         "--until", arguments->until,
         std::string("All changes up to then, not only the next of each value: ") + timeHelp)
      ->type_name("TIME");
  return [&common, arguments] {
    std::string command = "SHOW SCHEDULE";
    if (!arguments->table.empty()) command += " FROM " + arguments->table;
    if (!arguments->until.empty()) {
      command += " UNTIL " + std::to_string(secondOf(arguments->until, common.second()));
    }
    OpenDatabase database(common, toRead);
    printSchedule(common.format, database->run(command));
    return exitDone;
  };
}

}  // namespace tool
