// Texts for people: how wide they stand on a terminal, and with symbols for what would drive it.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace tool {

// The text with a symbol in the place of each control character ("␛", "␊"), of what turns the
// direction of writing ("�"), and of bytes that are not UTF-8 ("�").
std::string visible(std::string_view text);

// In columns of a terminal; the text is visible.
std::size_t displayWidth(std::string_view text);

}  // namespace tool
