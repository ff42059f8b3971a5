// CREATE TABLE, DROP TABLE, LINK, UNLINK, LISTEN, UNLISTEN; see changes.h.
#include <algorithm>
#include <memory>
#include <set>
#include <stdexcept>
#include <string>

#include "../failure.h"
#include "../query/query.h"
#include "../strict/render.h"
#include "../typed_value.h"
#include "changes.h"

namespace velmora {
namespace {

std::string storedType(const std::string& type) {
  if (type == "long") return std::string(longType);
  if (type == "double") return std::string(doubleType);
  return type;
}

[[noreturn]] void refuseName(Code code, const std::string& text, const strict::Name& name) {
  throw Failure(code, text).of(name.text).at(name.offset);
}

void checkDefinitions(const strict::CreateTable& command) {
  std::set<std::string_view> names;
  bool hasIdentity = false;
  for (const strict::ColumnDefinition& column : command.columns) {
    if (!names.insert(column.name.text).second) {
      throw Failure(Code::syntax, "Column '" + column.name.text + "' is defined twice")
          .of(command.table.text, column.name.text)
          .at(column.name.offset);
    }
    if (column.type.text != "ApexInt") continue;
    if (hasIdentity) {
      throw Failure(Code::syntax, "A table can only have one ApexInt column")
          .of(command.table.text, column.name.text)
          .at(column.type.offset);
    }
    hasIdentity = true;
  }
}

void checkLinkable(const Table& child, std::size_t childColumn, const Table& parent,
                   std::size_t parentColumn, const strict::Link& command) {
  const ValueKind childKind = child.kind(childColumn);
  const ValueKind parentKind = parent.kind(parentColumn);
  const auto refuse = [&](const std::string& text) {
    throw Failure(Code::type, text)
        .of(child.tableName, child.columns[childColumn].name)
        .at(command.childColumn.offset);
  };
  if (childKind != parentKind) refuse("Columns of different types cannot be linked");
  if (childKind != ValueKind::integer && childKind != ValueKind::text) {
    refuse("Only int, ApexInt and string columns can be linked");
  }
}

std::string placeOf(const std::string& table, const std::string& column) {
  return "'" + table + "." + column + "'";
}

Condition conditionOf(const strict::Comparison& comparison) {
  static constexpr const char* operators[] = {"=",  "!=", "<",       ">",
                                              "<=", ">=", "IS NULL", "IS NOT NULL"};
  Condition condition;
  condition.tableName = comparison.column.table.text;
  condition.column = comparison.column.column.text;
  condition.op = operators[static_cast<std::size_t>(comparison.op)];
  const Value& value = comparison.operand.value;
  const auto* const text = std::get_if<std::string>(&value);
  if (text != nullptr) {
    condition.value = *text;
  } else if (!isNull(value)) {
    condition.value = strict::literal(value);
  }
  condition.logic = comparison.beginsGroup ? 'o' : 'a';
  return condition;
}

}  // namespace

void Changes::run(const strict::CreateTable& command, const RunContext& /*context*/,
                  Answer& /*answer*/) {
  const std::string& name = command.table.text;
  if (database_->tables.contains(name)) {
    refuseName(Code::exists, "Table '" + name + "' exists", command.table);
  }
  checkDefinitions(command);
  std::vector<Column> columns;
  std::string identity;
  for (const strict::ColumnDefinition& column : command.columns) {
    columns.push_back(
        {column.name.text, storedType(column.type.text), column.states, column.length});
    if (column.type.text == "ApexInt") identity = column.name.text;
  }
  Table table(name, std::move(columns));
  if (!identity.empty()) table.setUpPrimaryKeyMap(identity, 0);  // no rows, at any second
  undo_.noteCatalogue([this, name] { database_->tables.erase(name); });
  database_->tables.emplace(name, std::move(table));
}

bool Changes::isParent(const std::string& table) const {
  return std::any_of(database_->tables.begin(), database_->tables.end(), [&](const auto& entry) {
    const auto refersTo = [&](const LinkRecord& link) { return link.parentTable == table; };
    return entry.first != table &&
           std::any_of(entry.second.links.begin(), entry.second.links.end(), refersTo);
  });
}

void Changes::run(const strict::DropTable& command, const RunContext& context, Answer& /*answer*/) {
  struct Dropped {
    Tables::node_type table;
    std::map<std::string, std::set<Listener>, std::less<>>::node_type listeners;
  };
  Table& table = tableOf(command.table);
  const std::string& name = command.table.text;
  if (isParent(name)) {
    refuseName(Code::restricted, "Tables are linked to table '" + name + "'", command.table);
  }
  const auto dropped = std::make_shared<Dropped>();
  while (!table.links.empty()) unlink(table, LinkRecord(table.links.back()), context.now);
  undo_.noteCatalogue([this, dropped, name] {
    if (dropped->table.empty()) return;
    database_->tables.insert(std::move(dropped->table));
    // Another table of that name may have had listeners meanwhile.
    database_->listeners.erase(name);
    if (!dropped->listeners.empty()) database_->listeners.insert(std::move(dropped->listeners));
  });
  dropped->table = database_->tables.extract(database_->tables.find(name));
  dropped->listeners = database_->listeners.extract(name);
}

void Changes::run(const strict::Link& command, const RunContext& context, Answer& /*answer*/) {
  Table& child = tableOf(command.childTable);
  Table& parent = tableOf(command.parentTable);
  const std::size_t childColumn = columnOf(child, command.childColumn);
  const std::size_t parentColumn = columnOf(parent, command.parentColumn);
  checkLinkable(child, childColumn, parent, parentColumn, command);
  const LinkRecord link{command.childColumn.text, parent.tableName, command.parentColumn.text};
  if (std::find(child.links.begin(), child.links.end(), link) != child.links.end()) {
    refuseName(Code::exists,
               "Column " + placeOf(child.tableName, link.column) + " is linked to " +
                   placeOf(link.parentTable, link.parentColumn),
               command.childTable);
  }
  undo_.noteCatalogue([this, &child, link, now = context.now] { forgetLink(child, link, now); });
  makeKey(parent, parentColumn, command.parentColumn, context.now);
  if (!database_->isReplaying) {
    refuseOrphans(child, childColumn, parent, command.childColumn.offset, context.now);
  }
  try {
    database_->link(child.tableName, link.column, link.parentTable, link.parentColumn, context.now);
  } catch (const Failure&) {
    throw;
  } catch (const std::runtime_error& error) {
    refuseName(Code::exists, error.what(), command.childTable);
  }
}

void Changes::makeKey(Table& parent, std::size_t column, const strict::Name& name,
                      std::int64_t now) {
  const std::string& columnName = parent.columns[column].name;
  if (parent.primaryKeyColumn == columnName) return;
  const auto refuse = [&](Code code, const std::string& text) {
    throw Failure(code, text).of(parent.tableName, columnName).at(name.offset);
  };
  if (parent.hasPrimaryKey()) {
    refuse(Code::exists, "Table '" + parent.tableName + "' has another key, column '" +
                             parent.primaryKeyColumn + "'");
  }
  const ColumnValues& values = parent.values(column);
  for (std::size_t row = 0; row < parent.rowCount() && !database_->isReplaying; ++row) {
    if (!parent.isLive(row)) continue;
    const bool isNull = values.value(row, now).type == AnswerType::null;
    if (!isNull && values.rule(row) == nullptr) continue;
    refuse(Code::type, "Column " + placeOf(parent.tableName, columnName) + " has rows that are " +
                           (isNull ? "NULL" : "timed") + ", which no key can be");
  }
  try {
    parent.setUpPrimaryKeyMap(columnName, now, KeyRule::liveFirst);
  } catch (const std::runtime_error& error) {
    parent.dropPrimaryKey();
    refuse(Code::duplicate, error.what());
  } catch (...) {
    parent.dropPrimaryKey();
    throw;
  }
}

void Changes::refuseOrphans(const Table& child, std::size_t childColumn, const Table& parent,
                            std::size_t offset, std::int64_t now) {
  constexpr std::size_t mostNamed = 10;
  std::size_t count = 0;
  std::vector<std::string> named;
  const ColumnValues& values = child.values(childColumn);
  for (std::size_t row = 0; row < child.rowCount(); ++row) {
    if (!child.isLive(row)) continue;
    std::string missing;
    values.forEachComingText(row, now, [&](std::string_view key) {
      if (!missing.empty() || key == missingValue) return;
      if (parent.findLive(key, now) == PrimaryKeyMap::noRow) missing = "'" + printable(key) + "'";
    });
    if (missing.empty()) continue;
    ++count;
    const bool isNamed = std::find(named.begin(), named.end(), missing) != named.end();
    if (!isNamed && named.size() < mostNamed) named.push_back(missing);
  }
  if (count == 0) return;
  std::string text = std::to_string(count) + (count == 1 ? " row has" : " rows have") +
                     " no parent in table '" + parent.tableName + "': ";
  for (std::size_t i = 0; i < named.size(); ++i) text += (i == 0 ? "" : ", ") + named[i];
  throw Failure(Code::missingParent, text)
      .of(child.tableName, child.columns[childColumn].name)
      .at(offset);
}

void Changes::run(const strict::Unlink& command, const RunContext& context, Answer& /*answer*/) {
  Table& child = tableOf(command.childTable);
  const LinkRecord link{command.childColumn.text, command.parentTable.text,
                        command.parentColumn.text};
  if (std::find(child.links.begin(), child.links.end(), link) == child.links.end()) {
    refuseName(Code::notFound,
               "Column " + placeOf(child.tableName, link.column) + " is not linked to " +
                   placeOf(link.parentTable, link.parentColumn),
               command.childTable);
  }
  unlink(child, link, context.now);
}

void Changes::unlink(Table& child, const LinkRecord& link, std::int64_t now) {
  undo_.noteCatalogue([this, &child, link, before = child.links, now] {
    database_->link(child.tableName, link.column, link.parentTable, link.parentColumn, now);
    child.links = before;
  });
  forgetLink(child, link, now);
}

void Changes::forgetLink(Table& child, const LinkRecord& link, std::int64_t now) {
  database_->forgetChildTable(child);
  std::erase(child.links, link);
  database_->linkRows(child, now);
  forgetKey(link);
}

// A key that only the link has made goes with it.
void Changes::forgetKey(const LinkRecord& link) {
  const auto parent = database_->tables.find(link.parentTable);
  if (parent == database_->tables.end()) return;
  Table& table = parent->second;
  const std::size_t column = table.columnPosition(link.parentColumn);
  const bool isMade = table.primaryKeyColumn == link.parentColumn && column != noColumn &&
                      !isNumbered(table.columns[column]);
  const auto refersToKey = [&](const LinkRecord& other) {
    return other.parentTable == link.parentTable;
  };
  const bool isWanted =
      std::any_of(database_->tables.begin(), database_->tables.end(), [&](const auto& entry) {
        return std::any_of(entry.second.links.begin(), entry.second.links.end(), refersToKey);
      });
  if (isMade && !isWanted) table.dropPrimaryKey();
}

void Changes::run(const strict::Listen& command, const RunContext& context, Answer& answer) {
  const Table& table = tableOf(command.table);
  Listener listener{command.table.text, command.event.text, command.target, {}};
  strict::Filter filter = command.filter;
  for (strict::Comparison& comparison : filter) {
    comparison.operand.value = Value(valueOf(comparison.operand, context.values));
    comparison.operand.parameter = -1;
    listener.conditions.push_back(conditionOf(comparison));
  }
  if (!database_->isReplaying) {
    const RowFilter checked(filter, table);  // throws for what it does not know
  }
  if (Storage::asStored(listener) != listener) {
    refuseName(Code::range, "The listener has texts that are too long", command.table);
  }
  std::set<Listener>& known = database_->listeners[listener.tableName];
  if (known.contains(listener)) return;
  undo_.noteCatalogue(
      [this, listener] { database_->listeners[listener.tableName].erase(listener); });
  known.insert(listener);
  answer.rowsAffected = 1;
}

void Changes::run(const strict::Unlisten& command, const RunContext& /*context*/, Answer& answer) {
  tableOf(command.table);
  std::set<Listener>& known = database_->listeners[command.table.text];
  const auto isMeant = [&](const Listener& listener) {
    return listener.event == command.event.text && listener.target == command.target;
  };
  const auto count = std::count_if(known.begin(), known.end(), isMeant);
  if (count == 0) {
    refuseName(Code::notFound, "Table '" + command.table.text + "' has no such listener",
               command.table);
  }
  undo_.noteCatalogue([&known, before = known] { known = before; });
  std::erase_if(known, isMeant);
  answer.rowsAffected = count;
}

}  // namespace velmora
