// What the model's sources share about texts, numbers, states and answers.
//
// Numbers are converted by the standard functions at each use; nothing is remembered.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

#include "model/model.h"

namespace model {

inline const std::string missing = "#/#?";

[[noreturn]] void fail(const std::string& message);
Result answer(const std::string& message, std::size_t rowsAffected);

bool isWhole(const std::string& type);
bool isLess(const std::string& left, const std::string& right, const std::string& type);
bool isGreater(const std::string& left, const std::string& right, const std::string& type);
std::string printed(const char* format, float number);

// Arithmetic that wraps.
std::int64_t sum(std::int64_t left, std::int64_t right);
std::int64_t difference(std::int64_t left, std::int64_t right);
std::int64_t product(std::int64_t left, std::int64_t right);

// The position of the state that a schedule shows.
std::size_t currentState(const Schedule& schedule, std::int64_t now);

// A key of a numeric column must be a number: throws for another.
void checkKey(const KeyIndex& keys, const std::string& key);

}  // namespace model
