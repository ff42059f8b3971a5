// A result's columns as arrays, for hosts that take many values at once. Values lie row by row in
// an answer; a column is gathered when it is first asked for.
#include <cstring>

#include "handles.h"

namespace velmora {
namespace {

class Gathering {
 public:
  Gathering(const Answer& answer, std::size_t column) : answer_(answer), column_(column) {}

  std::unique_ptr<const ColumnArrays> gathered() {
    auto arrays = std::make_unique<ColumnArrays>();
    gatherNulls(*arrays);
    switch ((*answer_.columns())[column_].type) {
      case AnswerType::null:
        break;
      case AnswerType::integer:
        gather(arrays->integers, [](const AnswerValue& value) { return value.integer; });
        break;
      case AnswerType::real:
        gather(arrays->reals, [](const AnswerValue& value) { return value.real; });
        break;
      case AnswerType::boolean:
        gather(arrays->booleans, [](const AnswerValue& value) { return value.integer; });
        break;
      case AnswerType::text:
        gatherTexts(*arrays);
        break;
    }
    return arrays;
  }

 private:
  const AnswerValue& at(std::size_t row) const noexcept { return answer_.at(row, column_); }

  void gatherNulls(ColumnArrays& arrays) const {
    for (std::size_t row = 0; row < answer_.rowCount(); ++row) {
      if (at(row).type != AnswerType::null) continue;
      arrays.nulls.resize(answer_.rowCount());
      arrays.nulls[row] = 1;
    }
  }

  template <typename T, typename Read>
  void gather(std::vector<T>& array, Read read) const {
    array.resize(answer_.rowCount());
    for (std::size_t row = 0; row < array.size(); ++row) {
      if (at(row).type != AnswerType::null) array[row] = static_cast<T>(read(at(row)));
    }
  }

  void gatherTexts(ColumnArrays& arrays) const {
    std::size_t size = 0;
    for (std::size_t row = 0; row < answer_.rowCount(); ++row) size += at(row).textSize;
    arrays.texts.reserve(size);
    arrays.ends.resize(answer_.rowCount());
    for (std::size_t row = 0; row < arrays.ends.size(); ++row) {
      if (at(row).type == AnswerType::text) arrays.texts += answer_.text(at(row));
      arrays.ends[row] = arrays.texts.size();
    }
  }

  const Answer& answer_;
  std::size_t column_;
};

const ColumnArrays& arraysOf(const velmora_result& result, std::size_t column) {
  const std::lock_guard lock(result.mutex);
  result.columns.resize(result.answer.columnCount());
  std::unique_ptr<const ColumnArrays>& arrays = result.columns[column];
  if (arrays == nullptr) arrays = Gathering(result.answer, column).gathered();
  return *arrays;
}

velmora_column exported(const velmora_result& result, std::size_t column) {
  const ColumnArrays& arrays = arraysOf(result, column);
  velmora_column given = {};
  given.type = static_cast<int>((*result.answer.columns())[column].type);
  given.rows = result.answer.rowCount();
  const auto isOf = [&](AnswerType type) { return given.type == static_cast<int>(type); };
  if (isOf(AnswerType::integer)) given.integers = arrays.integers.data();
  if (isOf(AnswerType::real)) given.reals = arrays.reals.data();
  if (isOf(AnswerType::boolean)) given.booleans = arrays.booleans.data();
  if (isOf(AnswerType::text)) {
    given.texts = arrays.texts.data();
    given.ends = arrays.ends.data();
  }
  if (!arrays.nulls.empty()) given.nulls = arrays.nulls.data();
  return given;
}

}  // namespace
}  // namespace velmora

using namespace velmora;

extern "C" {

int velmora_result_column(const velmora_result* result, size_t column, velmora_column* values,
                          velmora_error** error) {
  return codeOf(error, [&] {
    if (result == nullptr || values == nullptr || values->size < sizeof values->size) {
      throw Failure(Code::misuse, "Result or place for the column is null, or has a wrong size");
    }
    if (column >= result->answer.columnCount()) {
      throw Failure(Code::notFound, "Result has no column " + std::to_string(column));
    }
    copySized(*values, velmora::exported(*result, column));
  });
}

}  // extern "C"
