// What a database holds, read by commands: its tables with their columns, its links and listeners,
// and the plans of its timed values. Everything that copies or compares databases begins here.
#ifndef VELMORA_TOOLS_COPY_CATALOGUE_H
#define VELMORA_TOOLS_COPY_CATALOGUE_H

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "velmora/velmora.hpp"

namespace tool {

struct TableColumn {
  std::string name;
  std::string type;         // int, ApexInt, long, float, double, bool, string
  std::int64_t length = 0;  // of a string, in bytes
  std::int64_t states = 0;  // the most that a timed value may have; 0: none is timed
  bool isKey = false;
  std::int64_t nextNumber = 0;  // of an ApexInt
  bool operator==(const TableColumn&) const = default;

  bool isText() const { return type == "string"; }
  bool isReal() const { return type == "float" || type == "double"; }
  bool isIdentity() const { return type == "ApexInt"; }
};

struct TableShape {
  std::string name;
  std::int64_t rows = 0;
  std::vector<TableColumn> columns;

  // Null where there is none.
  const TableColumn* key() const;
  const TableColumn* column(const std::string& name) const;
  std::size_t position(const TableColumn& column) const;
  bool mayBeTimed() const;
};

struct LinkShape {
  std::string childTable, childColumn, parentTable, parentColumn;
  auto operator<=>(const LinkShape&) const = default;
};

struct ListenerShape {
  std::string table, event, target, filter;
  auto operator<=>(const ListenerShape&) const = default;
};

struct Catalogue {
  std::vector<TableShape> tables;
  std::vector<LinkShape> links;
  std::vector<ListenerShape> listeners;

  const TableShape* table(const std::string& name) const;
};
Catalogue readCatalogue(velmora::Database& database);

// One state of a timed value; the value is of its column's type.
struct PlannedState {
  velmora::Value value;
  std::int64_t seconds = 0;
  bool operator==(const PlannedState&) const = default;
};

// A timed value as it was given.
struct Plan {
  std::size_t row = 0;     // its place among those that SELECT * gives
  std::size_t column = 0;  // its place in the table
  std::int64_t start = 0;
  bool cycles = false;
  std::vector<PlannedState> states;

  // Seconds of one pass.
  std::int64_t length() const;
  // Whether a command can give the value: the last state lasts as long as the one before it.
  bool canBeWritten() const;
};
// By row, and within it by column.
std::vector<Plan> readPlans(velmora::Database& database, const TableShape& table);

// A row of a table with the plans of its timed values, in the order of columns.
struct PlannedRow {
  velmora::Row row;
  std::size_t number = 0;
  const Plan* begin = nullptr;
  const Plan* end = nullptr;

  // Null where the value is not timed.
  const Plan* plan(std::size_t column) const;
};

// Calls use(PlannedRow) for each row of a table, in the order of SELECT *.
template <typename Use>
void forEachRow(velmora::Database& database, const TableShape& table, Use use) {
  const std::vector<Plan> plans = readPlans(database, table);
  const Plan* next = plans.data();
  const Plan* const last = next + plans.size();
  const velmora::Result rows = database.run("SELECT * FROM " + table.name);
  for (std::size_t i = 0; i < rows.size(); ++i) {
    const Plan* const begin = next;
    while (next != last && next->row == i) ++next;
    use(PlannedRow{rows[i], i, begin, next});
  }
}

}  // namespace tool

#endif
