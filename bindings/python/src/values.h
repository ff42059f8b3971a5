// Values between Python and the engine: None, int, float, bool and str.
#pragma once

#include <string_view>
#include <vector>

#include "python_api.h"
#include "velmora/velmora.h"

namespace velmora_python {

// A text's UTF-8, borrowed from it; null where it has none, which is not told to Python.
const char* utf8(PyObject* text, size_t* size);

// Makes a value, which is null, that for a place of the command, counted from 1; its text is
// borrowed from the object. Raises DataError and its like.
void setValue(velmora_value& value, PyObject* object, size_t place);

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

  void reserve(size_t count, size_t places);  // for so many rows
  void add(PyObject* row, size_t places);
};

}  // namespace velmora_python
