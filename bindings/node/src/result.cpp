// Results: what JavaScript asks of them once it has one.
#include "result.h"

#include <cstring>
#include <string_view>

#include "blocks.h"
#include "errors.h"
#include "texts.h"

namespace velmora_node {
namespace {

// Shared with the arrays that lie in the result's memory.
using SharedResult = std::shared_ptr<velmora_result>;

// What JavaScript holds of a result. The garbage collector is told how much memory it has, or it
// would see no reason to run.
class ResultHandle {
 public:
  ResultHandle(napi_env env, velmora_result* given)
      : result(given, velmora_result_destroy), env_(env) {
    constexpr std::size_t bytesOfValue = 24;  // with some of a text
    tell(static_cast<std::int64_t>(bytesOfValue * velmora_result_rows(given) *
                                   velmora_result_columns(given)));
  }
  ~ResultHandle() { release(); }
  ResultHandle(const ResultHandle&) = delete;
  ResultHandle& operator=(const ResultHandle&) = delete;

  void release() {
    result.reset();
    tell(-told_);
  }

  SharedResult result;

 private:
  void tell(std::int64_t bytes) {
    std::int64_t all = 0;
    napi_adjust_external_memory(env_, bytes, &all);
    told_ += bytes;
  }

  napi_env env_;
  std::int64_t told_ = 0;
};

velmora_result* resultOf(const Call& call) {
  velmora_result* const result = call.handle<ResultHandle>(0).result.get();
  if (result == nullptr) refuse(VELMORA_MISUSE, "The result is closed");
  return result;
}

std::string_view nameOf(const velmora_result* result, std::size_t column) {
  std::size_t length = 0;
  const char* const name = velmora_result_column_name(result, column, &length);
  return {name, length};
}

std::string_view declaredTypeOf(const velmora_result* result, std::size_t column) {
  std::size_t length = 0;
  const char* const type = velmora_result_column_declared_type(result, column, &length);
  return {type, length};
}

napi_value arrayOf(napi_env env, std::initializer_list<napi_value> values) {
  napi_value array = nullptr;
  require(env, napi_create_array_with_length(env, values.size(), &array));
  std::uint32_t index = 0;
  for (const napi_value value : values) require(env, napi_set_element(env, array, index++, value));
  return array;
}

napi_value nullValue(napi_env env) {
  napi_value value = nullptr;
  require(env, napi_get_null(env, &value));
  return value;
}

napi_value truthValue(napi_env env, bool truth) {
  napi_value value = nullptr;
  require(env, napi_get_boolean(env, truth, &value));
  return value;
}

// An integer always as a BigInt.
napi_value valueOf(napi_env env, const velmora_value& value) {
  napi_value integer = nullptr;
  switch (value.type) {
    case VELMORA_INTEGER:
      require(env, napi_create_bigint_int64(env, value.integer, &integer));
      return integer;
    case VELMORA_REAL:
      return numberValue(env, value.real);
    case VELMORA_BOOLEAN:
      return truthValue(env, value.boolean != 0);
    case VELMORA_TEXT:
      return stringOf(env, {value.text, value.text_size});
    default:
      return nullValue(env);
  }
}

// resultColumns(result)
napi_value resultColumns(const Call& call) {
  return columnsValue(call.env, columnsOf(resultOf(call)));
}

// resultHeader(result): gives the header; its message.
napi_value resultHeader(const Call& call) {
  writeHeader(*call.addon, resultOf(call));
  std::size_t length = 0;
  const char* const message = velmora_result_message(resultOf(call), &length);
  return stringOf(call.env, {message, length});
}

// resultBlock(result, firstRow): gives a block; its texts.
napi_value resultBlock(const Call& call) { return writeBlock(call, resultOf(call), call.count(1)); }

// timed(result, row, column): null, or [cycles, second of the next change or null, next state].
napi_value timed(const Call& call) {
  velmora_timed timed = {};
  timed.size = sizeof timed;
  if (velmora_result_timed(resultOf(call), call.count(1), call.count(2), &timed) == 0) {
    return nullValue(call.env);
  }
  const bool hasNext = timed.has_next != 0;
  return arrayOf(call.env,
                 {truthValue(call.env, timed.cycles != 0),
                  hasNext ? numberValue(call.env, static_cast<double>(timed.change_second))
                          : nullValue(call.env),
                  valueOf(call.env, timed.next)});
}

// Memory of the result's as an ArrayBuffer, which keeps the result; null for none. Where the
// platform wants its own memory, a copy.
napi_value bufferOf(const Call& call, const void* data, std::size_t size) {
  if (data == nullptr) return nullValue(call.env);
  napi_value buffer = nullptr;
  if (size > 0) {
    auto owned = std::make_unique<SharedResult>(call.handle<ResultHandle>(0).result);
    const auto destroy = [](napi_env, void*, void* hint) {
      delete static_cast<SharedResult*>(hint);
    };
    const napi_status status = napi_create_external_arraybuffer(
        call.env, const_cast<void*>(data), size, destroy, owned.get(), &buffer);
    if (status == napi_ok) {
      owned.release();
      return buffer;
    }
  }
  void* place = nullptr;
  require(call.env, napi_create_arraybuffer(call.env, size, &place, &buffer));
  if (size > 0) std::memcpy(place, data, size);
  return buffer;
}

// column(result, column): [type, ArrayBuffer of the values or texts, that of the texts' ends or
// null, that of the nulls or null].
napi_value column(const Call& call) {
  velmora_column column = {};
  column.size = sizeof column;
  requireOk([&](velmora_error** error) {
    return velmora_result_column(resultOf(call), call.count(1), &column, error);
  });
  const auto buffer = [&](const void* data, std::size_t size) {
    return bufferOf(call, data, size);
  };
  napi_value values = nullptr;
  switch (column.type) {
    case VELMORA_INTEGER:
      values = buffer(column.integers, column.rows * sizeof *column.integers);
      break;
    case VELMORA_REAL:
      values = buffer(column.reals, column.rows * sizeof *column.reals);
      break;
    case VELMORA_BOOLEAN:
      values = buffer(column.booleans, column.rows);
      break;
    case VELMORA_TEXT:
      values = buffer(column.texts, column.rows == 0 ? 0 : column.ends[column.rows - 1]);
      break;
    default:
      values = nullValue(call.env);
  }
  return arrayOf(call.env, {numberValue(call.env, column.type), values,
                            buffer(column.ends, column.rows * sizeof *column.ends),
                            buffer(column.nulls, column.rows)});
}

// release(result): frees its memory, unless arrays lie in it, before the collector comes by.
napi_value release(const Call& call) {
  call.handle<ResultHandle>(0).release();
  return nullptr;
}

}  // namespace

Columns columnsOf(const velmora_result* result) {
  Columns columns;
  for (std::size_t i = 0; i < velmora_result_columns(result); ++i) {
    columns.push_back({std::string(nameOf(result, i)), std::string(declaredTypeOf(result, i)),
                       velmora_result_column_type(result, i)});
  }
  return columns;
}

bool hasColumns(const velmora_result* result, const Columns& columns) {
  if (velmora_result_columns(result) != columns.size()) return false;
  for (std::size_t i = 0; i < columns.size(); ++i) {
    if (velmora_result_column_type(result, i) != columns[i].type) return false;
    if (nameOf(result, i) != columns[i].name) return false;
    if (declaredTypeOf(result, i) != columns[i].declaredType) return false;
  }
  return true;
}

napi_value columnsValue(napi_env env, const Columns& columns) {
  napi_value array = nullptr;
  require(env, napi_create_array_with_length(env, columns.size(), &array));
  std::uint32_t index = 0;
  for (const ColumnName& column : columns) {
    const napi_value value =
        arrayOf(env, {stringOf(env, column.name), stringOf(env, column.declaredType),
                      numberValue(env, column.type)});
    require(env, napi_set_element(env, array, index++, value));
  }
  return array;
}

napi_value giveOutResult(napi_env env, velmora_result* result) {
  return giveOut(env, std::make_unique<ResultHandle>(env, result));
}

std::vector<Export> resultFunctions() {
  return {exported<resultColumns>("resultColumns"),
          exported<resultHeader>("resultHeader"),
          exported<resultBlock>("resultBlock"),
          exported<timed>("timed"),
          exported<column>("column"),
          exported<release>("release")};
}

}  // namespace velmora_node
