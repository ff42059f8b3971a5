// The module velmora._velmora: the engine itself and the types over it. The package's Python
// sources name what programs use of it.
#include <array>

#include "columns.h"
#include "connection.h"
#include "cursor.h"
#include "database.h"
#include "errors.h"
#include "result.h"

namespace velmora_python {
namespace {

std::array functions = {method("check", checkDirectory, METH_O), PyMethodDef{}};
PyModuleDef definition = {PyModuleDef_HEAD_INIT,
                          "velmora._velmora",
                          nullptr,
                          -1,
                          functions.data(),
                          nullptr,
                          nullptr,
                          nullptr,
                          nullptr};

PyObject* newModule() {
  Ref module = Ref::taken(PyModule_Create(&definition));
  checked(PyModule_AddStringConstant(module.get(), "version", velmora_version()));
  prepareErrors();
  addDatabaseType(module.get());
  addConnectionType(module.get());
  addCursorType(module.get());
  addResultTypes(module.get());
  addColumnTypes(module.get());
  return module.release();
}

}  // namespace
}  // namespace velmora_python

PyMODINIT_FUNC PyInit__velmora() {
  return velmora_python::guarded([] { return velmora_python::newModule(); });
}
