// The ways to find rows: by the key map, or by a scan. What a condition says of a row is told in
// predicate.h.
#pragma once

#include <cstdint>
#include <vector>

#include "predicate.h"

namespace velmora {

// Each appends the live rows that satisfy a group of conditions joined by &&, ascending. Throws
// what Predicate::holds throws for the first row, and in it the first condition, that does not
// convert.

// For a group with a condition on the primary key (key_range.cpp).
bool narrowsKey(Group group, const Table& table);
void matchKeyRange(Group group, const Table& table, std::int64_t now,
                   std::vector<std::int32_t>& matched);
// For any group (scan.cpp).
void scanRows(Group group, const Table& table, std::int64_t now,
              std::vector<std::int32_t>& matched);

}  // namespace velmora
