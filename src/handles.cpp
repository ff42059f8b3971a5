// The exported functions over databases and statements: what is given is checked and copied, one
// function of the engine is called, and what it says is handed out. The rules for callers stand in
// the public header.
#include "handles.h"

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstring>
#include <span>
#include <utility>

#include "query/row_hint.h"
#include "text.h"

namespace velmora {
namespace {

[[noreturn]] void throwMisuse(const std::string& text) { throw Failure(Code::misuse, text); }

std::string_view givenText(const char* text, std::size_t length, const char* name) {
  if (text == nullptr && length > 0) throwMisuse(std::string(name) + " is null");
  return {text, length};
}

// Of what bytes it is made is the parser's affair.
std::string_view commandText(const char* text, std::size_t length) {
  return givenText(text, length, "Command");
}

std::string_view pathText(const char* path, std::size_t length) {
  const std::string_view given = givenText(path, length, "Path");
  if (given.empty()) throwMisuse("Path is empty");
  if (given.find('\0') != std::string_view::npos) throwMisuse("Path has a zero byte");
  return given;
}

std::string valueName(std::size_t index) { return "Value " + std::to_string(index + 1); }

std::string_view valueText(const velmora_value& value, std::size_t index) {
  if (value.text == nullptr && value.text_size > 0) throwMisuse(valueName(index) + " is null");
  const std::string_view given(value.text, value.text_size);
  if (given.find('\0') != std::string_view::npos) {
    throw Failure(Code::range, valueName(index) + " has a zero byte");
  }
  if (utf8Prefix(given) < given.size()) {
    throw Failure(Code::range, valueName(index) + " is not UTF-8");
  }
  return given;
}

// Copies the value that is the caller's index-th, counted from 0; one that is refused changes
// nothing.
void assignValue(Value& own, const velmora_value& value, std::size_t index) {
  switch (value.type) {
    case VELMORA_NULL:
      own = {};
      break;
    case VELMORA_INTEGER:
      own = value.integer;
      break;
    case VELMORA_REAL:
      if (!std::isfinite(value.real)) {
        throw Failure(Code::range, valueName(index) + " is not finite");
      }
      own = value.real;
      break;
    case VELMORA_BOOLEAN:
      own = value.boolean != 0;
      break;
    case VELMORA_TEXT: {
      const std::string_view given = valueText(value, index);
      auto* const text = std::get_if<std::string>(&own);
      text != nullptr ? void(text->assign(given)) : void(own = std::string(given));
      break;
    }
    default:
      throwMisuse(valueName(index) + " has no type that there is");
  }
}

std::vector<Value> ownValues(const velmora_value* values, std::size_t count) {
  if (values == nullptr && count > 0) throwMisuse("Values are null");
  std::vector<Value> own(count);
  for (std::size_t i = 0; i < count; ++i) assignValue(own[i], values[i], i);
  return own;
}

// A struct that the caller's header may know less or more of than this one. Every size that one
// has had ends with a whole member.
velmora_options readOptions(const velmora_options* given) {
  velmora_options options = {};
  options.flags = VELMORA_CREATE;
  if (given == nullptr) return options;
  const std::size_t size = given->size;
  if (size == 0 || size % alignof(velmora_options) != 0) throwMisuse("Options have a wrong size");
  options.flags = 0;
  const std::size_t known = std::min(size, sizeof options);
  std::memcpy(&options, given, known);
  const std::span<const char> bytes(reinterpret_cast<const char*>(given), size);
  const auto isSet = [](char byte) { return byte != 0; };
  if (std::ranges::any_of(bytes.subspan(known), isSet)) {
    throwMisuse("Options ask for what this version does not know");
  }
  return options;
}

void checkOptions(const velmora_options& options) {
  const auto has = [&](unsigned flag) { return (options.flags & flag) != 0; };
  constexpr unsigned all = VELMORA_READ_ONLY | VELMORA_CREATE | VELMORA_EXCLUSIVE | VELMORA_REPAIR;
  if (has(~all)) throwMisuse("Options have an unknown flag");
  if (has(VELMORA_READ_ONLY) && options.flags != VELMORA_READ_ONLY) {
    throwMisuse("VELMORA_READ_ONLY goes with no other flag");
  }
  if (has(VELMORA_EXCLUSIVE) && !has(VELMORA_CREATE)) {
    throwMisuse("VELMORA_EXCLUSIVE needs VELMORA_CREATE");
  }
  if (options.durability > VELMORA_DURABILITY_OFF) throwMisuse("Options have no durability");
}

std::chrono::milliseconds transactionWait(std::uint32_t milliseconds) {
  constexpr std::chrono::hours century(24 * 36525);
  if (milliseconds == VELMORA_NO_LIMIT) return century;
  return std::chrono::milliseconds(milliseconds == 0 ? 5000 : milliseconds);
}

// The database whose callback this thread is in; it may hold locks.
constinit thread_local const velmora_db* callingBack = nullptr;

class CallbackMark {
 public:
  explicit CallbackMark(const velmora_db* db) : before_(std::exchange(callingBack, db)) {}
  ~CallbackMark() { callingBack = before_; }
  CallbackMark(const CallbackMark&) = delete;
  CallbackMark& operator=(const CallbackMark&) = delete;

