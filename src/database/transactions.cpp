// Transactions: changes are made in memory at once, and each leaves an undo record. A commit
// forgets the records; a rollback applies them, newest first. There is one transaction for the
// whole engine, and nothing of it is kept on disk.
#include <new>
#include <stdexcept>

#include "database.h"

namespace velmora {
namespace {

// What a row is linked to, and the key it is filed under, are put right as far as it can be: the
// parents may have gone for good, or keys may be of another type by now. The row itself comes back
// in any case.
template <typename Step>
void asFarAsPossible(Step step) {
  try {
    step();
  } catch (const std::bad_alloc&) {
    throw;
  } catch (const std::exception&) {
  }
}

}  // namespace

void Database::beginTransaction() {
  const std::unique_lock lock(dbMutex);
  if (inTransaction) throw std::runtime_error("Transaction is already active!");
  inTransaction = true;
  transactionLog.clear();
}

void Database::commitTransaction() {
  const std::unique_lock lock(dbMutex);
  if (!inTransaction) throw std::runtime_error("No active transaction to commit!");
  transactionLog.clear();
  inTransaction = false;
}

void Database::rollbackTransaction(std::int64_t now) {
  const std::unique_lock lock(dbMutex);
  if (!inTransaction) throw std::runtime_error("No active transaction to rollback!");
  while (!transactionLog.empty()) {
    undo(transactionLog.back(), now);
    transactionLog.pop_back();
  }
  inTransaction = false;
}

void Database::undo(const TransactionAction& action, std::int64_t now) {
  Table& table = getTable(action.tableName);
  const auto row = static_cast<std::size_t>(action.rowIndex);
  if (row >= table.rowCount()) throw std::out_of_range("Row index outside the table");
  if (action.kind == "INSERT") {
    asFarAsPossible([&] { unlinkRow(table, action.rowIndex, now); });
    if (table.hasPrimaryKey()) asFarAsPossible([&] { table.unfileRow(row); });
    table.removeLastRow();
    return;
  }
  if (action.kind == "DELETE") {
    table.setDeleted(row, false);
  } else {
    if (table.hasPrimaryKey()) asFarAsPossible([&] { table.unfileRow(row); });
    for (const GivenValue& old : action.cells) table.restore(row, old.column, old.cell, now);
  }
  if (table.hasPrimaryKey()) asFarAsPossible([&] { table.fileRow(row); });
  asFarAsPossible([&] { linkRow(table, action.rowIndex, now); });
}

void Database::forgetUndo(std::string_view tableName) {
  std::erase_if(transactionLog,
                [&](const TransactionAction& action) { return action.tableName == tableName; });
}

}  // namespace velmora
