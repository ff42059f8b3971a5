// Values, names and timed values as the language writes them.
#ifndef VELMORA_TOOLS_COPY_LITERALS_H
#define VELMORA_TOOLS_COPY_LITERALS_H

#include <string>
#include <string_view>

#include "copy/catalogue.h"

namespace tool {

// A text between single quotes, which are doubled within.
std::string quotedText(std::string_view text);
// A number in the shortest form that reads back as the same in a column of the type.
std::string realText(double number, const TableColumn& column);
// A value as the language has it; of null "NULL".
std::string literal(const velmora::Value& value, const TableColumn& column);
// A timed value, without its clock: "('a' --> 'b' @ 5 s c)".
std::string literal(const Plan& plan, const TableColumn& column);

// The commands that make a table, a link, a listener again.
std::string createCommand(const TableShape& table);
std::string linkCommand(const LinkShape& link);
std::string listenCommand(const ListenerShape& listener);

// Whether a column or table can be called so.
bool isFreeName(std::string_view name);

}  // namespace tool

#endif
