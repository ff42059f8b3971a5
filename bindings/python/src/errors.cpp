// Errors of the engine as exceptions: the class of the code, with the fields that the engine has
// filled in.
#include "errors.h"

#include <cstdarg>
#include <memory>

namespace velmora_python {
namespace {

PyObject* classes = nullptr;  // a dict from code to exception class

PyObject* classOf(int code) {
  const Ref key = Ref::taken(PyLong_FromLong(code));
  return checked(PyDict_GetItemWithError(classes, key.get()));
}

void setAttribute(const Ref& object, const char* name, const Ref& value) {
  checked(PyObject_SetAttrString(object.get(), name, value.get()));
}

void setNumber(const Ref& exception, const char* name, int64_t value, int64_t none) {
  if (value != none) setAttribute(exception, name, Ref::taken(PyLong_FromLongLong(value)));
}

void setText(const Ref& exception, const char* name, const char* value) {
  if (*value != '\0') setAttribute(exception, name, Ref::taken(PyUnicode_FromString(value)));
}

[[noreturn]] void raiseWith(int code, const Ref& text, const velmora_error* error) {
  PyObject* const type = classOf(code);
  const Ref exception = Ref::taken(PyObject_CallFunctionObjArgs(type, text.get(), nullptr));
  if (error != nullptr) {
    setNumber(exception, "offset", velmora_error_offset(error), -1);
    setText(exception, "table", velmora_error_table(error));
    setText(exception, "column", velmora_error_column(error));
    setNumber(exception, "system", velmora_error_system(error), 0);
    setNumber(exception, "process", velmora_error_process(error), 0);
  }
  PyErr_SetObject(type, exception.get());
  throw Raised();
}

}  // namespace

void prepareErrors() {
  const Ref module = Ref::taken(PyImport_ImportModule("velmora._errors"));
  classes = checked(PyObject_GetAttrString(module.get(), "BY_CODE"));
}

void raise(int code, const char* format, ...) {
  va_list arguments;
  va_start(arguments, format);
  PyObject* const text = PyUnicode_FromFormatV(format, arguments);
  va_end(arguments);
  raiseWith(code, Ref::taken(text), nullptr);
}

void require(int code, velmora_error* error) {
  if (code == VELMORA_OK) return;
  const std::unique_ptr<velmora_error, decltype(&velmora_error_destroy)> owned(
      error, velmora_error_destroy);
  if (code == VELMORA_NO_MEMORY || error == nullptr) throw std::bad_alloc();
  const char* const text = velmora_error_text(error);
  raiseWith(code,
            Ref::taken(PyUnicode_DecodeUTF8(
                text, static_cast<Py_ssize_t>(std::char_traits<char>::length(text)), "replace")),
            error);
}

}  // namespace velmora_python
