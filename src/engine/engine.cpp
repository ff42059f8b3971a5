// How an engine runs commands; see engine.h. Opening and closing stand in engine_open.cpp.
#include "engine.h"

#include <mutex>
#include <new>
#include <optional>
#include <stdexcept>
#include <type_traits>
#include <utility>

#include "../failure.h"
#include "../strict/parser.h"
#include "engine_parts.h"

namespace velmora {
namespace {

template <typename... Kinds>
bool isAny(const strict::Command& command) noexcept {
  return (std::holds_alternative<Kinds>(command) || ...);
}

void addTo(RecordText& record, const strict::Statement& statement, const RunContext& context) {
  std::span<const Value> values = context.values;
  std::optional<std::int64_t> clock;
  if (statement.clock) clock = context.timedStart;
  if (statement.clock && statement.clock->isParameter()) values = values.first(values.size() - 1);
  record.add(statement.text, values, context.now, clock);
}

std::int64_t clockOf(const strict::Statement& statement, std::span<const Value> values,
                     std::int64_t now) {
  if (!statement.clock) return now;
  const auto* const second = std::get_if<std::int64_t>(&valueOf(*statement.clock, values));
  const auto refuse = [&](Code code) {
    throw Failure(
        code, "The clock has to be a whole number from 0 to " + std::to_string(strict::latestClock))
        .at(statement.clock->offset);
  };
  if (second == nullptr) refuse(Code::type);
  if (*second < 0 || *second > strict::latestClock) refuse(Code::range);
  return *second;
}

// Whether nothing needs to be kept of the command: it found no row.
bool hasNoEffect(const strict::Command& command, const Answer& answer) {
  const bool countsRows = isAny<strict::Update, strict::Delete, strict::Listen>(command);
  return countsRows && answer.rowsAffected == 0;
}

// A writer's visit with the files held, too. Another holder, a copy that is being made, is waited
// for outside of the gate, where that holds up nobody.
class FilesVisit {
 public:
  FilesVisit(Gate& gate, std::mutex& files, const Interrupt& interrupt) {
    while (true) {
      visit_.emplace(gate, interrupt);
      hold_ = std::unique_lock(files, std::try_to_lock);
      if (hold_.owns_lock()) return;
      visit_.reset();
      const std::lock_guard wait(files);
    }
  }

  void letReadersIn() noexcept { visit_->letReadersIn(); }

