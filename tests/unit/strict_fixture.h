// A database of its own for each test, opened by an Engine in a directory of its own, with a clock
// that the test sets. What a command answers comes as one short text.
#pragma once

#include <gtest/gtest.h>
#include <stdlib.h>

#include <charconv>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include "engine/engine.h"
#include "failure.h"

namespace velmora {

class StrictTest : public testing::Test {
 protected:
  StrictTest() {
    std::string name = (std::filesystem::temp_directory_path() / "velmora-strict-XXXXXX").string();
    if (mkdtemp(name.data()) == nullptr) throw std::runtime_error("cannot make " + name);
    path_ = name;
    open();
  }
  ~StrictTest() override {
    engine_.reset();
    std::error_code ignored;
    std::filesystem::remove_all(path_, ignored);
  }

  OpenOptions options() {
    OpenOptions options;
    options.durability = Durability::off;
    options.transactionWait = std::chrono::milliseconds(50);
    options.callbacks.clock = [this] { return second; };
    options.callbacks.log = [this](LogLevel, std::string_view line) { lines.emplace_back(line); };
    return options;
  }
  void open() { engine_ = std::make_unique<Engine>(path_.string(), options()); }
  void reopen() {
    engine_.reset();
    open();
  }
  // Goes on with a copy of the files, as a process would find them that was killed now.
  void crash() {
    const std::filesystem::path copy = path_.string() + "-crashed";
    std::filesystem::copy(path_, copy, std::filesystem::copy_options::recursive);
    engine_.reset();
    std::filesystem::remove_all(path_);
    std::filesystem::rename(copy, path_);
    open();
  }

  // What the command answers: its rows, "1 red NULL; 2 'green' NULL", texts with blanks in quotes;
  // or how many rows are affected, "2 rows" or "1 row, number 7"; or what failed, "! CODE OFFSET:
  // TEXT".
  std::string run(const std::string& text, const std::vector<Value>& values = {}) {
    Answer answer;
    return run(text, values, answer);
  }
  std::string run(const std::string& text, const std::vector<Value>& values, Answer& answer) {
    try {
      const auto prepared = engine_->prepare(text);
      engine_->run(*prepared, values, answer);
    } catch (const Failure& failure) {
      return "! " + std::to_string(static_cast<int>(failure.code)) + " " +
             std::to_string(failure.offset) + ": " + failure.what();
    }
    return shown(answer);
  }
  static std::string shown(const Answer& answer) {
    if (answer.columnCount() == 0) {
      std::string text = std::to_string(answer.rowsAffected);
      text += answer.rowsAffected == 1 ? " row" : " rows";
      if (answer.identity) text += ", number " + std::to_string(*answer.identity);
      return text;
    }
    std::string text;
    for (std::size_t row = 0; row < answer.rowCount(); ++row) {
      if (row > 0) text += "; ";
      for (std::size_t column = 0; column < answer.columnCount(); ++column) {
        if (column > 0) text += " ";
        text += shown(answer, answer.at(row, column));
      }
    }
    return text;
  }
  static std::string shown(const Answer& answer, const AnswerValue& value) {
    switch (value.type) {
      case AnswerType::null:
        return "NULL";
      case AnswerType::integer:
        return std::to_string(value.integer);
      case AnswerType::real: {
        char text[64];
        return {text, std::to_chars(text, text + sizeof text, value.real).ptr};
      }
      case AnswerType::boolean:
        return value.integer != 0 ? "true" : "false";
      case AnswerType::text: {
        const std::string text(answer.text(value));
        return text.empty() || text.find(' ') != std::string::npos ? "'" + text + "'" : text;
      }
    }
    return "?";
  }

  std::string bytesOf(const std::string& name) const {
    std::ifstream file(path_ / name, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
  }
  void write(const std::string& name, const std::string& bytes) const {
    std::ofstream(path_ / name, std::ios::binary) << bytes;
  }

  std::int64_t second = 1'700'000'000;
  std::vector<std::string> lines;  // of the log callback
  std::filesystem::path path_;
  std::unique_ptr<Engine> engine_;
};

}  // namespace velmora
