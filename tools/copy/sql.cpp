// See sql.h.
#include "copy/sql.h"

#include <algorithm>
#include <vector>

#include "copy/literals.h"
#include "copy/sql_tables.h"
#include "failure.h"
#include "output/text.h"

namespace tool {
namespace {

constexpr std::string_view explanation =
    "-- Texts are compared by bytes. Of a table t with timed values, \"t$rows\" has the rows, in "
    "which a timed\n"
    "-- value is null, and \"t$c\" the states of column c: from the second start_s on, a state "
    "holds from\n"
    "-- from_s up to before until_s, for ever where that is null; what cycles begins again after "
    "pass_s.\n"
    "-- The view t has the values in force at the second of \"velmora$now\": that of the "
    "transaction's or\n"
    "-- statement's beginning, or what stands in \"velmora$clock\", so that the same queries can "
    "be "
    "asked of\n"
    "-- another second: BEGIN; INSERT INTO \"velmora$clock\" VALUES (1900000000); SELECT ...; "
    "ROLLBACK;\n";

class SqlWriter {
 public:
  SqlWriter(velmora::Database& database, Dialect dialect, const ShardColumns& shards,
            const Sink& sink)
      : database_(database), catalogue_(readCatalogue(database)), dialect_(dialect), sink_(sink) {
    checkShards(shards);
    for (const TableShape& table : catalogue_.tables) {
      const auto shard = shards.find(table.name);
      tables_.emplace_back(table, dialect, shard == shards.end() ? "" : shard->second);
    }
  }

  void write();

 private:
  void checkShards(const ShardColumns& shards);
  const SqlTable& table(const std::string& name) const;
  bool isKept(const LinkShape& link) const;
  std::string reference(const LinkShape& link) const;
  std::string linksOf(const TableShape& table) const;
  void writeNow();
  void writeTable(const SqlTable& table);
  void writeLinks();
  void writeChecks(std::size_t number, const LinkShape& link);
  void writeListeners();
  void writeShards();

