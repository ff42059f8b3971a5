// A database as files, one a table, beside the commands that make its tables.
#ifndef VELMORA_TOOLS_COPY_FILES_H
#define VELMORA_TOOLS_COPY_FILES_H

#include <string>

#include "output/output.h"
#include "velmora/velmora.hpp"

namespace tool {

// Writes into the directory, which must be empty or not there: schema.vel; TABLE.csv or TABLE.jsonl
// with the values in force; and TABLE.states.csv or .jsonl with the plans of timed values, as SHOW
// STATES tells them, where there are any.
void writeFiles(velmora::Database& database, const std::string& directory, Format format);

}  // namespace tool

#endif
