// The exported functions over results and errors: each looks one thing up, and gives 0 or null
// where it is not there.
#include <algorithm>
#include <cstring>
#include <new>
#include <stdexcept>
#include <utility>

#include "handles.h"

namespace velmora {
namespace {

// One for each code of Failure, and the same.
static_assert(VELMORA_OK == static_cast<int>(Code::ok));
static_assert(VELMORA_MISUSE == static_cast<int>(Code::misuse));
static_assert(VELMORA_BUSY == static_cast<int>(Code::busy));
static_assert(VELMORA_IS_READ_ONLY == static_cast<int>(Code::readOnly));
static_assert(VELMORA_NOT_FOUND == static_cast<int>(Code::notFound));
static_assert(VELMORA_EXISTS == static_cast<int>(Code::exists));
static_assert(VELMORA_DUPLICATE == static_cast<int>(Code::duplicate));
static_assert(VELMORA_MISSING_PARENT == static_cast<int>(Code::missingParent));
static_assert(VELMORA_RESTRICTED == static_cast<int>(Code::restricted));
static_assert(VELMORA_WRONG_TYPE == static_cast<int>(Code::type));
static_assert(VELMORA_RANGE == static_cast<int>(Code::range));
static_assert(VELMORA_SYNTAX == static_cast<int>(Code::syntax));
static_assert(VELMORA_FULL == static_cast<int>(Code::full));
static_assert(VELMORA_CORRUPT == static_cast<int>(Code::corrupt));
static_assert(VELMORA_IO == static_cast<int>(Code::io));
static_assert(VELMORA_NO_MEMORY == static_cast<int>(Code::noMemory));
static_assert(VELMORA_INTERRUPTED == static_cast<int>(Code::interrupted));
static_assert(VELMORA_TRANSACTION == static_cast<int>(Code::transaction));
static_assert(VELMORA_IN_USE == static_cast<int>(Code::inUse));
static_assert(VELMORA_INTERNAL == static_cast<int>(Code::internal));

static_assert(VELMORA_NULL == static_cast<int>(AnswerType::null));
static_assert(VELMORA_INTEGER == static_cast<int>(AnswerType::integer));
static_assert(VELMORA_REAL == static_cast<int>(AnswerType::real));
static_assert(VELMORA_BOOLEAN == static_cast<int>(AnswerType::boolean));
static_assert(VELMORA_TEXT == static_cast<int>(AnswerType::text));

// The result that a thread has at hand for the next command. A plain record, and apart from it what
// deletes the result with the thread: looking whether that has been made costs as much as all else
// here.
struct Spare {
  velmora_result* result = nullptr;
  bool isKept = false;  // there is what deletes it
};
constinit thread_local Spare spare;
struct SpareEnd {
  SpareEnd() { spare.isKept = true; }
  ~SpareEnd() { delete std::exchange(spare, {}).result; }
};

// What a thread keeps at most of its last result's memory.
constexpr std::size_t mostSpareBytes = std::size_t{1} << 20U;

bool isSmall(const velmora_result& result) noexcept {
  const Answer& answer = result.answer;
  return answer.values.capacity() * sizeof(AnswerValue) + answer.texts.capacity() +
             answer.timed.capacity() * sizeof(TimedAnswer) + result.json.capacity() <=
         mostSpareBytes;
}

Failure currentFailure() {
  try {
    throw;
  } catch (const Failure& failure) {
    return failure;
  } catch (const std::bad_alloc&) {
    return {Code::noMemory, "Out of memory"};
  } catch (const std::length_error&) {  // of a string or an array that no memory could hold
    return {Code::noMemory, "Out of memory"};
  } catch (const std::exception& error) {
    return {Code::internal, error.what()};
  } catch (...) {
    return {Code::internal, "Unknown failure"};
  }
}

// Borrowed, with the length where that is asked for.
const char* lend(std::string_view text, std::size_t* length) noexcept {
  if (length != nullptr) *length = text.size();
  return text.data();
}
const char* lendNothing(std::size_t* length) noexcept { return lend({}, length); }

const AnswerColumn* columnAt(const velmora_result* result, std::size_t column) noexcept {
  if (result == nullptr || column >= result->answer.columnCount()) return nullptr;
  return &(*result->answer.columns())[column];
}

const AnswerValue* valueAt(const velmora_result* result, std::size_t row,
                           std::size_t column) noexcept {
  if (result == nullptr || column >= result->answer.columnCount()) return nullptr;
  const Answer& answer = result->answer;
  // A row that there may be is small enough for the product to fit.
  if (row >= answer.values.size()) return nullptr;
  const std::size_t place = row * answer.columnCount() + column;
  return place < answer.values.size() ? &answer.values[place] : nullptr;
}

const AnswerValue* valueOfType(const velmora_result* result, std::size_t row, std::size_t column,
                               AnswerType type) noexcept {
  const AnswerValue* const value = valueAt(result, row, column);
  return value != nullptr && value->type == type ? value : nullptr;
}

// Writes a value where it is wanted, member by member: the processor copies a whole one only when
// its parts have reached the cache.
void put(velmora_value& given, const Answer& answer, const AnswerValue& value) noexcept {
  given = {};
  given.type = static_cast<int>(value.type);
  if (value.type == AnswerType::integer) given.integer = value.integer;
  if (value.type == AnswerType::real) given.real = value.real;
  if (value.type == AnswerType::boolean) given.boolean = value.integer != 0 ? 1 : 0;
  if (value.type == AnswerType::text) given.text = lend(answer.text(value), &given.text_size);
}

velmora_timed exported(const Answer& answer, const TimedAnswer& timed) noexcept {
  velmora_timed given = {};
  given.cycles = timed.cycles ? 1 : 0;
  if (timed.changeSecond == Answer::never) return given;
  given.has_next = 1;
  given.change_second = timed.changeSecond;
  put(given.next, answer, timed.next);
  return given;
}

// Whether there is a value, which is put where it is wanted.
int give(std::int64_t value, bool isThere, std::int64_t* to) noexcept {
  if (isThere && to != nullptr) *to = value;
  return isThere ? 1 : 0;
}

}  // namespace

NewResult newResult() {
  if (velmora_result* const kept = std::exchange(spare.result, nullptr)) return NewResult(kept);
  thread_local const SpareEnd end;
  return NewResult(new velmora_result);
}

int tellFailure(velmora_error** error) noexcept {
  Code code = Code::noMemory;
  try {
    const Failure failure = currentFailure();
    code = failure.code;
    if (error != nullptr) *error = new velmora_error{failure};
  } catch (...) {
    // There is no memory to tell more.
  }
  return static_cast<int>(code);
}

}  // namespace velmora

