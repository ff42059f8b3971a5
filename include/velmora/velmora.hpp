// The engine for hosts in C++20: a class that owns the engine's life, commands with bound values,
// rows as typed values, failures as exceptions. Header-only, over the guarded functions of
// velmora.h, where everything is described that this does not change.
//
//     velmora::Engine engine;
//     engine.run("CREATE TABLE lamps name string watts int");
//     engine.run("INSERT INTO lamps name = ? watts = ?", name, 40);
//     for (const velmora::Row& row : engine.run("SELECT * FROM lamps").rows()) {
//       std::cout << row.get<std::string>("name") << " " << row.get<int>("watts") << "\n";
//     }
//
// Threads: an Engine may be used from several; commands run one at a time. Answers, rows and values
// are ordinary objects.
#ifndef VELMORA_VELMORA_HPP
#define VELMORA_VELMORA_HPP

// Before anything that an older standard could stumble over, so that this is all that it says.
// gcc 10, whose C++20 is enough, still gives a number between those of C++17 and C++20.
#if !defined(__cplusplus) || __cplusplus <= 201703L
#error "velmora.hpp needs C++20: compile with -std=c++20"
#else

#include <array>
#include <atomic>
#include <charconv>
#include <concepts>
#include <cstdint>
#include <limits>
#include <memory>
#include <new>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <type_traits>
#include <utility>
#include <variant>
#include <vector>

#include "velmora/velmora.h"

