// See commands.h. A command has one clock, so a row whose timed values start at several seconds
// takes several: it is inserted with a value that no other row has, by which the others find it.
#include "copy/commands.h"

#include <algorithm>
#include <charconv>
#include <set>

#include "copy/catalogue.h"
#include "copy/literals.h"

namespace tool {
namespace {

// The most rows that are made only to be deleted again, for the numbers that they use up.
constexpr std::int64_t mostPlaceholders = 10'000'000;

using Values = std::set<velmora::Value>;

// All values that a column has or can come to have.
Values valuesOf(velmora::Database& database, const TableShape& table, const TableColumn& column) {
  Values values;
  for (const velmora::Row& row : database.run("SELECT " + column.name + " FROM " + table.name)) {
    values.insert(row.at(0));
  }
  for (const Plan& plan : readPlans(database, table)) {
    if (plan.column != table.position(column)) continue;
    for (const PlannedState& state : plan.states) values.insert(state.value);
  }
  return values;
}

// One that is not among them.
std::optional<velmora::Value> freeValue(const Values& values, const TableColumn& column) {
  for (std::int64_t number = 0; number <= static_cast<std::int64_t>(values.size()); ++number) {
    velmora::Value candidate = number;
    if (column.isReal()) candidate = static_cast<double>(number);
    if (column.isText()) candidate = number == 0 ? "" : std::to_string(number);
    if (column.isText() &&
        std::get<std::string>(candidate).size() > static_cast<std::size_t>(column.length)) {
      return std::nullopt;
    }
    if (!values.contains(candidate)) return candidate;
  }
  return std::nullopt;
}

// By what a row is found again when a further command has to give it a value.
struct Handle {
  const TableColumn* column = nullptr;  // null: there is none
  velmora::Value placeholder;           // until the row has its own value; of an ApexInt none
};

Handle handleOf(velmora::Database& database, const TableShape& table) {
  const TableColumn* const key = table.key();
  if (key != nullptr && key->isIdentity()) return {key, {}};
  for (const TableColumn& column : table.columns) {
    if (column.type == "bool") continue;
    const auto value = freeValue(valuesOf(database, table, column), column);
    if (value) return {&column, *value};
  }
  return {};
}

bool hasSeveralStarts(const PlannedRow& row) {
  return std::any_of(row.begin, row.end,
                     [&](const Plan& plan) { return plan.start != row.begin->start; });
}

class TableWriter {
 public:
  TableWriter(velmora::Database& database, const TableShape& table, const Sink& sink)
      : database_(database), table_(table), sink_(sink) {}

  void write();
  // What write does not keep.
  std::vector<std::string> losses();

 private:
  bool needsHandle();
  void writeRow(const PlannedRow& row);
  void writeInParts(const PlannedRow& row);
  void writeInsert(const std::string& assignments, const Plan* plan);
  void writeUpdate(std::size_t column, const PlannedRow& row, const std::string& filter);
  std::string valueText(std::size_t column, const PlannedRow& row) const;
  void skipTo(std::int64_t number);
  void deleteSkipped();

  const TableColumn* identity() const {
    const TableColumn* const key = table_.key();
    return key != nullptr && key->isIdentity() ? key : nullptr;
  }

