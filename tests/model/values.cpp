// See values.h.
#include "model/values.h"

#include <cstdio>
#include <stdexcept>

namespace model {

void fail(const std::string& message) { throw std::runtime_error(message); }

Result answer(const std::string& message, std::size_t rowsAffected) {
  Result result;
  result.message = message;
  result.rowsAffected = rowsAffected;
  return result;
}

bool isWhole(const std::string& type) { return type == "int" || type == "ApexInt"; }

std::int64_t sum(std::int64_t left, std::int64_t right) {
  return static_cast<std::int64_t>(static_cast<std::uint64_t>(left) +
                                   static_cast<std::uint64_t>(right));
}

std::int64_t difference(std::int64_t left, std::int64_t right) {
  return static_cast<std::int64_t>(static_cast<std::uint64_t>(left) -
                                   static_cast<std::uint64_t>(right));
}

std::int64_t product(std::int64_t left, std::int64_t right) {
  return static_cast<std::int64_t>(static_cast<std::uint64_t>(left) *
                                   static_cast<std::uint64_t>(right));
}

std::size_t currentState(const Schedule& schedule, std::int64_t now) {
  std::int64_t elapsed = difference(now, schedule.start);
  const std::size_t last = schedule.states.size() - 1;
  if (schedule.cycles && schedule.total > 0) elapsed %= schedule.total;
  if (!schedule.cycles && elapsed >= schedule.total) return last;
  std::int64_t end = 0;
  for (std::size_t i = 0; i <= last; ++i) {
    end = sum(end, schedule.states[i].seconds);
    if (elapsed < end) return i;
  }
  return last;
}

bool isLess(const std::string& left, const std::string& right, const std::string& type) {
  if (isWhole(type)) {
    const int leftNumber = std::stoi(left);
    return leftNumber < std::stoi(right);
  }
  if (type == "float") {
    const float leftNumber = std::stof(left);
    return leftNumber < std::stof(right);
  }
  if (type == "bool") return left == "false" && right == "true";
  return left < right;
}

bool isGreater(const std::string& left, const std::string& right, const std::string& type) {
  if (isWhole(type)) {
    const int leftNumber = std::stoi(left);
    return leftNumber > std::stoi(right);
  }
  if (type == "float") {
    const float leftNumber = std::stof(left);
    return leftNumber > std::stof(right);
  }
  if (type == "bool") return left == "true" && right == "false";
  return left > right;
}

std::string printed(const char* format, float number) {
  char text[64];
  std::snprintf(text, sizeof text, format, static_cast<double>(number));
  return text;
}

void checkKey(const KeyIndex& keys, const std::string& key) {
  if (keys.key_comp().numeric) static_cast<void>(std::stoi(key));
}

bool KeyOrder::operator()(const std::string& left, const std::string& right) const {
  return isLess(left, right, numeric ? "int" : "string");
}

std::optional<std::size_t> Table::find(const std::string& column) const {
  for (std::size_t i = 0; i < columns.size(); ++i) {
    if (columns[i].name == column) return i;
  }
  return std::nullopt;
}

}  // namespace model
