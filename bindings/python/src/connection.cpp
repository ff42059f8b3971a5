// Connections: commands, batches, and what concerns the database as a whole. Whoever calls the
// engine holds the connection in use, so that no other thread closes it meanwhile.
#include "connection.h"

#include <array>

#include "cursor.h"
#include "errors.h"
#include "transaction.h"
#include "values.h"

namespace velmora_python {
namespace {

PyTypeObject* connectionType = nullptr;

Connection& asConnection(PyObject* object) { return *reinterpret_cast<Connection*>(object); }

PyObject* none() {
  Py_INCREF(Py_None);
  return Py_None;
}

// While it lasts the connection is not closed.
class Use {
 public:
  explicit Use(Connection& connection) : connection_(connection) {
    requireOpen(connection);
    requireNoOtherTransaction(connection);
    ++connection.calls;
  }
  ~Use() { --connection_.calls; }
  Use(const Use&) = delete;
  Use& operator=(const Use&) = delete;
  velmora_db* db() const { return connection_.database->handle; }

 private:
  Connection& connection_;
};

// Calls the engine, while others run, and raises what it says. One rule for every call that can
// wait: by-key reads, too, wait for another thread's transaction, which that thread needs Python's
// lock to end. It costs such a read 0.04 of its 0.46 microseconds.
template <typename Function>
void call(Function function) {
  velmora_error* error = nullptr;
  int code = VELMORA_OK;
  {
    const WithoutPython others;
    code = function(&error);
  }
  require(code, error);
}

// A statement, taken for as long as it is run.
class Lease {
 public:
  Lease(Connection& connection, const Use& use, PyObject* text)
      : connection_(connection),
        text_(text),
        statement_(connection.statements->take(use.db(), text)) {}
  ~Lease() {
    guarded(0, [&] { return connection_.statements->giveBack(text_, std::move(statement_)), 0; });
  }
  Lease(const Lease&) = delete;
  Lease& operator=(const Lease&) = delete;
  Statement& statement() { return *statement_; }

 private:
  Connection& connection_;
  PyObject* text_;
  std::unique_ptr<Statement> statement_;
};

void requireText(PyObject* text) {
  if (!PyUnicode_CheckExact(text)) {
    const Ref type = Ref::shared(reinterpret_cast<PyObject*>(Py_TYPE(text)));
    const Ref name = Ref::taken(PyObject_GetAttrString(type.get(), "__name__"));
    raise(VELMORA_MISUSE, "The command is of type %U, not str", name.get());
  }
}

void bind(const Statement& statement, PyObject* values) {
  if (values == nullptr) return requireCount(statement.parameters, 0);
  const Ref tuple = valueTuple(values);
  const auto count = static_cast<size_t>(PyTuple_Size(tuple.get()));
  requireCount(statement.parameters, count);
  for (size_t number = 1; number <= count; ++number) {
    velmora_value value = {};
    setValue(value, PyTuple_GetItem(tuple.get(), static_cast<Py_ssize_t>(number - 1)), number);
    velmora_error* error = nullptr;
    const int code = velmora_bind(statement.handle.get(), number, &value, &error);
    require(code, error);
  }
}

// Runs a statement in its place in a transaction.
template <typename Function>
Result* run(Connection& connection, Statement& statement, Function function) {
  velmora_result* result = nullptr;
  inTransaction(connection, statement.kind,
                [&] { call([&](velmora_error** error) { return function(&result, error); }); });
  Result* const made = newResult(result, statement.names.get());
  if (made->columns > 0) statement.names = Ref::shared(made->names);
  return made;
}

// ---- What Python calls ----

PyObject* newConnection(PyTypeObject* type, PyObject* arguments, PyObject*) {
  return guarded([&] {
    PyObject* database = nullptr;
    int autocommit = 0;
    Py_ssize_t statements = 0;
    if (PyArg_ParseTuple(arguments, "Opn", &database, &autocommit, &statements) == 0) {
      throw Raised();
    }
    if (!isDatabase(database)) {
      PyErr_SetString(PyExc_TypeError, "velmora.connect makes connections");
      throw Raised();
    }
    const auto allocate = reinterpret_cast<allocfunc>(PyType_GetSlot(type, Py_tp_alloc));
    Ref owned = Ref::taken(allocate(type, 0));
    Connection& connection = asConnection(owned.get());
    connection.statements = new Statements(static_cast<size_t>(statements < 0 ? 0 : statements));
    connection.database = reinterpret_cast<Database*>(Ref::shared(database).release());
    connection.autocommit = autocommit != 0;
    return owned.release();
  });
}

void requireNoCalls(const Connection& connection) {
  if (connection.calls > 0) raise(VELMORA_MISUSE, "A call with the connection is under way");
}

// Lets the database go.
void release(Connection& connection) {
  Database* const database = std::exchange(connection.database, nullptr);
  Statements* const statements = std::exchange(connection.statements, nullptr);
  if (database == nullptr) return;
  if (database->process != currentProcess()) statements->forget();
  delete statements;
  if (database->owner == &connection) database->owner = nullptr;
  Py_DECREF(reinterpret_cast<PyObject*>(database));
}

// Ends what is open and lets the database go; whether there was something to do. The argument:
// whether nobody else uses the database, whose closing ends every transaction.
PyObject* leave(PyObject* self, PyObject* isLast) {
  return guarded([&] {
    Connection& connection = asConnection(self);
    if (connection.database == nullptr) return PyBool_FromLong(0);
    requireOpen(connection);
    requireNoCalls(connection);
    if (isLast != Py_True) requireNoForeignThread(connection);
    if (isInTransaction(connection)) {
      rollBack(connection);
      requireNoCalls(connection);
    }
    release(connection);
    return PyBool_FromLong(1);
  });
}

int traverse(PyObject* self, visitproc visit, void* arg) {
  Py_VISIT(reinterpret_cast<PyObject*>(Py_TYPE(self)));
  Py_VISIT(reinterpret_cast<PyObject*>(asConnection(self).database));
  return 0;
}

int clear(PyObject* self) {
  release(asConnection(self));
  return 0;
}

void deleteConnection(PyObject* self) {
  PyObject_GC_UnTrack(self);
  release(asConnection(self));
  freeCollected(self);
}

PyObject* connectionExecute(PyObject* self, PyObject* const* arguments, Py_ssize_t count) {
  return guarded([&] {
    const Ref cursor = Ref::taken(newCursor(self));
    return cursorExecute(cursor.get(), arguments, count);
  });
}

PyObject* connectionExecuteMany(PyObject* self, PyObject* const* arguments, Py_ssize_t count) {
  return guarded([&] {
    const Ref cursor = Ref::taken(newCursor(self));
    return cursorExecuteMany(cursor.get(), arguments, count);
  });
}

PyObject* makeCursor(PyObject* self, PyObject*) {
  return guarded([&] {
    requireOpen(asConnection(self));
    return newCursor(self);
  });
}

// Each command of the batch, with what it borrows.
struct Batch {
  std::vector<Ref> kept;
  std::vector<ValueRows> values;
  std::vector<velmora_command> commands;

