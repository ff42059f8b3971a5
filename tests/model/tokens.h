// The tokens of a command, and its clock suffix, as the model reads them.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace model {

enum class Kind { reserved, word, literal, number, operation, symbol };

struct Token {
  Kind kind;
  std::string text;
};

// Nothing for a text that is not made of tokens.
std::optional<std::vector<Token>> tokenize(std::string text);

// Cuts the clock suffix off a command and returns its second, or the second it is now.
std::int64_t takeClock(std::string& command, std::int64_t now);

}  // namespace model
