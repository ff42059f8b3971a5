// Reading one table.
#include <stdexcept>

#include "../clock.h"
#include "../number.h"
#include "database.h"
#include "values.h"

namespace velmora {

ResultValue resultValueOf(const Cell& cell, ValueKind kind, std::int64_t now) {
  const std::string_view text = cell.valueAt(now);
  if (text == missingValue) return Text("NULL");
  switch (kind) {
    case ValueKind::integer:
      return parseInt(text);
    case ValueKind::real:
      return parseFloat(text);
    case ValueKind::boolean:
      return isTrueText(text);
    case ValueKind::text:
    case ValueKind::unknown:
      break;
  }
  return Text(text);
}

ResultSet Database::select(const std::string& tableName, std::vector<std::string> columns,
                           const std::vector<Condition>& conditions) {
  const auto lock = lockForReading(tableName, tableName);
  const Table& table = tables.find(tableName)->second;
  std::vector<std::size_t> positions;
  positions.reserve(columns.size());
  for (const std::string& column : columns) {
    const std::size_t hint = positions.empty() ? 0 : positions.back() + 1;
    positions.push_back(table.columnPosition(column, hint));
    if (positions.back() == noColumn) throw std::runtime_error("Requested column not found");
  }
  const std::vector<std::int32_t> matched = getRequestedRows(conditions, table);
  const std::int64_t now = clock::now();
  ResultSet result;
  result.columns = std::move(columns);
  result.rowsAffected = static_cast<std::int32_t>(matched.size());
  result.values.reserve(matched.size() * positions.size());
  for (const std::int32_t index : matched) {
    const auto cells = table.rows[static_cast<std::size_t>(index)].cells();
    for (const std::size_t position : positions) {
      result.values.push_back(resultValueOf(cells[position], table.kind(position), now));
    }
  }
  return result;
}

}  // namespace velmora
