// An open database of the process, which the connections to its directory share, and the callbacks
// that it was opened with. Whose transaction is open in it is kept here, as that is one at most.
#pragma once

#include "python_api.h"
#include "velmora/velmora.h"

namespace velmora_python {

struct Connection;

struct Database {
  PyObject_HEAD velmora_db* handle;  // null when it is closed
  unsigned long process;
  PyObject* log;  // callables, or null
  PyObject* progress;
  PyObject* clock;
  // The connection and the thread that have begun the open transaction, or null. The engine knows
  // threads, but not connections.
  const Connection* owner;
  unsigned long ownerThread;
};

void addDatabaseType(PyObject* module);
bool isDatabase(PyObject* object);

// A number that a fork changes.
unsigned long currentProcess();

// A list of (file, offset or None, meaning), one for each fault of the database in a directory.
PyObject* checkDirectory(PyObject* module, PyObject* path);

}  // namespace velmora_python
