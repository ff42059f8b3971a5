// A connection: one user of a shared database, with statements and a transaction of its own. What a
// program calls seldom is added in Python, by velmora/_connection.py.
#pragma once

#include <memory>

#include "database.h"
#include "python_api.h"
#include "result.h"
#include "statements.h"

namespace velmora_python {

struct Connection {
  PyObject_HEAD Database* database;  // null when the connection is closed
  Statements* statements;
  size_t calls;  // that are under way
  bool autocommit;
};

void addConnectionType(PyObject* module);
bool isConnection(PyObject* object);

// Each of these raises where the connection is closed, another process's, or has to give way to a
// transaction that another connection of the same thread has open.

// Runs a command with a sequence of values.
Result* execute(Connection& connection, PyObject* text, PyObject* values);
// Runs it once for each sequence of values, all or none.
Result* executeMany(Connection& connection, PyObject* text, PyObject* rows);

// Raises unless it can be used.
void requireOpen(const Connection& connection);

}  // namespace velmora_python