  velmora::Database& database_;
  Catalogue catalogue_;
  Dialect dialect_;
  const Sink& sink_;
  std::vector<SqlTable> tables_;
};

void SqlWriter::checkShards(const ShardColumns& shards) {
  for (const auto& [name, columnName] : shards) {
    const std::string shown = "--shard " + visible(name + "=" + columnName) + ": ";
    const TableShape* const table = catalogue_.table(name);
    if (table == nullptr) throw Failure(exitWrongUse, shown + "there is no such table");
    const TableColumn* const column = table->column(columnName);
    if (column == nullptr) throw Failure(exitWrongUse, shown + "there is no such column");
    if (column->states > 0) {
      throw Failure(exitWrongUse, shown + "a row with a timed value would have to move");
    }
    const velmora::Result nulls =
        database_.run("SELECT COUNT(*) FROM " + name + " WHERE " + columnName + " IS NULL");
    if (nulls[0].at(0) != velmora::Value(std::int64_t{0})) {
      throw Failure(exitWrongUse, shown + "there are rows in which it is null");
    }
  }
}

const SqlTable& SqlWriter::table(const std::string& name) const {
  return tables_[static_cast<std::size_t>(catalogue_.table(name) - catalogue_.tables.data())];
}

// Rows on several nodes can only refer to those on their own, or to what every node has.
bool SqlWriter::isKept(const LinkShape& link) const {
  const SqlTable& parent = table(link.parentTable);
  return !parent.isSharded() || (parent.isShardedBy(link.parentColumn) &&
                                 table(link.childTable).isShardedBy(link.childColumn));
}

std::string SqlWriter::reference(const LinkShape& link) const {
  return "FOREIGN KEY (" + quotedName(link.childColumn) + ") REFERENCES " +
         table(link.parentTable).rowsName() + " (" + quotedName(link.parentColumn) + ")";
}

std::string SqlWriter::linksOf(const TableShape& table) const {
  std::string text;
  for (const LinkShape& link : catalogue_.links) {
    if (link.childTable == table.name) text += ",\n  " + reference(link);
  }
  return text;
}

void SqlWriter::write() {
  const bool isSqlite = dialect_ == Dialect::sqlite;
  sink_(std::string("-- A velmora database as SQL for ") +
        (isSqlite ? "SQLite 3.38 or later.\n" : "PostgreSQL 15 or later.\n"));
  sink_(explanation);
  if (!isSqlite) sink_("SET client_encoding = 'UTF8';\nSET standard_conforming_strings = on;\n");
  sink_("BEGIN;\n");
  writeNow();
  for (const SqlTable& each : tables_) writeTable(each);
  writeLinks();
  writeListeners();
  // Without, the views are planned for as if the tables were large.
  sink_("COMMIT;\nANALYZE;\n");
  writeShards();
}

void SqlWriter::writeNow() {
  const bool isSqlite = dialect_ == Dialect::sqlite;
  sink_(std::string("CREATE TABLE \"velmora$clock\" (now_s ") + (isSqlite ? "integer" : "bigint") +
        " NOT NULL);\nCREATE VIEW " + nowView +
        " AS SELECT coalesce((SELECT max(now_s) FROM \"velmora$clock\"), " +
        (isSqlite ? "unixepoch()" : "floor(extract(epoch FROM now()))::bigint") + ") AS now_s;\n");
}

void SqlWriter::writeTable(const SqlTable& each) {
  sink_("\n" + each.createRows(dialect_ == Dialect::sqlite ? linksOf(each.shape()) : ""));
  if (each.shape().mayBeTimed()) {
    for (const TableColumn& column : each.shape().columns) {
      if (column.states > 0) sink_(each.createStates(column));
    }
    sink_(each.createView());
  }
  each.writeRows(database_, sink_);
  sink_(each.numbering());
}

void SqlWriter::writeLinks() {
  for (std::size_t i = 0; i < catalogue_.links.size(); ++i) {
    const LinkShape& link = catalogue_.links[i];
    if (dialect_ == Dialect::postgres && isKept(link)) {
      sink_("\nALTER TABLE " + table(link.childTable).rowsName() + " ADD " + reference(link) +
            ";\n");
    }
    writeChecks(i + 1, link);
  }
}

// Views of the rows and states that break what no foreign key can hold.
void SqlWriter::writeChecks(std::size_t number, const LinkShape& link) {
  const SqlTable& child = table(link.childTable);
  const TableColumn& column = *child.shape().column(link.childColumn);
  const std::string name = "velmora$link" + std::to_string(number);
  const auto missing = [&](const std::string& value) {
    return "NOT EXISTS (SELECT 1 FROM " + table(link.parentTable).rowsName() + " p WHERE p." +
           quotedName(link.parentColumn) + " = " + value + ");\n";
  };
  if (!isKept(link)) {
    sink_("\n-- No foreign key across nodes; rows in this view have no parent: " +
          linkCommand(link) + "\nCREATE VIEW " + quotedName(name + "$rows") + " AS SELECT * FROM " +
          child.rowsName() + " c\nWHERE c." + quotedName(column.name) + " IS NOT NULL AND " +
          missing("c." + quotedName(column.name)));
  }
  if (column.states == 0) return;
  sink_("\n-- The link of states to come; those in this view have no parent: " + linkCommand(link) +
        "\nCREATE VIEW " + quotedName(name + "$states") + " AS SELECT s.* FROM " +
        child.statesName(column) + " s, " + nowView +
        " n\nWHERE (s.cycles OR s.until_s IS NULL OR n.now_s < s.start_s + s.until_s)\nAND " +
        missing("s.value"));
}

void SqlWriter::writeListeners() {
  for (const ListenerShape& listener : catalogue_.listeners) {
    sink_("-- Not kept: " + visible(listenCommand(listener)) + "\n");
  }
}

// Does nothing where the functions are not there that distribute tables.
void SqlWriter::writeShards() {
  const bool isAny = std::any_of(tables_.begin(), tables_.end(),
                                 [](const SqlTable& each) { return each.isSharded(); });
  if (!isAny) return;
  sink_(
      "\nDO $$ BEGIN\n"
      "IF EXISTS (SELECT FROM pg_proc WHERE proname = 'create_distributed_table') THEN\n");
  const auto perform = [&](const std::string& name, const std::string& shard) {
    sink_("  PERFORM " +
          std::string(shard.empty() ? "create_reference_table(" : "create_distributed_table(") +
          quotedText(name) + (shard.empty() ? "" : ", " + quotedText(shard)) + ");\n");
  };
  perform("\"velmora$clock\"", "");
  // What others refer to has to be everywhere before them.
  for (const bool isSharded : {false, true}) {
    for (const SqlTable& each : tables_) {
      if (each.isSharded() != isSharded) continue;
      const std::string shard = isSharded ? each.shardColumn() : "";
      perform(each.rowsName(), shard);
      for (const TableColumn& column : each.shape().columns) {
        if (column.states > 0) perform(each.statesName(column), shard);
      }
    }
  }
  sink_("END IF;\nEND $$;\n");
}

}  // namespace

void writeSql(velmora::Database& database, Dialect dialect, const ShardColumns& shards,
              const Sink& sink) {
  if (dialect == Dialect::sqlite && !shards.empty()) {
    throw Failure(exitWrongUse, "--shard goes with --sql postgres");
  }
  SqlWriter(database, dialect, shards, sink).write();
}

}  // namespace tool
