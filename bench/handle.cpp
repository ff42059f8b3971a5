// Values are bound one by one, texts copied by the library.
#include "handle.h"

#include <cctype>
#include <stdexcept>

namespace bench {

namespace {

struct ErrorCloser {
  void operator()(velmora_error* error) const { velmora_error_destroy(error); }
};

void require(int code, const std::string& what, velmora_error* error) {
  const std::unique_ptr<velmora_error, ErrorCloser> owned(error);
  if (code == VELMORA_OK) return;
  const char* text = velmora_error_text(error);
  throw std::runtime_error("handle: " + what + ": " + (text == nullptr ? "no memory" : text));
}

// The places without their numbers.
std::string withoutNumbers(const std::string& text) {
  std::string result;
  for (const char character : text) {
    const bool isOfPlace = !result.empty() && result.back() == '?' &&
                           std::isdigit(static_cast<unsigned char>(character)) != 0;
    if (!isOfPlace) result += character;
  }
  return result;
}

velmora_value exported(const Value& value) {
  velmora_value given = {};
  if (const auto* number = std::get_if<int>(&value)) {
    given.type = VELMORA_INTEGER;
    given.integer = *number;
  } else if (const auto* real = std::get_if<double>(&value)) {
    given.type = VELMORA_REAL;
    given.real = *real;
  } else {
    const auto& chars = std::get<std::string>(value);
    given.type = VELMORA_TEXT;
    given.text = chars.data();
    given.text_size = chars.size();
  }
  return given;
}

}  // namespace

HandleDatabase openHandleDatabase(const std::string& path, std::uint32_t durability) {
  velmora_options options = {};
  options.size = sizeof options;
  options.flags = VELMORA_CREATE;
  options.durability = durability;
  velmora_db* database = nullptr;
  velmora_error* error = nullptr;
  require(velmora_open(path.data(), path.size(), &options, &database, &error), path, error);
  return HandleDatabase(database);
}

HandleStatement::HandleStatement(velmora_db* database, const std::string& text) {
  const std::string command = withoutNumbers(text);
  velmora_statement* statement = nullptr;
  velmora_error* error = nullptr;
  require(velmora_prepare(database, command.data(), command.size(), &statement, &error), command,
          error);
  statement_.reset(statement);
}

HandleResult HandleStatement::tryRun(const Values& values, velmora_error** error) {
  for (std::size_t place = 0; place < values.size(); ++place) {
    const velmora_value value = exported(values[place]);
    velmora_bind(statement_.get(), place + 1, &value, nullptr);
  }
  velmora_result* result = nullptr;
  velmora_statement_run(statement_.get(), &result, error);
  return HandleResult(result);
}

HandleResult HandleStatement::run(const Values& values) {
  velmora_error* error = nullptr;
  HandleResult result = tryRun(values, &error);
  if (result == nullptr) require(velmora_error_code(error), "a statement", error);
  return result;
}

HandleResult runHandle(velmora_db* database, const std::string& text) {
  return HandleStatement(database, text).run({});
}

void readRows(const velmora_result& result) {
  const std::size_t columns = velmora_result_columns(&result);
  const std::size_t rows = velmora_result_rows(&result);
  for (std::size_t row = 0; row < rows; ++row) {
    for (std::size_t column = 0; column < columns; ++column) {
      std::size_t length = 0;
      switch (velmora_result_type(&result, row, column)) {
        case VELMORA_INTEGER:
          velmora_result_integer(&result, row, column);
          break;
        case VELMORA_REAL:
          velmora_result_real(&result, row, column);
          break;
        case VELMORA_BOOLEAN:
          velmora_result_boolean(&result, row, column);
          break;
        default:
          velmora_result_text(&result, row, column, &length);
      }
    }
  }
}

}  // namespace bench
