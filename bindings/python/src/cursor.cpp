// Cursors: commands run through them, and the rows of the last answer handed out bit by bit.
#include "cursor.h"

#include <algorithm>
#include <array>
#include <string_view>

#include "columns.h"
#include "connection.h"
#include "errors.h"
#include "values.h"

namespace velmora_python {
namespace {

PyTypeObject* cursorType = nullptr;

struct Cursor {
  PyObject_HEAD PyObject* connection;  // null when the cursor is closed
  Result* result;  // null before the first command, and after one that has failed
  size_t next;     // the row to be fetched
  Py_ssize_t arraysize;
};

Cursor& asCursor(PyObject* object) { return *reinterpret_cast<Cursor*>(object); }

PyObject* none() {
  Py_INCREF(Py_None);
  return Py_None;
}

Connection& connectionOf(const Cursor& cursor) {
  if (cursor.connection == nullptr) raise(VELMORA_MISUSE, "The cursor is closed");
  auto& connection = *reinterpret_cast<Connection*>(cursor.connection);
  requireOpen(connection);
  return connection;
}

void setResult(Cursor& cursor, Result* result) {
  Result* const before = std::exchange(cursor.result, result);
  cursor.next = 0;
  Py_XDECREF(reinterpret_cast<PyObject*>(before));
}

// The result with the rows to be fetched, which is kept while they are.
Ref rowsOf(const Cursor& cursor) {
  connectionOf(cursor);
  if (cursor.result == nullptr || cursor.result->columns == 0) {
    raise(VELMORA_MISUSE, "There are no rows to fetch: no command has answered any");
  }
  return Ref::shared(reinterpret_cast<PyObject*>(cursor.result));
}

PyObject* fetch(Cursor& cursor, size_t limit) {
  const Ref kept = rowsOf(cursor);
  auto* const result = reinterpret_cast<Result*>(kept.get());
  const size_t first = cursor.next;
  const size_t count = std::min(limit, result->rows - first);
  cursor.next = first + count;
  return rowsFrom(result, first, count);
}

PyObject* nextRow(PyObject* self) {
  const Ref kept = rowsOf(asCursor(self));
  auto* const result = reinterpret_cast<Result*>(kept.get());
  return asCursor(self).next < result->rows ? rowAt(result, asCursor(self).next++) : nullptr;
}

// ---- The description of the columns ----

PyObject* columnDescription(const Result& result, size_t column) {
  // The engine numbers the rows of such a column.
  const bool isIdentity = velmora_result_column_declared_type(result.handle, column, nullptr) ==
                          std::string_view("ApexInt");
  const velmora_type type = velmora_result_column_type(result.handle, column);
  return checked(Py_BuildValue(
      "OsOOOOO", PyTuple_GetItem(result.names, static_cast<Py_ssize_t>(column)),
      isIdentity ? "identity" : typeName(type), Py_None, Py_None, Py_None, Py_None, Py_None));
}

PyObject* getDescription(PyObject* self, void*) {
  return guarded([&] {
    const Result* const result = asCursor(self).result;
    if (result == nullptr || result->columns == 0) return none();
    Ref description = Ref::taken(PyTuple_New(static_cast<Py_ssize_t>(result->columns)));
    for (size_t column = 0; column < result->columns; ++column) {
      PyTuple_SetItem(description.get(), static_cast<Py_ssize_t>(column),
                      columnDescription(*result, column));
    }
    return description.release();
  });
}

// ---- What Python calls ----

PyObject* newCursorOf(PyTypeObject*, PyObject* arguments, PyObject*) {
  return guarded([&] {
    PyObject* connection = nullptr;
    if (PyArg_ParseTuple(arguments, "O", &connection) == 0) throw Raised();
    if (!isConnection(connection)) {
      PyErr_SetString(PyExc_TypeError, "A cursor is made of a connection");
      throw Raised();
    }
    return newCursor(connection);
  });
}

int traverse(PyObject* self, visitproc visit, void* arg) {
  Py_VISIT(reinterpret_cast<PyObject*>(Py_TYPE(self)));
  Py_VISIT(asCursor(self).connection);
  return 0;
}

int clear(PyObject* self) {
  Py_CLEAR(asCursor(self).connection);
  return 0;
}

void deleteCursor(PyObject* self) {
  PyObject_GC_UnTrack(self);
  setResult(asCursor(self), nullptr);
  clear(self);
  freeCollected(self);
}

PyObject* close(PyObject* self, PyObject*) {
  setResult(asCursor(self), nullptr);
  clear(self);
  return none();
}

PyObject* fetchOne(PyObject* self, PyObject*) {
  return guarded([&] {
    PyObject* const row = nextRow(self);
    return row != nullptr ? row : none();
  });
}

PyObject* fetchMany(PyObject* self, PyObject* arguments, PyObject* keywords) {
  return guarded([&] {
    Py_ssize_t size = asCursor(self).arraysize;
    char name[] = "size";
    char* names[] = {name, nullptr};
    if (PyArg_ParseTupleAndKeywords(arguments, keywords, "|n", names, &size) == 0) throw Raised();
    return fetch(asCursor(self), static_cast<size_t>(std::max<Py_ssize_t>(size, 0)));
  });
}

PyObject* fetchAll(PyObject* self, PyObject*) {
  return guarded([&] { return fetch(asCursor(self), SIZE_MAX); });
}

PyObject* fetchColumns(PyObject* self, PyObject*) {
  return guarded([&] {
    const Ref kept = rowsOf(asCursor(self));
    auto* const result = reinterpret_cast<Result*>(kept.get());
    asCursor(self).next = result->rows;
    return columnsOf(result);
  });
}

PyObject* iterate(PyObject* self) {
  return guarded([&] {
    rowsOf(asCursor(self));
    return Ref::shared(self).release();
  });
}

PyObject* iterateNext(PyObject* self) {
  return guarded([&] { return nextRow(self); });
}

// Sizes are the engine's affair.
PyObject* setSizes(PyObject* self, PyObject*) {
  return guarded([&] {
    connectionOf(asCursor(self));
    return none();
  });
}

PyObject* getConnection(PyObject* self, void*) {
  PyObject* const connection = asCursor(self).connection;
  return Ref::shared(connection != nullptr ? connection : Py_None).release();
}

PyObject* getRowCount(PyObject* self, void*) {
  const Result* const result = asCursor(self).result;
  return PyLong_FromLongLong(result == nullptr ? -1 : velmora_result_rows_affected(result->handle));
}

PyObject* getLastRowId(PyObject* self, void*) {
  const Result* const result = asCursor(self).result;
  int64_t identity = 0;
  const bool isThere = result != nullptr && velmora_result_identity(result->handle, &identity) != 0;
  return secondOrNone(isThere, identity);
}

PyObject* getChangesAt(PyObject* self, void*) {
  const Result* const result = asCursor(self).result;
  return result == nullptr ? none() : changesAt(result);
}

PyObject* getMessage(PyObject* self, void*) {
  const Result* const result = asCursor(self).result;
  return PyUnicode_FromString(result == nullptr ? ""
                                                : velmora_result_message(result->handle, nullptr));
}

PyObject* getArraySize(PyObject* self, void*) {
  return PyLong_FromSsize_t(asCursor(self).arraysize);
}

int setArraySize(PyObject* self, PyObject* value, void*) {
  const Py_ssize_t size = value == nullptr ? -1 : PyNumber_AsSsize_t(value, PyExc_OverflowError);
  if (size < 0) {
    if (PyErr_Occurred() == nullptr) {
      PyErr_SetString(PyExc_ValueError, "arraysize is a number of rows");
    }
    return -1;
  }
  asCursor(self).arraysize = size;
  return 0;
}

void requireArguments(Py_ssize_t count, Py_ssize_t least, const char* usage) {
  if (count >= least && count <= 2) return;
  PyErr_SetString(PyExc_TypeError, usage);
  throw Raised();
}

}  // namespace

PyObject* newCursor(PyObject* connection, Result* result) {
  auto* const cursor = newObject<Cursor>(cursorType);
  cursor->connection = Ref::shared(connection).release();
  cursor->arraysize = 1;
  cursor->result = result;
  return reinterpret_cast<PyObject*>(cursor);
}

PyObject* cursorExecute(PyObject* self, PyObject* const* arguments, Py_ssize_t count) {
  return guarded([&] {
    requireArguments(count, 1, "execute takes a command, and a sequence of values");
    Connection& connection = connectionOf(asCursor(self));
    const Ref kept = Ref::shared(asCursor(self).connection);
    setResult(asCursor(self), nullptr);
    setResult(asCursor(self),
              execute(connection, arguments[0], count > 1 ? arguments[1] : nullptr));
    return Ref::shared(self).release();
  });
}

PyObject* cursorExecuteMany(PyObject* self, PyObject* const* arguments, Py_ssize_t count) {
  return guarded([&] {
    requireArguments(count, 2, "executemany takes a command, and sequences of values");
    Connection& connection = connectionOf(asCursor(self));
    const Ref kept = Ref::shared(asCursor(self).connection);
    setResult(asCursor(self), nullptr);
    setResult(asCursor(self), executeMany(connection, arguments[0], arguments[1]));
    return Ref::shared(self).release();
  });
}

void addCursorType(PyObject* module) {
  static std::array methods = {
      method("execute", cursorExecute),
      method("executemany", cursorExecuteMany),
      method("fetchone", fetchOne, METH_NOARGS),
      method("fetchmany", reinterpret_cast<PyCFunction>(reinterpret_cast<void (*)()>(fetchMany)),
             METH_VARARGS | METH_KEYWORDS),
      method("fetchall", fetchAll, METH_NOARGS),
      method("fetch_columns", fetchColumns, METH_NOARGS),
      method("close", close, METH_NOARGS),
      method("setinputsizes", setSizes, METH_VARARGS),
      method("setoutputsize", setSizes, METH_VARARGS),
      PyMethodDef{}};
  static std::array attributes = {
      PyGetSetDef{"description", getDescription, nullptr, nullptr, nullptr},
      PyGetSetDef{"rowcount", getRowCount, nullptr, nullptr, nullptr},
      PyGetSetDef{"lastrowid", getLastRowId, nullptr, nullptr, nullptr},
      PyGetSetDef{"changes_at", getChangesAt, nullptr, nullptr, nullptr},
      PyGetSetDef{"message", getMessage, nullptr, nullptr, nullptr},
      PyGetSetDef{"connection", getConnection, nullptr, nullptr, nullptr},
      PyGetSetDef{"arraysize", getArraySize, setArraySize, nullptr, nullptr},
      PyGetSetDef{}};
  static std::array slots = {slot(Py_tp_new, newCursorOf),
                             slot(Py_tp_dealloc, deleteCursor),
                             slot(Py_tp_traverse, traverse),
                             slot(Py_tp_clear, clear),
                             slot(Py_tp_iter, iterate),
                             slot(Py_tp_iternext, iterateNext),
                             PyType_Slot{Py_tp_methods, methods.data()},
                             PyType_Slot{Py_tp_getset, attributes.data()},
                             PyType_Slot{0, nullptr}};
  cursorType = addType(
      module, "Cursor",
      {"velmora.Cursor", sizeof(Cursor), 0, Py_TPFLAGS_DEFAULT | Py_TPFLAGS_HAVE_GC, slots.data()});
}

}  // namespace velmora_python
