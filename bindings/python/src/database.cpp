// A database's life, its callbacks, and the check of one that is not open.
#include "database.h"

#include <pthread.h>

#include <array>
#include <ctime>
#include <string>
#include <vector>

#include "errors.h"
#include "result.h"
#include "values.h"

namespace velmora_python {
namespace {

PyTypeObject* databaseType = nullptr;
unsigned long forks = 0;

Database* asDatabase(PyObject* object) { return reinterpret_cast<Database*>(object); }

// ---- Callbacks: on any thread, which Python may not know yet ----

class WithPython {
 public:
  WithPython() : state_(PyGILState_Ensure()) {}
  ~WithPython() { PyGILState_Release(state_); }
  WithPython(const WithPython&) = delete;
  WithPython& operator=(const WithPython&) = delete;

 private:
  PyGILState_STATE state_;
};

// What a callback raises is told as what a finaliser raises.
void tell(PyObject* callback) { PyErr_WriteUnraisable(callback); }

PyObject* textOrNull(const char* text, size_t length) {
  return PyUnicode_DecodeUTF8(text, static_cast<Py_ssize_t>(length), "replace");
}

void logLine(void* context, int level, const char* text, size_t length) {
  constexpr std::array levels = {20, 30, 40};  // of the module logging
  const WithPython python;
  PyObject* const callback = static_cast<Database*>(context)->log;
  PyObject* const answer = PyObject_CallFunction(
      callback, "iN", levels.at(static_cast<size_t>(level)), textOrNull(text, length));
  if (answer == nullptr) tell(callback);
  Py_XDECREF(answer);
}

int showProgress(void* context, const char* what, size_t length, uint64_t done, uint64_t total) {
  const WithPython python;
  PyObject* const callback = static_cast<Database*>(context)->progress;
  PyObject* const answer = PyObject_CallFunction(callback, "NKK", textOrNull(what, length),
                                                 static_cast<unsigned long long>(done),
                                                 static_cast<unsigned long long>(total));
  // What raises has it stop, too.
  const int stops = answer == nullptr ? -1 : PyObject_IsTrue(answer);
  if (stops < 0) tell(callback);
  Py_XDECREF(answer);
  return stops;
}

int64_t readClock(void* context) {
  const WithPython python;
  PyObject* const callback = static_cast<Database*>(context)->clock;
  PyObject* const answer = PyObject_CallObject(callback, nullptr);
  long long second = answer == nullptr ? -1 : PyLong_AsLongLong(answer);
  Py_XDECREF(answer);
  if (PyErr_Occurred() != nullptr) {
    tell(callback);
    second = std::time(nullptr);
  }
  return second;
}

// ---- Its life ----

PyObject* callableOrNull(PyObject* object) {
  return object == Py_None ? nullptr : Ref::shared(object).release();
}

velmora_options optionsOf(Database& database) {
  velmora_options options = {};
  options.size = sizeof options;
  options.context = &database;
  if (database.log != nullptr) options.log = logLine;
  if (database.progress != nullptr) options.progress = showProgress;
  if (database.clock != nullptr) options.clock = readClock;
  return options;
}

void open(Database& database, const char* path, Py_ssize_t length, velmora_options options) {
  velmora_error* error = nullptr;
  int code = VELMORA_OK;
  {
    const WithoutPython others;
    code = velmora_open(path, static_cast<size_t>(length), &options, &database.handle, &error);
  }
  require(code, error);
}

PyObject* newDatabase(PyTypeObject* type, PyObject* arguments, PyObject*) {
  return guarded([&] {
    const char* path = nullptr;
    Py_ssize_t length = 0;
    unsigned flags = 0;
    unsigned durability = 0;
    unsigned openWait = 0;
    unsigned transactionWait = 0;
    PyObject* log = nullptr;
    PyObject* progress = nullptr;
    PyObject* clock = nullptr;
    if (PyArg_ParseTuple(arguments, "y#IIIIOOO", &path, &length, &flags, &durability, &openWait,
                         &transactionWait, &log, &progress, &clock) == 0) {
      throw Raised();
    }
    auto* const database = newObject<Database>(type);
    Ref owned = Ref::taken(reinterpret_cast<PyObject*>(database));
    database->process = currentProcess();
    database->log = callableOrNull(log);
    database->progress = callableOrNull(progress);
    database->clock = callableOrNull(clock);
    velmora_options options = optionsOf(*database);
    options.flags = flags;
    options.durability = durability;
    options.open_wait_milliseconds = openWait;
    options.transaction_wait_milliseconds = transactionWait;
    open(*database, path, length, options);
    return owned.release();
  });
}

// A child of a fork leaves its parent's database alone.
void closeHandle(Database& database) {
  velmora_db* const handle = std::exchange(database.handle, nullptr);
  if (handle == nullptr || database.process != currentProcess()) return;
  velmora_error* error = nullptr;
  int code = VELMORA_OK;
  {
    const WithoutPython others;
    code = velmora_close(handle, &error);
  }
  require(code, error);
}

PyObject* closeDatabase(PyObject* self, PyObject*) {
  return guarded([&] {
    closeHandle(*asDatabase(self));
    return secondOrNone(false, 0);
  });
}

int traverse(PyObject* self, visitproc visit, void* arg) {
  const Database& database = *asDatabase(self);
  Py_VISIT(reinterpret_cast<PyObject*>(Py_TYPE(self)));
  Py_VISIT(database.log);
  Py_VISIT(database.progress);
  Py_VISIT(database.clock);
  return 0;
}

// The engine may call them back until it is closed, so they go with the object itself: connections
// and callbacks can be taken apart first.
int clear(PyObject*) { return 0; }

void deleteDatabase(PyObject* self) {
  PyObject_GC_UnTrack(self);
  Database& database = *asDatabase(self);
  if (guarded(-1, [&] { return closeHandle(database), 0; }) < 0) tell(self);
  Py_XDECREF(database.log);
  Py_XDECREF(database.progress);
  Py_XDECREF(database.clock);
  freeCollected(self);
}

// ---- Checking ----

struct Fault {
  std::string file;
  int64_t offset;
  std::string meaning;
};

void addFault(void* context, const char* file, int64_t offset, const char* meaning) {
  static_cast<std::vector<Fault>*>(context)->push_back({file, offset, meaning});
}

Ref listOf(const std::vector<Fault>& faults) {
  Ref list = Ref::taken(PyList_New(0));
  for (const Fault& fault : faults) {
    const Ref tuple = Ref::taken(Py_BuildValue("sNs", fault.file.c_str(),
                                               secondOrNone(fault.offset >= 0, fault.offset),
                                               fault.meaning.c_str()));
    checked(PyList_Append(list.get(), tuple.get()));
  }
  return list;
}

}  // namespace

unsigned long currentProcess() { return forks; }

bool isDatabase(PyObject* object) { return Py_TYPE(object) == databaseType; }

PyObject* checkDirectory(PyObject*, PyObject* path) {
  return guarded([&] {
    char* bytes = nullptr;
    Py_ssize_t length = 0;
    checked(PyBytes_AsStringAndSize(path, &bytes, &length));
    std::vector<Fault> faults;
    velmora_error* error = nullptr;
    int code = VELMORA_OK;
    {
      const WithoutPython others;
      code = velmora_check(bytes, static_cast<size_t>(length), nullptr, addFault, &faults, &error);
    }
    if (code != VELMORA_CORRUPT || faults.empty()) {
      require(code, error);
    } else {
      velmora_error_destroy(error);
    }
    return listOf(faults).release();
  });
}

void addDatabaseType(PyObject* module) {
  pthread_atfork(nullptr, nullptr, [] { ++forks; });
  static std::array methods = {method("close", closeDatabase, METH_NOARGS), PyMethodDef{}};
  static std::array slots = {slot(Py_tp_new, newDatabase),
                             slot(Py_tp_dealloc, deleteDatabase),
                             slot(Py_tp_traverse, traverse),
                             slot(Py_tp_clear, clear),
                             PyType_Slot{Py_tp_methods, methods.data()},
                             PyType_Slot{0, nullptr}};
  databaseType = addType(module, "Database",
                         {"velmora.Database", sizeof(Database), 0,
                          Py_TPFLAGS_DEFAULT | Py_TPFLAGS_HAVE_GC, slots.data()});
}

}  // namespace velmora_python
