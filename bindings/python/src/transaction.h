// Transactions as PEP 249 has them, over the engine's, which belong to threads: one begins by
// itself before the first command that changes something, and is the connection's that ran the
// command.
#pragma once

#include "connection.h"

namespace velmora_python {

// Whether this thread's transaction is open and the connection's own.
bool isInTransaction(const Connection& connection);

// Raises where another connection of this thread has a transaction open: what the connection did
// would become part of it unasked.
void requireNoOtherTransaction(const Connection& connection);

// Raises where the connection's transaction is another thread's, which alone can end it.
void requireNoForeignThread(const Connection& connection);

// Each runs its command.
void begin(Connection& connection);
void commitOpen(Connection& connection);
void rollBack(Connection& connection);

// The same while an exception is under way, which is kept.
void abandon(Connection& connection) noexcept;

// Notes whose transaction is open when a command that may begin or end one has been run.
void noteTransaction(Connection& connection);

// Runs a command of that kind, in a transaction where it needs one. One that begins for a command
// that then fails ends with it: it would hold up other threads for nothing.
template <typename Command>
void inTransaction(Connection& connection, velmora_kind kind, Command command) {
  const bool begins =
      kind == VELMORA_CHANGES && !connection.autocommit && !isInTransaction(connection);
  if (begins) begin(connection);
  try {
    command();
  } catch (const Raised&) {
    if (begins) abandon(connection);
    if (kind == VELMORA_CONTROLS) noteTransaction(connection);
    throw;
  }
  if (kind == VELMORA_CONTROLS) noteTransaction(connection);
}

}  // namespace velmora_python
