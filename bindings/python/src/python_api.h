// CPython's limited API of version 3.9, so that one binary serves 3.9 and every later version, and
// how this extension holds what it gets from there: references that are released by themselves, and
// a failure, which Python has been told of, as a C++ exception until the function that Python
// called is left.
#pragma once

#define PY_SSIZE_T_CLEAN
#include <Python.h>

#include <cstddef>
#include <new>
#include <utility>

// What 3.9 exports and every later version keeps, but only later headers declare for extensions
// like this one.
extern "C" PyAPI_FUNC(const char*) PyUnicode_AsUTF8AndSize(PyObject* text, Py_ssize_t* size);

namespace velmora_python {

inline constexpr int fastCall = 0x0080;  // METH_FASTCALL
inline constexpr int getBufferSlot = 1;  // Py_bf_getbuffer
// Py_buffer.
struct Buffer {
  const void* bytes;
  PyObject* owner;
  Py_ssize_t size;
  Py_ssize_t itemSize;
  int isReadOnly;
  int dimensions;
  const char* format;
  Py_ssize_t* shape;
  Py_ssize_t* strides;
  Py_ssize_t* suboffsets;
  void* internal;
};
inline constexpr int bufferWritable = 0x0001;  // PyBUF_WRITABLE
inline constexpr int bufferFormat = 0x0004;    // PyBUF_FORMAT

// Python's error is set.
struct Raised {};

inline PyObject* checked(PyObject* object) {
  if (object == nullptr) throw Raised();
  return object;
}
inline void checked(int status) {
  if (status < 0) throw Raised();
}

// A reference of our own.
class Ref {
 public:
  Ref() = default;
  // Takes over a new reference, as functions of Python return them; null is Raised.
  static Ref taken(PyObject* object) { return Ref(checked(object)); }
  static Ref shared(PyObject* object) noexcept {
    Py_XINCREF(object);
    return Ref(object);
  }
  Ref(Ref&& other) noexcept : object_(std::exchange(other.object_, nullptr)) {}
  Ref& operator=(Ref&& other) noexcept {
    std::swap(object_, other.object_);
    return *this;
  }
  ~Ref() { Py_XDECREF(object_); }

  PyObject* get() const noexcept { return object_; }
  PyObject* release() noexcept { return std::exchange(object_, nullptr); }

 private:
  explicit Ref(PyObject* object) noexcept : object_(object) {}
  PyObject* object_ = nullptr;
};

// What a function that Python calls does, with the exceptions that it lets out given to Python.
template <typename Result, typename Body>
Result guarded(Result failure, Body body) noexcept {
  try {
    return body();
  } catch (const Raised&) {
    return failure;
  } catch (const std::bad_alloc&) {
    PyErr_NoMemory();
    return failure;
  }
}
template <typename Body>
PyObject* guarded(Body body) noexcept {
  return guarded(static_cast<PyObject*>(nullptr), body);
}

// While it lasts, other Python threads run, and nothing of Python may be touched.
class WithoutPython {
 public:
  WithoutPython() : thread_(PyEval_SaveThread()) {}
  ~WithoutPython() { PyEval_RestoreThread(thread_); }
  WithoutPython(const WithoutPython&) = delete;
  WithoutPython& operator=(const WithoutPython&) = delete;

 private:
  PyThreadState* thread_;
};

using FastFunction = PyObject* (*)(PyObject* self, PyObject* const* arguments, Py_ssize_t count);

inline PyMethodDef method(const char* name, PyCFunction function, int flags) {
  return {name, function, flags, nullptr};
}
inline PyMethodDef method(const char* name, FastFunction function) {
  return {name, reinterpret_cast<PyCFunction>(reinterpret_cast<void (*)()>(function)), fastCall,
          nullptr};
}

// A function of a type's slot.
template <typename Function>
PyType_Slot slot(int number, Function* function) {
  return {number, reinterpret_cast<void*>(function)};
}

// A new object, all zeros behind its header.
template <typename Object>
Object* newObject(PyTypeObject* type, Py_ssize_t items = 0) {
  return reinterpret_cast<Object*>(checked(PyType_GenericAlloc(type, items)));
}

// The end of an object, its memory and its hold on its type: of one that the collector of cycles
// knows of, and of one that it does not.
inline void freeCollected(PyObject* self) {
  PyTypeObject* const type = Py_TYPE(self);
  PyObject_GC_Del(self);
  Py_DECREF(type);
}
inline void freeObject(PyObject* self) {
  PyTypeObject* const type = Py_TYPE(self);
  PyObject_Free(self);
  Py_DECREF(type);
}

// For types whose objects only this extension makes.
inline PyObject* refuseNew(PyTypeObject*, PyObject*, PyObject*) {
  PyErr_SetString(PyExc_TypeError, "Objects of this type are made by the package itself");
  return nullptr;
}

// Makes a type, and names it in the module.
inline PyTypeObject* addType(PyObject* module, const char* name, PyType_Spec spec) {
  PyObject* const type = checked(PyType_FromSpec(&spec));
  Py_INCREF(type);
  checked(PyModule_AddObject(module, name, type));
  return reinterpret_cast<PyTypeObject*>(type);
}

}  // namespace velmora_python