 private:
  const velmora_db* before_;
};

static_assert(VELMORA_LOG_INFORMATION == static_cast<int>(LogLevel::information));
static_assert(VELMORA_LOG_WARNING == static_cast<int>(LogLevel::warning));
static_assert(VELMORA_LOG_ERROR == static_cast<int>(LogLevel::error));

Callbacks callbacksOf(const velmora_options& options, const velmora_db* db) {
  Callbacks callbacks;
  if (options.log != nullptr) {
    callbacks.log = [=](LogLevel level, std::string_view line) {
      const CallbackMark mark(db);
      options.log(options.context, static_cast<int>(level), line.data(), line.size());
    };
  }
  if (options.progress != nullptr) {
    callbacks.progress = [=](std::string_view what, std::uint64_t done, std::uint64_t total) {
      const CallbackMark mark(db);
      return options.progress(options.context, what.data(), what.size(), done, total) == 0;
    };
  }
  if (options.clock != nullptr) {
    callbacks.clock = [=] {
      const CallbackMark mark(db);
      return options.clock(options.context);
    };
  }
  return callbacks;
}

static_assert(VELMORA_DURABILITY_ALWAYS == static_cast<int>(Durability::always));
static_assert(VELMORA_DURABILITY_EVERYSEC == static_cast<int>(Durability::everySecond));
static_assert(VELMORA_DURABILITY_OFF == static_cast<int>(Durability::off));

OpenOptions openOptions(const velmora_options& options, const velmora_db* db) {
  OpenOptions open;
  open.isReadOnly = (options.flags & VELMORA_READ_ONLY) != 0;
  open.mayCreate = (options.flags & VELMORA_CREATE) != 0;
  open.mustCreate = (options.flags & VELMORA_EXCLUSIVE) != 0;
  open.mayRepair = (options.flags & VELMORA_REPAIR) != 0;
  open.durability = static_cast<Durability>(options.durability);
  open.openWait = std::chrono::milliseconds(options.open_wait_milliseconds);
  open.transactionWait = transactionWait(options.transaction_wait_milliseconds);
  open.callbacks = callbacksOf(options, db);
  return open;
}

static_assert(VELMORA_READS == static_cast<int>(CommandKind::reads));
static_assert(VELMORA_CHANGES == static_cast<int>(CommandKind::changes));
static_assert(VELMORA_CONTROLS == static_cast<int>(CommandKind::controls));
static_assert(VELMORA_MAINTAINS == static_cast<int>(CommandKind::maintains));

template <typename Handle>
Handle& required(Handle* handle, const char* name) {
  if (handle == nullptr) throwMisuse(std::string(name) + " is null");
  return *handle;
}

void requireNoCallback(const velmora_db* db) {
  if (db->hasCallbacks && callingBack == db)
    throwMisuse("Database is called from its own callback");
}

Engine& engineOf(velmora_db* db) {
  requireNoCallback(&required(db, "Database"));
  return db->engine;
}

velmora_statement& runnable(velmora_statement* statement) {
  requireNoCallback(required(statement, "Statement").db);
  return *statement;
}

std::string counted(std::size_t count, const std::string& noun) {
  return std::to_string(count) + " " + noun + (count == 1 ? "" : "s");
}

std::unique_ptr<velmora_statement> prepare(velmora_db* db, std::string_view text) {
  auto prepared = engineOf(db).prepare(text);
  std::vector<Value> values(static_cast<std::size_t>(prepared->parameterCount()));
  const RowHint& hint = prepared->hint();
  return std::unique_ptr<velmora_statement>(
      new velmora_statement{db, std::move(prepared), std::move(values), hint});
}

void runBatch(Engine& engine, std::span<const velmora_command> commands, Answer& answer) {
  std::vector<std::vector<Value>> values;
  std::vector<BatchCommand> batch;
  values.reserve(commands.size());  // what the batch refers to stays where it is
  for (const velmora_command& command : commands) {
    values.push_back(ownValues(command.values, command.count));
    batch.push_back({commandText(command.text, command.length), values.back()});
  }
  engine.runBatch(batch, answer);
}

}  // namespace
}  // namespace velmora

