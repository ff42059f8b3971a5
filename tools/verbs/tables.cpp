// tables: what tables there are, how large they are, and when they change next.
#include "disk.h"
#include "failure.h"
#include "open.h"
#include "time_point.h"
#include "verbs/verbs.h"

namespace tool {

Run tablesVerb(CLI::App& app, Common& common) {
  addDirectory(app, common);
  return [&common] {
    OpenDatabase database(common, toRead);
    Disk disk = diskOf(common.directory);
    std::vector<std::vector<velmora::Value>> rows;
    for (const velmora::Row& table : database->run("SHOW STORAGE")) {
      const auto change = table.get<std::optional<std::int64_t>>("next_change");
      rows.push_back({table["table"], table["rows"], table["deleted"], table["memory"],
                      disk.tableBytes[table.get<std::string>("table")], table["next_change"],
                      change ? velmora::Value(timeText(*change)) : velmora::Value()});
    }
    print(common.format,
          {{"table"},
           {"rows", VELMORA_INTEGER},
           {"deleted", VELMORA_INTEGER},
           {"memory", VELMORA_INTEGER},
           {"disk", VELMORA_INTEGER},
           {"next_change", VELMORA_INTEGER},
           {"time"}},
          rows);
    return exitDone;
  };
}

}  // namespace tool