using namespace velmora;

extern "C" {

int velmora_error_code(const velmora_error* error) {
  return error == nullptr ? VELMORA_OK : static_cast<int>(error->failure.code);
}

const char* velmora_error_text(const velmora_error* error) {
  return error == nullptr ? nullptr : error->failure.what();
}

int64_t velmora_error_offset(const velmora_error* error) {
  return error == nullptr ? -1 : error->failure.offset;
}

const char* velmora_error_table(const velmora_error* error) {
  return error == nullptr ? nullptr : error->failure.table.c_str();
}

const char* velmora_error_column(const velmora_error* error) {
  return error == nullptr ? nullptr : error->failure.column.c_str();
}

int velmora_error_system(const velmora_error* error) {
  return error == nullptr ? 0 : error->failure.systemError;
}

int64_t velmora_error_process(const velmora_error* error) {
  return error == nullptr ? 0 : error->failure.process;
}

void velmora_error_destroy(velmora_error* error) { delete error; }

size_t velmora_result_columns(const velmora_result* result) {
  return result == nullptr ? 0 : result->answer.columnCount();
}

size_t velmora_result_rows(const velmora_result* result) {
  return result == nullptr ? 0 : result->answer.rowCount();
}

const char* velmora_result_column_name(const velmora_result* result, size_t column,
                                       size_t* length) {
  const AnswerColumn* const found = columnAt(result, column);
  return found == nullptr ? lendNothing(length) : lend(found->name, length);
}

const char* velmora_result_column_declared_type(const velmora_result* result, size_t column,
                                                size_t* length) {
  const AnswerColumn* const found = columnAt(result, column);
  return found == nullptr ? lendNothing(length) : lend(found->declaredType, length);
}

velmora_type velmora_result_column_type(const velmora_result* result, size_t column) {
  const AnswerColumn* const found = columnAt(result, column);
  return found == nullptr ? VELMORA_NULL : static_cast<velmora_type>(found->type);
}

velmora_type velmora_result_type(const velmora_result* result, size_t row, size_t column) {
  const AnswerValue* const value = valueAt(result, row, column);
  return value == nullptr ? VELMORA_NULL : static_cast<velmora_type>(value->type);
}

int velmora_result_is_null(const velmora_result* result, size_t row, size_t column) {
  return velmora_result_type(result, row, column) == VELMORA_NULL ? 1 : 0;
}

int64_t velmora_result_integer(const velmora_result* result, size_t row, size_t column) {
  const AnswerValue* const value = valueOfType(result, row, column, AnswerType::integer);
  return value == nullptr ? 0 : value->integer;
}

double velmora_result_real(const velmora_result* result, size_t row, size_t column) {
  const AnswerValue* const value = valueOfType(result, row, column, AnswerType::real);
  return value != nullptr ? value->real
                          : static_cast<double>(velmora_result_integer(result, row, column));
}

int velmora_result_boolean(const velmora_result* result, size_t row, size_t column) {
  const AnswerValue* const value = valueOfType(result, row, column, AnswerType::boolean);
  return value != nullptr && value->integer != 0 ? 1 : 0;
}

const char* velmora_result_text(const velmora_result* result, size_t row, size_t column,
                                size_t* length) {
  const AnswerValue* const value = valueOfType(result, row, column, AnswerType::text);
  return value == nullptr ? lendNothing(length) : lend(result->answer.text(*value), length);
}

size_t velmora_result_values(const velmora_result* result, size_t first_row, size_t row_count,
                             velmora_value* values) {
  const size_t rows = velmora_result_rows(result);
  if (values == nullptr || first_row >= rows) return 0;
  const Answer& answer = result->answer;
  const size_t count = std::min(row_count, rows - first_row);
  const auto* value = &answer.at(first_row, 0);
  for (size_t i = 0; i < count * answer.columnCount(); ++i) put(values[i], answer, *value++);
  return count;
}

int64_t velmora_result_rows_affected(const velmora_result* result) {
  return result == nullptr ? 0 : result->answer.rowsAffected;
}

const char* velmora_result_message(const velmora_result* result, size_t* length) {
  return result == nullptr ? lendNothing(length) : lend(result->answer.message, length);
}

int velmora_result_identity(const velmora_result* result, int64_t* value) {
  const bool isThere = result != nullptr && result->answer.identity.has_value();
  return give(isThere ? *result->answer.identity : 0, isThere, value);
}

int velmora_result_next_change(const velmora_result* result, int64_t* second) {
  const std::int64_t change = result == nullptr ? Answer::never : result->answer.nextChange;
  return give(change, change != Answer::never, second);
}

int velmora_result_timed(const velmora_result* result, size_t row, size_t column,
                         velmora_timed* timed) {
  if (valueAt(result, row, column) == nullptr) return 0;
  const TimedAnswer* const found = result->answer.timedAt(row, column);
  if (found == nullptr) return 0;
  if (timed != nullptr) copySized(*timed, exported(result->answer, *found));
  return 1;
}

const char* velmora_result_json(const velmora_result* result, size_t* length) {
  if (result == nullptr) return lendNothing(length);
  try {
    const std::lock_guard lock(result->mutex);
    if (result->json.empty()) result->json = renderJson(result->answer);
    return lend(result->json, length);
  } catch (...) {
    return lendNothing(length);
  }
}

void velmora_result_destroy(velmora_result* result) {
  if (result == nullptr) return;
  Spare& own = spare;
  if (!own.isKept || own.result != nullptr || !isSmall(*result)) {
    delete result;
    return;
  }
  result->answer.clear();
  result->json.clear();
  result->columns.clear();
  own.result = result;
}

}  // extern "C"
