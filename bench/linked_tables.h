// Parents and children tied by a link, and the commands that a link makes dearer, for the workloads
// and for the growth report.
#pragma once

#include <string>

#include "data.h"

namespace bench {

extern const Statement refusedParentDelete;  // ?1 id
extern const Statement updateParentByKey;    // ?1 score, ?2 id
extern const Statement deleteParentByKey;    // ?1 id

// As many parents as said, the first half with a child each, linked. SQLite gets the index that its
// checks need to be quick. The suffix goes behind the name of every table.
void fillLinkedTables(Engine& engine, int parentCount, const std::string& suffix = "");

// A child of one of the first half of the parents.
Values childValues(int parentCount, int index);

}  // namespace bench
