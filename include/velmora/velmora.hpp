// The engine for hosts in C++20: databases, statements and transactions as objects, commands with
// bound values, rows as typed values, failures as exceptions. Header-only, over the handles of
// velmora.h, where everything is described that this does not change.
//
//     velmora::Database database("lamps.db");
//     database.run("CREATE TABLE lamps name string watts int");
//     database.run("INSERT INTO lamps name = ? watts = ?", name, 40);
//     for (const auto& [lamp, watts] :
//          database.run("SELECT name, watts FROM lamps").rows<std::string, int>()) {
//       std::cout << lamp << " " << watts << "\n";
//     }
//
// Threads: a Database may be used from several at once, a Statement by one at a time; results, rows
// and values never change.
#ifndef VELMORA_VELMORA_HPP
#define VELMORA_VELMORA_HPP

// Before anything that an older standard could stumble over, so that this is all that it says.
// gcc 10, whose C++20 is enough, still gives a number between those of C++17 and C++20.
#if !defined(__cplusplus) || __cplusplus <= 201703L
#error "velmora.hpp needs C++20: compile with -std=c++20"
#else

#include <array>
#include <concepts>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <new>
#include <optional>
#include <ranges>
#include <span>
#include <stdexcept>
#include <string>
#include <string_view>
#include <tuple>
#include <type_traits>
#include <utility>
#include <variant>
#include <vector>

#include "velmora/velmora.h"

