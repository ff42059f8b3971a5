// Values between Python and the engine: None, int, float, bool and str.
#pragma once

#include <string_view>
#include <vector>

#include "python_api.h"
#include "velmora/velmora.h"

namespace velmora_python {

// A text's UTF-8, borrowed from it; null where it has none, which is not told to Python.
const char* utf8(PyObject* text, size_t* size);

// The value that stands for the command's number-th "?"; its text is borrowed from the object.
// Raises DataError and its like.
velmora_value valueOf(PyObject* object, size_t number);

// A new reference.
PyObject* objectOf(const velmora_value& value);

PyObject* textObject(std::string_view text);

// A command's values as a tuple: any sequence will do, but no text, and no mapping.
Ref valueTuple(PyObject* values);

// Raises unless a command has places for so many values.
void requireCount(size_t places, size_t given);

// The values of many rows, one row behind another, with the tuples from which they borrow texts.
struct ValueRows {
  std::vector<velmora_value> values;
  std::vector<Ref> rows;

  void add(PyObject* row, size_t places);
};

}  // namespace velmora_python
