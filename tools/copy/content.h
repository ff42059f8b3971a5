// The content of a database in a form that depends neither on its files nor on the second: what
// two databases are compared by.
#ifndef VELMORA_TOOLS_COPY_CONTENT_H
#define VELMORA_TOOLS_COPY_CONTENT_H

#include <string>

#include "copy/catalogue.h"
#include "velmora/velmora.hpp"

namespace tool {

// The row as the language writes it, of a timed value its plan and start: "a = 1 b = ('x' --> ...)
// #TIME# 5".
std::string cellText(const PlannedRow& row, const TableShape& table, std::size_t column);
std::string rowText(const PlannedRow& row, const TableShape& table);
// A column as CREATE TABLE has it, with what it is beside that.
std::string columnText(const TableColumn& column);

// A hash in hexadecimal digits. Two databases have the same if their tables have the same columns,
// identity numbers to come and rows, in whatever order, and there are the same links and listeners.
std::string contentHash(velmora::Database& database);

}  // namespace tool

#endif
