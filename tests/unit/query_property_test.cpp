// Queries of random tables answer what a walk over the rows, one by one, would: all types, nulls,
// timed cells of few rhythms and of many, deleted rows, several chunks, now and at other seconds.

#include <gtest/gtest.h>

#include <algorithm>
#include <map>

#include "query/value_order.h"
#include "query_fixture.h"

namespace velmora {
namespace {

constexpr std::int64_t base = 1000;
const std::vector<Column> columns = {{"i", "int", 4},     {"l", "/long", 4}, {"f", "float", 4},
                                     {"d", "/double", 4}, {"b", "bool", 4},  {"s", "string", 4},
                                     {"n", "int"},        {"x", "string"}};

class RandomTable {
 public:
  RandomTable(unsigned seed, std::size_t rows) : choices_(seed), hasFewRhythms_(seed % 2 == 0) {
    addTable(tables_, "t", columns);
    stride_ = choices_.of(std::vector<std::int64_t>{1, 31, 32, 1 << 28});
    timedRarity_ = choices_.oneIn(2) ? 1 : choices_.within(2, 60);
    for (std::size_t row = 0; row < rows; ++row) {
      changeable().appendRow();
      for (std::size_t column = 0; column < columns.size(); ++column) set(row, column);
      if (choices_.oneIn(7)) changeable().setDeleted(row, true);
    }
  }

  // Gives some cells another value.
  void change() {
    const auto below = [&](std::size_t count) {
      return static_cast<std::size_t>(choices_.within(0, static_cast<std::int64_t>(count) - 1));
    };
    for (std::int64_t i = choices_.within(0, 20); i > 0; --i) {
      set(below(changeable().rowCount()), below(columns.size()));
    }
  }

  const Tables& tables() const { return tables_; }
  const Table& table() const { return tables_.at("t"); }
  Choices& choices() { return choices_; }

  Value value(ValueKind kind) {
    if (choices_.oneIn(6)) return {};
    switch (kind) {
      case ValueKind::integer:
        return choices_.within(-4, 4) * stride_;
      case ValueKind::longInteger:
        return choices_.within(-4, 4) * (choices_.oneIn(3) ? 1LL << 52 : 1);
      case ValueKind::real:
      case ValueKind::doubleReal:
        return static_cast<double>(choices_.within(-8, 8)) / 2;
      case ValueKind::boolean:
        return choices_.oneIn(2);
      default:
        break;
    }
    return choices_.of(Texts{"", "a", "b", "#/#?", "a text longer than fifteen bytes"});
  }
  // Of a value that numbers are compared with, also of the other sort.
  Value wanted(ValueKind kind) {
    const bool isNumber = kind != ValueKind::boolean && kind != ValueKind::text;
    if (isNumber && choices_.oneIn(2)) return value(ValueKind::doubleReal);
    return value(kind);
  }

 private:
  Table& changeable() { return tables_.at("t"); }
  void set(std::size_t row, std::size_t column) {
    const ValueKind kind = changeable().kind(column);
    if (columns[column].maxStates > 0 && choices_.oneIn(timedRarity_)) {
      changeable().set(row, column, timedCell(rule(kind)), base);
    } else {
      changeable().setValue(row, column, value(kind));
    }
  }
  TempRule rule(ValueKind kind) {
    constexpr std::size_t few = 3;
    const bool isNew = !hasFewRhythms_ || durations_.size() < few;
    if (isNew) {
      durations_.emplace_back();
      for (std::int64_t i = choices_.within(1, 4); i > 0; --i) {
        durations_.back().push_back(choices_.within(1, 20));
      }
    }
    std::vector<State> states;
    for (const std::int64_t duration : isNew ? durations_.back() : choices_.of(durations_)) {
      states.push_back({textOf(kind, typedValue(value(kind))), duration});
    }
    return ruleOf(states, choices_.oneIn(2), base + choices_.within(-40, 20));
  }

