// A database of its own for each test, used as a host uses it: through the functions of the public
// header alone, with a clock that the test sets. What a command answers comes as one short text.
#pragma once

#include <gtest/gtest.h>
#include <stdlib.h>

#include <charconv>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <initializer_list>
#include <iterator>
#include <mutex>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "velmora/velmora.h"

namespace handles {

// A value to be bound; the text has to stay.
struct Bound : velmora_value {
  Bound() : velmora_value{} {}
  Bound(std::int64_t number) : Bound() {
    type = VELMORA_INTEGER;
    integer = number;
  }
  Bound(int number) : Bound(std::int64_t{number}) {}
  Bound(double number) : Bound() {
    type = VELMORA_REAL;
    real = number;
  }
  Bound(bool truth) : Bound() {
    type = VELMORA_BOOLEAN;
    boolean = truth ? 1 : 0;
  }
  Bound(std::string_view bytes) : Bound() {
    type = VELMORA_TEXT;
    text = bytes.data();
    text_size = bytes.size();
  }
  Bound(const std::string& bytes) : Bound(std::string_view(bytes)) {}
  Bound(const char* bytes) : Bound(std::string_view(bytes)) {}
};
using Values = std::vector<Bound>;

// One value of a result: 1, 0.5, true, NULL, red, 'two words'.
inline std::string shown(const velmora_result* result, std::size_t row, std::size_t column) {
  char digits[64];
  switch (velmora_result_type(result, row, column)) {
    case VELMORA_NULL:
      return "NULL";
    case VELMORA_INTEGER:
      return std::to_string(velmora_result_integer(result, row, column));
    case VELMORA_REAL: {
      const double real = velmora_result_real(result, row, column);
      return {digits, std::to_chars(digits, digits + sizeof digits, real).ptr};
    }
    case VELMORA_BOOLEAN:
      return velmora_result_boolean(result, row, column) != 0 ? "true" : "false";
    case VELMORA_TEXT:
      break;
  }
  std::size_t length = 0;
  const char* const bytes = velmora_result_text(result, row, column, &length);
  const std::string text(bytes == nullptr ? "" : bytes, length);
  return text.empty() || text.find(' ') != std::string::npos ? "'" + text + "'" : text;
}

// Its rows, "1 red NULL; 2 green NULL"; or how many rows are affected, "2 rows" or "1 row, number
// 7".
inline std::string shown(const velmora_result* result) {
  std::string text;
  if (velmora_result_columns(result) == 0) {
    const std::int64_t rows = velmora_result_rows_affected(result);
    text = std::to_string(rows) + (rows == 1 ? " row" : " rows");
    std::int64_t number = 0;
    const bool isNumbered = velmora_result_identity(result, &number) != 0;
    return isNumbered ? text + ", number " + std::to_string(number) : text;
  }
  for (std::size_t row = 0; row < velmora_result_rows(result); ++row) {
    if (row > 0) text += "; ";
    for (std::size_t column = 0; column < velmora_result_columns(result); ++column) {
      if (column > 0) text += " ";
      text += shown(result, row, column);
    }
  }
  return text;
}

// "! CODE OFFSET TABLE.COLUMN: TEXT", what does not apply left out. Destroys the error.
inline std::string shown(int code, velmora_error* error) {
  std::string text = "! " + std::to_string(code);
  if (error == nullptr) return text;
  EXPECT_EQ(velmora_error_code(error), code);
  if (const std::int64_t offset = velmora_error_offset(error); offset >= 0) {
    text += " " + std::to_string(offset);
  }
  const std::string table = velmora_error_table(error);
  const std::string column = velmora_error_column(error);
  if (!table.empty()) text += " " + table;
  if (!column.empty()) text += "." + column;
  text += std::string(": ") + velmora_error_text(error);
  velmora_error_destroy(error);
  return text;
}

// What a command answers, or how it failed.
inline std::string run(velmora_db* db, std::string_view command, const Values& values = {},
                       std::int64_t* nextChange = nullptr) {
  velmora_result* result = nullptr;
  velmora_error* error = nullptr;
  const std::vector<velmora_value> given(values.begin(), values.end());
  const int code =
      velmora_run(db, command.data(), command.size(), given.data(), given.size(), &result, &error);
  if (code != VELMORA_OK) return shown(code, error);
  std::string text = shown(result);
  if (nextChange != nullptr && velmora_result_next_change(result, nextChange) == 0) {
    *nextChange = -1;
  }
  velmora_result_destroy(result);
  return text;
}

// A command, and what it has to answer.
struct Step {
  const char* command;
  const char* answer;
};

class HandleTest : public testing::Test {
 protected:
  HandleTest() {
    std::string name = (std::filesystem::temp_directory_path() / "velmora-handle-XXXXXX").string();
    if (mkdtemp(name.data()) == nullptr) throw std::runtime_error("cannot make " + name);
    directory = name;
    options.size = sizeof options;
    options.flags = VELMORA_CREATE;
    options.durability = VELMORA_DURABILITY_OFF;
    options.context = this;
    options.clock = [](void* context) { return static_cast<HandleTest*>(context)->second; };
    options.log = [](void* context, int /*level*/, const char* text, std::size_t length) {
      auto* const test = static_cast<HandleTest*>(context);
      const std::scoped_lock lock(test->linesMutex);
      test->lines.emplace_back(text, length);
    };
    EXPECT_EQ(open(), "");
  }
  ~HandleTest() override {
    velmora_close(db, nullptr);
    std::error_code ignored;
    std::filesystem::remove_all(directory, ignored);
  }

  std::filesystem::path path() const { return directory / "base"; }
  // Nothing, or why it failed.
  std::string open() {
    velmora_error* error = nullptr;
    const std::string name = path().string();
    const int code = velmora_open(name.data(), name.size(), &options, &db, &error);
    return code == VELMORA_OK ? "" : shown(code, error);
  }
  void close() {
    EXPECT_EQ(velmora_close(db, nullptr), VELMORA_OK);
    db = nullptr;
  }
  std::string reopen() {
    close();
    return open();
  }
  // Goes on with the files as a process would find them that was killed now.
  std::string crash() {
    const std::filesystem::path copy = directory / "copy";
    std::filesystem::copy(path(), copy, std::filesystem::copy_options::recursive);
    close();
    std::filesystem::remove_all(path());
    std::filesystem::rename(copy, path());
    return open();
  }

  std::string run(std::string_view command, const Values& values = {}) const {
    return handles::run(db, command, values);
  }
  void check(std::initializer_list<Step> steps) const {
    for (const Step& step : steps) EXPECT_EQ(run(step.command), step.answer) << step.command;
  }
  // The same before a restart, after a crash and after a close.
  void checkLasting(std::initializer_list<Step> reads) {
    check(reads);
    EXPECT_EQ(crash(), "");
    check(reads);
    EXPECT_EQ(reopen(), "");
    check(reads);
  }

  std::string bytesOf(const std::string& name) const {
    std::ifstream file(path() / name, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
  }
  void write(const std::string& name, const std::string& bytes) const {
    std::ofstream(path() / name, std::ios::binary) << bytes;
  }

  std::filesystem::path directory;
  velmora_options options = {};
  std::int64_t second = 1'700'000'000;
  std::mutex linesMutex;
  std::vector<std::string> lines;  // of the log callback
  velmora_db* db = nullptr;
};

}  // namespace handles
