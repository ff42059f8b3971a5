// Columns and the memory that they show. The arrays are the result's own, which lives as long as
// anything that shows them.
#include "columns.h"

#include <array>

#include "errors.h"
#include "values.h"

namespace velmora_python {
namespace {

PyTypeObject* arrayType = nullptr;
PyTypeObject* columnType = nullptr;

// Memory of a result.
struct Array {
  PyObject_HEAD Result* result;
  const void* bytes;
  Py_ssize_t count;
  Py_ssize_t itemSize;
  const char* format;
};

struct Column {
  PyObject_HEAD Result* result;
  size_t number;
  velmora_column data;
};

Column* asColumn(PyObject* object) { return reinterpret_cast<Column*>(object); }

// Of an array or a column, which both begin with their result.
void deleteHolder(PyObject* self) {
  Py_XDECREF(reinterpret_cast<PyObject*>(reinterpret_cast<Array*>(self)->result));
  freeObject(self);
}

int getBuffer(PyObject* self, Buffer* buffer, int flags) {
  auto& array = *reinterpret_cast<Array*>(self);
  buffer->owner = nullptr;
  if ((flags & bufferWritable) != 0) {
    PyErr_SetString(PyExc_BufferError, "What a result holds is read only");
    return -1;
  }
  Py_INCREF(self);
  *buffer = {};
  buffer->bytes = array.bytes;
  buffer->owner = self;
  buffer->size = array.count * array.itemSize;
  buffer->itemSize = array.itemSize;
  buffer->isReadOnly = 1;
  buffer->dimensions = 1;
  buffer->format = (flags & bufferFormat) != 0 ? array.format : nullptr;
  buffer->shape = &array.count;
  buffer->strides = &array.itemSize;
  return 0;
}

PyObject* memoryOf(Result* result, const void* bytes, size_t count, size_t itemSize,
                   const char* format) {
  auto* const array = newObject<Array>(arrayType);
  const Ref owned = Ref::taken(reinterpret_cast<PyObject*>(array));
  Py_INCREF(reinterpret_cast<PyObject*>(result));
  array->result = result;
  array->bytes = bytes != nullptr ? bytes : "";
  array->count = static_cast<Py_ssize_t>(count);
  array->itemSize = static_cast<Py_ssize_t>(itemSize);
  array->format = format;
  return checked(PyMemoryView_FromObject(owned.get()));
}

PyObject* columnValues(PyObject* self, void*) {
  return guarded([&] {
    const Column& column = *asColumn(self);
    const velmora_column& data = column.data;
    switch (data.type) {
      case VELMORA_INTEGER:
        return memoryOf(column.result, data.integers, data.rows, sizeof *data.integers, "q");
      case VELMORA_REAL:
        return memoryOf(column.result, data.reals, data.rows, sizeof *data.reals, "d");
      case VELMORA_BOOLEAN:
        return memoryOf(column.result, data.booleans, data.rows, sizeof *data.booleans, "?");
      case VELMORA_TEXT:
        return memoryOf(column.result, data.texts, data.rows > 0 ? data.ends[data.rows - 1] : 0, 1,
                        "B");
      default:
        return memoryOf(column.result, nullptr, 0, 1, "B");
    }
  });
}

PyObject* columnEnds(PyObject* self, void*) {
  return guarded([&] {
    const Column& column = *asColumn(self);
    if (column.data.type != VELMORA_TEXT) return secondOrNone(false, 0);
    return memoryOf(column.result, column.data.ends, column.data.rows, sizeof *column.data.ends,
                    "Q");
  });
}

PyObject* columnNulls(PyObject* self, void*) {
  return guarded([&] {
    const Column& column = *asColumn(self);
    if (column.data.nulls == nullptr) return secondOrNone(false, 0);
    return memoryOf(column.result, column.data.nulls, column.data.rows, 1, "?");
  });
}

PyObject* columnName(PyObject* self, void*) {
  const Column& column = *asColumn(self);
  PyObject* const name =
      PyTuple_GetItem(column.result->names, static_cast<Py_ssize_t>(column.number));
  Py_INCREF(name);
  return name;
}

PyObject* columnTypeName(PyObject* self, void*) {
  return PyUnicode_FromString(typeName(static_cast<velmora_type>(asColumn(self)->data.type)));
}

Py_ssize_t columnLength(PyObject* self) {
  return static_cast<Py_ssize_t>(asColumn(self)->result->rows);
}

PyObject* columnItem(PyObject* self, Py_ssize_t index) {
  return guarded([&] {
    const Column& column = *asColumn(self);
    const auto row = static_cast<size_t>(index);
    if (index < 0 || row >= column.result->rows) {
      PyErr_SetString(PyExc_IndexError, "Column index out of range");
      throw Raised();
    }
    velmora_value value = {};
    value.type = velmora_result_type(column.result->handle, row, column.number);
    value.integer = velmora_result_integer(column.result->handle, row, column.number);
    value.real = velmora_result_real(column.result->handle, row, column.number);
    value.boolean = velmora_result_boolean(column.result->handle, row, column.number);
    value.text = velmora_result_text(column.result->handle, row, column.number, &value.text_size);
    return objectOf(value);
  });
}

Ref newColumn(Result* result, size_t number) {
  auto* const column = newObject<Column>(columnType);
  Ref owned = Ref::taken(reinterpret_cast<PyObject*>(column));
  Py_INCREF(reinterpret_cast<PyObject*>(result));
  column->result = result;
  column->number = number;
  column->data.size = sizeof column->data;
  velmora_error* error = nullptr;
  int code = VELMORA_OK;
  {
    const WithoutPython others;
    code = velmora_result_column(result->handle, number, &column->data, &error);
  }
  require(code, error);
  return owned;
}

}  // namespace

PyObject* columnsOf(Result* result) {
  Ref columns = Ref::taken(PyDict_New());
  for (size_t number = 0; number < result->columns; ++number) {
    PyObject* const name = PyTuple_GetItem(result->names, static_cast<Py_ssize_t>(number));
    checked(PyDict_SetItem(columns.get(), name, newColumn(result, number).get()));
  }
  return columns.release();
}

void addColumnTypes(PyObject* module) {
  static std::array arraySlots = {slot(Py_tp_dealloc, deleteHolder), slot(Py_tp_new, refuseNew),
                                  slot(getBufferSlot, getBuffer), PyType_Slot{0, nullptr}};
  arrayType = addType(module, "Array",
                      {"velmora.Array", sizeof(Array), 0, Py_TPFLAGS_DEFAULT, arraySlots.data()});

  static std::array attributes = {PyGetSetDef{"name", columnName, nullptr, nullptr, nullptr},
                                  PyGetSetDef{"type", columnTypeName, nullptr, nullptr, nullptr},
                                  PyGetSetDef{"values", columnValues, nullptr, nullptr, nullptr},
                                  PyGetSetDef{"ends", columnEnds, nullptr, nullptr, nullptr},
                                  PyGetSetDef{"nulls", columnNulls, nullptr, nullptr, nullptr},
                                  PyGetSetDef{}};
  static std::array slots = {slot(Py_tp_dealloc, deleteHolder),
                             slot(Py_tp_new, refuseNew),
                             slot(Py_sq_length, columnLength),
                             slot(Py_sq_item, columnItem),
                             PyType_Slot{Py_tp_getset, attributes.data()},
                             PyType_Slot{0, nullptr}};
  columnType = addType(module, "Column",
                       {"velmora.Column", sizeof(Column), 0, Py_TPFLAGS_DEFAULT, slots.data()});
}

}  // namespace velmora_python
