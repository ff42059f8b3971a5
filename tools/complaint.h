// What is wrong with a command, and where: the line of its text that is to blame, and a caret under
// the word.
#pragma once

#include <string>
#include <string_view>

#include "velmora/velmora.hpp"

namespace tool {

// Where a byte of a text stands, both from 1; the column in characters.
struct Place {
  std::size_t line = 1;
  std::size_t column = 1;
};
Place placeOf(std::string_view text, std::size_t offset);

// "Unknown table 'nix'\n  SELECT * FROM nix\n                ^"; only the first of these where the
// error has no place. A long line is cut on both sides.
std::string complaintText(const velmora::Error& error, std::string_view command);

}  // namespace tool