  void add(Ref command) {
    PyObject* text = command.get();
    PyObject* given = nullptr;
    if (PyTuple_Check(text) && PyArg_ParseTuple(command.get(), "O|O", &text, &given) == 0) {
      throw Raised();
    }
    requireText(text);
    velmora_command added = {};
    added.text = utf8(text, &added.length);
    if (added.text == nullptr) raise(VELMORA_SYNTAX, "The command has a lone surrogate");
    ValueRows& own = values.emplace_back();
    if (given != nullptr) {
      const Ref tuple = valueTuple(given);
      own.add(tuple.get(), static_cast<size_t>(PyTuple_Size(tuple.get())));
    }
    added.values = own.values.data();
    added.count = own.values.size();
    commands.push_back(added);
    kept.push_back(std::move(command));
  }
};

PyObject* executeBatch(PyObject* self, PyObject* commands) {
  return guarded([&] {
    Connection& connection = asConnection(self);
    const Use use(connection);
    Batch batch;
    const Ref iterator = Ref::taken(PyObject_GetIter(commands));
    while (PyObject* const command = PyIter_Next(iterator.get())) batch.add(Ref::taken(command));
    if (PyErr_Occurred() != nullptr) throw Raised();
    velmora_result* result = nullptr;
    inTransaction(connection, VELMORA_CHANGES, [&] {
      call([&](velmora_error** error) {
        return velmora_run_batch(use.db(), batch.commands.data(), batch.commands.size(), &result,
                                 error);
      });
    });
    return newCursor(self, newResult(result, nullptr));
  });
}

PyObject* commit(PyObject* self, PyObject*) {
  return guarded([&] {
    Connection& connection = asConnection(self);
    requireOpen(connection);
    requireNoForeignThread(connection);
    if (isInTransaction(connection)) commitOpen(connection);
    return none();
  });
}

PyObject* rollback(PyObject* self, PyObject*) {
  return guarded([&] {
    Connection& connection = asConnection(self);
    requireOpen(connection);
    requireNoForeignThread(connection);
    if (isInTransaction(connection)) rollBack(connection);
    return none();
  });
}

PyObject* checkpoint(PyObject* self, PyObject*) {
  return guarded([&] {
    const Use use(asConnection(self));
    call([&](velmora_error** error) { return velmora_checkpoint(use.db(), error); });
    return none();
  });
}

PyObject* backup(PyObject* self, PyObject* path) {
  return guarded([&] {
    const Use use(asConnection(self));
    char* bytes = nullptr;
    Py_ssize_t length = 0;
    checked(PyBytes_AsStringAndSize(path, &bytes, &length));
    call([&](velmora_error** error) {
      return velmora_backup(use.db(), bytes, static_cast<size_t>(length), error);
    });
    return none();
  });
}

PyObject* interrupt(PyObject* self, PyObject*) {
  return guarded([&] {
    requireOpen(asConnection(self));
    velmora_interrupt(asConnection(self).database->handle);
    return none();
  });
}

PyObject* getInTransaction(PyObject* self, void*) {
  return guarded([&] {
    requireOpen(asConnection(self));
    return PyBool_FromLong(isInTransaction(asConnection(self)) ? 1 : 0);
  });
}

PyObject* getAutocommit(PyObject* self, void*) {
  return guarded([&] {
    requireOpen(asConnection(self));
    return PyBool_FromLong(asConnection(self).autocommit ? 1 : 0);
  });
}

// As in the module sqlite3, what is open then is committed.
int setAutocommit(PyObject* self, PyObject* value, void*) {
  return guarded(-1, [&] {
    const int isOn = value == nullptr ? 0 : PyObject_IsTrue(value);
    checked(isOn);
    if (isOn != 0) Ref::taken(commit(self, nullptr));
    asConnection(self).autocommit = isOn != 0;
    return 0;
  });
}

}  // namespace

void requireOpen(const Connection& connection) {
  if (connection.database == nullptr || connection.database->handle == nullptr) {
    raise(VELMORA_MISUSE, "The connection is closed");
  }
  if (connection.database->process != currentProcess()) {
    raise(VELMORA_MISUSE, "The connection belongs to the process that has made it");
  }
}

bool isConnection(PyObject* object) { return PyObject_TypeCheck(object, connectionType) != 0; }

Result* execute(Connection& connection, PyObject* text, PyObject* values) {
  requireText(text);
  const Use use(connection);
  Lease lease(connection, use, text);
  bind(lease.statement(), values);
  velmora_statement* const handle = lease.statement().handle.get();
  return run(connection, lease.statement(), [&](velmora_result** result, velmora_error** error) {
    return velmora_statement_run(handle, result, error);
  });
}

Result* executeMany(Connection& connection, PyObject* text, PyObject* rows) {
  requireText(text);
  const Use use(connection);
  Lease lease(connection, use, text);
  ValueRows given;
  if (PyList_Check(rows)) {
    given.reserve(static_cast<size_t>(PyList_Size(rows)), lease.statement().parameters);
  }
  const Ref iterator = Ref::taken(PyObject_GetIter(rows));
  while (PyObject* const row = PyIter_Next(iterator.get())) {
    given.add(Ref::taken(row).get(), lease.statement().parameters);
  }
  if (PyErr_Occurred() != nullptr) throw Raised();
  velmora_statement* const handle = lease.statement().handle.get();
  return run(connection, lease.statement(), [&](velmora_result** result, velmora_error** error) {
    return velmora_statement_run_many(handle, given.values.data(), given.rows.size(), result,
                                      error);
  });
}

void addConnectionType(PyObject* module) {
  static std::array methods = {method("cursor", makeCursor, METH_NOARGS),
                               method("execute", connectionExecute),
                               method("executemany", connectionExecuteMany),
                               method("executebatch", executeBatch, METH_O),
                               method("commit", commit, METH_NOARGS),
                               method("rollback", rollback, METH_NOARGS),
                               method("checkpoint", checkpoint, METH_NOARGS),
                               method("interrupt", interrupt, METH_NOARGS),
                               method("_backup", backup, METH_O),
                               method("_leave", leave, METH_O),
                               PyMethodDef{}};
  static std::array attributes = {
      PyGetSetDef{"in_transaction", getInTransaction, nullptr, nullptr, nullptr},
      PyGetSetDef{"autocommit", getAutocommit, setAutocommit, nullptr, nullptr}, PyGetSetDef{}};
  static std::array slots = {slot(Py_tp_new, newConnection),
                             slot(Py_tp_dealloc, deleteConnection),
                             slot(Py_tp_traverse, traverse),
                             slot(Py_tp_clear, clear),
                             PyType_Slot{Py_tp_methods, methods.data()},
                             PyType_Slot{Py_tp_getset, attributes.data()},
                             PyType_Slot{0, nullptr}};
  connectionType =
      addType(module, "Connection",
              {"velmora._velmora.Connection", sizeof(Connection), 0,
               Py_TPFLAGS_DEFAULT | Py_TPFLAGS_HAVE_GC | Py_TPFLAGS_BASETYPE, slots.data()});
}

}  // namespace velmora_python
