// See database_state.h.
#include "database_state.h"

#include <bit>
#include <vector>

namespace velmora::handles {
namespace {

std::string shown(const Answer& answer, const AnswerValue& value) {
  switch (value.type) {
    case AnswerType::null:
      return "null";
    case AnswerType::integer:
      return "i" + std::to_string(value.integer);
    case AnswerType::real:
      return "r" + std::to_string(std::bit_cast<std::uint64_t>(value.real));
    case AnswerType::boolean:
      return value.integer != 0 ? "true" : "false";
    case AnswerType::text:
      return "t" + std::to_string(value.textSize) + ":" + std::string(answer.text(value));
  }
  return "?";
}

std::string shown(const Answer& answer) {
  std::string text;
  for (std::size_t column = 0; column < answer.columnCount(); ++column) {
    const AnswerColumn& each = answer.columns()->at(column);
    text += each.name + ":" + each.declaredType + " ";
  }
  for (std::size_t row = 0; row < answer.rowCount(); ++row) {
    text += "\n ";
    for (std::size_t column = 0; column < answer.columnCount(); ++column) {
      text += " " + shown(answer, answer.at(row, column));
      if (const TimedAnswer* const timed = answer.timedAt(row, column)) {
        text += "@" + std::to_string(timed->changeSecond) + shown(answer, timed->next);
        text += timed->cycles ? "c" : "";
      }
    }
  }
  return text + "\n  changes " + std::to_string(answer.nextChange) + "\n";
}

std::vector<std::string> tablesOf(Engine& engine) {
  const Answer answer = execute(engine, "SHOW TABLES");
  std::vector<std::string> names;
  for (std::size_t row = 0; row < answer.rowCount(); ++row) {
    names.emplace_back(answer.text(answer.at(row, 0)));
  }
  return names;
}

bool hasIdentity(Engine& engine, const std::string& table) {
  return shown(execute(engine, "SHOW COLUMNS FROM " + table)).find("ApexInt") != std::string::npos;
}

}  // namespace

Answer execute(Engine& engine, std::string_view text, std::span<const Value> values) {
  Answer answer;
  engine.run(*engine.prepare(text), values, answer);
  return answer;
}

std::string stateOf(Engine& engine) {
  std::vector<std::string> commands = {"SHOW TABLES", "SHOW LINKS", "SHOW LISTENERS",
                                       "SHOW SCHEDULE"};
  for (const std::string& table : tablesOf(engine)) {
    commands.push_back("SHOW COLUMNS FROM " + table);
    commands.push_back("SELECT * FROM " + table);
  }
  std::string text;
  for (const std::string& command : commands) {
    text += command + "\n  " + shown(execute(engine, command));
  }
  return text;
}

Numbers nextNumbers(Engine& engine) {
  Numbers numbers;
  execute(engine, "BEGIN");
  for (const std::string& table : tablesOf(engine)) {
    if (!hasIdentity(engine, table)) continue;
    numbers[table] = execute(engine, "INSERT INTO " + table + " n = 1").identity.value_or(-1);
  }
  execute(engine, "ROLLBACK");
  return numbers;
}

}  // namespace velmora::handles