  Choices choices_;
  bool hasFewRhythms_;
  std::int64_t timedRarity_ = 1;
  std::int64_t stride_ = 1;  // of integers: all lie within a byte of the least, or some do not
  std::vector<std::vector<std::int64_t>> durations_;
  Tables tables_;
};

TypedValue naive(const Table& table, std::size_t row, std::size_t column, std::int64_t now) {
  return table.values(column).value(row, now);
}

bool holds(const strict::Comparison& comparison, const Table& table, std::size_t row,
           std::int64_t now) {
  const std::size_t column = table.columnPosition(comparison.column.column.text);
  const TypedValue value = naive(table, row, column, now);
  const TypedValue wanted = typedValue(comparison.operand.value);
  if (comparison.op == Operator::isNull) return value.type == AnswerType::null;
  if (comparison.op == Operator::isNotNull) return value.type != AnswerType::null;
  if (value.type == AnswerType::null || wanted.type == AnswerType::null) return false;
  const int order = query::compareValues(value, wanted);
  switch (comparison.op) {
    case Operator::equal:
      return order == 0;
    case Operator::notEqual:
      return order != 0;
    case Operator::less:
      return order < 0;
    case Operator::greater:
      return order > 0;
    case Operator::lessOrEqual:
      return order <= 0;
    default:
      return order >= 0;
  }
}

std::vector<std::int32_t> walk(const strict::Filter& filter, const Table& table, std::int64_t now) {
  std::vector<std::int32_t> rows;
  for (std::size_t row = 0; row < table.rowCount(); ++row) {
    bool isPassed = filter.empty();
    bool isGroupPassed = false;
    for (const strict::Comparison& each : filter) {
      if (each.beginsGroup) {
        isPassed = isPassed || isGroupPassed;
        isGroupPassed = true;
      }
      isGroupPassed = isGroupPassed && holds(each, table, row, now);
    }
    if ((isPassed || isGroupPassed) && table.isLive(row)) {
      rows.push_back(static_cast<std::int32_t>(row));
    }
  }
  return rows;
}

strict::Filter someFilter(RandomTable& random) {
  static const std::vector<Operator> operators = {
      Operator::equal,       Operator::notEqual,       Operator::less,   Operator::greater,
      Operator::lessOrEqual, Operator::greaterOrEqual, Operator::isNull, Operator::isNotNull};
  strict::Filter filter;
  for (std::int64_t i = random.choices().within(0, 4); i > 0; --i) {
    const Column& column = random.choices().of(columns);
    filter.push_back(
        where(column.name, random.choices().of(operators), random.wanted(valueKind(column.type))));
    filter.back().beginsGroup = filter.size() == 1 || random.choices().oneIn(3);
  }
  return filter;
}

std::string shownValue(const TypedValue& value) {
  Answer answer;
  if (value.type == AnswerType::null) return "null";
  if (value.type == AnswerType::text) return std::string(value.text);
  if (value.type == AnswerType::boolean) return value.integer != 0 ? "true" : "false";
  AnswerValue made;
  made.type = value.type;
  made.integer = value.integer;
  if (value.type == AnswerType::real) made.real = value.real;
  return shown(answer, made);
}

std::string lineOf(const Table& table, std::size_t row, std::int64_t now) {
  std::string line;
  for (std::size_t column = 0; column < columns.size(); ++column) {
    line += (column > 0 ? "|" : "") + shownValue(naive(table, row, column, now));
  }
  return line;
}

constexpr std::size_t rowsOfTables[] = {60, 4500, ColumnValues::sectionRows + 2500};

TEST(QueryProperty, rowsAreThoseOfAWalk) {
  for (unsigned seed = 1; seed <= 12; ++seed) {
    RandomTable random(seed, rowsOfTables[seed % 3]);
    for (int round = 0; round < 40; ++round) {
      if (random.choices().oneIn(3)) random.change();
      const strict::Filter filter = someFilter(random);
      const std::int64_t now = base + random.choices().within(-60, 60);
      const std::vector<std::int32_t> expected = walk(filter, random.table(), now);
      // What the first one finds is kept for the second.
      ASSERT_EQ(rowsPassing(random.table(), filter, now), expected) << seed << ' ' << round;
      ASSERT_EQ(rowsPassing(random.table(), filter, now), expected) << seed << ' ' << round;
      strict::Select select = selectFrom("t", {});
      select.filter = filter;
      const Texts answered = rowsOf(run(random.tables(), select, now));
      ASSERT_EQ(answered.size(), expected.size());
      for (std::size_t i = 0; i < answered.size(); ++i) {
        ASSERT_EQ(answered[i], lineOf(random.table(), static_cast<std::size_t>(expected[i]), now));
      }
    }
  }
}

TEST(QueryProperty, ordersAreThoseOfASort) {
  for (unsigned seed = 1; seed <= 6; ++seed) {
    RandomTable random(seed, rowsOfTables[seed % 3]);
    for (int round = 0; round < 30; ++round) {
      strict::Select select = selectFrom("t", {});
      select.filter = someFilter(random);
      for (std::int64_t i = random.choices().within(1, 3); i > 0; --i) {
        select.orderBy.push_back(by(random.choices().of(columns).name, random.choices().oneIn(2)));
      }
      const std::int64_t now = base + random.choices().within(-60, 60);
      const Table& table = random.table();
      std::vector<std::int32_t> rows = walk(select.filter, table, now);
      std::stable_sort(rows.begin(), rows.end(), [&](std::int32_t a, std::int32_t b) {
        for (const strict::Order& order : select.orderBy) {
          const std::size_t column = table.columnPosition(order.output.column.column.text);
          const int compared =
              query::compareValues(naive(table, static_cast<std::size_t>(a), column, now),
                                   naive(table, static_cast<std::size_t>(b), column, now));
          if (compared != 0) return (compared < 0) != order.descends;
        }
        return false;
      });
      const auto offset = static_cast<std::size_t>(random.choices().within(0, 5));
      const auto limit = static_cast<std::size_t>(random.choices().within(0, 12));
      if (round % 3 != 0) select.limit = whole(static_cast<std::int64_t>(limit));
      select.offset = whole(static_cast<std::int64_t>(offset));
      Texts expected;
      for (std::size_t i = offset; i < rows.size(); ++i) {
        if (round % 3 != 0 && i == offset + limit) break;
        expected.push_back(lineOf(table, static_cast<std::size_t>(rows[i]), now));
      }
      ASSERT_EQ(rowsOf(run(random.tables(), select, now)), expected) << seed << ' ' << round;
    }
  }
}

TEST(QueryProperty, totalsAreThoseOfAWalk) {
  for (unsigned seed = 1; seed <= 6; ++seed) {
    RandomTable random(seed, rowsOfTables[seed % 3]);
    for (int round = 0; round < 40; ++round) {
      const std::string group = random.choices().of(columns).name;
      const std::string added = random.choices().of(Texts{"i", "l", "f", "d", "n"});
      const bool isGrouped = round % 3 != 0;
      strict::Select select = selectFrom("t", {group});
      if (!isGrouped) select.outputs.clear();
      if (isGrouped) select.groupBy = {named(group)};
      for (const Function function :
           {Function::countRows, Function::count, Function::sum, Function::min, Function::max}) {
        select.outputs.push_back(output(function, added));
      }
      select.filter = someFilter(random);
      const std::int64_t now = base + random.choices().within(-60, 60);
      const Table& table = random.table();
      const std::size_t groupColumn = table.columnPosition(group);
      const std::size_t addedColumn = table.columnPosition(added);
      std::map<std::string, std::vector<TypedValue>> groups;
      Texts order;
      if (!isGrouped) groups[order.emplace_back("")];
      for (const std::int32_t each : walk(select.filter, table, now)) {
        const auto row = static_cast<std::size_t>(each);
        const TypedValue value = naive(table, row, groupColumn, now);
        // '#/#?' and the like are told from null by their types.
        const std::string key = (value.type == AnswerType::null ? "" : "=") + shownValue(value);
        const std::string name = isGrouped ? key : "";
        if (!groups.contains(name)) order.push_back(name);
        groups[name].push_back(naive(table, row, addedColumn, now));
      }
      Texts expected;
      for (const std::string& name : order) {
        std::int64_t count = 0;
        std::int64_t whole = 0;
        double real = 0;
        TypedValue least, most;
        bool isReal = false;
        for (const TypedValue& value : groups[name]) {
          if (value.type == AnswerType::null) continue;
          isReal = value.type == AnswerType::real;
          if (isReal) real += value.real;
          if (!isReal) whole += value.integer;
          if (count == 0 || query::compareValues(value, least) < 0) least = value;
          if (count == 0 || query::compareValues(value, most) > 0) most = value;
          ++count;
        }
        TypedValue sum;
        if (count > 0) sum = isReal ? TypedValue::ofReal(real) : TypedValue::ofInteger(whole);
        std::string line = isGrouped ? name.substr(name.starts_with('=') ? 1 : 0) + "|" : "";
        line += std::to_string(groups[name].size()) + "|" + std::to_string(count) + "|" +
                shownValue(sum) + "|" + shownValue(least) + "|" + shownValue(most);
        expected.push_back(line);
      }
      ASSERT_EQ(rowsOf(run(random.tables(), select, now)), expected) << seed << ' ' << round;
    }
  }
}

// The answer stays the same up to that second; where it is of cells alone, it differs then.
TEST(QueryProperty, theNextChangeIsTheFirstSecondOfAnotherAnswer) {
  for (unsigned seed = 1; seed <= 4; ++seed) {
    RandomTable random(seed, 12);
    for (int round = 0; round < 40; ++round) {
      strict::Select select = selectFrom("t", {});
      const bool isFiltered = round % 2 == 0;
      if (isFiltered) select.filter = someFilter(random);
      const std::int64_t now = base + random.choices().within(-60, 60);
      const Answer answer = run(random.tables(), select, now);
      const std::int64_t end = std::min(answer.nextChange, now + 200);
      for (std::int64_t second = now + 1; second < end; ++second) {
        ASSERT_EQ(rowsOf(run(random.tables(), select, second)), rowsOf(answer));
      }
      if (!isFiltered && answer.nextChange != Answer::never) {
        ASSERT_NE(rowsOf(run(random.tables(), select, answer.nextChange)), rowsOf(answer));
      }
    }
  }
}

}  // namespace
}  // namespace velmora
