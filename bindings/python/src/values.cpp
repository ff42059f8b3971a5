// Values from Python, checked as far as the engine does not do that itself, and values for Python.
// Texts are not copied on the way in: the engine does that.
#include "values.h"

#include "errors.h"

namespace velmora_python {
namespace {

[[noreturn]] void refuse(PyObject* object, size_t number) {
  const Ref type = Ref::shared(reinterpret_cast<PyObject*>(Py_TYPE(object)));
  const Ref name = Ref::taken(PyObject_GetAttrString(type.get(), "__name__"));
  const bool isBinary = PyBytes_Check(object) || PyByteArray_Check(object);
  raise(isBinary ? notSupported : VELMORA_MISUSE,
        "Value %zu is of type %U, not int, float, bool, str or None", number, name.get());
}

int64_t integerOf(PyObject* number, size_t place) {
  int overflow = 0;
  const long long integer = PyLong_AsLongLongAndOverflow(number, &overflow);
  if (overflow != 0) raise(VELMORA_RANGE, "Value %zu is an integer outside 64 bits", place);
  if (integer == -1 && PyErr_Occurred() != nullptr) throw Raised();
  return integer;
}

}  // namespace

const char* utf8(PyObject* text, size_t* size) {
  Py_ssize_t length = 0;
  const char* const bytes = PyUnicode_AsUTF8AndSize(text, &length);
  if (bytes == nullptr) PyErr_Clear();
  *size = static_cast<size_t>(length);
  return bytes;
}

velmora_value valueOf(PyObject* object, size_t number) {
  velmora_value value = {};
  if (object == Py_None) return value;
  if (PyUnicode_Check(object)) {
    value.type = VELMORA_TEXT;
    value.text = utf8(object, &value.text_size);
    if (value.text == nullptr) raise(VELMORA_RANGE, "Value %zu has a lone surrogate", number);
  } else if (PyBool_Check(object)) {
    value.type = VELMORA_BOOLEAN;
    value.boolean = object == Py_True ? 1 : 0;
  } else if (PyLong_Check(object)) {
    value.type = VELMORA_INTEGER;
    value.integer = integerOf(object, number);
  } else if (PyFloat_Check(object)) {
    value.type = VELMORA_REAL;
    value.real = PyFloat_AsDouble(object);
  } else if (PyIndex_Check(object)) {  // an integer of numpy, for one
    value.type = VELMORA_INTEGER;
    value.integer = integerOf(Ref::taken(PyNumber_Index(object)).get(), number);
  } else {
    refuse(object, number);
  }
  return value;
}

PyObject* textObject(std::string_view text) {
  return checked(PyUnicode_DecodeUTF8(text.data(), static_cast<Py_ssize_t>(text.size()), nullptr));
}

PyObject* objectOf(const velmora_value& value) {
  switch (value.type) {
    case VELMORA_INTEGER:
      return checked(PyLong_FromLongLong(value.integer));
    case VELMORA_REAL:
      return checked(PyFloat_FromDouble(value.real));
    case VELMORA_BOOLEAN:
      return PyBool_FromLong(value.boolean);
    case VELMORA_TEXT:
      return textObject({value.text, value.text_size});
    default:
      Py_INCREF(Py_None);
      return Py_None;
  }
}

Ref valueTuple(PyObject* values) {
  if (PyTuple_Check(values)) return Ref::shared(values);
  if (!PySequence_Check(values) || PyUnicode_Check(values) || PyBytes_Check(values)) {
    raise(VELMORA_MISUSE, "Values are a sequence, such as a tuple; one value is (value,)");
  }
  return Ref::taken(PySequence_Tuple(values));
}

void requireCount(size_t places, size_t given) {
  if (places != given) {
    raise(VELMORA_MISUSE, "The command has places for %zu values, not %zu", places, given);
  }
}

void ValueRows::add(PyObject* row, size_t places) {
  Ref tuple = valueTuple(row);
  requireCount(places, static_cast<size_t>(PyTuple_Size(tuple.get())));
  for (size_t place = 0; place < places; ++place) {
    PyObject* const object = PyTuple_GetItem(tuple.get(), static_cast<Py_ssize_t>(place));
    values.push_back(valueOf(object, place + 1));
  }
  rows.push_back(std::move(tuple));
}

}  // namespace velmora_python
