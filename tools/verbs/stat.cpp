// stat: sizes of files and log, and how many changes are made, also beside the program that has the
// database open; how many rows there are where nobody has.
#include <poll.h>

#include <cmath>

#include "disk.h"
#include "failure.h"
#include "interrupt.h"
#include "open.h"
#include "output/text.h"
#include "time_point.h"
#include "verbs/verbs.h"

namespace tool {
namespace {

constexpr std::int64_t recentSeconds = 300;

// What SHOW STORAGE adds up to; nulls where somebody has the database open.
struct Contents {
  velmora::Value rows, deleted, memory, nextChange;
};

Contents contentsOf(const Common& common) {
  Contents contents;
  std::int64_t rows = 0;
  std::int64_t deleted = 0;
  std::int64_t memory = 0;
  OpenDatabase database(common, toRead);
  const velmora::Result storage = database->run("SHOW STORAGE");
  for (const velmora::Row& table : storage) {
    rows += table.get<std::int64_t>("rows");
    deleted += table.get<std::int64_t>("deleted");
    memory += table.get<std::int64_t>("memory");
  }
  if (const auto second = storage.nextChange()) contents.nextChange = *second;
  contents.rows = rows;
  contents.deleted = deleted;
  contents.memory = memory;
  return contents;
}

velmora::Value wholeOf(std::uint64_t number) { return static_cast<std::int64_t>(number); }

const std::vector<Column>& columns() {
  static const std::vector<Column> all = {
      {"second", VELMORA_INTEGER},      {"files", VELMORA_INTEGER},
      {"log", VELMORA_INTEGER},         {"log_records", VELMORA_INTEGER},
      {"records", VELMORA_INTEGER},     {"per_second", VELMORA_REAL},
      {"last_change", VELMORA_INTEGER}, {"process", VELMORA_INTEGER},
      {"rows", VELMORA_INTEGER},        {"deleted", VELMORA_INTEGER},
      {"memory", VELMORA_INTEGER},      {"next_change", VELMORA_INTEGER}};
  return all;
}

std::vector<velmora::Value> rowOf(const velmora_disk& use, double perSecond, std::int64_t now,
                                  const Contents& contents) {
  return {now,
          wholeOf(use.file_bytes),
          wholeOf(use.log_bytes),
          wholeOf(use.log_records),
          wholeOf(use.records),
          std::round(perSecond * 100) / 100,
          use.last_second == 0 ? velmora::Value() : velmora::Value(use.last_second),
          use.process == 0 ? velmora::Value() : velmora::Value(use.process),
          contents.rows,
          contents.deleted,
          contents.memory,
          contents.nextChange};
}

int printOnce(const Common& common) {
  const std::int64_t now = common.second();
  const Disk disk = diskOf(common.directory, now - recentSeconds + 1);
  const double perSecond = static_cast<double>(disk.use.recent_records) / recentSeconds;
  const Contents contents = disk.use.process == 0 ? contentsOf(common) : Contents();
  print(common.format, columns(), {rowOf(disk.use, perSecond, now, contents)});
  return exitDone;
}

// A row now and then, each with what has changed since the one before.
int watch(const Common& common, double seconds, std::size_t count) {
  Output output(common.format == Format::box ? Format::csv : common.format, columns());
  Disk before = diskOf(common.directory);
  for (std::size_t i = 0; count == 0 || i < count; ++i) {
    poll(nullptr, 0, static_cast<int>(seconds * 1000));
    if (isInterrupted()) break;
    const Disk disk = diskOf(common.directory);
    const double perSecond = static_cast<double>(disk.use.records - before.use.records) / seconds;
    const std::vector<velmora::Value> row = rowOf(disk.use, perSecond, common.second(), Contents());
    output.addRow(row);
    flush();
    before = disk;
  }
  output.finish();
  return exitDone;
}

}  // namespace

Run statVerb(CLI::App& app, Common& common) {
  addDirectory(app, common);
  const auto seconds = std::make_shared<double>(0);
  const auto count = std::make_shared<std::size_t>(0);
  auto* const watched =
      app.add_option("--watch", *seconds, "A row every so many seconds, until Ctrl-C; csv for box")
          ->type_name("[SECONDS]")
          ->expected(0, 1)
          ->default_str("2")
          ->check(CLI::Range(0.001, 86'400.0));
  app.add_option("--count", *count, "With --watch: only so many rows")->needs(watched);
  return [&common, seconds, count, watched] {
    return watched->count() > 0 ? watch(common, *seconds, *count) : printOnce(common);
  };
}

}  // namespace tool
