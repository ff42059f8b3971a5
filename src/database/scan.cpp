// Rows by a scan, chunk by chunk: the conditions that can be decided over a column's arrays are,
// one after the other; what they leave open is asked row by row.
#include "matching.h"

namespace velmora {
namespace {

// Appends the rows of a block that match; `open` is what has still to be asked of each row, and all
// of the group of a row that is unsure.
void collect(const Block& block, std::size_t firstRow, Group group, Group open, std::int64_t now,
             std::vector<std::int32_t>& matched) {
  const bool areSure = open.empty() && !block.hasUnsure;
  std::int32_t found[Rows::chunkRows];
  std::size_t count = 0;
  forEachCandidate(block, [&](std::size_t i) {
    const std::size_t row = firstRow + i;
    found[count] = static_cast<std::int32_t>(row);
    const bool isUnsure = block.hasUnsure && block.isUnsure[i] != 0;
    if (areSure || allHold(isUnsure ? group : open, row, now)) ++count;
  });
  matched.insert(matched.end(), found, found + count);
}

}  // namespace

void scanRows(Group group, const Table& table, std::int64_t now,
              std::vector<std::int32_t>& matched) {
  const auto firstOpen = std::find_if_not(group.begin(), group.end(),
                                          [](const Predicate& each) { return each.canDecide(); });
  const auto decided = static_cast<std::size_t>(firstOpen - group.begin());
  if (group.empty()) matched.reserve(table.rowCount());
  Block block;
  const Rows& rows = table.rows();
  for (std::size_t chunk = 0; chunk < rows.chunkCount(); ++chunk) {
    block.size = rows.sizeOf(chunk);
    block.hasUnsure = false;
    if (!rows.hasDeleted(chunk)) {
      std::fill_n(block.mayMatch, block.size, std::uint8_t{1});
    } else {
      const std::uint8_t* const deleted = rows.deleted(chunk);
      for (std::size_t i = 0; i < block.size; ++i) block.mayMatch[i] = deleted[i] ^ std::uint8_t{1};
    }
    for (const Predicate& predicate : group.first(decided)) {
      if (chunk + 1 < rows.chunkCount()) table.values(predicate.column()).prefetchChunk(chunk + 1);
      predicate.decide(table.values(predicate.column()).chunk(chunk, now), block);
    }
    collect(block, chunk * Rows::chunkRows, group, group.subspan(decided), now, matched);
  }
}

}  // namespace velmora