 private:
  std::optional<WriterVisit> visit_;
  std::unique_lock<std::mutex> hold_;
};

// Faults that are told by other exceptions, as failures. What the tables throw otherwise is that
// there is no room for another row.
template <typename Run>
void translated(Run run) {
  try {
    run();
  } catch (const Failure&) {
    throw;
  } catch (const std::bad_alloc&) {
    throw;
  } catch (const NotRegularFile& error) {
    throw Failure(Code::io, error.what());
  } catch (const std::length_error& error) {
    throw Failure(Code::full, error.what());
  } catch (const std::runtime_error& error) {
    throw Failure(Code::full, error.what());
  } catch (const std::exception& error) {
    throw Failure(Code::internal, error.what());
  }
}

}  // namespace

Prepared::Prepared(std::unique_ptr<Parts> parts) : parts_(std::move(parts)) {}
Prepared::~Prepared() = default;
int Prepared::parameterCount() const noexcept { return parts_->statement.parameterCount; }
CommandKind Prepared::kind() const noexcept {
  const strict::Command& command = parts_->statement.command;
  if (isAny<strict::Select, strict::Show>(command)) return CommandKind::reads;
  if (isAny<strict::Begin, strict::Commit, strict::Rollback>(command)) return CommandKind::controls;
  if (isAny<strict::Checkpoint, strict::Vacuum>(command)) return CommandKind::maintains;
  return CommandKind::changes;
}

const RowHint& Prepared::hint() const noexcept { return parts_->hint; }

std::unique_ptr<Prepared> Engine::prepare(std::string_view text) {
  auto parts = std::make_unique<Prepared::Parts>();
  parts->statement = strict::parse(text);
  return std::unique_ptr<Prepared>(new Prepared(std::move(parts)));
}

void Engine::run(Prepared& prepared, std::span<const Value> values, Answer& answer) {
  const strict::Statement& statement = prepared.parts_->statement;
  if (values.size() != static_cast<std::size_t>(statement.parameterCount)) {
    throw Failure(Code::misuse, "The command has places for " +
                                    std::to_string(statement.parameterCount) + " values, not " +
                                    std::to_string(values.size()));
  }
  Parts& engine = *parts_;
  translated([&] {
    // Before all others, since the look for what a command is would be part of a look-up by key.
    if (isAny<strict::Select>(statement.command)) {
      engine.read(*prepared.parts_, values, answer);
      return;
    }
    std::visit(
        [&](const auto& command) {
          using T = std::remove_cvref_t<decltype(command)>;
          if constexpr (std::is_same_v<T, strict::Select> || std::is_same_v<T, strict::Show>) {
            engine.read(*prepared.parts_, values, answer);
          } else if constexpr (std::is_same_v<T, strict::Begin>) {
            engine.beginTransaction();
          } else if constexpr (std::is_same_v<T, strict::Commit>) {
            engine.commitTransaction();
          } else if constexpr (std::is_same_v<T, strict::Rollback>) {
            engine.rollbackTransaction();
          } else if constexpr (std::is_same_v<T, strict::Checkpoint>) {
            engine.checkpoint();
          } else if constexpr (std::is_same_v<T, strict::Vacuum>) {
            engine.vacuum(command, answer);
          } else {
            engine.change(*prepared.parts_, values, answer);
          }
        },
        statement.command);
  });
  engine.tellOfClock();
}

void Engine::runMany(Prepared& prepared, std::size_t rows, const ValuesOfRow& valuesOf,
                     Answer& answer) {
  if (prepared.kind() != CommandKind::changes) {
    throw Failure(Code::misuse, "Only a command that changes something can be run many times");
  }
  translated([&] {
    parts_->asOne([&] {
      std::int64_t rowsAffected = 0;
      const RecordText::Mark recorded = parts_->record.mark();
      for (std::size_t i = 0; i < rows; ++i) {
        answer.rowsAffected = 0;
        parts_->change(*prepared.parts_, valuesOf(i), answer);
        rowsAffected += answer.rowsAffected;
        if (i == 0) parts_->record.makeRoom(rows - 1, recorded);
      }
      answer.rowsAffected = rowsAffected;
    });
  });
  parts_->tellOfClock();
}

bool Engine::isInTransaction() const noexcept { return parts_->gate.isInTransaction(); }

void Engine::runBatch(std::span<const BatchCommand> commands, Answer& answer) {
  std::vector<std::unique_ptr<Prepared>> prepared;
  for (const BatchCommand& command : commands) {
    prepared.push_back(prepare(command.text));
    const CommandKind kind = prepared.back()->kind();
    if (kind != CommandKind::reads && kind != CommandKind::changes) {
      throw Failure(Code::transaction, "The command cannot be part of a batch").at(0);
    }
  }
  translated([&] {
    parts_->asOne([&] {
      for (std::size_t i = 0; i < commands.size(); ++i) {
        answer = Answer();
        run(*prepared[i], commands[i].values, answer);
      }
    });
  });
}

void Engine::checkpoint() {
  translated([&] { parts_->checkpoint(); });
  parts_->tellOfClock();
}

void Engine::interrupt() noexcept {
  parts_->interrupts.interruptAll();
  parts_->gate.wakeAll();
}

void Engine::close() noexcept { parts_->close(); }

// What was answered with a failure must not be shown.
void Engine::Parts::throwUnsure() const {
  if (isBroken) {
    throw Failure(Code::internal, "A change could not be taken back: open the database again");
  }
  throw Failure(Code::io, "The log could not be synced: open the database again");
}

void Engine::Parts::requireWritable() const {
  requireSure();
  if (options.isReadOnly) throw Failure(Code::readOnly, "The database is open to be read only");
  if (log->hasFailed()) {
    throw Failure(Code::io, "The log could not be written: open the database again");
  }
}

void Engine::Parts::read(Prepared::Parts& prepared, std::span<const Value> values, Answer& answer) {
  const Interrupt interrupt(interrupts);
  const ReaderVisit visit(gate, interrupt);
  requireSure();
  prepared.keepOnly(catalogueVersion);
  // As early as can be: part of the wait for the row passes with what follows.
  Query::Found found;
  if (prepared.query) found = prepared.query->find(values, prepared.hint);
  const QueryContext context{values, second(), interrupt};
  const auto* const select = std::get_if<strict::Select>(&prepared.statement.command);
  if (select == nullptr) {
    show(std::get<strict::Show>(prepared.statement.command), database->tables, database->listeners,
         context, answer);
    answer.rowsAffected = static_cast<std::int64_t>(answer.rowCount());
    return;
  }
  if (!prepared.query) prepared.query.emplace(*select, database->tables);
  prepared.query->run(context, answer, found);
  answer.rowsAffected = static_cast<std::int64_t>(answer.rowCount());
}

void Engine::Parts::change(Prepared::Parts& prepared, std::span<const Value> values,
                           Answer& answer) {
  const strict::Statement& statement = prepared.statement;
  const Interrupt interrupt(interrupts);
  WriterVisit visit(gate, interrupt);
  requireWritable();
  const bool isOfCatalogue = changesCatalogue(statement.command);
  std::int64_t now = second();
  if (isOfCatalogue) now = latestSecond;
  const RunContext context{values, now, clockOf(statement, values, now), interrupt};
  const std::size_t before = changes->undo().size();
  const RecordText::Mark recorded = record.mark();
  if (isOfCatalogue) ++catalogueVersion;
  prepared.keepOnly(catalogueVersion);
  std::int64_t end = 0;
  try {
    runChange(*changes, statement.command, prepared.insert, context, answer);
    if (!hasNoEffect(statement.command, answer)) {
      addTo(record, statement, context);
      if (!gate.isInTransaction()) end = log->append(record);
    }
  } catch (...) {
    record.cutTo(recorded);
    undoTo(before);
    throw;
  }
  answer.second = now;
  if (gate.isInTransaction()) return;
  record.wasWritten();
  changes->undo().clear();
  visit.leave();
  syncIfAlways(end);
}

void Engine::Parts::undoTo(std::size_t changeCount) {
  try {
    changes->undo().undoTo(changeCount, latestSecond);
  } catch (...) {
    isBroken = true;
    throw;
  }
}

void Engine::Parts::syncIfAlways(std::int64_t end) {
  if (end == 0 || options.durability != Durability::always) return;
  try {
    log->syncTo(end);
  } catch (...) {
    isUnsure = true;
    throw;
  }
}

void Engine::Parts::beginTransaction() {
  if (gate.isInTransaction()) throw Failure(Code::transaction, "A transaction is open");
  const Interrupt interrupt(interrupts);
  WriterVisit visit(gate, interrupt);
  requireWritable();
  visit.handToTransaction();
}

void Engine::Parts::commitTransaction() {
  if (!gate.isInTransaction()) throw Failure(Code::transaction, "No transaction is open");
  std::int64_t end = 0;
  try {
    if (!record.isEmpty()) end = log->append(record);
  } catch (...) {
    rollbackTransaction();
    throw;
  }
  changes->undo().clear();
  record.wasWritten();
  gate.endTransaction();
  syncIfAlways(end);
}

void Engine::Parts::rollbackTransaction() {
  if (!gate.isInTransaction()) throw Failure(Code::transaction, "No transaction is open");
  record.clear();
  ++catalogueVersion;
  try {
    undoTo(0);
  } catch (...) {
    gate.endTransaction();
    throw;
  }
  gate.endTransaction();
}

template <typename Steps>
void Engine::Parts::asOne(Steps steps) {
  if (gate.isInTransaction()) {
    const std::size_t changeCount = changes->undo().size();
    const RecordText::Mark recorded = record.mark();
    try {
      steps();
    } catch (...) {
      ++catalogueVersion;
      record.cutTo(recorded);
      undoTo(changeCount);
      throw;
    }
    return;
  }
  beginTransaction();
  try {
    steps();
  } catch (...) {
    rollbackTransaction();
    throw;
  }
  commitTransaction();
}

// files and the gate, as a writer, held.
void Engine::Parts::saveFiles() {
  const SealedRest rest{database->listeners, log->nextSequence(), latestSecond, areFilesDamaged};
  try {
    saveSealed(database->tables, rest, database->directory, progressOf("checkpoint"));
  } catch (const CheckpointInDoubt&) {
    log->fail();
    throw;
  }
  areFilesDamaged = false;
  record.clear();
  log->wasEmptied();
}

void Engine::Parts::checkpoint() {
  if (gate.isInTransaction()) {
    throw Failure(Code::transaction, "A checkpoint cannot be part of a transaction");
  }
  FilesVisit visit(gate, files, Interrupt(interrupts));
  requireWritable();
  second();
  visit.letReadersIn();
  saveFiles();
}

void Engine::Parts::vacuum(const strict::Vacuum& command, Answer& answer) {
  if (gate.isInTransaction()) {
    throw Failure(Code::transaction, "VACUUM cannot be part of a transaction");
  }
  const Interrupt interrupt(interrupts);
  const FilesVisit visit(gate, files, interrupt);
  requireWritable();
  second();
  const std::int64_t now = latestSecond;
  ++catalogueVersion;
  const auto rowsOf = [&] {
    std::int64_t count = 0;
    for (const auto& [name, table] : database->tables) {
      count += static_cast<std::int64_t>(table.rowCount());
    }
    return count;
  };
  const std::int64_t before = rowsOf();
  std::vector<Table> replaced = changes->vacuum(command, {{}, now, now, interrupt});
  answer.rowsAffected = before - rowsOf();
  try {
    saveFiles();
  } catch (...) {
    changes->restore(replaced, now);
    throw;
  }
}

}  // namespace velmora
