// A Database of its own for each test, in a temporary directory of its own, and a vocabulary for
// calling it: what a command's tokens are for a host, short helpers are for these tests.
//
// It speaks to the engine's class directly, for what no command can show; parsing is left out.
#pragma once

#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <memory>
#include <sstream>
#include <stdexcept>
#include <string>
#include <string_view>
#include <type_traits>
#include <utility>
#include <vector>

#include "clock.h"
#include "database/database.h"

namespace velmora {

class DatabaseTest : public testing::Test {
 protected:
  using Values = std::vector<std::pair<std::string, std::string>>;  // column and text
  using Texts = std::vector<std::string>;
  using Indices = std::vector<std::int32_t>;

  DatabaseTest() : path_(makeDirectory()), database(openDirectory(path_)) {
    second = startSecond;
    clock::setSource([] { return second; });
  }
  ~DatabaseTest() override {
    clock::setSource(nullptr);
    close(database.directory.descriptor);
    std::error_code ignored;
    std::filesystem::remove_all(path_, ignored);
  }

  ResultSet insert(const std::string& table, const Values& values) {
    std::vector<GivenValue> given = givenValues(table, values);
    return database.insertInto(table, given, second);
  }
  ResultSet insertTimed(const std::string& table, const std::string& column, const TempRule& rule,
                        const Values& others = {}) {
    std::vector<GivenValue> given = givenValues(table, others);
    given.push_back(timedValue(table, column, rule));
    return database.insertInto(table, given, second);
  }
  ResultSet update(const std::string& table, const Values& values,
                   const std::vector<Condition>& conditions = {}) {
    std::vector<GivenValue> given = givenValues(table, values);
    return database.update(table, given, conditions, second);
  }
  ResultSet updateTimed(const std::string& table, const std::string& column, const TempRule& rule,
                        const std::vector<Condition>& conditions = {}) {
    std::vector<GivenValue> given;
    given.push_back(timedValue(table, column, rule));
    return database.update(table, given, conditions, second);
  }

  static std::vector<Condition> where(const std::string& column, const std::string& value) {
    return {{"", column, value, "=", 'o'}};
  }

  // A timed value that starts at the test's first second.
  static TempRule timed(const std::vector<std::pair<std::string, std::int64_t>>& states,
                        bool repeat = false, std::int64_t startTime = startSecond) {
    TempRule rule;
    for (const auto& [value, duration] : states) {
      rule.states.push_back({Text(value), duration});
      rule.cycleLength += duration;
    }
    rule.repeat = repeat;
    rule.startTime = startTime;
    return rule;
  }

  // The texts that the cells of one column show now, deleted rows included.
  Texts shown(const std::string& table, const std::string& column) {
    Texts texts;
    const Table& source = database.getTable(table);
    const std::size_t position = source.columnPosition(column);
    TextRoom room;
    for (std::size_t i = 0; i < source.rowCount(); ++i) {
      texts.emplace_back(source.text(i, position, second, room));
    }
    return texts;
  }

  // The data rows of an answer, each as its JSON object.
  static Texts rowsOf(ResultSet result) {
    std::istringstream lines(std::string(renderJson(std::move(result)).view()));
    Texts rows;
    for (std::string line; std::getline(lines, line);) {
      if (!line.starts_with("    {")) continue;
      rows.push_back(line.substr(4, line.rfind('}') - 3));
    }
    return rows;
  }

  Indices matching(const std::string& table, const std::vector<Condition>& conditions = {}) {
    return database.getRequestedRows(conditions, database.getTable(table), second);
  }

  // The timed value of a row's first cell, or null.
  const TempRule* ruleOf(const std::string& table, std::size_t row) {
    return database.getTable(table).values(0).rule(row);
  }

  std::string bytesOf(const std::string& fileName) const {
    std::ifstream file(path_ / fileName, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
  }
  bool exists(const std::string& fileName) const {
    return std::filesystem::exists(path_ / fileName);
  }

  // The message of a call that fails, by an exception or by its answer; empty when it succeeds.
  template <typename Call>
  static std::string failureOf(Call call) {
    try {
      if constexpr (std::is_same_v<decltype(call()), ResultSet>) {
        const ResultSet result = call();
        return result.success ? "" : result.message.substr(std::string_view("Error: ").size());
      } else {
        call();
      }
    } catch (const std::runtime_error& error) {
      return error.what();
    }
    return "";
  }

  static constexpr std::int64_t startSecond = 1'700'000'000;
  static inline std::int64_t second = startSecond;

 private:
  static std::filesystem::path makeDirectory() {
    std::string name = (std::filesystem::temp_directory_path() / "velmora-unit-XXXXXX").string();
    if (mkdtemp(name.data()) == nullptr) throw std::runtime_error("cannot make " + name);
    return name;
  }
  static Directory openDirectory(const std::filesystem::path& path) {
    return {open(path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC)};
  }

  std::vector<GivenValue> givenValues(const std::string& tableName, const Values& values) {
    std::vector<GivenValue> given;
    for (const auto& [column, text] : values) {
      const Table& table = database.getTable(tableName);
      const std::size_t position = table.columnPosition(column);
      given.push_back({position, Cell(Text(text))});
    }
    return given;
  }
  GivenValue timedValue(const std::string& tableName, const std::string& column,
                        const TempRule& rule) {
    const std::string first = rule.states.empty() ? "" : std::string(rule.states[0].value.view());
    GivenValue given = std::move(givenValues(tableName, {{column, first}}).front());
    given.cell.tempRule = std::make_unique<TempRule>(rule);
    return given;
  }

  std::filesystem::path path_;

 protected:
  Database database;
};

}  // namespace velmora
