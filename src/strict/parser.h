// The parser of the strict language: from a command's text to a Statement. It knows the grammar
// alone; whether a table or a column is there, and takes such a value, is for others to find out.
//
//   lexer         text to tokens, reserved words
//   cursor        names, literals, parameters
//   row_commands  INSERT, UPDATE, DELETE; timed values, filters
//   select        SELECT
//   definitions   all other commands
//   parser        the frame: which command it is, its clock, and that nothing follows
#pragma once

#include <string_view>

#include "statement.h"

namespace velmora::strict {

// Throws Failure with the byte offset of the word at fault, or of the end of a text that ends too
// early: syntax for what is no command, type and range for a literal that cannot be what it has to
// be (a length, a duration), range for a text that is not UTF-8.
Statement parse(std::string_view text);

}  // namespace velmora::strict
