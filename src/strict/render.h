// From values back to text: a statement with its bound values as literals, which is how the log
// keeps it. Reading that text again gives the same statement with these very values.
#pragma once

#include <span>
#include <string>

#include "statement.h"

namespace velmora::strict {

// The value as the parser reads it. Floats have to be finite, and texts valid UTF-8 without a zero
// byte: there are no literals for others.
std::string literal(const Value& value);

// Appends the statement's text, so without its clock, with one value in the place of each
// parameter. The value of a bound clock, which comes last, may be there or not.
void appendWithValues(std::string& out, const Statement& statement, std::span<const Value> values);

}  // namespace velmora::strict
