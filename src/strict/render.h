// From values back to text: the literals that messages show and listeners' conditions are kept as.
#pragma once

#include <string>

#include "../value.h"

namespace velmora::strict {

// The value as the parser reads it. Floats have to be finite, and texts valid UTF-8 without a zero
// byte: there are no literals for others.
std::string literal(const Value& value);

}  // namespace velmora::strict
