// Reading one table: the requested columns of the matching rows, printed straight into the answer.
// Which rows match is decided in matching.cpp; how a stored text becomes a JSON value, in
// ../result_set.cpp.
#include <memory_resource>
#include <stdexcept>
#include <vector>

#include "../column_reader.h"
#include "database.h"

namespace velmora {

ResultSet Database::select(const std::string& tableName, const std::vector<std::string>& columns,
                           const std::vector<Condition>& conditions, std::int64_t now,
                           TextBuffer&& spare) {
  const std::unique_lock lock(dbMutex);
  const Table& table = tableOrNew(tableName);
  std::byte memory[16 * sizeof(ColumnReader)];  // enough for a usual table
  std::pmr::monotonic_buffer_resource resource(memory, sizeof memory);
  std::pmr::vector<ColumnReader> readers(&resource);
  std::pmr::vector<std::size_t> positions(&resource);
  positions.reserve(columns.size());
  readers.reserve(columns.size());
  for (const std::string& column : columns) {
    const std::size_t hint = positions.empty() ? 0 : positions.back() + 1;
    positions.push_back(table.columnPosition(column, hint));
    if (positions.back() == noColumn) throw std::runtime_error("Requested column not found");
    readers.emplace_back(table.values(positions.back()), now);
  }
  ResultSet result;
  result.rows.begin(columns, std::move(spare));
  // The row of a key needs no list.
  const std::optional<std::int32_t> keyRow = findRequestedKey(conditions, table, now);
  std::vector<std::int32_t> list;
  if (!keyRow) list = getRequestedRows(conditions, table, now);
  const std::span<const std::int32_t> matched =
      !keyRow ? std::span<const std::int32_t>(list)
              : std::span(&*keyRow, *keyRow == PrimaryKeyMap::noRow ? 0 : 1);
  result.rowsAffected = static_cast<std::int32_t>(matched.size());
  result.rows.expectRows(matched.size());
  // Of values those of a row to come are asked for, of long texts their bytes when the text is
  // there.
  constexpr std::size_t stepsToBytes = 6;
  constexpr std::size_t stepsToValue = 24;
  for (std::size_t i = 0; i < matched.size(); ++i) {
    if (i + stepsToValue < matched.size()) {
      const auto far = static_cast<std::size_t>(matched[i + stepsToValue]);
      const auto near = static_cast<std::size_t>(matched[i + stepsToBytes]);
      for (const ColumnReader& reader : readers) {
        reader.prefetch(far);
        reader.prefetchBytes(near);
      }
    }
    const auto row = static_cast<std::size_t>(matched[i]);
    for (std::size_t c = 0; c < readers.size(); ++c) {
      atPlace(table, positions[c], row, [&] { readers[c].print(row, result.rows); });
    }
  }
  return result;
}

}  // namespace velmora
