// Rows by a scan, chunk by chunk: the conditions that can be decided over a column's arrays are,
// one after the other; what they leave open is asked row by row.
#include "matching.h"

namespace velmora {
namespace {

// A group's conditions: those that are decided over a chunk's arrays, and what has still to be
// asked of each row.
struct Parts {
  Group all;
  Group decided;
  Group open;
};

// Appends the rows of a chunk that match; of a row that is unsure the whole group has to be asked.
void collect(Block& block, std::size_t chunk, const Parts& group, const Table& table,
             std::int64_t now, std::vector<std::int32_t>& matched) {
  for (const Predicate& predicate : group.decided) {
    predicate.settle(table.values(predicate.column()).chunk(chunk, now), block);
  }
  if (!group.open.empty() || block.hasUnsure) {
    block.removeIf([&](std::size_t place) {
      const std::size_t row = chunk * Rows::chunkRows + place;
      return !allHold(block.isSure(place) ? group.open : group.all, row, now);
    });
  }
  std::int32_t found[Rows::chunkRows];
  const auto first = static_cast<std::int32_t>(chunk * Rows::chunkRows);
  for (std::size_t i = 0; i < block.count; ++i) found[i] = first + block.places[i];
  if (matched.capacity() - matched.size() < block.count) {
    // The chunks to come may have as many; memory that is not used costs nothing.
    const std::size_t expected = block.count * (table.rows().chunkCount() - chunk);
    matched.reserve(std::max(matched.size() + expected, 2 * matched.capacity()));
  }
  matched.insert(matched.end(), found, found + block.count);
}

// Lists the rows of a chunk that are not deleted and of which no condition tells by the arrays
// alone that they do not match.
void decide(Block& block, std::size_t chunk, const Parts& group, const Table& table,
            std::int64_t now) {
  const Rows& rows = table.rows();
  block.size = rows.sizeOf(chunk);
  block.hasUnsure = false;
  if (!rows.hasDeleted(chunk)) {
    std::fill_n(block.mayMatch, block.size, std::uint8_t{1});
  } else {
    const std::uint8_t* const deleted = rows.deleted(chunk);
    for (std::size_t i = 0; i < block.size; ++i) block.mayMatch[i] = deleted[i] ^ std::uint8_t{1};
  }
  for (const Predicate& predicate : group.decided) {
    const ColumnValues& values = table.values(predicate.column());
    block.next = chunk + 1 < rows.chunkCount() ? values.readAhead(chunk + 1, now) : ReadAhead();
    predicate.decide(values.chunk(chunk, now), block);
  }
  block.count = placesOf(block.mayMatch, block.size, block.places);
  for (const Predicate& predicate : group.decided) {
    predicate.prefetch(table.values(predicate.column()).chunk(chunk), block);
  }
}

}  // namespace

void scanRows(Group group, const Table& table, std::int64_t now,
              std::vector<std::int32_t>& matched) {
  const auto firstOpen = std::find_if_not(group.begin(), group.end(),
                                          [](const Predicate& each) { return each.canDecide(); });
  const auto decided = static_cast<std::size_t>(firstOpen - group.begin());
  const Parts parts{group, group.first(decided), group.subspan(decided)};
  if (group.empty()) matched.reserve(table.rowCount());
  // A chunk's rows are collected when the next one is decided: what decide asks for has come then.
  Block blocks[2];
  const std::size_t count = table.rows().chunkCount();
  for (std::size_t chunk = 0; chunk <= count; ++chunk) {
    if (chunk < count) decide(blocks[chunk % 2], chunk, parts, table, now);
    if (chunk > 0) collect(blocks[(chunk - 1) % 2], chunk - 1, parts, table, now, matched);
  }
}

}  // namespace velmora
