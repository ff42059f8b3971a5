// Reading two tables joined on equal texts.
//
// The right table's matching rows are hashed by the text of their join column; the left table's
// matching rows look their partners up. Pairs come in the order of the left rows, the partners of
// one left row in the order of the right rows.
#include <bit>
#include <stdexcept>

#include "../clock.h"
#include "database.h"
#include "values.h"

namespace velmora {
namespace {

// A column of one of the two tables.
struct Side {
  bool isRight = false;
  std::size_t column = 0;
};

class Resolver {
 public:
  Resolver(const Table& left, const Table& right) : left_(left), right_(right) {}

  // The column that a reference means; a bare name is looked for in the left table first. `where`
  // names the place of the reference in the message about an unknown prefix.
  Side resolve(const ColumnReference& reference, const char* where) const {
    const std::string& prefix = reference.table;
    if (prefix == left_.tableName) return inTable(false, reference.column);
    if (prefix == right_.tableName) return inTable(true, reference.column);
    if (!prefix.empty()) {
      throw std::runtime_error("Unknown table prefix '" + prefix + "' in " + where + ".");
    }
    const bool isLeft = left_.columnPosition(reference.column) != noColumn;
    return inTable(!isLeft, reference.column);
  }

  Side inTable(bool isRight, const std::string& column) const {
    const std::size_t position = (isRight ? right_ : left_).columnPosition(column);
    if (position == noColumn) {
      throw std::runtime_error("Column '" + column + "' not found in either table.");
    }
    return {isRight, position};
  }

  // Whether a condition is for the right table. One with a prefix is handed to that table whether
  // or not it has the column: it then matches nothing there.
  bool isForRight(const Condition& condition) const {
    if (condition.tableName == left_.tableName) return false;
    if (condition.tableName == right_.tableName) return true;
    return resolve({condition.tableName, condition.column}, "WHERE clause").isRight;
  }

 private:
  const Table& left_;
  const Table& right_;
};

struct JoinColumns {
  std::size_t left = 0;
  std::size_t right = 0;
};

JoinColumns resolveOn(const Resolver& resolver, const ColumnReference& first,
                      const ColumnReference& second, const std::string& leftTable,
                      const std::string& rightTable) {
  constexpr const char* where = "JOIN ON clause";
  const auto sideOf = [&](const ColumnReference& reference) {
    if (reference.table == leftTable) return false;
    if (reference.table == rightTable) return true;
    throw std::runtime_error("Unknown table prefix '" + reference.table + "' in " + where + ".");
  };
  bool firstIsRight = false;
  if (leftTable != rightTable) {
    if (!first.table.empty() && !second.table.empty()) {
      firstIsRight = sideOf(first);
      if (sideOf(second) == firstIsRight) {
        throw std::runtime_error("JOIN ON needs a column of each table");
      }
    } else if (!first.table.empty()) {
      firstIsRight = sideOf(first);
    } else if (!second.table.empty()) {
      firstIsRight = !sideOf(second);
    }
  } else {
    // Both sides are one table: only the prefixes need a look.
    if (!first.table.empty()) sideOf(first);
    if (!second.table.empty()) sideOf(second);
  }
  const std::size_t firstColumn = resolver.inTable(firstIsRight, first.column).column;
  const std::size_t secondColumn = resolver.inTable(!firstIsRight, second.column).column;
  return firstIsRight ? JoinColumns{secondColumn, firstColumn}
                      : JoinColumns{firstColumn, secondColumn};
}

// Rows found by the text of one column. Rows of one bucket are chained in ascending order.
class TextIndex {
 public:
  TextIndex(const Table& table, std::size_t column, const std::vector<std::int32_t>& rows,
            std::int64_t now)
      : rows_(rows),
        texts_(rows.size()),
        next_(rows.size()),
        buckets_(std::bit_ceil(rows.size() * 2 + 1), none) {
    for (std::size_t i = rows.size(); i-- > 0;) {
      texts_[i] = table.rows[static_cast<std::size_t>(rows[i])].cells()[column].valueAt(now);
      std::uint32_t& bucket = bucketOf(texts_[i]);
      next_[i] = bucket;
      bucket = static_cast<std::uint32_t>(i);
    }
  }

  template <typename Use>
  void forEach(std::string_view text, Use use) {
    for (std::uint32_t i = bucketOf(text); i != none; i = next_[i]) {
      if (texts_[i] == text) use(rows_[i]);
    }
  }

 private:
  static constexpr std::uint32_t none = ~std::uint32_t{0};

  std::uint32_t& bucketOf(std::string_view text) {
    return buckets_[TextHash()(text) & (buckets_.size() - 1)];
  }

  const std::vector<std::int32_t>& rows_;
  std::vector<std::string_view> texts_;
  std::vector<std::uint32_t> next_;
  std::vector<std::uint32_t> buckets_;
};

}  // namespace

ResultSet Database::selectJoin(const std::string& leftTable, const std::string& rightTable,
                               const ColumnReference& firstOn, const ColumnReference& secondOn,
                               const std::vector<ColumnReference>& columns,
                               const std::vector<Condition>& conditions) {
  const auto lock = lockForReading(leftTable, rightTable);
  const Table& left = tables.find(leftTable)->second;
  const Table& right = tables.find(rightTable)->second;
  const Resolver resolver(left, right);

  std::vector<Condition> leftConditions;
  std::vector<Condition> rightConditions;
  for (const Condition& condition : conditions) {
    (resolver.isForRight(condition) ? rightConditions : leftConditions).push_back(condition);
  }
  const JoinColumns on = resolveOn(resolver, firstOn, secondOn, leftTable, rightTable);
  ResultSet result = successful("success!");
  std::vector<Side> sides;
  for (const ColumnReference& column : columns) {
    sides.push_back(resolver.resolve(column, "SELECT list"));
    result.columns.push_back((sides.back().isRight ? rightTable : leftTable) + "." + column.column);
  }

  const std::int64_t now = clock::now();
  const std::vector<std::int32_t> leftRows = getRequestedRows(leftConditions, left);
  const std::vector<std::int32_t> rightRows = getRequestedRows(rightConditions, right);
  TextIndex partners(right, on.right, rightRows, now);
  for (const std::int32_t leftIndex : leftRows) {
    const auto leftCells = left.rows[static_cast<std::size_t>(leftIndex)].cells();
    partners.forEach(leftCells[on.left].valueAt(now), [&](std::int32_t rightIndex) {
      const auto rightCells = right.rows[static_cast<std::size_t>(rightIndex)].cells();
      for (const Side& side : sides) {
        const Cell& cell = (side.isRight ? rightCells : leftCells)[side.column];
        const ValueKind kind = (side.isRight ? right : left).kind(side.column);
        result.values.push_back(resultValueOf(cell, kind, now));
      }
      ++result.rowsAffected;
    });
  }
  return result;
}

}  // namespace velmora
