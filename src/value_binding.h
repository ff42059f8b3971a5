// Bound values: a command text with placeholders, made into one that the lexer reads as its writer
// meant it, whatever the values hold. Relies on the lexer's idea of literals and numbers, and on
// the clock marker being looked for everywhere, literals included.
#pragma once

#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "parser/parser.h"
#include "velmora/velmora.h"

namespace velmora {

// A command with its values in place.
struct BoundCommand {
  std::string text;
  std::vector<BoundFloat> floats;  // those among the values, for the parser
};

// The text with each "?" outside a literal replaced by the value of its number, as one token.
// Throws std::runtime_error when there are not as many values as placeholders, or with a message
// that begins "Parameter N" for a value that the command language cannot carry.
BoundCommand bindValues(std::string_view text, std::span<const velmora_value> values);

}  // namespace velmora
