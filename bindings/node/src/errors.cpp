// Failures of the engine as exceptions.
#include "errors.h"

namespace velmora_node {
namespace {

napi_value textValue(napi_env env, const char* text) {
  napi_value value = nullptr;
  require(env, napi_create_string_utf8(env, text, NAPI_AUTO_LENGTH, &value));
  return value;
}

const char* messageOf(const EngineFailure& failure) {
  if (!failure.text.empty()) return failure.text.c_str();
  return failure.error == nullptr ? "Out of memory" : velmora_error_text(failure.error.get());
}

const char* orEmpty(const char* text) { return text == nullptr ? "" : text; }

// makeError(number, message, offset, table, column, system, process)
napi_value made(napi_env env, const EngineFailure& failure) {
  void* data = nullptr;
  require(env, napi_get_instance_data(env, &data));
  const Addon& addon = **static_cast<std::shared_ptr<Addon>*>(data);
  const velmora_error* const error = failure.error.get();
  const napi_value arguments[] = {
      numberValue(env, failure.code),
      textValue(env, messageOf(failure)),
      numberValue(env, error == nullptr ? -1 : static_cast<double>(velmora_error_offset(error))),
      textValue(env, orEmpty(velmora_error_table(error))),
      textValue(env, orEmpty(velmora_error_column(error))),
      numberValue(env, velmora_error_system(error)),
      numberValue(env, static_cast<double>(velmora_error_process(error)))};
  napi_value makeError = nullptr;
  require(env, napi_get_reference_value(env, addon.makeError, &makeError));
  napi_value receiver = nullptr;
  require(env, napi_get_undefined(env, &receiver));
  napi_value value = nullptr;
  require(env,
          napi_call_function(env, receiver, makeError, std::size(arguments), arguments, &value));
  return value;
}

}  // namespace

void refuse(int code, const std::string& text) { throw EngineFailure{code, nullptr, text}; }

napi_value scriptError(napi_env env, const EngineFailure& failure) noexcept {
  try {
    return made(env, failure);
  } catch (const Thrown&) {
    return nullptr;
  }
}

void throwInScript(napi_env env, const EngineFailure& failure) noexcept {
  // What a callback has thrown says more than that it has stopped the call.
  bool isPending = false;
  napi_is_exception_pending(env, &isPending);
  if (isPending) return;
  const napi_value error = scriptError(env, failure);
  if (error != nullptr) napi_throw(env, error);
}

}  // namespace velmora_node
