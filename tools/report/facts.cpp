// See facts.h.
#include "report/facts.h"

#include <algorithm>
#include <filesystem>
#include <limits>
#include <set>

#include "copy/literals.h"

namespace tool {
namespace {

namespace fs = std::filesystem;

// As people read it: texts without quotes.
std::string shown(const velmora::Value& value, const TableColumn& column) {
  const auto* const text = std::get_if<std::string>(&value);
  return text != nullptr ? *text : literal(value, column);
}

// When the value changes next; states that follow each other with the same value are one.
std::optional<std::int64_t> nextChange(const Plan& plan, std::int64_t now) {
  const std::int64_t pass = plan.length();
  if (pass <= 0) return std::nullopt;
  const bool cycles = plan.cycles && now >= plan.start;
  const std::int64_t passed = cycles ? (now - plan.start) / pass : 0;
  const velmora::Value* before = nullptr;
  std::int64_t second = plan.start + passed * pass;
  for (int round = 0; round < (plan.cycles ? 3 : 1); ++round) {
    for (const PlannedState& state : plan.states) {
      if (second > now && before != nullptr && *before != state.value) return second;
      before = &state.value;
      second += state.seconds;
    }
  }
  return std::nullopt;
}

// Names the row by its key, or what it is called, or both.
void nameCell(velmora::Database& database, const TableShape& table, TimedCell& cell) {
  const velmora::Result rows = database.run("SELECT * FROM " + table.name + " LIMIT 1 OFFSET " +
                                            std::to_string(cell.plan.row));
  if (const TableColumn* const key = table.key()) {
    cell.key = cell.row = shown(rows[0].at(table.position(*key)), *key);
  }
  for (const TableColumn& column : table.columns) {
    const velmora::Value value = rows[0].at(table.position(column));
    if (!column.isText() || column.isKey || column.states > 0 || value.index() == 0) continue;
    cell.row += (cell.row.empty() ? "" : " ") + shown(value, column);
    return;
  }
  if (cell.row.empty()) cell.row = "row " + std::to_string(cell.plan.row + 1);
}

void readCells(velmora::Database& database, std::size_t limit, std::int64_t now,
               TableFacts& facts) {
  std::vector<Plan> plans = readPlans(database, facts.shape);
  facts.timedCount = plans.size();
  std::vector<std::pair<std::int64_t, std::size_t>> order;  // by the next change, then by place
  for (std::size_t i = 0; i < plans.size(); ++i) {
    constexpr std::int64_t never = std::numeric_limits<std::int64_t>::max();
    order.emplace_back(nextChange(plans[i], now).value_or(never), i);
  }
  const std::size_t count = std::min(limit, order.size());
  std::partial_sort(order.begin(), order.begin() + static_cast<std::ptrdiff_t>(count), order.end());
  order.resize(count);
  if (facts.timedCount <= limit) {
    std::sort(order.begin(), order.end(), [](auto& a, auto& b) { return a.second < b.second; });
  }
  for (const auto& [second, place] : order) {
    TimedCell& cell = facts.cells.emplace_back();
    cell.plan = std::move(plans[place]);
    const TableColumn& column = facts.shape.columns[cell.plan.column];
    nameCell(database, facts.shape, cell);
    cell.column = column.name;
    cell.nextChange = nextChange(cell.plan, now);
    for (const PlannedState& state : cell.plan.states) {
      cell.texts.push_back(shown(state.value, column));
    }
  }
}

// The schedule counts deleted rows, too; the timed values that change next are known by name.
void nameRow(const Facts& facts, std::set<const TimedCell*>& named, Change& change) {
  for (const TableFacts& table : facts.tables) {
    if (table.shape.name != change.table) continue;
    for (const TimedCell& cell : table.cells) {
      if (cell.column != change.column || cell.nextChange != change.second) continue;
      if (!change.row.empty() && cell.key != change.row) continue;
      if (!named.insert(&cell).second) continue;
      change.row = cell.row;
      return;
    }
  }
}

void readChanges(velmora::Database& database, std::size_t limit, Facts& facts) {
  const velmora::Result changes = database.run("SHOW SCHEDULE");
  facts.changeCount = changes.size();
  std::set<const TimedCell*> named;
  for (std::size_t i = 0; i < std::min(limit, changes.size()); ++i) {
    const velmora::Row row = changes[i];
    const auto text = [&](const char* column) {
      return row.get<std::optional<std::string>>(column).value_or("");
    };
    facts.changes.push_back({row.get<std::int64_t>("second"), text("table"), text("key"),
                             text("column"), text("value"), row.get<bool>("cycles")});
    nameRow(facts, named, facts.changes.back());
  }
}

}  // namespace

void readFacts(velmora::Database& database, std::size_t limit, Facts& facts) {
  Catalogue catalogue = readCatalogue(database);
  for (TableShape& table : catalogue.tables) {
    TableFacts& read = facts.tables.emplace_back();
    read.shape = std::move(table);
    readCells(database, limit, facts.now, read);
  }
  facts.links = std::move(catalogue.links);
  facts.listeners = std::move(catalogue.listeners);
  readChanges(database, limit, facts);
  facts.isRead = true;
}

void measureFiles(Facts& facts) {
  for (const fs::directory_entry& entry : fs::directory_iterator(facts.directory)) {
    if (!entry.is_regular_file()) continue;
    facts.bytes += entry.file_size();
    const std::string name = entry.path().filename().string();
    for (TableFacts& table : facts.tables) {
      if (name.starts_with(table.shape.name + ".")) table.bytes += entry.file_size();
    }
  }
}

}  // namespace tool