using namespace velmora;

velmora_db::velmora_db(std::string_view path, const velmora_options& options)
    : hasCallbacks(options.log != nullptr || options.progress != nullptr ||
                   options.clock != nullptr),
      engine(path, openOptions(options, this)) {}

extern "C" {

int velmora_open(const char* path, size_t length, const velmora_options* options, velmora_db** db,
                 velmora_error** error) {
  if (db != nullptr) *db = nullptr;
  return codeOf(error, [&] {
    const velmora_options read = readOptions(options);
    checkOptions(read);
    required(db, "Place for the database");
    *db = new velmora_db(pathText(path, length), read);
  });
}

int velmora_close(velmora_db* db, velmora_error** error) {
  return codeOf(error, [db] {
    if (db == nullptr) return;
    Engine& engine = engineOf(db);
    if (const std::size_t count = db->statements; count > 0) {
      throw Failure(Code::inUse, "Database has " + counted(count, "statement"));
    }
    engine.close();
    delete db;
  });
}

int velmora_run(velmora_db* db, const char* text, size_t length, const velmora_value* values,
                size_t count, velmora_result** result, velmora_error** error) {
  return codeOfAnswer(result, error, [&](Answer& answer) {
    Engine& engine = engineOf(db);
    const std::unique_ptr<Prepared> prepared = engine.prepare(commandText(text, length));
    engine.run(*prepared, ownValues(values, count), answer);
  });
}

int velmora_in_transaction(const velmora_db* db) {
  return db != nullptr && db->engine.isInTransaction() ? 1 : 0;
}

int velmora_run_batch(velmora_db* db, const velmora_command* commands, size_t count,
                      velmora_result** result, velmora_error** error) {
  return codeOfAnswer(result, error, [&](Answer& answer) {
    Engine& engine = engineOf(db);
    if (count > 0) required(commands, "Commands");
    runBatch(engine, {commands, count}, answer);
  });
}

int velmora_checkpoint(velmora_db* db, velmora_error** error) {
  return codeOf(error, [db] { engineOf(db).checkpoint(); });
}

int velmora_backup(velmora_db* db, const char* path, size_t length, velmora_error** error) {
  return codeOf(error, [&] { engineOf(db).backup(pathText(path, length)); });
}

void velmora_interrupt(velmora_db* db) {
  if (db != nullptr) db->engine.interrupt();
}

int velmora_check(const char* path, size_t length, const velmora_options* options,
                  velmora_fault report, void* context, velmora_error** error) {
  return codeOf(error, [&] {
    const Callbacks callbacks = callbacksOf(readOptions(options), nullptr);
    std::size_t faults = 0;
    checkDatabase(pathText(path, length), callbacks, [&](const Fault& fault) {
      ++faults;
      if (report == nullptr) return;
      report(context, fault.file.c_str(), fault.offset, fault.meaning.c_str());
    });
    if (faults > 0) throw Failure(Code::corrupt, "Database has " + counted(faults, "fault"));
  });
}

int velmora_stat(const char* path, size_t length, int64_t recent_second, velmora_disk* disk,
                 velmora_disk_file report, void* context, velmora_error** error) {
  return codeOf(error, [&] {
    if (required(disk, "Place for the answer").size != sizeof *disk) {
      throwMisuse("Answer has a wrong size");
    }
    const DiskUse use = diskUse(pathText(path, length), recent_second,
                                [&](const std::string& file, std::string_view table, auto bytes) {
                                  if (report == nullptr) return;
                                  report(context, file.c_str(), std::string(table).c_str(), bytes);
                                });
    *disk = {disk->size,     use.process,       use.fileBytes, use.logBytes,
             use.logRecords, use.recentRecords, use.records,   use.lastSecond};
  });
}

int velmora_prepare(velmora_db* db, const char* text, size_t length, velmora_statement** statement,
                    velmora_error** error) {
  if (statement != nullptr) *statement = nullptr;
  return codeOf(error, [&] {
    required(statement, "Place for the statement");
    *statement = prepare(db, commandText(text, length)).release();
    ++db->statements;
  });
}

size_t velmora_statement_parameters(const velmora_statement* statement) {
  return statement == nullptr ? 0 : statement->values.size();
}

velmora_kind velmora_statement_kind(const velmora_statement* statement) {
  return statement == nullptr ? VELMORA_READS
                              : static_cast<velmora_kind>(statement->prepared->kind());
}

int velmora_bind(velmora_statement* statement, size_t index, const velmora_value* value,
                 velmora_error** error) {
  return codeOf(error, [&] {
    const RowHint& hint = required(statement, "Statement").hint;
    std::vector<Value>& values = statement->values;
    if (index == 0 || index > values.size()) {
      throwMisuse("Command has " + counted(values.size(), "parameter") + ", and no parameter " +
                  std::to_string(index));
    }
    assignValue(values[index - 1], required(value, "Value"), index - 1);
    if (hint.isKey(index - 1)) hint.prefetch(values[index - 1]);
  });
}

void velmora_clear_bindings(velmora_statement* statement) {
  if (statement != nullptr) std::ranges::fill(statement->values, Value());
}

int velmora_statement_run(velmora_statement* statement, velmora_result** result,
                          velmora_error** error) {
  return codeOfAnswer(result, error, [&](Answer& answer) {
    const velmora_statement& own = runnable(statement);
    own.db->engine.run(*own.prepared, own.values, answer);
  });
}

int velmora_statement_run_many(velmora_statement* statement, const velmora_value* values,
                               size_t row_count, velmora_result** result, velmora_error** error) {
  return codeOfAnswer(result, error, [&](Answer& answer) {
    const velmora_statement& own = runnable(statement);
    std::size_t count = 0;
    if (__builtin_mul_overflow(row_count, own.values.size(), &count)) throwMisuse("Too many rows");
    if (values == nullptr && count > 0) throwMisuse("Values are null");
    const std::size_t width = own.values.size();
    std::vector<Value> row(width);
    const auto valuesOf = [&](std::size_t index) {
      for (std::size_t i = index * width; i < (index + 1) * width; ++i) {
        assignValue(row[i - index * width], values[i], i);
      }
      return std::span<const Value>(row);
    };
    own.db->engine.runMany(*own.prepared, row_count, valuesOf, answer);
  });
}

void velmora_statement_destroy(velmora_statement* statement) {
  if (statement == nullptr) return;
  velmora_db* const db = statement->db;
  delete statement;
  --db->statements;
}

const char* velmora_version(void) { return VELMORA_VERSION; }

void velmora_version_numbers(int* major, int* minor, int* patch) {
  if (major != nullptr) *major = VELMORA_VERSION_MAJOR;
  if (minor != nullptr) *minor = VELMORA_VERSION_MINOR;
  if (patch != nullptr) *patch = VELMORA_VERSION_PATCH;
}

}  // extern "C"
