// A database as SQL for PostgreSQL or SQLite, where the same queries give the same answers. A table
// that can have timed values becomes a view over three things: its rows, for each timed column a
// table of states, and a view of one row that tells the second.
#ifndef VELMORA_TOOLS_COPY_SQL_H
#define VELMORA_TOOLS_COPY_SQL_H

#include <map>
#include <string>

#include "copy/commands.h"
#include "velmora/velmora.hpp"

namespace tool {

enum class Dialect { postgres, sqlite };

// By table the column that says on which node a row lies.
using ShardColumns = std::map<std::string, std::string>;

// Throws Failure with exitWrongUse for columns to shard by that cannot serve.
void writeSql(velmora::Database& database, Dialect dialect, const ShardColumns& shards,
              const Sink& sink);

}  // namespace tool

#endif
