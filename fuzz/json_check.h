// A strict reader of JSON texts (RFC 8259), for checking and nothing else.
#pragma once

#include <string_view>

namespace velmora::fuzz {

// Whether the text is one JSON value in valid UTF-8, and nothing besides it but white space.
bool isJson(std::string_view text);

// The length of the valid UTF-8 sequence that the text begins with; 0 if there is none.
std::size_t utf8Length(std::string_view text);

}  // namespace velmora::fuzz
