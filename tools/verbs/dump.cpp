// dump: a database as commands, as files of rows, or as SQL for another system.
#include <memory>

#include "copy/commands.h"
#include "copy/files.h"
#include "copy/sql.h"
#include "failure.h"
#include "open.h"
#include "verbs/verbs.h"

namespace tool {
namespace {

struct DumpOptions {
  std::string csvDirectory;
  std::string jsonlDirectory;
  std::string dialect;
  std::vector<std::string> shards;
};

ShardColumns shardColumns(const std::vector<std::string>& shards) {
  ShardColumns columns;
  for (const std::string& shard : shards) {
    const std::size_t sign = shard.find('=');
    if (sign == std::string::npos) {
      throw Failure(exitWrongUse, "--shard takes TABLE=COLUMN, not '" + shard + "'");
    }
    columns[shard.substr(0, sign)] = shard.substr(sign + 1);
  }
  return columns;
}

void dump(velmora::Database& database, const DumpOptions& options) {
  const Sink sink = [](std::string_view text) {
    checkInterrupt();
    write(text);
  };
  if (!options.csvDirectory.empty()) {
    writeFiles(database, options.csvDirectory, Format::csv);
  } else if (!options.jsonlDirectory.empty()) {
    writeFiles(database, options.jsonlDirectory, Format::jsonl);
  } else if (!options.dialect.empty()) {
    const Dialect dialect = options.dialect == "sqlite" ? Dialect::sqlite : Dialect::postgres;
    writeSql(database, dialect, shardColumns(options.shards), sink);
  } else {
    writeCommands(database, sink);
  }
}

}  // namespace

Run dumpVerb(CLI::App& app, Common& common) {
  const auto options = std::make_shared<DumpOptions>();
  addDirectory(app, common);
  auto* const csv = app.add_option("--csv", options->csvDirectory,
                                   "Write a CSV file a table into this directory, and schema.vel");
  auto* const jsonl =
      app.add_option("--jsonl", options->jsonlDirectory, "The same with a JSON text a line");
  auto* const sql =
      app.add_option("--sql", options->dialect, "Write SQL for this system: postgres or sqlite")
          ->check(CLI::IsMember({"postgres", "sqlite"}));
  app.add_option("--shard", options->shards,
                 "TABLE=COLUMN: distribute the table by this column (with --sql postgres)")
      ->needs(sql);
  csv->type_name("DIR")->excludes(jsonl)->excludes(sql);
  jsonl->type_name("DIR")->excludes(sql);
  return [&common, options] {
    common.now = common.second();  // all rows of one second
    OpenDatabase database(common, toRead);
    dump(*database, *options);
    return exitDone;
  };
}

}  // namespace tool
