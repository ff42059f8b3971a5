// A result's columns as arrays that Python's buffer protocol hands out without copying them.
#pragma once

#include "result.h"

namespace velmora_python {

void addColumnTypes(PyObject* module);

// A dict from each column's name to the column as arrays.
PyObject* columnsOf(Result* result);

}  // namespace velmora_python
