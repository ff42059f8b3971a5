// Whose transaction is open: the engine is asked whether it is this thread's, and the database
// remembers which connection began it.
#include "transaction.h"

#include "errors.h"

namespace velmora_python {
namespace {

bool isThreads(const Database& database) { return velmora_in_transaction(database.handle) != 0; }

void run(Connection& connection, const char* command) {
  const Ref text = Ref::taken(PyUnicode_InternFromString(command));
  Ref::taken(reinterpret_cast<PyObject*>(execute(connection, text.get(), nullptr)));
}

}  // namespace

bool isInTransaction(const Connection& connection) {
  const Database& database = *connection.database;
  return database.owner == &connection && isThreads(database);
}

void requireNoOtherTransaction(const Connection& connection) {
  const Database& database = *connection.database;
  if (isThreads(database) && database.owner != &connection) {
    raise(VELMORA_BUSY, "Another connection of this thread has a transaction open");
  }
}

void requireNoForeignThread(const Connection& connection) {
  const Database& database = *connection.database;
  if (database.owner == &connection && database.ownerThread != PyThread_get_thread_ident() &&
      !isThreads(database)) {
    raise(VELMORA_TRANSACTION, "The transaction belongs to the thread that has begun it");
  }
}

void begin(Connection& connection) { run(connection, "BEGIN"); }
void commitOpen(Connection& connection) { run(connection, "COMMIT"); }
void rollBack(Connection& connection) { run(connection, "ROLLBACK"); }

void abandon(Connection& connection) noexcept {
  PyObject* type = nullptr;
  PyObject* value = nullptr;
  PyObject* traceback = nullptr;
  PyErr_Fetch(&type, &value, &traceback);
  if (guarded(-1, [&] { return rollBack(connection), 0; }) < 0) PyErr_Clear();
  PyErr_Restore(type, value, traceback);
}

void noteTransaction(Connection& connection) {
  Database& database = *connection.database;
  const unsigned long thread = PyThread_get_thread_ident();
  if (isThreads(database)) {
    database.owner = &connection;
    database.ownerThread = thread;
  } else if (database.owner == &connection && database.ownerThread == thread) {
    database.owner = nullptr;
  }
}

}  // namespace velmora_python
