// SHOW: what there is, as an ordinary answer. The schedule is worked out from the timed values
// themselves: a change is a second at which a live cell begins to show another value.
#include <algorithm>
#include <initializer_list>
#include <tuple>

#include "answer_writer.h"
#include "query.h"
#include "scope.h"

namespace velmora {
namespace query {
namespace {

struct Heading {
  const char* name;
  AnswerType type;
};

constexpr AnswerType text = AnswerType::text;
constexpr AnswerType integer = AnswerType::integer;
constexpr AnswerType boolean = AnswerType::boolean;

void begin(Answer& answer, std::initializer_list<Heading> headings) {
  auto columns = std::make_shared<std::vector<AnswerColumn>>();
  for (const Heading& heading : headings) {
    columns->push_back({heading.name, {}, heading.type, false});
  }
  answer.setColumns(columns);
}

std::int64_t liveRows(const Table& table) {
  const Rows& rows = table.rows();
  std::size_t deleted = 0;
  for (std::size_t chunk = 0; chunk < rows.chunkCount(); ++chunk) {
    for (std::size_t i = 0; i < rows.sizeOf(chunk); ++i) deleted += rows.deleted(chunk)[i];
  }
  return static_cast<std::int64_t>(table.rowCount() - deleted);
}

void showTables(const Tables& tables, Answer& answer) {
  begin(answer, {{"table", text}, {"rows", integer}});
  for (const auto& [name, table] : tables) {
    answer.addText(name);
    answer.addInteger(liveRows(table));
  }
}

void showStorage(const Tables& tables, const QueryContext& context, Answer& answer) {
  begin(answer, {{"table", text},
                 {"rows", integer},
                 {"deleted", integer},
                 {"memory", integer},
                 {"next_change", integer}});
  for (const auto& [name, table] : tables) {
    context.interrupt.check();
    const std::int64_t rows = liveRows(table);
    answer.addText(name);
    answer.addInteger(rows);
    answer.addInteger(static_cast<std::int64_t>(table.rowCount()) - rows);
    answer.addInteger(static_cast<std::int64_t>(table.memoryBytes()));
    const std::int64_t change = table.nextChange(context.now);
    answer.nextChange = std::min(answer.nextChange, change);
    if (change == Answer::never) {
      answer.addNull();
    } else {
      answer.addInteger(change);
    }
  }
}

void showColumns(const Table& table, std::int64_t now, Answer& answer) {
  begin(answer, {{"column", text},
                 {"type", text},
                 {"length", integer},
                 {"states", integer},
                 {"key", boolean},
                 {"next_number", integer}});
  for (std::size_t i = 0; i < table.columns.size(); ++i) {
    const Column& column = table.columns[i];
    answer.addText(column.name);
    answer.addText(typeName(column));
    if (column.type == "string") {
      answer.addInteger(column.stringSize);
    } else {
      answer.addNull();
    }
    answer.addInteger(column.maxStates);
    answer.addBoolean(table.hasPrimaryKey() && column.name == table.primaryKeyColumn);
    if (isNumbered(column)) {
      answer.addInteger(table.nextNumber(i, table.rowCount(), now));
    } else {
      answer.addNull();
    }
  }
}

void showLinks(const Tables& tables, Answer& answer) {
  begin(answer, {{"child_table", text},
                 {"child_column", text},
                 {"parent_table", text},
                 {"parent_column", text}});
  for (const auto& [name, table] : tables) {
    for (const LinkRecord& link : table.links) {
      for (const std::string& each : {name, link.column, link.parentTable, link.parentColumn}) {
        answer.addText(each);
      }
    }
  }
}

// The value as the language has it: a text in quotes, which are doubled within.
std::string literalOf(const Condition& condition, const Table* table) {
  const std::size_t column = table != nullptr ? table->columnPosition(condition.column) : noColumn;
  const bool isText = column != noColumn && answerTypeOf(table->kind(column)) == AnswerType::text;
  if (!isText) return condition.value;
  std::string literal = "'";
  for (const char c : condition.value) literal.append(c == '\'' ? 2 : 1, c);
  return literal + "'";
}

std::string filterText(const Listener& listener, const Tables& tables) {
  const auto found = tables.find(listener.tableName);
  std::string filter;
  for (const Condition& condition : listener.conditions) {
    if (!filter.empty()) filter += condition.logic == 'a' ? " && " : " || ";
    if (!condition.tableName.empty()) filter += condition.tableName + ".";
    filter += condition.column + " " + condition.op;
    if (!condition.value.empty() || !condition.op.starts_with("IS")) {
      filter += " " + literalOf(condition, found != tables.end() ? &found->second : nullptr);
    }
  }
  return filter;
}

void showListeners(const Listeners& listeners, const Tables& tables, Answer& answer) {
  begin(answer, {{"table", text}, {"event", text}, {"target", text}, {"filter", text}});
  for (const auto& [name, ofTable] : listeners) {
    for (const Listener& listener : ofTable) {
      answer.addText(listener.tableName);
      answer.addText(listener.event);
      answer.addText(listener.target);
      answer.addText(filterText(listener, tables));
    }
  }
}

void addText(std::string_view shown, AnswerWriter& writer) {
  writer.add(shown == missingValue ? TypedValue() : TypedValue::ofText(shown));
}

// The key of a row as a text, or null.
void addKey(const Table& table, std::size_t row, std::int64_t now, AnswerWriter& writer) {
  if (!table.hasPrimaryKey()) return writer.add({});
  TextRoom room;
  addText(table.text(row, static_cast<std::size_t>(table.primaryKeyIndex), now, room), writer);
}

// A timed value with the row that has it, counted among those that are not deleted.
struct Plan {
  std::size_t row;
  std::size_t ordinal;
  std::size_t column;
};

void answerPlan(const Table& table, const Plan& plan, std::int64_t now, AnswerWriter& writer) {
  const TempRule& rule = *table.values(plan.column).rule(plan.row);
  std::int64_t number = 0;
  for (const TempState& state : rule.states) {
    writer.add(TypedValue::ofInteger(static_cast<std::int64_t>(plan.ordinal)));
    addKey(table, plan.row, now, writer);
    writer.add(TypedValue::ofText(table.columns[plan.column].name));
    writer.add(TypedValue::ofInteger(rule.startTime));
    writer.add(TypedValue::ofInteger(++number));
    addText(state.value.view(), writer);
    writer.add(TypedValue::ofInteger(state.duration));
    writer.add(TypedValue::ofBoolean(rule.repeat));
  }
}

// What is planned, from the beginning and whatever second it is.
void showStates(const Table& table, const QueryContext& context, Answer& answer) {
  begin(answer, {{"ordinal", integer},
                 {"key", text},
                 {"column", text},
                 {"start", integer},
                 {"number", integer},
                 {"value", text},
                 {"seconds", integer},
                 {"cycles", boolean}});
  AnswerWriter writer(answer, context.now);
  std::size_t ordinal = 0;
  for (std::size_t row = 0; row < table.rowCount(); ++row) {
    if (Rows::placeOf(row) == 0) context.interrupt.check();
    if (!table.isLive(row)) continue;
    for (std::size_t column = 0; column < table.columns.size(); ++column) {
      if (table.columns[column].maxStates == 0) continue;
      if (table.values(column).rule(row) == nullptr) continue;
      answerPlan(table, {row, ordinal, column}, context.now, writer);
    }
    ++ordinal;
  }
}

// A change to come.
struct Change {
  std::int64_t second;
  const Table* table;
  std::size_t row;
  std::size_t column;
};

class Schedule {
 public:
  Schedule(const QueryContext& context, std::optional<std::int64_t> until)
      : context_(context), until_(until) {}

