// The commands of the strict language, one function each, called behind the command's first word.
// Each takes its command and leaves the cursor where nothing can belong to it any more; that
// nothing follows is for the caller to see.
#pragma once

#include "cursor.h"
#include "statement.h"

namespace velmora::strict {

// definitions.cpp
Command createTable(Cursor& cursor);
Command dropTable(Cursor& cursor);
Command link(Cursor& cursor);
Command unlink(Cursor& cursor);
Command listen(Cursor& cursor);
Command unlisten(Cursor& cursor);
Command vacuum(Cursor& cursor);
Command show(Cursor& cursor);

// row_commands.cpp
Command insertInto(Cursor& cursor);
Command update(Cursor& cursor);
Command deleteFrom(Cursor& cursor);
// What stands behind WHERE, or nothing if that is not there.
Filter optionalFilter(Cursor& cursor);

// select.cpp
Command select(Cursor& cursor);

}  // namespace velmora::strict
