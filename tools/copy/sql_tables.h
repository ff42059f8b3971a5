// For sql.cpp: how one table stands in SQL.
#ifndef VELMORA_TOOLS_COPY_SQL_TABLES_H
#define VELMORA_TOOLS_COPY_SQL_TABLES_H

#include <string>

#include "copy/catalogue.h"
#include "copy/sql.h"

namespace tool {

// No name of the language has a "$" in it, so what is added here collides with none.
inline const std::string rowNumber = "\"row$\"";
inline const std::string nowView = "\"velmora$now\"";

std::string quotedName(const std::string& name);

class SqlTable {
 public:
  SqlTable(const TableShape& table, Dialect dialect, const std::string& shardColumn)
      : table_(table), dialect_(dialect), shard_(table.column(shardColumn)) {}

  const TableShape& shape() const { return table_; }
  bool isSharded() const { return shard_ != nullptr; }
  bool isShardedBy(const std::string& column) const {
    return isSharded() && shard_->name == column;
  }
  std::string shardColumn() const { return shard_->name; }
  // Where the rows are: the table itself, or what its view reads.
  std::string rowsName() const;
  std::string statesName(const TableColumn& column) const;
  // The column that tells rows apart; "row$" where there is no identity column.
  std::string rowColumn() const;
  bool hasRowNumber() const { return table_.mayBeTimed() && identity() == nullptr; }

  // CREATE TABLE with the links of SQLite, which knows no later ones.
  std::string createRows(const std::string& links) const;
  std::string createStates(const TableColumn& column) const;
  std::string createView() const;

  void writeRows(velmora::Database& database, const Sink& sink) const;
  // The next identity number.
  std::string numbering() const;

 private:
  const TableColumn* identity() const;
  std::string typeOf(const TableColumn& column) const;
  std::string identityType(const char* type, std::int64_t next) const;
  std::string columnOf(const TableColumn& column) const;
  std::string primaryKey() const;
  std::string sqlLiteral(const velmora::Value& value, const TableColumn& column) const;
  std::string rowValues(const PlannedRow& row) const;
  std::string stateValues(const PlannedRow& row, const Plan& plan) const;
  std::string rowId(const PlannedRow& row) const;

  const TableShape& table_;
  Dialect dialect_;
  const TableColumn* shard_;  // or null
};

}  // namespace tool

#endif