  velmora::Database& database_;
  const TableShape& table_;
  const Sink& sink_;
  Handle handle_;
  std::int64_t nextNumber_ = 1;
  std::vector<std::pair<std::int64_t, std::int64_t>> skipped_;  // numbers from, to
};

bool TableWriter::needsHandle() {
  bool isNeeded = false;
  forEachRow(database_, table_,
             [&](const PlannedRow& row) { isNeeded = isNeeded || hasSeveralStarts(row); });
  return isNeeded;
}

std::vector<std::string> TableWriter::losses() {
  std::vector<std::string> losses;
  const auto lose = [&](const PlannedRow& row, const Plan& plan, const char* why) {
    losses.push_back("the plan of " + table_.name + "." + table_.columns[plan.column].name +
                     " in row " + std::to_string(row.number) + ", " + why);
  };
  const bool hasHandle = !table_.mayBeTimed() || handleOf(database_, table_).column != nullptr;
  forEachRow(database_, table_, [&](const PlannedRow& row) {
    for (const Plan* plan = row.begin; plan != row.end; ++plan) {
      if (!plan->canBeWritten()) lose(row, *plan, "which the language cannot say");
      if (!hasHandle && plan->start != row.begin->start) {
        lose(row, *plan, "which no command can give to this row alone");
      }
    }
  });
  const TableColumn* const numbered = identity();
  if (numbered != nullptr && numbered->nextNumber - table_.rows > mostPlaceholders) {
    losses.push_back("the numbers of " + table_.name + "." + numbered->name +
                     ", of which too many are not in use");
  }
  return losses;
}

void TableWriter::write() {
  if (table_.mayBeTimed() && needsHandle()) handle_ = handleOf(database_, table_);
  forEachRow(database_, table_, [&](const PlannedRow& row) { writeRow(row); });
  if (identity() == nullptr) return;
  skipTo(identity()->nextNumber);
  deleteSkipped();
}

std::string TableWriter::valueText(std::size_t column, const PlannedRow& row) const {
  const Plan* const plan = row.plan(column);
  const bool isTimed = plan != nullptr && plan->canBeWritten();
  return isTimed ? literal(*plan, table_.columns[column])
                 : literal(row.row.at(column), table_.columns[column]);
}

void TableWriter::writeRow(const PlannedRow& row) {
  if (identity() != nullptr) {
    skipTo(std::get<std::int64_t>(row.row.at(table_.position(*identity()))));
    ++nextNumber_;
  }
  if (hasSeveralStarts(row)) return writeInParts(row);
  std::string assignments;
  for (std::size_t i = 0; i < table_.columns.size(); ++i) {
    if (table_.columns[i].isIdentity()) continue;
    assignments += " " + table_.columns[i].name + " = " + valueText(i, row);
  }
  writeInsert(assignments, row.begin == row.end ? nullptr : row.begin);
}

void TableWriter::writeInParts(const PlannedRow& row) {
  const bool isNumbered = handle_.column != nullptr && handle_.column->isIdentity();
  std::string assignments;
  for (std::size_t i = 0; i < table_.columns.size(); ++i) {
    const TableColumn& column = table_.columns[i];
    if (column.isIdentity()) continue;
    const Plan* const plan = row.plan(i);
    const bool isPlaceholder = &column == handle_.column && !isNumbered;
    const bool comesLater = plan != nullptr && plan->start != row.begin->start;
    if (comesLater && !isPlaceholder && handle_.column != nullptr) continue;
    assignments += " " + column.name + " = ";
    if (isPlaceholder) {
      assignments += literal(handle_.placeholder, column);
    } else {
      assignments += comesLater ? literal(row.row.at(i), column) : valueText(i, row);
    }
  }
  writeInsert(assignments, row.begin);
  if (handle_.column == nullptr) return;
  const velmora::Value own =
      isNumbered ? row.row.at(table_.position(*handle_.column)) : handle_.placeholder;
  const std::string filter = handle_.column->name + " = " + literal(own, *handle_.column);
  for (const Plan* plan = row.begin; plan != row.end; ++plan) {
    const bool isHandle = &table_.columns[plan->column] == handle_.column;
    if (plan->start != row.begin->start && !isHandle) writeUpdate(plan->column, row, filter);
  }
  if (!isNumbered) writeUpdate(table_.position(*handle_.column), row, filter);
}

void TableWriter::writeInsert(const std::string& assignments, const Plan* plan) {
  sink_("INSERT INTO " + table_.name + assignments);
  if (plan != nullptr) sink_(" #TIME# " + std::to_string(plan->start));
  sink_(";\n");
}

void TableWriter::writeUpdate(std::size_t column, const PlannedRow& row,
                              const std::string& filter) {
  sink_("UPDATE " + table_.name + " SET " + table_.columns[column].name + " = " +
        valueText(column, row) + " WHERE " + filter);
  const Plan* const plan = row.plan(column);
  if (plan != nullptr) sink_(" #TIME# " + std::to_string(plan->start));
  sink_(";\n");
}

// Uses up the numbers before this one.
void TableWriter::skipTo(std::int64_t number) {
  if (number <= nextNumber_ || number - nextNumber_ > mostPlaceholders) return;
  const auto other = std::find_if(table_.columns.begin(), table_.columns.end(),
                                  [](const TableColumn& column) { return !column.isIdentity(); });
  skipped_.emplace_back(nextNumber_, number - 1);
  for (; nextNumber_ < number; ++nextNumber_) {
    sink_("INSERT INTO " + table_.name + " " + other->name + " = NULL;\n");
  }
}

void TableWriter::deleteSkipped() {
  const std::string& name = identity()->name;
  for (const auto& [from, to] : skipped_) {
    sink_("DELETE FROM " + table_.name + " WHERE " + name + " >= " + std::to_string(from) + " && " +
          name + " <= " + std::to_string(to) + ";\n");
  }
}

// A key that no link asks for cannot be made by a command.
bool isKeyLost(const Catalogue& catalogue, const TableShape& table) {
  const TableColumn* const key = table.key();
  if (key == nullptr || key->isIdentity()) return false;
  return std::none_of(catalogue.links.begin(), catalogue.links.end(),
                      [&](const LinkShape& link) { return link.parentTable == table.name; });
}

void writeLosses(velmora::Database& database, const Catalogue& catalogue, const Sink& sink) {
  for (const TableShape& table : catalogue.tables) {
    for (const std::string& loss : TableWriter(database, table, sink).losses()) {
      sink("-- Not kept: " + loss + ".\n");
    }
    if (isKeyLost(catalogue, table)) {
      sink("-- Not kept: that " + table.name + "." + table.key()->name +
           " is a key, to which nothing is linked.\n");
    }
  }
}

}  // namespace

void writeCommands(velmora::Database& database, const Sink& sink) {
  const Catalogue catalogue = readCatalogue(database);
  sink("-- A velmora database; velmora-tool run makes it again in an empty directory.\n");
  writeLosses(database, catalogue, sink);
  sink("BEGIN;\n");
  for (const TableShape& table : catalogue.tables) {
    sink(createCommand(table) + ";\n");
    TableWriter(database, table, sink).write();
  }
  for (const LinkShape& link : catalogue.links) sink(linkCommand(link) + ";\n");
  for (const ListenerShape& listener : catalogue.listeners) {
    sink(listenCommand(listener) + ";\n");
  }
  sink("COMMIT;\n");
  sink("VACUUM;\n");
}

}  // namespace tool
