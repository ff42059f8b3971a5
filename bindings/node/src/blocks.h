// Rows on their way to JavaScript, in blocks: the numbers of many rows in the scratch arrays, and
// all their texts in one string. lib/rows.js makes rows of them, so that no value needs a call.
//
// The first places of the scratch arrays hold what is to be known of the result; the values follow,
// row after row. Null is NaN, a bool 1 or 0, an integer beyond 53 bits Infinity, with the integer
// itself in the array of wide ones, where every integer is; a text is the place where it ends in
// the string, which is where the next one begins.
#pragma once

#include <cstddef>

#include "addon.h"

namespace velmora_node {

enum HeaderPlace : std::size_t {
  rowsInBlock = 0,
  rowsInResult = 1,
  hasNewColumns = 2,
  changeCount = 3,
  identity = 4,   // NaN: there is none
  changesAt = 5,  // NaN: never
  firstValue = 8,
};

void writeInteger(Addon& addon, std::size_t place, std::int64_t integer);
// All of the header but for the rows in the block and the columns.
void writeHeader(Addon& addon, const velmora_result* result);
// A block that begins with a row. Returns the string of its texts.
napi_value writeBlock(const Call& call, const velmora_result* result, std::size_t firstRow);

}  // namespace velmora_node
