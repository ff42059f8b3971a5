// What a command has answered, for Python: the engine's result and its columns' names, the rows
// that are made of it, and the arrays of its columns. Rows and arrays keep their result.
#pragma once

#include "python_api.h"
#include "velmora/velmora.h"

namespace velmora_python {

struct Result {
  PyObject_HEAD velmora_result* handle;
  size_t rows;
  size_t columns;
  PyObject* names;  // a tuple
};

void addResultTypes(PyObject* module);

// Takes the result. Names: those of an earlier result of the command, or null; they are shared
// where they are the same.
Result* newResult(velmora_result* handle, PyObject* names);

// The row of that number; there is one.
PyObject* rowAt(Result* result, size_t row);
// As many rows, beginning with that one, as a list; there are so many.
PyObject* rowsFrom(Result* result, size_t first, size_t count);

// A second, or None.
PyObject* secondOrNone(bool isThere, int64_t second);

// "integer", "real", "boolean" or "text"; "null" for a column of which no more is known.
const char* typeName(velmora_type type);

// Of the engine's second at which the whole answer changes, or None.
PyObject* changesAt(const Result* result);

}  // namespace velmora_python
