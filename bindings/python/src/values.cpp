// Values from Python, checked as far as the engine does not do that itself, and values for Python.
// Texts are not copied on the way in: the engine does that.
#include "values.h"

#include <sys/mman.h>

#include <cstdint>

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

void setInteger(velmora_value& value, PyObject* number, size_t place) {
  int overflow = 0;
  value.type = VELMORA_INTEGER;
  value.integer = PyLong_AsLongLongAndOverflow(number, &overflow);
  if (overflow != 0) raise(VELMORA_RANGE, "Value %zu is an integer outside 64 bits", place);
  if (value.integer == -1 && PyErr_Occurred() != nullptr) throw Raised();
}

void setText(velmora_value& value, PyObject* text, size_t place) {
  value.type = VELMORA_TEXT;
  value.text = utf8(text, &value.text_size);
  if (value.text == nullptr) raise(VELMORA_RANGE, "Value %zu has a lone surrogate", place);
}

void setReal(velmora_value& value, PyObject* number) {
  value.type = VELMORA_REAL;
  value.real = PyFloat_AsDouble(number);
}

// Of a type that is derived from one of Python's, or has an integer to show, as one of numpy's.
void setOther(velmora_value& value, PyObject* object, size_t place) {
  if (PyUnicode_Check(object)) return setText(value, object, place);
  if (PyLong_Check(object)) return setInteger(value, object, place);
  if (PyFloat_Check(object)) return setReal(value, object);
  if (!PyIndex_Check(object)) refuse(object, place);
  setInteger(value, Ref::taken(PyNumber_Index(object)).get(), place);
}

// Memory that is new to the process costs a value as much again as all else that is done with it
// here, unless it comes in huge pages. Shorter arrays get memory that was used before.
void askForHugePages([[maybe_unused]] const std::vector<velmora_value>& values) {
#ifdef MADV_HUGEPAGE
  constexpr uintptr_t hugePage = uintptr_t{2} << 20U;
  const auto begin = reinterpret_cast<uintptr_t>(values.data());
  const auto first = (begin + hugePage - 1) / hugePage * hugePage;
  const auto end = begin + values.capacity() * sizeof(velmora_value);
  if (first + 4 * hugePage > end) return;
  madvise(reinterpret_cast<void*>(first), end - first, MADV_HUGEPAGE);
#endif
}

}  // namespace

const char* utf8(PyObject* text, size_t* size) {
  Py_ssize_t length = 0;
  const char* const bytes = PyUnicode_AsUTF8AndSize(text, &length);
  if (bytes == nullptr) PyErr_Clear();
  *size = static_cast<size_t>(length);
  return bytes;
}

// Python's own types are told by their addresses; whether a type is derived is a call to ask.
void setValue(velmora_value& value, PyObject* object, size_t place) {
  const PyTypeObject* const type = Py_TYPE(object);
  if (type == &PyLong_Type) return setInteger(value, object, place);
  if (type == &PyUnicode_Type) return setText(value, object, place);
  if (type == &PyFloat_Type) return setReal(value, object);
  if (object == Py_None) return;
  if (type != &PyBool_Type) return setOther(value, object, place);
  value.type = VELMORA_BOOLEAN;
  value.boolean = object == Py_True ? 1 : 0;
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
  if (PyTuple_CheckExact(values) || PyTuple_Check(values)) return Ref::shared(values);
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

void ValueRows::reserve(size_t count, size_t places) {
  rows.reserve(count);
  values.reserve(count * places);
  askForHugePages(values);
}

void ValueRows::add(PyObject* row, size_t places) {
  Ref tuple = valueTuple(row);
  requireCount(places, static_cast<size_t>(PyTuple_Size(tuple.get())));
  for (size_t place = 0; place < places; ++place) {
    PyObject* const object = PyTuple_GetItem(tuple.get(), static_cast<Py_ssize_t>(place));
    setValue(values.emplace_back(), object, place + 1);
  }
  rows.push_back(std::move(tuple));
}

}  // namespace velmora_python
