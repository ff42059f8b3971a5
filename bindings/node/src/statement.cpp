// Statements: how they are prepared, given their values, and run.
#include "statement.h"

#include <string>
#include <utility>

#include "blocks.h"
#include "errors.h"

namespace velmora_node {
namespace {

// What the first places of the scratch array hold of a statement that has been prepared.
enum PreparedPlace : std::size_t { parameterCount = 0, commandKind = 1 };

// prepare(database, text)
napi_value prepare(const Call& call) {
  Database& database = databaseOf(call, 0);
  database.requireUsable();
  const std::string text = call.text(1, "The command");
  velmora_statement* prepared = nullptr;
  requireOk([&](velmora_error** error) {
    return velmora_prepare(database.engine(), text.data(), text.size(), &prepared, error);
  });
  auto statement = std::make_unique<Statement>(database.shared_from_this(), prepared);
  double* const numbers = call.addon->scratch.numbers;
  numbers[parameterCount] = static_cast<double>(statement->parameters);
  numbers[commandKind] = velmora_statement_kind(prepared);
  return giveOut(call.env, std::move(statement));
}

Statement& usableStatement(const Call& call) {
  Statement& statement = call.handle<Statement>(0);
  statement.database->requireFree();
  if (statement.statement == nullptr) refuse(VELMORA_MISUSE, "The statement is closed");
  return statement;
}

[[noreturn]] void refuseCount(std::size_t parameters, std::size_t count) {
  refuse(VELMORA_MISUSE, "The command has places for " + std::to_string(parameters) +
                             " values, not " + std::to_string(count));
}

void bind(const Call& call, Statement& statement, std::size_t count, napi_value texts) {
  if (count != statement.parameters) refuseCount(statement.parameters, count);
  if (count == 0) return;
  statement.values.read(call, count, texts);
  std::size_t index = 0;
  for (const velmora_value& value : statement.values.all()) {
    ++index;
    requireOk([&](velmora_error** error) {
      return velmora_bind(statement.statement, index, &value, error);
    });
  }
}

// Runs it with the values that are the call's: (statement, count, texts).
Result runBound(const Call& call, Statement& statement) {
  bind(call, statement, call.count(1), call.argument(2));
  const UnderWay underWay(*statement.database);
  velmora_result* result = nullptr;
  requireOk([&](velmora_error** error) {
    return velmora_statement_run(statement.statement, &result, error);
  });
  return Result(result);
}

napi_value giveBlock(const Call& call, Statement& statement) {
  const napi_value texts = writeBlock(call, statement.result.get(), statement.nextRow);
  statement.nextRow += static_cast<std::size_t>(call.addon->scratch.numbers[rowsInBlock]);
  if (statement.nextRow == velmora_result_rows(statement.result.get())) statement.result.reset();
  return texts;
}

// query(statement, count, texts): runs it; gives the header, the first block, and its texts.
napi_value query(const Call& call) {
  Statement& statement = usableStatement(call);
  statement.result = runBound(call, statement);
  statement.nextRow = 0;
  const bool isNew = !hasColumns(statement.result.get(), statement.columns);
  if (isNew) statement.columns = columnsOf(statement.result.get());
  writeHeader(*call.addon, statement.result.get());
  call.addon->scratch.numbers[hasNewColumns] = isNew ? 1 : 0;
  return giveBlock(call, statement);
}

// nextBlock(statement)
napi_value nextBlock(const Call& call) {
  Statement& statement = call.handle<Statement>(0);
  if (statement.result == nullptr) refuse(VELMORA_MISUSE, "There are no more rows");
  return giveBlock(call, statement);
}

// forgetRows(statement): those that are not wanted.
napi_value forgetRows(const Call& call) {
  call.handle<Statement>(0).result.reset();
  return nullptr;
}

// statementColumns(statement): those of its last answer.
napi_value statementColumns(const Call& call) {
  return columnsValue(call.env, call.handle<Statement>(0).columns);
}

// change(statement, count, texts): runs it; gives the header.
napi_value change(const Call& call) {
  const Result result = runBound(call, usableStatement(call));
  writeHeader(*call.addon, result.get());
  return nullptr;
}

// changeMany(statement, count, texts, rows): the values of all rows, one row behind another.
napi_value changeMany(const Call& call) {
  Statement& statement = usableStatement(call);
  Values values;
  values.read(call, call.count(1), call.argument(2));
  const UnderWay underWay(*statement.database);
  velmora_result* result = nullptr;
  requireOk([&](velmora_error** error) {
    return velmora_statement_run_many(statement.statement, values.all().data(), call.count(3),
                                      &result, error);
  });
  writeHeader(*call.addon, Result(result).get());
  return nullptr;
}

// read(statement, count, texts): runs it; gives a result.
napi_value read(const Call& call) {
  return giveOutResult(call.env, runBound(call, usableStatement(call)).release());
}

// finalize(statement)
napi_value finalize(const Call& call) {
  Statement& statement = call.handle<Statement>(0);
  if (statement.statement != nullptr) statement.database->requireUsable();
  statement.close();
  return nullptr;
}

}  // namespace

Statement::Statement(std::shared_ptr<Database> own, velmora_statement* prepared)
    : database(std::move(own)),
      statement(prepared),
      parameters(velmora_statement_parameters(prepared)) {
  database->statements.insert(this);
}

void Statement::close() {
  if (statement == nullptr) return;
  velmora_statement_destroy(std::exchange(statement, nullptr));
  database->statements.erase(this);
  result.reset();
}

std::vector<Export> statementFunctions() {
  return {exported<prepare>("prepare"),
          exported<query>("query"),
          exported<nextBlock>("nextBlock"),
          exported<forgetRows>("forgetRows"),
          exported<statementColumns>("statementColumns"),
          exported<change>("change"),
          exported<changeMany>("changeMany"),
          exported<read>("read"),
          exported<finalize>("finalize")};
}

}  // namespace velmora_node