namespace velmora {
// A namespace of its own keeps these names apart from the library's own when it is linked
// statically; hosts need not write it.
inline namespace host {

// What a call or the reading of a value failed with. The code is one of velmora_code.
class Error : public std::runtime_error {
 public:
  Error(int code, const std::string& text) : std::runtime_error(text), code_(code) {}
  // Takes the error over.
  Error(int code, velmora_error* error)
      : std::runtime_error(error == nullptr ? "Out of memory" : velmora_error_text(error)),
        code_(code),
        error_(error, velmora_error_destroy) {}

  int code() const noexcept { return code_; }
  // Where in the command, in bytes; -1: nowhere.
  std::int64_t offset() const noexcept { return velmora_error_offset(error_.get()); }
  // Empty: none.
  std::string_view table() const noexcept { return text(velmora_error_table(error_.get())); }
  std::string_view column() const noexcept { return text(velmora_error_column(error_.get())); }
  int systemError() const noexcept { return velmora_error_system(error_.get()); }
  std::int64_t process() const noexcept { return velmora_error_process(error_.get()); }

 private:
  static std::string_view text(const char* text) noexcept { return text == nullptr ? "" : text; }

  int code_;
  std::shared_ptr<velmora_error> error_;
};

// The directory is in use, or another thread's transaction is open.
class BusyError : public Error {
  using Error::Error;
};
// By interrupt(), or by a progress callback.
class InterruptedError : public Error {
  using Error::Error;
};
// A key that another row has, a row without its parent, or one that others are linked to.
class ConstraintError : public Error {
  using Error::Error;
};

// One value of a result: null, an integer, a float, a bool or a text.
using Value = std::variant<std::monostate, std::int64_t, double, bool, std::string>;

namespace detail {

template <typename T>
struct IsOptional : std::false_type {};
template <typename T>
struct IsOptional<std::optional<T>> : std::true_type {};

// Throws what a call has failed with; by reference, so that the error is read after the call.
inline void require(int code, velmora_error*& error) {
  if (code == VELMORA_OK) return;
  switch (code) {
    case VELMORA_NO_MEMORY:
      velmora_error_destroy(error);
      throw std::bad_alloc();
    case VELMORA_BUSY:
      throw BusyError(code, error);
    case VELMORA_INTERRUPTED:
      throw InterruptedError(code, error);
    case VELMORA_DUPLICATE:
    case VELMORA_MISSING_PARENT:
    case VELMORA_RESTRICTED:
      throw ConstraintError(code, error);
    default:
      throw Error(code, error);
  }
}

template <typename T>
velmora_value bound(const T& value) {
  velmora_value result = {};
  if constexpr (IsOptional<T>::value) {
    if (value) return bound(*value);
  } else if constexpr (std::same_as<T, bool>) {
    result.type = VELMORA_BOOLEAN;
    result.boolean = value ? 1 : 0;
  } else if constexpr (std::integral<T>) {
    if (!std::in_range<std::int64_t>(value)) throw Error(VELMORA_RANGE, "Integer outside 64 bits");
    result.type = VELMORA_INTEGER;
    result.integer = static_cast<std::int64_t>(value);
  } else if constexpr (std::floating_point<T>) {
    result.type = VELMORA_REAL;
    result.real = static_cast<double>(value);
  } else if constexpr (!std::same_as<T, std::nullptr_t> && !std::same_as<T, std::monostate>) {
    const std::string_view text = value;
    result.type = VELMORA_TEXT;
    result.text = text.data();
    result.text_size = text.size();
  }
  return result;
}

inline Value taken(const velmora_value& value) {
  switch (value.type) {
    case VELMORA_INTEGER:
      return value.integer;
    case VELMORA_REAL:
      return value.real;
    case VELMORA_BOOLEAN:
      return value.boolean != 0;
    case VELMORA_TEXT:
      return std::string(value.text, value.text_size);
    default:
      return {};
  }
}

}  // namespace detail

// What may be bound: integers (but for characters, which could be meant as texts), floats, bools,
// texts, std::optional of one of these, and nullptr for null.
template <typename T>
concept Bindable = std::convertible_to<const T&, std::string_view> || std::floating_point<T> ||
                   (std::integral<T> && !std::same_as<T, char>) ||
                   detail::IsOptional<T>::value;

// What may be read from a value.
template <typename T>
concept Readable = (std::is_arithmetic_v<T> && !std::same_as<T, char>) ||
                   std::same_as<T, std::string> || detail::IsOptional<T>::value;

namespace detail {

template <typename T>
T as(const velmora_value& value) {
  if constexpr (IsOptional<T>::value) {
    if (value.type == VELMORA_NULL) return std::nullopt;
    return as<typename T::value_type>(value);
  } else if constexpr (std::same_as<T, bool>) {
    if (value.type == VELMORA_BOOLEAN) return value.boolean != 0;
  } else if constexpr (std::integral<T>) {
    if (value.type == VELMORA_INTEGER && std::in_range<T>(value.integer)) {
      return static_cast<T>(value.integer);
    }
  } else if constexpr (std::floating_point<T>) {
    if (value.type == VELMORA_REAL) return static_cast<T>(value.real);
    if (value.type == VELMORA_INTEGER) return static_cast<T>(value.integer);
  } else {
    if (value.type == VELMORA_TEXT) return {value.text, value.text_size};
  }
  throw Error(VELMORA_WRONG_TYPE,
              value.type == VELMORA_NULL ? "Value is null" : "Value is of another type");
}

}  // namespace detail

// The value as a T: an integer type that it fits into, a floating-point type (integers too), bool,
// std::string, or std::optional of one of these, which alone takes null. Throws Error otherwise.
template <Readable T>
T valueAs(const Value& value) {
  return detail::as<T>(std::visit([](const auto& each) { return detail::bound(each); }, value));
}

// What becomes of a timed value; the state in force is the value itself.
struct Timed {
  bool cycles = false;
  std::optional<std::int64_t> changeSecond;  // none: it stays as it is
  Value next;                                // from then on
};

// One row of a result; it keeps the result.
class Row {
 public:
  Row(std::shared_ptr<velmora_result> result, std::size_t row)
      : result_(std::move(result)), row_(row) {}

  // The value of the first column called so; throws Error when there is none.
  Value operator[](std::string_view column) const { return at(position(column)); }
  // Of the types that valueAs takes.
  template <Readable T>
  T get(std::string_view column) const {
    return detail::as<T>(raw(position(column)));
  }
  // The value of a column counted from 0; null where there is none.
  Value at(std::size_t column) const { return detail::taken(raw(column)); }
  // Nothing for a value that is not timed.
  std::optional<Timed> timed(std::string_view column) const { return timed(position(column)); }
  std::optional<Timed> timed(std::size_t column) const {
    velmora_timed timed = {};
    timed.size = sizeof timed;
    if (velmora_result_timed(result_.get(), row_, column, &timed) == 0) return {};
    Timed answer;
    answer.cycles = timed.cycles != 0;
    if (timed.has_next != 0) answer.changeSecond = timed.change_second;
    answer.next = detail::taken(timed.next);
    return answer;
  }

 private:
  velmora_value raw(std::size_t column) const {
    velmora_value value = {};
    value.type = velmora_result_type(result_.get(), row_, column);
    value.integer = velmora_result_integer(result_.get(), row_, column);
    value.real = velmora_result_real(result_.get(), row_, column);
    value.boolean = velmora_result_boolean(result_.get(), row_, column);
    value.text = velmora_result_text(result_.get(), row_, column, &value.text_size);
    return value;
  }
  std::size_t position(std::string_view column) const {
    for (std::size_t i = 0; i < velmora_result_columns(result_.get()); ++i) {
      if (velmora_result_column_name(result_.get(), i, nullptr) == column) return i;
    }
    throw Error(VELMORA_NOT_FOUND, "No column '" + std::string(column) + "' in the result");
  }

  std::shared_ptr<velmora_result> result_;
  std::size_t row_;
};

namespace detail {

// Goes over what a range has under the numbers from 0 on.
template <typename Range>
class Iterator {
 public:
  using value_type = decltype(std::declval<const Range&>()[0]);
  using difference_type = std::ptrdiff_t;

  Iterator() = default;
  Iterator(const Range* range, std::size_t index) : range_(range), index_(index) {}
  value_type operator*() const { return (*range_)[index_]; }
  Iterator& operator++() {
    ++index_;
    return *this;
  }
  Iterator operator++(int) { return {range_, index_++}; }
  bool operator==(const Iterator&) const = default;

 private:
  const Range* range_ = nullptr;
  std::size_t index_ = 0;
};

}  // namespace detail

// A result's rows as tuples, each column as the type of its place. It keeps the result.
template <Readable... Types>
class Rows {
 public:
  explicit Rows(std::shared_ptr<velmora_result> result) : result_(std::move(result)) {
    if (velmora_result_columns(result_.get()) != sizeof...(Types)) {
      throw Error(VELMORA_MISUSE, "Result has not as many columns");
    }
  }

  std::size_t size() const noexcept { return velmora_result_rows(result_.get()); }
  // Throws Error for a value of another type, as valueAs does.
  std::tuple<Types...> operator[](std::size_t row) const {
    std::array<velmora_value, sizeof...(Types)> values = {};
    velmora_result_values(result_.get(), row, 1, values.data());
    return read(values, std::index_sequence_for<Types...>());
  }
  detail::Iterator<Rows> begin() const { return {this, 0}; }
  detail::Iterator<Rows> end() const { return {this, size()}; }

 private:
  template <std::size_t... Columns>
  static std::tuple<Types...> read(const std::array<velmora_value, sizeof...(Types)>& values,
                                   std::index_sequence<Columns...>) {
    return {detail::as<Types>(values[Columns])...};
  }

  std::shared_ptr<velmora_result> result_;
};

// A column's values as one array, and which of them are null: nothing there where none is. It keeps
// the result.
template <typename T>
struct Column {
  std::span<const T> values;
  std::span<const std::uint8_t> nulls;
  std::shared_ptr<velmora_result> result;
};

// What a command answered: its rows, one after another, and what is said beside them.
class Result {
 public:
  explicit Result(velmora_result* result) : result_(result, velmora_result_destroy) {}

  detail::Iterator<Result> begin() const { return {this, 0}; }
  detail::Iterator<Result> end() const { return {this, size()}; }
  // Throws Error when there are not as many columns.
  template <Readable... Types>
  Rows<Types...> rows() const {
    return Rows<Types...>(result_);
  }
  // A column counted from 0 of whole numbers (T is std::int64_t), floats (double) or bools
  // (std::uint8_t). Throws Error when there is none, or it is of another type.
  template <typename T>
  Column<T> column(std::size_t column) const {
    velmora_column arrays = {};
    arrays.size = sizeof arrays;
    velmora_error* error = nullptr;
    detail::require(velmora_result_column(result_.get(), column, &arrays, &error), error);
    const T* values = nullptr;
    int type = VELMORA_BOOLEAN;
    if constexpr (std::same_as<T, std::int64_t>) {
      values = arrays.integers;
      type = VELMORA_INTEGER;
    } else if constexpr (std::same_as<T, double>) {
      values = arrays.reals;
      type = VELMORA_REAL;
    } else {
      static_assert(std::same_as<T, std::uint8_t>, "no type that arrays have");
      values = arrays.booleans;
    }
    if (arrays.type != type) throw Error(VELMORA_WRONG_TYPE, "Column is of another type");
    return {
        {values, arrays.rows}, {arrays.nulls, arrays.nulls == nullptr ? 0 : arrays.rows}, result_};
  }

  std::size_t size() const noexcept { return velmora_result_rows(result_.get()); }
  Row operator[](std::size_t row) const { return {result_, row}; }
  // Throws Error where there is no such row.
  Row at(std::size_t row) const {
    if (row >= size()) throw Error(VELMORA_NOT_FOUND, "No row " + std::to_string(row));
    return {result_, row};
  }
  std::size_t columns() const noexcept { return velmora_result_columns(result_.get()); }
  std::string columnName(std::size_t column) const {
    std::size_t size = 0;
    const char* const name = velmora_result_column_name(result_.get(), column, &size);
    return {name == nullptr ? "" : name, size};
  }
  velmora_type columnType(std::size_t column) const noexcept {
    return velmora_result_column_type(result_.get(), column);
  }
  // Such as "string"; empty for what is computed.
  std::string declaredType(std::size_t column) const {
    std::size_t size = 0;
    const char* const type = velmora_result_column_declared_type(result_.get(), column, &size);
    return {type == nullptr ? "" : type, size};
  }
  // Fills in the values of up to rowCount rows, row after row, and gives how many there were. Their
  // texts are borrowed from the result.
  std::size_t values(std::size_t firstRow, std::size_t rowCount,
                     std::span<velmora_value> values) const {
    const std::size_t room = columns() == 0 ? 0 : values.size() / columns();
    return velmora_result_values(result_.get(), firstRow, rowCount < room ? rowCount : room,
                                 values.data());
  }

  std::int64_t rowsAffected() const noexcept { return velmora_result_rows_affected(result_.get()); }
  std::string message() const { return velmora_result_message(result_.get(), nullptr); }
  // The number that an INSERT has given to the row.
  std::optional<std::int64_t> identity() const { return given(velmora_result_identity); }
  // The second at which this answer becomes another by time alone.
  std::optional<std::int64_t> nextChange() const { return given(velmora_result_next_change); }
  // The whole as JSON.
  std::string json() const {
    std::size_t size = 0;
    const char* const text = velmora_result_json(result_.get(), &size);
    if (text == nullptr) throw std::bad_alloc();
    return {text, size};
  }

 private:
  std::optional<std::int64_t> given(int (*ask)(const velmora_result*, std::int64_t*)) const {
    std::int64_t value = 0;
    if (ask(result_.get(), &value) == 0) return std::nullopt;
    return value;
  }

  std::shared_ptr<velmora_result> result_;
};

// A command that is parsed once and run often. It keeps its database open.
class Statement {
 public:
  Statement(std::shared_ptr<velmora_db> database, std::string_view command)
      : database_(std::move(database)), statement_(nullptr, velmora_statement_destroy) {
    velmora_statement* statement = nullptr;
    velmora_error* error = nullptr;
    detail::require(
        velmora_prepare(database_.get(), command.data(), command.size(), &statement, &error),
        error);
    statement_.reset(statement);
  }

  velmora_kind kind() const noexcept { return velmora_statement_kind(statement_.get()); }
  std::size_t parameters() const noexcept { return velmora_statement_parameters(statement_.get()); }

  // Runs it with a value for each parameter. Throws Error when it failed.
  template <Bindable... Values>
  Result run(const Values&... values) {
    requireParameters(sizeof...(Values));
    std::size_t index = 0;
    (bind(++index, detail::bound(values)), ...);
    velmora_result* result = nullptr;
    velmora_error* error = nullptr;
    detail::require(velmora_statement_run(statement_.get(), &result, &error), error);
    return Result(result);
  }
  // Runs a command that changes something once for each row of values, which stand one behind
  // another, all as one transaction. Throws Error when one has failed; then none has done anything.
  Result runMany(std::span<const velmora_value> values, std::size_t rowCount) {
    if (values.size() != rowCount * velmora_statement_parameters(statement_.get())) {
      throw Error(VELMORA_MISUSE, "Command has not as many parameters");
    }
    velmora_result* result = nullptr;
    velmora_error* error = nullptr;
    detail::require(
        velmora_statement_run_many(statement_.get(), values.data(), rowCount, &result, &error),
        error);
    return Result(result);
  }
  // The same for a range of tuples; what they refer to has to stay meanwhile.
  template <std::ranges::forward_range Range>
  Result runMany(const Range& rows) {
    std::vector<velmora_value> values;
    std::size_t count = 0;
    for (const auto& row : rows) {
      requireParameters(std::tuple_size_v<std::remove_cvref_t<decltype(row)>>);
      std::apply([&](const auto&... each) { (values.push_back(detail::bound(each)), ...); }, row);
      ++count;
    }
    return runMany(values, count);
  }

 private:
  void requireParameters(std::size_t count) const {
    if (count != velmora_statement_parameters(statement_.get())) {
      throw Error(VELMORA_MISUSE, "Command has not as many parameters");
    }
  }
  void bind(std::size_t index, const velmora_value& value) {
    velmora_error* error = nullptr;
    detail::require(velmora_bind(statement_.get(), index, &value, &error), error);
  }

  std::shared_ptr<velmora_db> database_;
  std::unique_ptr<velmora_statement, decltype(&velmora_statement_destroy)> statement_;
};

// Options for a Database; what is not set is as in C.
inline velmora_options options(std::uint32_t flags = VELMORA_CREATE) {
  velmora_options options = {};
  options.size = sizeof options;
  options.flags = flags;
  return options;
}

// A database, open while this or one of its statements lives.
class Database {
 public:
  // Opens the database of a directory. Throws Error when that failed.
  explicit Database(std::string_view path, const velmora_options& options = host::options()) {
    velmora_db* database = nullptr;
    velmora_error* error = nullptr;
    detail::require(velmora_open(path.data(), path.size(), &options, &database, &error), error);
    database_ = {database, [](velmora_db* open) { velmora_close(open, nullptr); }};
  }
  Database(const Database&) = delete;
  Database& operator=(const Database&) = delete;

  // Runs one command, each "?" outside quoted texts standing for the next value. Throws Error when
  // it failed.
  template <Bindable... Values>
  Result run(std::string_view command, const Values&... values) {
    const std::array<velmora_value, sizeof...(Values)> bound = {detail::bound(values)...};
    velmora_result* result = nullptr;
    velmora_error* error = nullptr;
    detail::require(velmora_run(database_.get(), command.data(), command.size(), bound.data(),
                                bound.size(), &result, &error),
                    error);
    return Result(result);
  }
  Statement prepare(std::string_view command) { return {database_, command}; }

  void checkpoint() {
    velmora_error* error = nullptr;
    detail::require(velmora_checkpoint(database_.get(), &error), error);
  }
  void backup(std::string_view path) {
    velmora_error* error = nullptr;
    detail::require(velmora_backup(database_.get(), path.data(), path.size(), &error), error);
  }
  void interrupt() noexcept { velmora_interrupt(database_.get()); }
  // Whether this thread's transaction is open.
  bool isInTransaction() const noexcept { return velmora_in_transaction(database_.get()) != 0; }
  // For what this class has no function for; it stays this object's.
  velmora_db* handle() const noexcept { return database_.get(); }

 private:
  std::shared_ptr<velmora_db> database_;
};

// A transaction of the thread that makes it, which also ends it: rolled back at the end of its
// scope unless it has been committed.
class Transaction {
 public:
  explicit Transaction(Database& database) : database_(database) { database_.run("BEGIN"); }
  ~Transaction() {
    if (!isOpen_) return;
    try {
      database_.run("ROLLBACK");
    } catch (const std::exception&) {
      // A commit that has failed has ended it.
    }
  }
  Transaction(const Transaction&) = delete;
  Transaction& operator=(const Transaction&) = delete;

  void commit() {
    database_.run("COMMIT");
    isOpen_ = false;
  }

 private:
  Database& database_;
  bool isOpen_ = true;
};

// A fault in a database's files.
struct Fault {
  std::string file;
  std::int64_t offset = -1;  // in bytes; -1: of the file as a whole
  std::string meaning;
};

// Reads the database of a directory that nobody has open, and changes nothing. Throws Error when it
// cannot be read at all.
inline std::vector<Fault> check(std::string_view path, const velmora_options& given = options()) {
  std::vector<Fault> faults;
  velmora_error* error = nullptr;
  const auto add = [](void* context, const char* file, std::int64_t offset, const char* meaning) {
    static_cast<std::vector<Fault>*>(context)->push_back({file, offset, meaning});
  };
  const int code = velmora_check(path.data(), path.size(), &given, add, &faults, &error);
  if (code == VELMORA_CORRUPT) {
    velmora_error_destroy(error);
  } else {
    detail::require(code, error);
  }
  return faults;
}

}  // namespace host
}  // namespace velmora

#endif  // C++20

#endif