namespace velmora {
// A namespace of its own keeps these names apart from the library's own when it is linked
// statically; hosts need not write it.
inline namespace host {

// What an engine, a command or the reading of a value failed with.
class Error : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

// One value of an answer: null, an integer, a float, a bool or a text. A float without a fraction
// is answered as an integer.
using Value = std::variant<std::monostate, std::int64_t, double, bool, std::string>;

namespace detail {

template <typename T>
struct IsOptional : std::false_type {};
template <typename T>
struct IsOptional<std::optional<T>> : std::true_type {};

}  // namespace detail

// The value as a T: an integer type that it fits into, a floating-point type (integers too), bool,
// std::string, or std::optional of one of these, which alone takes null. Throws Error otherwise.
template <typename T>
T valueAs(const Value& value) {
  if constexpr (detail::IsOptional<T>::value) {
    if (std::holds_alternative<std::monostate>(value)) return std::nullopt;
    return valueAs<typename T::value_type>(value);
  } else if constexpr (std::same_as<T, bool>) {
    if (const auto* const truth = std::get_if<bool>(&value)) return *truth;
  } else if constexpr (std::integral<T>) {
    const auto* const number = std::get_if<std::int64_t>(&value);
    if (number != nullptr && std::in_range<T>(*number)) return static_cast<T>(*number);
  } else if constexpr (std::floating_point<T>) {
    if (const auto* const number = std::get_if<double>(&value)) return static_cast<T>(*number);
    if (const auto* const number = std::get_if<std::int64_t>(&value)) {
      return static_cast<T>(*number);
    }
  } else {
    static_assert(std::same_as<T, std::string>, "no type that a value can be");
    if (const auto* const text = std::get_if<std::string>(&value)) return *text;
  }
  if (std::holds_alternative<std::monostate>(value)) throw Error("Value is null");
  throw Error("Value is of another type");
}

// One row of an answer.
class Row {
 public:
  Row(std::shared_ptr<const std::vector<std::string>> columns, std::vector<Value> values)
      : columns_(std::move(columns)), values_(std::move(values)) {}

  const std::vector<std::string>& columns() const noexcept { return *columns_; }
  const std::vector<Value>& values() const noexcept { return values_; }

  // The value of the first column called so; throws Error when there is none.
  const Value& operator[](std::string_view column) const {
    for (std::size_t i = 0; i < columns_->size(); ++i) {
      if ((*columns_)[i] == column) return values_[i];
    }
    throw Error("No column '" + std::string(column) + "' in the answer");
  }
  template <typename T>
  T get(std::string_view column) const {
    return valueAs<T>((*this)[column]);
  }

 private:
  std::shared_ptr<const std::vector<std::string>> columns_;  // shared by the rows of one answer
  std::vector<Value> values_;
};

// What a command answered.
class Answer {
 public:
  Answer(bool succeeded, std::string message, std::int64_t rowsAffected, std::vector<Row> rows)
      : succeeded_(succeeded),
        message_(std::move(message)),
        rowsAffected_(rowsAffected),
        rows_(std::move(rows)) {}

  bool succeeded() const noexcept { return succeeded_; }
  const std::string& message() const noexcept { return message_; }
  std::int64_t rowsAffected() const noexcept { return rowsAffected_; }
  // By value from an answer that is only passing by, so that a loop may be written over it.
  const std::vector<Row>& rows() const& noexcept { return rows_; }
  std::vector<Row> rows() && noexcept { return std::move(rows_); }

 private:
  bool succeeded_;
  std::string message_;
  std::int64_t rowsAffected_;
  std::vector<Row> rows_;
};

namespace detail {

// Reads the engine's own answers, and no other JSON: members in the engine's order, flat rows,
// texts in UTF-8 whose only numeric escapes are control characters.
class AnswerReader {
 public:
  explicit AnswerReader(std::string_view json) : rest_(json) {}

  Answer read() {
    expect('{');
    const bool succeeded = valueAs<bool>(member("success"));
    expect(',');
    std::string message = valueAs<std::string>(member("message"));
    expect(',');
    const auto rowsAffected = valueAs<std::int64_t>(member("rows_affected"));
    std::vector<Row> rows;
    if (skip(',')) {
      if (name() != "data") fail();
      expect('[');
      do rows.push_back(row());
      while (skip(','));
      expect(']');
    }
    expect('}');
    return {succeeded, std::move(message), rowsAffected, std::move(rows)};
  }

 private:
  [[noreturn]] static void fail() { throw Error("Answer cannot be read"); }

  char next() {
    while (!rest_.empty() && (rest_.front() == ' ' || rest_.front() == '\n')) {
      rest_.remove_prefix(1);
    }
    if (rest_.empty()) fail();
    return rest_.front();
  }
  bool skip(char c) {
    if (next() != c) return false;
    rest_.remove_prefix(1);
    return true;
  }
  void expect(char c) {
    if (!skip(c)) fail();
  }
  char take() {
    if (rest_.empty()) fail();
    const char c = rest_.front();
    rest_.remove_prefix(1);
    return c;
  }

  std::string name() {
    std::string text = string();
    expect(':');
    return text;
  }
  Value member(std::string_view expected) {
    if (name() != expected) fail();
    return value();
  }

  Row row() {
    expect('{');
    std::vector<Value> values;
    const bool isFirst = columns_ == nullptr;
    std::vector<std::string> columns;
    do {
      std::string column = name();
      if (isFirst) columns.push_back(std::move(column));
      values.push_back(value());
    } while (skip(','));
    expect('}');
    if (isFirst) columns_ = std::make_shared<const std::vector<std::string>>(std::move(columns));
    if (values.size() != columns_->size()) fail();
    return {columns_, std::move(values)};
  }

  Value value() {
    switch (next()) {
      case '"':
        return string();
      case 't':
        return word("true", true);
      case 'f':
        return word("false", false);
      case 'n':
        return word("null", std::monostate());
      default:
        return number();
    }
  }
  Value word(std::string_view text, Value meaning) {
    if (!rest_.starts_with(text)) fail();
    rest_.remove_prefix(text.size());
    return meaning;
  }
  Value number() {
    const std::string_view text = rest_.substr(0, rest_.find_first_of(",}\n"));
    rest_.remove_prefix(text.size());
    const char* const end = text.data() + text.size();
    std::int64_t whole = 0;
    if (text != "-0" && std::from_chars(text.data(), end, whole).ptr == end) return whole;
    double real = 0;
    if (text.empty() || std::from_chars(text.data(), end, real).ptr != end) fail();
    return real;
  }

  std::string string() {
    expect('"');
    std::string text;
    for (;;) {
      const std::size_t plain = rest_.find_first_of("\"\\");
      if (plain == std::string_view::npos) fail();
      text += rest_.substr(0, plain);
      rest_.remove_prefix(plain);
      if (take() == '"') return text;
      text += escaped(take());
    }
  }
  char escaped(char c) {
    constexpr std::string_view letters = "bfnrt";
    constexpr std::string_view meanings = "\b\f\n\r\t";
    if (const std::size_t i = letters.find(c); i != std::string_view::npos) return meanings[i];
    if (c == '"' || c == '\\' || c == '/') return c;
    if (c != 'u' || rest_.size() < 4) fail();
    unsigned code = 0;
    const char* const end = rest_.data() + 4;
    if (std::from_chars(rest_.data(), end, code, 16).ptr != end || code >= 0x80) fail();
    rest_.remove_prefix(4);
    return static_cast<char>(code);
  }

  std::string_view rest_;
  std::shared_ptr<const std::vector<std::string>> columns_;  // null before the first row
};

struct Freed {
  void operator()(char* text) const noexcept { velmora_free(text); }
};
using OwnedText = std::unique_ptr<char, Freed>;

template <typename T>
velmora_value bound(const T& value) {
  velmora_value result = {};
  if constexpr (std::same_as<T, bool>) {
    result.type = VELMORA_BOOL;
    result.boolean = value ? 1 : 0;
  } else if constexpr (std::integral<T>) {
    // What is outside 64 bits is outside the engine's 32 as well, and refused as such.
    constexpr std::int64_t largest = std::numeric_limits<std::int64_t>::max();
    result.type = VELMORA_INTEGER;
    result.integer =
        std::in_range<std::int64_t>(value) ? static_cast<std::int64_t>(value) : largest;
  } else if constexpr (std::floating_point<T>) {
    result.type = VELMORA_FLOAT;
    result.real = static_cast<double>(value);
  } else {
    const std::string_view text = value;
    result.type = VELMORA_TEXT;
    result.text = text.data();
    result.text_size = text.size();
  }
  return result;
}

inline std::atomic<bool> hasEngine = false;

}  // namespace detail

// What may be bound: integers (but for characters, which could be meant as texts), floats, bools
// and texts.
template <typename T>
concept Bindable = std::convertible_to<const T&, std::string_view> || std::floating_point<T> ||
    (std::integral<T> && !std::same_as<T, char>);

// The process's engine: started by the constructor, saved and stopped by the destructor. There is
// at most one at a time.
class Engine {
 public:
  // Starts the engine in the current directory. Throws Error when there is another Engine, or when
  // it cannot be started ("Database directory is already in use", ...).
  Engine() {
    if (detail::hasEngine.exchange(true)) throw Error("There is an Engine already");
    char* message = nullptr;
    const int status = velmora_start(&message);
    if (status == 0) return;
    detail::hasEngine = false;
    fail(message, "Engine cannot be started");
  }

  // Saves and stops. A failure to save is not told and loses nothing: the log has every change that
  // the files lack. Hosts that want to know call stop() first.
  ~Engine() {
    velmora_stop(nullptr);
    detail::hasEngine = false;
  }
  Engine(const Engine&) = delete;
  Engine& operator=(const Engine&) = delete;

  // Runs one command, each "?" outside literals replaced by the next value. Throws Error with the
  // answer's message when the command failed.
  template <Bindable... Values>
  Answer run(std::string_view command, const Values&... values) {
    Answer answer = tryRun(command, values...);
    if (!answer.succeeded()) throw Error(answer.message());
    return answer;
  }

  // The same with failed commands as answers like others. Throws Error for a command with a NUL,
  // and std::bad_alloc.
  template <Bindable... Values>
  Answer tryRun(std::string_view command, const Values&... values) {
    const std::array<velmora_value, sizeof...(Values)> bound = {detail::bound(values)...};
    if (command.find('\0') != std::string_view::npos) throw Error("Command has a NUL");
    const std::string text(command);
    const detail::OwnedText json(velmora_query_bound(text.c_str(), bound.data(), bound.size()));
    if (json == nullptr) throw std::bad_alloc();
    return detail::AnswerReader(json.get()).read();
  }

  // Saves and stops before the destructor does. Throws Error when that failed; the engine stays
  // started then. Later commands fail.
  void stop() {
    char* message = nullptr;
    if (velmora_stop(&message) != 0) fail(message, "Engine cannot be stopped");
  }

 private:
  [[noreturn]] static void fail(char* message, const char* otherwise) {
    const detail::OwnedText owned(message);
    throw Error(owned == nullptr ? otherwise : owned.get());
  }
};

}  // namespace host
}  // namespace velmora

#endif  // C++20

#endif
