// The calls of a database that return when they are done.
#include "calls.h"

#include "database.h"
#include "errors.h"
#include "result.h"
#include "texts.h"

namespace velmora_node {
namespace {

napi_ref referenceOf(const Call& call, std::size_t index) {
  napi_valuetype type = napi_undefined;
  require(call.env, napi_typeof(call.env, call.argument(index), &type));
  napi_ref reference = nullptr;
  if (type == napi_function) {
    require(call.env, napi_create_reference(call.env, call.argument(index), 1, &reference));
  }
  return reference;
}

// makeDatabase(flags, durability, openWait, transactionWait, log, progress, clock)
napi_value makeDatabase(const Call& call) {
  velmora_options options = {};
  options.flags = static_cast<std::uint32_t>(call.count(0));
  options.durability = static_cast<std::uint32_t>(call.count(1));
  options.open_wait_milliseconds = static_cast<std::uint32_t>(call.count(2));
  options.transaction_wait_milliseconds = static_cast<std::uint32_t>(call.count(3));
  const ScriptCallbacks callbacks{referenceOf(call, 4), referenceOf(call, 5), referenceOf(call, 6)};
  auto database = std::make_shared<Database>(*call.addon, options, callbacks);
  database->begin();
  return giveOut(call.env, std::make_unique<DatabaseHandle>(std::move(database)));
}

// open(database, path)
napi_value open(const Call& call) {
  Database& database = databaseOf(call, 0);
  const std::string path = call.text(1, "The path");
  requireOk([&](velmora_error** error) {
    int code = VELMORA_OK;
    {
      const UnderWay underWay(database);
      code = database.open(path, error);
    }
    database.hasOpened(code == VELMORA_OK);
    return code;
  });
  return nullptr;
}

// close(database)
napi_value close(const Call& call) {
  Database& database = databaseOf(call, 0);
  database.requireFree();
  if (database.hasJobs()) refuse(VELMORA_BUSY, "Asynchronous calls of the database are under way");
  requireOk([&](velmora_error** error) {
    int code = VELMORA_OK;
    {
      const UnderWay underWay(database);
      database.endCalls();
      code = database.closeEngine(error);
    }
    database.end();
    return code;
  });
  return nullptr;
}

// checkpoint(database)
napi_value checkpoint(const Call& call) {
  Database& database = databaseOf(call, 0);
  database.requireFree();
  const UnderWay underWay(database);
  requireOk([&](velmora_error** error) { return velmora_checkpoint(database.engine(), error); });
  return nullptr;
}

// backup(database, path)
napi_value backup(const Call& call) {
  Database& database = databaseOf(call, 0);
  database.requireFree();
  const std::string path = call.text(1, "The path");
  const UnderWay underWay(database);
  requireOk([&](velmora_error** error) {
    return velmora_backup(database.engine(), path.data(), path.size(), error);
  });
  return nullptr;
}

// batch(database, texts, counts, count, texts of the values): gives a result.
napi_value batch(const Call& call) {
  Database& database = databaseOf(call, 0);
  database.requireFree();
  const Batch batch(call);
  const UnderWay underWay(database);
  velmora_result* result = nullptr;
  requireOk([&](velmora_error** error) {
    return velmora_run_batch(database.engine(), batch.commands.data(), batch.commands.size(),
                             &result, error);
  });
  return giveOutResult(call.env, result);
}

// interrupt(database)
napi_value interrupt(const Call& call) {
  databaseOf(call, 0).interrupt();
  return nullptr;
}

// isInTransaction(database)
napi_value isInTransaction(const Call& call) {
  napi_value value = nullptr;
  require(call.env, napi_get_boolean(call.env, databaseOf(call, 0).isInTransaction(), &value));
  return value;
}

// reserve(database, isReserved): for an asynchronous transaction.
napi_value reserve(const Call& call) {
  databaseOf(call, 0).reserve(call.truth(1));
  return nullptr;
}

// check(path, report): calls report(file, offset, meaning) for each fault, when all are known.
napi_value check(const Call& call) {
  struct Fault {
    std::string file;
    std::int64_t offset;
    std::string meaning;
  };
  const std::string path = call.text(0, "The path");
  std::vector<Fault> faults;
  const auto report = [](void* context, const char* file, std::int64_t offset,
                         const char* meaning) {
    static_cast<std::vector<Fault>*>(context)->push_back({file, offset, meaning});
  };
  requireOk([&](velmora_error** error) {
    const int code = velmora_check(path.data(), path.size(), nullptr, report, &faults, error);
    if (code != VELMORA_CORRUPT || faults.empty()) return code;
    velmora_error_destroy(*error);
    return static_cast<int>(VELMORA_OK);
  });
  napi_value receiver = nullptr;
  require(call.env, napi_get_undefined(call.env, &receiver));
  for (const Fault& fault : faults) {
    const napi_value arguments[] = {stringOf(call.env, fault.file),
                                    numberValue(call.env, static_cast<double>(fault.offset)),
                                    stringOf(call.env, fault.meaning)};
    require(call.env,
            napi_call_function(call.env, receiver, call.argument(1), 3, arguments, nullptr));
  }
  return nullptr;
}

}  // namespace

Batch::Batch(const Call& call) {
  values.read(call, call.count(3), call.argument(4));
  std::uint32_t count = 0;
  require(call.env, napi_get_array_length(call.env, call.argument(1), &count));
  texts.reserve(count);
  const velmora_value* value = values.all().data();
  for (std::uint32_t i = 0; i < count; ++i) {
    napi_value text = nullptr;
    napi_value valueCount = nullptr;
    require(call.env, napi_get_element(call.env, call.argument(1), i, &text));
    require(call.env, napi_get_element(call.env, call.argument(2), i, &valueCount));
    double own = 0;
    require(call.env, napi_get_value_double(call.env, valueCount, &own));
    texts.push_back(utf8Of(call.env, text, "The command"));
    const auto ownCount = static_cast<std::size_t>(own);
    commands.push_back({texts.back().data(), texts.back().size(), value, ownCount});
    value += ownCount;
  }
}

std::vector<Export> databaseFunctions() {
  return {exported<makeDatabase>("makeDatabase"),
          exported<open>("open"),
          exported<close>("close"),
          exported<checkpoint>("checkpoint"),
          exported<backup>("backup"),
          exported<batch>("batch"),
          exported<interrupt>("interrupt"),
          exported<isInTransaction>("isInTransaction"),
          exported<reserve>("reserve"),
          exported<check>("check")};
}

}  // namespace velmora_node
