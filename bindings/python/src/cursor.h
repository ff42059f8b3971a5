// A cursor: the answer of one command, and how far its rows have been fetched.
#pragma once

#include "python_api.h"
#include "result.h"

namespace velmora_python {

void addCursorType(PyObject* module);

// A cursor of a connection, over a result that it takes, if there is one.
PyObject* newCursor(PyObject* connection, Result* result = nullptr);

PyObject* cursorExecute(PyObject* self, PyObject* const* arguments, Py_ssize_t count);
PyObject* cursorExecuteMany(PyObject* self, PyObject* const* arguments, Py_ssize_t count);

}  // namespace velmora_python
