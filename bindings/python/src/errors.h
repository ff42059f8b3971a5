// From the engine's errors to the package's exceptions, whose classes stand in velmora/_errors.py.
#pragma once

#include "python_api.h"
#include "velmora/velmora.h"

namespace velmora_python {

// The code of what this package, not the engine, does not have.
inline constexpr int notSupported = 0;

// Looks the classes up.
void prepareErrors();

// Raises the exception of a code of velmora_code, with a text as of PyErr_Format.
[[noreturn]] void raise(int code, const char* format, ...);

// What an engine's function has said: raises the exception unless it is VELMORA_OK. Takes the
// error.
void require(int code, velmora_error* error);

}  // namespace velmora_python
