// The addon in an environment: how it begins and ends there, and how a call is received.
#include "addon.h"

#include "database.h"
#include "errors.h"
#include "texts.h"

namespace velmora_node {
namespace {

// The scratch arrays, longer ones if need be: setScratch(numbers, wide, kinds).
napi_value setScratch(const Call& call) {
  Scratch& scratch = call.addon->scratch;
  void* data[3] = {};
  for (std::size_t i = 0; i < 3; ++i) {
    if (scratch.arrays[i] != nullptr) napi_delete_reference(call.env, scratch.arrays[i]);
    require(call.env, napi_create_reference(call.env, call.argument(i), 1, &scratch.arrays[i]));
    require(call.env, napi_get_typedarray_info(call.env, call.argument(i), nullptr,
                                               &scratch.capacity, &data[i], nullptr, nullptr));
  }
  scratch.numbers = static_cast<double*>(data[0]);
  scratch.wide = static_cast<std::int64_t*>(data[1]);
  scratch.kinds = static_cast<std::uint8_t*>(data[2]);
  return nullptr;
}

// What makes the exceptions: setErrors(makeError).
napi_value setErrors(const Call& call) {
  require(call.env, napi_create_reference(call.env, call.argument(0), 1, &call.addon->makeError));
  return nullptr;
}

napi_value version(const Call& call) {
  napi_value text = nullptr;
  require(call.env, napi_create_string_utf8(call.env, velmora_version(), NAPI_AUTO_LENGTH, &text));
  return text;
}

// The environment ends: of a worker thread, too. What is open is closed, and threads have ended
// before the memory that they use goes.
void end(void* data) {
  Addon& addon = **static_cast<std::shared_ptr<Addon>*>(data);
  addon.isEnding = true;
  while (!addon.databases.empty()) (*addon.databases.begin())->abandon();
}

void begin(napi_env env) {
  auto* const owned = new std::shared_ptr<Addon>(std::make_shared<Addon>());
  (*owned)->env = env;
  const auto destroy = [](napi_env, void* data, void*) {
    delete static_cast<std::shared_ptr<Addon>*>(data);
  };
  require(env, napi_set_instance_data(env, owned, destroy, nullptr));
  require(env, napi_add_env_cleanup_hook(env, end, owned));
}

void define(napi_env env, napi_value exports, const std::vector<Export>& functions) {
  for (const Export& each : functions) {
    napi_value function = nullptr;
    require(env, napi_create_function(env, each.name, NAPI_AUTO_LENGTH, each.function, nullptr,
                                      &function));
    require(env, napi_set_named_property(env, exports, each.name, function));
  }
}

}  // namespace

void require(napi_env env, napi_status status) {
  if (status == napi_ok) return;
  bool isPending = false;
  napi_is_exception_pending(env, &isPending);
  if (!isPending) napi_throw_error(env, nullptr, "velmora: a call of Node-API failed");
  throw Thrown();
}

napi_value numberValue(napi_env env, double number) {
  napi_value value = nullptr;
  require(env, napi_create_double(env, number, &value));
  return value;
}

void throwTypeError(napi_env env, const std::string& text) {
  napi_throw_type_error(env, nullptr, text.c_str());
  throw Thrown();
}

Call::Call(napi_env given, napi_callback_info info) : env(given) {
  std::size_t count = std::size(arguments_);
  require(env, napi_get_cb_info(env, info, &count, arguments_, nullptr, nullptr));
  void* data = nullptr;
  require(env, napi_get_instance_data(env, &data));
  addon = static_cast<std::shared_ptr<Addon>*>(data)->get();
}

double Call::number(std::size_t index) const {
  double number = 0;
  require(env, napi_get_value_double(env, arguments_[index], &number));
  return number;
}

bool Call::truth(std::size_t index) const {
  bool truth = false;
  require(env, napi_get_value_bool(env, arguments_[index], &truth));
  return truth;
}

std::string Call::text(std::size_t index, const char* what) const {
  return utf8Of(env, arguments_[index], what);
}

void* Call::external(std::size_t index) const {
  void* data = nullptr;
  require(env, napi_get_value_external(env, arguments_[index], &data));
  return data;
}

napi_value run(Function function, napi_env env, napi_callback_info info) noexcept {
  try {
    return function(Call(env, info));
  } catch (const Thrown&) {
    // It is pending.
  } catch (const EngineFailure& failure) {
    throwInScript(env, failure);
  } catch (const std::exception& error) {
    napi_throw_error(env, nullptr, error.what());
  }
  return nullptr;
}

}  // namespace velmora_node

NAPI_MODULE_INIT() {
  using namespace velmora_node;
  try {
    begin(env);
    define(env, exports,
           {exported<setScratch>("setScratch"), exported<setErrors>("setErrors"),
            exported<version>("version")});
    define(env, exports, databaseFunctions());
    define(env, exports, statementFunctions());
    define(env, exports, resultFunctions());
    define(env, exports, asynchronousFunctions());
  } catch (const Thrown&) {
    // It is pending.
  }
  return exports;
}
