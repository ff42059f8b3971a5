// Results and rows. A row is made with all its values at once, in one piece of memory; what is
// asked for seldom, names and timed values, it asks its result for.
#include "result.h"

#include <array>
#include <string_view>
#include <vector>

#include "errors.h"
#include "values.h"

namespace velmora_python {
namespace {

PyTypeObject* resultType = nullptr;
PyTypeObject* rowType = nullptr;
PyObject* timedClass = nullptr;  // the package's named tuple

// A row holds nothing that could hold the row, so the collector of cycles need not know of it.
struct Row {
  PyObject_VAR_HEAD Result* result;
  size_t number;
  PyObject* values[1];  // as many as there are columns
};

Row* asRow(PyObject* object) { return reinterpret_cast<Row*>(object); }

void deleteResult(PyObject* self) {
  const auto* const result = reinterpret_cast<Result*>(self);
  velmora_result_destroy(result->handle);
  Py_XDECREF(result->names);
  freeObject(self);
}

std::string_view columnName(const Result& result, size_t column) {
  size_t length = 0;
  const char* const name = velmora_result_column_name(result.handle, column, &length);
  return {name, length};
}

bool hasNames(const Result& result, PyObject* names) {
  if (names == nullptr || PyTuple_Size(names) != static_cast<Py_ssize_t>(result.columns)) {
    return false;
  }
  for (size_t column = 0; column < result.columns; ++column) {
    size_t length = 0;
    const char* const name = utf8(PyTuple_GetItem(names, static_cast<Py_ssize_t>(column)), &length);
    if (columnName(result, column) != std::string_view(name, length)) return false;
  }
  return true;
}

PyObject* newNames(const Result& result) {
  Ref names = Ref::taken(PyTuple_New(static_cast<Py_ssize_t>(result.columns)));
  for (size_t column = 0; column < result.columns; ++column) {
    PyObject* name = textObject(columnName(result, column));
    PyUnicode_InternInPlace(&name);
    PyTuple_SetItem(names.get(), static_cast<Py_ssize_t>(column), name);
  }
  return names.release();
}

void deleteRow(PyObject* self) {
  Row& row = *asRow(self);
  for (Py_ssize_t i = 0; i < Py_SIZE(self); ++i) Py_XDECREF(row.values[i]);
  Py_XDECREF(reinterpret_cast<PyObject*>(row.result));
  freeObject(self);
}

PyObject* newRow(Result* result, size_t number, const velmora_value* values) {
  Row* const row = newObject<Row>(rowType, static_cast<Py_ssize_t>(result->columns));
  Ref owned = Ref::taken(reinterpret_cast<PyObject*>(row));
  Py_INCREF(reinterpret_cast<PyObject*>(result));
  row->result = result;
  row->number = number;
  for (size_t column = 0; column < result->columns; ++column) {
    row->values[column] = objectOf(values[column]);
  }
  return owned.release();
}

Ref tupleOf(PyObject* self) {
  const Row& row = *asRow(self);
  Ref tuple = Ref::taken(PyTuple_New(Py_SIZE(self)));
  for (Py_ssize_t i = 0; i < Py_SIZE(self); ++i) {
    Py_INCREF(row.values[i]);
    PyTuple_SetItem(tuple.get(), i, row.values[i]);
  }
  return tuple;
}

Py_ssize_t rowLength(PyObject* self) { return Py_SIZE(self); }

PyObject* rowItem(PyObject* self, Py_ssize_t index) {
  if (index < 0 || index >= Py_SIZE(self)) {
    PyErr_SetString(PyExc_IndexError, "Row index out of range");
    return nullptr;
  }
  PyObject* const value = asRow(self)->values[index];
  Py_INCREF(value);
  return value;
}

// Where the column of that name stands. Names are interned, so most are found by their address.
Py_ssize_t columnIndex(const Row& row, PyObject* name) {
  PyObject* const names = row.result->names;
  const Py_ssize_t count = PyTuple_Size(names);
  for (Py_ssize_t i = 0; i < count; ++i) {
    if (PyTuple_GetItem(names, i) == name) return i;
  }
  for (Py_ssize_t i = 0; i < count; ++i) {
    if (PyUnicode_Compare(PyTuple_GetItem(names, i), name) == 0) return i;
  }
  PyErr_SetObject(PyExc_KeyError, name);
  throw Raised();
}

// By a name or a number, which may be counted from the end.
Py_ssize_t indexOf(PyObject* self, PyObject* key) {
  if (PyUnicode_Check(key)) return columnIndex(*asRow(self), key);
  const Py_ssize_t index = PyNumber_AsSsize_t(key, PyExc_IndexError);
  if (index == -1 && PyErr_Occurred() != nullptr) throw Raised();
  return index < 0 ? index + Py_SIZE(self) : index;
}

PyObject* rowSubscript(PyObject* self, PyObject* key) {
  return guarded([&] {
    if (PySlice_Check(key)) return checked(PyObject_GetItem(tupleOf(self).get(), key));
    return rowItem(self, indexOf(self, key));
  });
}

PyObject* rowIterator(PyObject* self) {
  return guarded([&] { return PyObject_GetIter(tupleOf(self).get()); });
}

PyObject* rowText(PyObject* self) {
  return guarded([&] { return PyObject_Repr(tupleOf(self).get()); });
}

Py_hash_t rowHash(PyObject* self) {
  return guarded(Py_hash_t{-1}, [&] { return PyObject_Hash(tupleOf(self).get()); });
}

PyObject* rowCompare(PyObject* self, PyObject* other, int operation) {
  return guarded([&] {
    const bool isRow = Py_TYPE(other) == rowType;
    if (!isRow && !PyTuple_Check(other)) {
      Py_INCREF(Py_NotImplemented);
      return Py_NotImplemented;
    }
    const Ref tuple = isRow ? tupleOf(other) : Ref::shared(other);
    return PyObject_RichCompare(tupleOf(self).get(), tuple.get(), operation);
  });
}

PyObject* rowKeys(PyObject* self, PyObject*) { return PySequence_List(asRow(self)->result->names); }

velmora_timed timedAt(const Row& row, size_t column, bool* isTimed) {
  velmora_timed timed = {};
  timed.size = sizeof timed;
  *isTimed = velmora_result_timed(row.result->handle, row.number, column, &timed) != 0;
  return timed;
}

PyObject* rowTimed(PyObject* self, PyObject* key) {
  return guarded([&] {
    const Row& row = *asRow(self);
    const Py_ssize_t column = indexOf(self, key);
    const Ref state = Ref::taken(rowItem(self, column));
    bool isTimed = false;
    const velmora_timed timed = timedAt(row, static_cast<size_t>(column), &isTimed);
    if (!isTimed) {
      Py_INCREF(Py_None);
      return Py_None;
    }
    const Ref next = Ref::taken(objectOf(timed.next));
    const Ref second = Ref::taken(secondOrNone(timed.has_next != 0, timed.change_second));
    return checked(PyObject_CallFunctionObjArgs(timedClass, state.get(), next.get(), second.get(),
                                                timed.cycles != 0 ? Py_True : Py_False, nullptr));
  });
}

PyObject* rowChangesAt(PyObject* self, void*) {
  const Row& row = *asRow(self);
  bool changes = false;
  int64_t second = 0;
  for (size_t column = 0; column < row.result->columns; ++column) {
    bool isTimed = false;
    const velmora_timed timed = timedAt(row, column, &isTimed);
    if (!isTimed || timed.has_next == 0) continue;
    if (!changes || timed.change_second < second) second = timed.change_second;
    changes = true;
  }
  return secondOrNone(changes, second);
}

}  // namespace

PyObject* secondOrNone(bool isThere, int64_t second) {
  if (isThere) return PyLong_FromLongLong(second);
  Py_INCREF(Py_None);
  return Py_None;
}

const char* typeName(velmora_type type) {
  constexpr std::array names = {"null", "integer", "real", "boolean", "text"};
  return names.at(static_cast<size_t>(type));
}

PyObject* changesAt(const Result* result) {
  int64_t second = 0;
  const bool changes = velmora_result_next_change(result->handle, &second) != 0;
  return secondOrNone(changes, second);
}

Result* newResult(velmora_result* handle, PyObject* names) {
  PyObject* const object = PyType_GenericAlloc(resultType, 0);
  if (object == nullptr) velmora_result_destroy(handle);
  Ref owned = Ref::taken(object);
  auto* const result = reinterpret_cast<Result*>(object);
  result->handle = handle;
  result->rows = velmora_result_rows(handle);
  result->columns = velmora_result_columns(handle);
  result->names = hasNames(*result, names) ? Ref::shared(names).release() : newNames(*result);
  owned.release();
  return result;
}

PyObject* rowAt(Result* result, size_t row) {
  std::array<velmora_value, 32> few;
  std::vector<velmora_value> many;
  velmora_value* values = few.data();
  if (result->columns > few.size()) {
    many.resize(result->columns);
    values = many.data();
  }
  velmora_result_values(result->handle, row, 1, values);
  return newRow(result, row, values);
}

PyObject* rowsFrom(Result* result, size_t first, size_t count) {
  constexpr size_t block = 128;
  Ref list = Ref::taken(PyList_New(static_cast<Py_ssize_t>(count)));
  std::vector<velmora_value> values(std::min(block, count) * result->columns);
  for (size_t done = 0; done < count;) {
    const size_t read = velmora_result_values(result->handle, first + done,
                                              std::min(block, count - done), values.data());
    for (size_t i = 0; i < read; ++i, ++done) {
      PyObject* const row = newRow(result, first + done, &values[i * result->columns]);
      PyList_SetItem(list.get(), static_cast<Py_ssize_t>(done), row);
    }
  }
  return list.release();
}

void addResultTypes(PyObject* module) {
  static std::array resultSlots = {slot(Py_tp_dealloc, deleteResult), slot(Py_tp_new, refuseNew),
                                   PyType_Slot{0, nullptr}};
  resultType =
      addType(module, "Result",
              {"velmora.Result", sizeof(Result), 0, Py_TPFLAGS_DEFAULT, resultSlots.data()});

  static std::array methods = {method("keys", rowKeys, METH_NOARGS),
                               method("timed", rowTimed, METH_O), PyMethodDef{}};
  static std::array attributes = {
      PyGetSetDef{"changes_at", rowChangesAt, nullptr, nullptr, nullptr}, PyGetSetDef{}};
  static std::array slots = {slot(Py_tp_dealloc, deleteRow),
                             slot(Py_tp_new, refuseNew),
                             slot(Py_sq_length, rowLength),
                             slot(Py_sq_item, rowItem),
                             slot(Py_mp_length, rowLength),
                             slot(Py_mp_subscript, rowSubscript),
                             slot(Py_tp_iter, rowIterator),
                             slot(Py_tp_repr, rowText),
                             slot(Py_tp_hash, rowHash),
                             slot(Py_tp_richcompare, rowCompare),
                             PyType_Slot{Py_tp_methods, methods.data()},
                             PyType_Slot{Py_tp_getset, attributes.data()},
                             PyType_Slot{0, nullptr}};
  rowType = addType(
      module, "Row",
      {"velmora.Row", offsetof(Row, values), sizeof(PyObject*), Py_TPFLAGS_DEFAULT, slots.data()});
  const Ref types = Ref::taken(PyImport_ImportModule("velmora._types"));
  timedClass = checked(PyObject_GetAttrString(types.get(), "Timed"));
}

}  // namespace velmora_python
