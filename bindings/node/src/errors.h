// What the engine refused, on its way to JavaScript: an exception of one of the classes of
// lib/errors.js, made by that from the code and the members of the engine's error.
#pragma once

#include <string>

#include "addon.h"

namespace velmora_node {

// A call of the engine that failed, or one that the addon refuses in its place.
struct EngineFailure {
  int code = VELMORA_OK;
  Error error;       // null: only the text is known
  std::string text;  // of the addon's own refusals
};

// Calls a function of the engine that returns a code and puts an error where it is told. Throws
// EngineFailure unless the code is VELMORA_OK.
template <typename EngineCall>
void requireOk(EngineCall call) {
  velmora_error* error = nullptr;
  const int code = call(&error);
  if (code != VELMORA_OK) throw EngineFailure{code, Error(error), {}};
}
[[noreturn]] void refuse(int code, const std::string& text);

// The exception as a value; null where none can be made.
napi_value scriptError(napi_env env, const EngineFailure& failure) noexcept;
void throwInScript(napi_env env, const EngineFailure& failure) noexcept;

}  // namespace velmora_node
