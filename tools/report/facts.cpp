// See facts.h.
#include "report/facts.h"

#include <algorithm>
#include <filesystem>
#include <limits>

#include "copy/literals.h"
#include "failure.h"
#include "open.h"

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

// What a person knows a row by: its key, or what it is called, or both.
std::string rowName(velmora::Database& database, const TableShape& table, std::size_t number) {
  const velmora::Result rows =
      database.run("SELECT * FROM " + table.name + " LIMIT 1 OFFSET " + std::to_string(number));
  std::string name;
  if (const TableColumn* const key = table.key()) {
    name = shown(rows[0].at(table.position(*key)), *key);
  }
  for (const TableColumn& column : table.columns) {
    const velmora::Value value = rows[0].at(table.position(column));
    if (!column.isText() || column.isKey || column.states > 0 || value.index() == 0) continue;
    return (name.empty() ? "" : name + " ") + shown(value, column);
  }
  return name.empty() ? "row " + std::to_string(number + 1) : name;
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
    cell.row = rowName(database, facts.shape, cell.plan.row);
    cell.column = column.name;
    cell.nextChange = nextChange(cell.plan, now);
    for (const PlannedState& state : cell.plan.states) {
      cell.texts.push_back(shown(state.value, column));
    }
  }
}

void readChanges(velmora::Database& database, std::size_t limit, Facts& facts) {
  const velmora::Result changes = database.run("SHOW SCHEDULE");
  facts.changeCount = changes.size();
  for (std::size_t i = 0; i < std::min(limit, changes.size()); ++i) {
    const velmora::Row row = changes[i];
    const auto text = [&](const char* column) {
      return row.get<std::optional<std::string>>(column).value_or("");
    };
    std::string name = text("key");
    if (name.empty()) name = "row " + std::to_string(row.get<std::int64_t>("row") + 1);
    facts.changes.push_back({row.get<std::int64_t>("second"), text("table"), name, text("column"),
                             text("value"), row.get<bool>("cycles")});
  }
}

}  // namespace

std::vector<Fault> findFaults(const std::string& directory) {
  std::vector<Fault> faults;
  velmora_error* error = nullptr;
  const auto note = [](void* context, const char* file, std::int64_t offset, const char* meaning) {
    static_cast<std::vector<Fault>*>(context)->push_back({file, offset, meaning});
  };
  const int code = velmora_check(directory.data(), directory.size(), note, &faults, &error);
  const velmora::Error explained(code, error);
  if (code != VELMORA_OK && code != VELMORA_CORRUPT) {
    throw Failure(exitNotOpened, openingText(directory, explained));
  }
  return faults;
}

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
