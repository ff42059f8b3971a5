// What the handles of the public header are, and how each exported function over them begins and
// ends: no exception leaves it, a failure becomes a code and an object, and a result lies in memory
// that an earlier one has left. Databases and statements are in handles.cpp, results and errors in
// results.cpp, results' columns as arrays in result_columns.cpp.
#pragma once

#include <algorithm>
#include <atomic>
#include <cstddef>
#include <cstring>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <vector>

#include "answer.h"
#include "engine/engine.h"
#include "failure.h"
#include "value.h"
#include "velmora/velmora.h"

struct velmora_db {
  velmora_db(std::string_view path, const velmora_options& options);

  const bool hasCallbacks;
  velmora::Engine engine;
  std::atomic<std::size_t> statements = 0;
};

struct velmora_statement {
  velmora_db* db;
  std::unique_ptr<velmora::Prepared> prepared;
  std::vector<velmora::Value> values;  // one a parameter
  const velmora::RowHint& hint;        // of the prepared command
};

namespace velmora {
// One column of an answer as arrays, of which that of its type is filled; see velmora_column.
struct ColumnArrays {
  std::vector<std::int64_t> integers;
  std::vector<double> reals;
  std::vector<std::uint8_t> booleans;
  std::string texts;
  std::vector<std::uint64_t> ends;
  std::vector<std::uint8_t> nulls;  // empty: no value is null
};
}  // namespace velmora

struct velmora_result {
  velmora::Answer answer;
  mutable std::mutex mutex;  // guards what follows, which is made when it is first asked for
  mutable std::string json;
  mutable std::vector<std::unique_ptr<const velmora::ColumnArrays>> columns;  // empty, or one each
};

struct velmora_error {
  velmora::Failure failure;
};

namespace velmora {

struct ResultReturn {
  void operator()(velmora_result* result) const noexcept { velmora_result_destroy(result); }
};
using NewResult = std::unique_ptr<velmora_result, ResultReturn>;

// An empty result, in memory that one of this thread's has left. Throws std::bad_alloc.
NewResult newResult();

// The code of the exception being handled, and the object for it.
int tellFailure(velmora_error** error) noexcept;

// Writes as much of a struct as the caller's header knows, and zeros where that knows more.
template <typename Sized>
void copySized(Sized& to, Sized from) noexcept {
  const std::size_t size = to.size;
  if (size < sizeof to.size) return;
  from.size = to.size;
  const std::size_t known = std::min(size, sizeof from);
  std::memcpy(&to, &from, known);
  std::memset(reinterpret_cast<char*>(&to) + known, 0, size - known);
}

// What an exported function returns that does this.
template <typename Call>
int codeOf(velmora_error** error, Call call) noexcept {
  if (error != nullptr) *error = nullptr;
  try {
    call();
    return VELMORA_OK;
  } catch (...) {
    return tellFailure(error);
  }
}

// The same for one that fills an answer.
template <typename Fill>
int codeOfAnswer(velmora_result** result, velmora_error** error, Fill fill) noexcept {
  if (result != nullptr) *result = nullptr;
  return codeOf(error, [&] {
    NewResult made = newResult();
    fill(made->answer);
    if (result != nullptr) *result = made.release();
  });
}

}  // namespace velmora
