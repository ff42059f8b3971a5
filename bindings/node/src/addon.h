// What every source of the addon relies on: the state that one JavaScript environment has of it,
// and a call from JavaScript with its arguments. Each environment (the main thread's, each worker
// thread's) has an Addon of its own, and nothing is shared between them.
//
// The addon is the lower half of the package: the objects that programs see are made in lib/*.js,
// which holds the handles that the functions here give out, and passes nothing else for them.
#pragma once

#include <node_api.h>

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <thread>
#include <unordered_set>
#include <vector>

#include "velmora/velmora.h"

namespace velmora_node {

class Database;

struct ResultDestroy {
  void operator()(velmora_result* result) const noexcept { velmora_result_destroy(result); }
};
using Result = std::unique_ptr<velmora_result, ResultDestroy>;

struct ErrorDestroy {
  void operator()(velmora_error* error) const noexcept { velmora_error_destroy(error); }
};
using Error = std::unique_ptr<velmora_error, ErrorDestroy>;

// Arrays that JavaScript and the addon both write: values on their way in, and blocks of rows on
// their way out, so that not every value needs a call. lib/scratch.js describes them.
struct Scratch {
  double* numbers = nullptr;
  std::int64_t* wide = nullptr;
  std::uint8_t* kinds = nullptr;
  std::size_t capacity = 0;
  napi_ref arrays[3] = {};
};

struct Addon : std::enable_shared_from_this<Addon> {
  napi_env env = nullptr;
  std::thread::id thread = std::this_thread::get_id();
  Scratch scratch;
  napi_ref makeError = nullptr;             // of lib/errors.js
  std::unordered_set<Database*> databases;  // that are open
  std::vector<velmora_value> block;         // as it comes from a result
  std::string blockTexts;                   // of a block
  bool isEnding = false;                    // no JavaScript can run any more
};

// An exception of JavaScript is pending in the environment.
struct Thrown {};

// Throws Thrown unless all is well.
void require(napi_env env, napi_status status);
napi_value numberValue(napi_env env, double number);
[[noreturn]] void throwTypeError(napi_env env, const std::string& text);

// A call from JavaScript.
class Call {
 public:
  Call(napi_env given, napi_callback_info info);

  napi_env env;
  Addon* addon;

  napi_value argument(std::size_t index) const { return arguments_[index]; }
  double number(std::size_t index) const;
  std::size_t count(std::size_t index) const { return static_cast<std::size_t>(number(index)); }
  bool truth(std::size_t index) const;
  // In UTF-8; what names it where it has half a surrogate pair, which is a TypeError.
  std::string text(std::size_t index, const char* what) const;
  // What a function of the addon has given out.
  template <typename T>
  T& handle(std::size_t index) const {
    return *static_cast<T*>(external(index));
  }

 private:
  void* external(std::size_t index) const;
  napi_value arguments_[10] = {};
};

// Gives an object out to JavaScript, which owns it from then on.
template <typename T>
napi_value giveOut(napi_env env, std::unique_ptr<T> object) {
  napi_value value = nullptr;
  const auto destroy = [](napi_env, void* data, void*) { delete static_cast<T*>(data); };
  require(env, napi_create_external(env, object.get(), destroy, nullptr, &value));
  object.release();
  return value;
}

using Function = napi_value (*)(const Call& call);

// A function as JavaScript knows it. What it throws becomes an exception there.
struct Export {
  const char* name;
  napi_callback function;
};

napi_value run(Function function, napi_env env, napi_callback_info info) noexcept;

template <Function function>
constexpr Export exported(const char* name) {
  return {name, [](napi_env env, napi_callback_info info) { return run(function, env, info); }};
}

// The functions of each source.
std::vector<Export> databaseFunctions();
std::vector<Export> statementFunctions();
std::vector<Export> resultFunctions();
std::vector<Export> asynchronousFunctions();

}  // namespace velmora_node
