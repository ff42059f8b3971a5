// The calls of a database that its worker does: each returns a promise. What they are given is
// copied first; commands are parsed on the worker, since a statement is for one thread at a time.
#include <memory>
#include <string>

#include "calls.h"
#include "database.h"
#include "errors.h"
#include "values.h"

namespace velmora_node {
namespace {

struct StatementDestroy {
  void operator()(velmora_statement* statement) const noexcept {
    velmora_statement_destroy(statement);
  }
};

// openAsync(database, path)
napi_value openAsync(const Call& call) {
  Database& database = databaseOf(call, 0);
  const auto conclude = [&database](const Job& job) { database.hasOpened(job.code == VELMORA_OK); };
  return database.post([&database, path = call.text(1, "The path")](
                           Job& job) { return database.open(path, &job.error); },
                       conclude);
}

// closeAsync(database): no call may come behind it.
napi_value closeAsync(const Call& call) {
  Database& database = databaseOf(call, 0);
  database.requireUsable();
  {
    const UnderWay clockIsAsked(database);  // which may throw, and then the database stays open
    database.endCalls();
  }
  return database.post([&database](Job& job) { return database.closeEngine(&job.error); },
                       [&database](const Job&) { database.end(); });
}

// checkpointAsync(database)
napi_value checkpointAsync(const Call& call) {
  Database& database = databaseOf(call, 0);
  database.requireUsable();
  return database.post(
      [&database](Job& job) { return velmora_checkpoint(database.engine(), &job.error); });
}

// backupAsync(database, path)
napi_value backupAsync(const Call& call) {
  Database& database = databaseOf(call, 0);
  database.requireUsable();
  return database.post([&database, path = call.text(1, "The path")](Job& job) {
    return velmora_backup(database.engine(), path.data(), path.size(), &job.error);
  });
}

std::shared_ptr<Values> copiedValues(const Call& call, std::size_t count, std::size_t texts) {
  auto values = std::make_shared<Values>();
  values->read(call, call.count(count), call.argument(texts));
  return values;
}

// runAsync(database, text, count, texts of the values)
napi_value runAsync(const Call& call) {
  Database& database = databaseOf(call, 0);
  database.requireUsable();
  return database.post(
      [&database, text = call.text(1, "The command"), values = copiedValues(call, 2, 3)](Job& job) {
        return velmora_run(database.engine(), text.data(), text.size(), values->all().data(),
                           values->all().size(), &job.result, &job.error);
      });
}

int runMany(velmora_db* db, const std::string& text, const Values& values, std::size_t rows,
            Job& job) {
  velmora_statement* prepared = nullptr;
  const int code = velmora_prepare(db, text.data(), text.size(), &prepared, &job.error);
  const std::unique_ptr<velmora_statement, StatementDestroy> statement(prepared);
  if (code != VELMORA_OK) return code;
  return velmora_statement_run_many(prepared, values.all().data(), rows, &job.result, &job.error);
}

// runManyAsync(database, text, count, texts of the values, rows)
napi_value runManyAsync(const Call& call) {
  Database& database = databaseOf(call, 0);
  database.requireUsable();
  return database.post([&database, text = call.text(1, "The command"),
                        values = copiedValues(call, 2, 3), rows = call.count(4)](Job& job) {
    return runMany(database.engine(), text, *values, rows, job);
  });
}

// batchAsync(database, texts, counts, count, texts of the values)
napi_value batchAsync(const Call& call) {
  Database& database = databaseOf(call, 0);
  database.requireUsable();
  return database.post([&database, batch = std::make_shared<Batch>(call)](Job& job) {
    return velmora_run_batch(database.engine(), batch->commands.data(), batch->commands.size(),
                             &job.result, &job.error);
  });
}

}  // namespace

std::vector<Export> asynchronousFunctions() {
  return {exported<openAsync>("openAsync"),
          exported<closeAsync>("closeAsync"),
          exported<checkpointAsync>("checkpointAsync"),
          exported<backupAsync>("backupAsync"),
          exported<runAsync>("runAsync"),
          exported<runManyAsync>("runManyAsync"),
          exported<batchAsync>("batchAsync")};
}

}  // namespace velmora_node