  void add(const Table& table);
  void answer(Answer& answer);

 private:
  void addCell(const Change& cell, const TempRule& rule);
  void answerChange(const Change& change, AnswerWriter& writer) const;

  const QueryContext& context_;
  std::optional<std::int64_t> until_;  // none: only the next change of each cell
  std::vector<Change> changes_;
};

void Schedule::add(const Table& table) {
  for (std::size_t column = 0; column < table.columns.size(); ++column) {
    if (table.columns[column].maxStates == 0) continue;
    for (std::size_t row = 0; row < table.rowCount(); ++row) {
      if (Rows::placeOf(row) == 0) context_.interrupt.check();
      const TempRule* const rule = table.isLive(row) ? table.values(column).rule(row) : nullptr;
      if (rule != nullptr) addCell({context_.now, &table, row, column}, *rule);
    }
  }
}

void Schedule::addCell(const Change& cell, const TempRule& rule) {
  constexpr std::size_t mostChanges = 1'000'000;
  Change change = cell;
  do {
    context_.interrupt.check();  // each is looked for among all states
    change.second = rule.nextValueChange(change.second);
    if (change.second == Answer::never || change.second > until_.value_or(change.second)) return;
    if (changes_.size() == mostChanges) {
      throw Failure(Code::full, "More than " + std::to_string(mostChanges) + " changes");
    }
    changes_.push_back(change);
  } while (until_);
}

void Schedule::answerChange(const Change& change, AnswerWriter& writer) const {
  const Table& table = *change.table;
  writer.add(TypedValue::ofInteger(change.second));
  writer.add(TypedValue::ofText(table.tableName));
  writer.add(TypedValue::ofInteger(static_cast<std::int64_t>(change.row)));
  addKey(table, change.row, context_.now, writer);
  const TempRule& rule = *table.values(change.column).rule(change.row);
  writer.add(TypedValue::ofText(table.columns[change.column].name));
  addText(rule.valueAt(change.second), writer);
  writer.add(TypedValue::ofBoolean(rule.repeat));
}

void Schedule::answer(Answer& answer) {
  begin(answer, {{"second", integer},
                 {"table", text},
                 {"row", integer},
                 {"key", text},
                 {"column", text},
                 {"value", text},
                 {"cycles", boolean}});
  const auto placeOf = [](const Change& change) {
    return std::tie(change.second, change.table->tableName, change.row, change.column);
  };
  std::sort(changes_.begin(), changes_.end(),
            [&](const Change& a, const Change& b) { return placeOf(a) < placeOf(b); });
  AnswerWriter writer(answer, context_.now);
  for (const Change& change : changes_) answerChange(change, writer);
  if (!changes_.empty()) answer.nextChange = changes_.front().second;
}

void showSchedule(const strict::Show& show, const Tables& tables, const QueryContext& context,
                  Answer& answer) {
  std::optional<std::int64_t> until;
  if (show.until) until = wholeNumber(*show.until, context, "UNTIL");
  Schedule schedule(context, until);
  if (show.table) {
    schedule.add(tableNamed(*show.table, tables));
  } else {
    for (const auto& each : tables) schedule.add(each.second);
  }
  schedule.answer(answer);
}

}  // namespace
}  // namespace query

void show(const strict::Show& show, const Tables& tables, const Listeners& listeners,
          const QueryContext& context, Answer& answer) {
  using What = strict::Show::What;
  answer.second = context.now;
  switch (show.what) {
    case What::tables:
      query::showTables(tables, answer);
      break;
    case What::storage:
      query::showStorage(tables, context, answer);
      break;
    case What::columns:
      query::showColumns(query::tableNamed(*show.table, tables), context.now, answer);
      break;
    case What::links:
      query::showLinks(tables, answer);
      break;
    case What::listeners:
      query::showListeners(listeners, tables, answer);
      break;
    case What::schedule:
      query::showSchedule(show, tables, context, answer);
      break;
    case What::states:
      query::showStates(query::tableNamed(*show.table, tables), context, answer);
      break;
  }
}

}  // namespace velmora
