// Random commands of the strict language through a handle, each answered as the model answers it:
// rows of all types, nulls and timed values under a clock that goes on; links that come and go;
// transactions, failures, crashes and restarts. An answer stays right up to the second at which it
// says that it changes.
//
// VELMORA_MODEL_COUNT, _LENGTH and _SEED set how many sequences are run, their steps, and the first
// seed.
#include <functional>
#include <iostream>
#include <random>

#include "model/driver.h"
#include "model/strict_model.h"
#include "unit/handle_fixture.h"

namespace model::strict {
namespace {

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__) || !defined(__OPTIMIZE__)
constexpr std::uint64_t usualCount = 40;
#else
constexpr std::uint64_t usualCount = 400;
#endif

const std::vector<std::pair<std::string, std::vector<Column>>> definitions = {
    {"p", {{"id", "ApexInt", 0}, {"i", "int", 3}, {"d", "double", 2}, {"s", "string(20)", 0}}},
    {"q", {{"k", "string(20)", 3}, {"n", "int", 0}, {"f", "float", 2}, {"b", "bool", 2}}},
    {"c", {{"p", "int", 3}, {"s", "string(20)", 3}, {"l", "long", 2}, {"x", "double", 0}}}};
const std::vector<Link> possibleLinks = {{"c", "p", "p", "id"}, {"c", "s", "q", "k"}};

std::string literal(const Value& value) {
  const auto* const text = std::get_if<std::string>(&value);
  if (text == nullptr) {
    const std::string bare = shown(value);
    const bool isReal = std::holds_alternative<double>(value);
    return isReal && bare.find_first_of(".e") == std::string::npos ? bare + ".0" : bare;
  }
  std::string quoted = "'";
  for (const char c : *text) quoted.append(c == '\'' ? 2 : 1, c);
  return quoted + "'";
}

handles::Bound bound(const Value& value) {
  if (const auto* const whole = std::get_if<std::int64_t>(&value)) return *whole;
  if (const auto* const real = std::get_if<double>(&value)) return *real;
  if (const auto* const truth = std::get_if<bool>(&value)) return *truth;
  if (const auto* const text = std::get_if<std::string>(&value)) return *text;
  return {};
}

class StrictModel : public handles::HandleTest {
 protected:
  void runSequence(std::uint64_t seed, std::size_t length);

 private:
  std::size_t below(std::size_t limit) { return static_cast<std::size_t>(random_() % limit); }
  bool oneIn(std::size_t chances) { return below(chances) == 0; }
  template <typename T>
  const T& pick(const std::vector<T>& values) {
    return values[below(values.size())];
  }
  std::string pickTable() { return pick(definitions).first; }

  Value randomValue(const std::string& type);
  Cell randomCell(const Column& column);
  Assignments randomAssignments(const std::string& table);
  Filter randomFilter(const std::string& left, const std::string& right);
  Select randomSelect();

  // Texts of commands; each may put values aside to be bound.
  std::string operand(const Value& value);
  std::string textOf(const std::string& table, const Assignments& given);
  std::string textOf(const Filter& filter, const std::string& left, const std::string& right);
  std::string textOf(const Output& output, const Select& select) const;
  std::string textOf(const Select& select);

  void step();
  void changeRows();
  void changeLinks();
  void transact();
  void restart();
  void ask();
  void askSchedule();
  void expect(const std::string& command, const std::function<std::string()>& expected);
  void create(const std::string& table);

  std::mt19937_64 random_;
  Model model_;
  std::optional<Model> before_;  // of the open transaction
  std::vector<Value> values_;
  std::string past_;
};

Value StrictModel::randomValue(const std::string& type) {
  if (oneIn(7)) return {};
  if (type == "int" || type == "ApexInt") return static_cast<std::int64_t>(below(9)) - 2;
  if (type == "long") {
    const std::int64_t small = static_cast<std::int64_t>(below(5)) - 1;
    return oneIn(4) ? small + 9'007'199'254'740'992 : small;
  }
  if (type == "double" || type == "float") return static_cast<double>(below(9)) / 2 - 1.5;
  if (type == "bool") return oneIn(2);
  return pick(std::vector<std::string>{"", "a", "b", "c", "d", "it's", "two words", "B"});
}

Cell StrictModel::randomCell(const Column& column) {
  Cell cell;
  cell.start = model_.now;
  const std::size_t count = column.states < 2 || !oneIn(3) ? 1 : 2 + below(column.states - 1);
  cell.states.clear();
  while (cell.states.size() < count) {
    Value value = randomValue(column.type);
    if (isNull(value) && count > 1) continue;
    cell.states.emplace_back(std::move(value), 1 + below(12));
  }
  // The last state takes over the last duration.
  if (count > 1) cell.states.back().second = cell.states[count - 2].second;
  cell.cycles = count > 1 && oneIn(2);
  return cell;
}

Assignments StrictModel::randomAssignments(const std::string& table) {
  Assignments given;
  const std::vector<Column>& columns = model_.tables.at(table).columns;
  while (given.empty()) {
    for (std::size_t i = columns[0].type == "ApexInt" ? 1 : 0; i < columns.size(); ++i) {
      if (!oneIn(3)) given.emplace_back(i, randomCell(columns[i]));
    }
  }
  return given;
}

Filter StrictModel::randomFilter(const std::string& left, const std::string& right) {
  Filter filter;
  for (std::size_t count = below(4); count > 0; --count) {
    Comparison each;
    each.isRight = !right.empty() && oneIn(2);
    const Table& table = model_.tables.at(each.isRight ? right : left);
    each.column = below(table.columns.size());
    const std::string& type = table.columns[each.column].type;
    each.op = pick(
        std::vector<std::string>{"=", "=", "!=", "<", "<=", ">", ">=", "IS NULL", "IS NOT NULL"});
    each.wanted = randomValue(type);
    const bool isNumber = type != "bool" && type[0] != 's';
    if (isNumber && oneIn(3)) each.wanted = randomValue(oneIn(2) ? "double" : "long");
    each.beginsGroup = filter.empty() || oneIn(2);
    filter.push_back(each);
  }
  return filter;
}

Select StrictModel::randomSelect() {
  Select select;
  select.table = pickTable();
  if (oneIn(3)) {
    static const std::vector<std::vector<std::string>> joins = {
        {"p", "c", "id", "p"}, {"c", "p", "p", "id"}, {"q", "c", "k", "s"}, {"c", "p", "l", "d"}};
    const std::vector<std::string>& join = pick(joins);
    select.table = join[0];
    select.joined = join[1];
    select.leftOn = model_.tables.at(join[0]).position(join[2]);
    select.rightOn = model_.tables.at(join[1]).position(join[3]);
  }
  select.filter = randomFilter(select.table, select.joined);
  const auto randomColumn = [&] {
    const bool isRight = !select.joined.empty() && oneIn(2);
    const Table& table = model_.tables.at(isRight ? select.joined : select.table);
    return Output{"", isRight, below(table.columns.size())};
  };
  const auto randomTotal = [&] {
    Output output = randomColumn();
    const Table& table = model_.tables.at(output.isRight ? select.joined : select.table);
    const std::string& type = table.columns[output.column].type;
    const bool isNumber = type != "bool" && type[0] != 's';
    output.function = pick(std::vector<std::string>{"COUNT(*)", "COUNT", "MIN", "MAX"});
    if (isNumber && oneIn(2)) output.function = oneIn(2) ? "SUM" : "AVG";
    return output;
  };
  const bool isGrouped = oneIn(3);
  for (std::size_t i = isGrouped ? below(3) : 0; i > 0; --i) {
    select.groupBy.push_back(randomColumn());
  }
  for (std::size_t i = 1 + below(4); i > 0; --i) {
    const bool isTotal = isGrouped && (select.groupBy.empty() || oneIn(2));
    select.outputs.push_back(isTotal                   ? randomTotal()
                             : !select.groupBy.empty() ? pick(select.groupBy)
                                                       : randomColumn());
  }
  for (std::size_t i = oneIn(2) ? 0 : 1 + below(2); i > 0; --i) {
    const bool isTotal = isGrouped && (select.groupBy.empty() || oneIn(2));
    Output order = isTotal                   ? randomTotal()
                   : !select.groupBy.empty() ? pick(select.groupBy)
                                             : randomColumn();
    select.orderBy.emplace_back(order, oneIn(2));
  }
  if (select.groupBy.empty() && isGrouped) select.orderBy.clear();
  if (oneIn(3)) {
    select.limit = below(6);
    select.offset = oneIn(2) ? 0 : below(4);
  }
  return select;
}

std::string StrictModel::operand(const Value& value) {
  if (!oneIn(3)) return literal(value);
  values_.push_back(value);
  return "?";
}

std::string StrictModel::textOf(const std::string& table, const Assignments& given) {
  std::string text;
  for (const auto& [column, cell] : given) {
    text += " " + model_.tables.at(table).columns[column].name + " = (";
    for (std::size_t i = 0; i < cell.states.size(); ++i) {
      text += (i == 0 ? "" : " --> ") + operand(cell.states[i].first);
      if (i > 0) text += " @ " + operand(cell.states[i - 1].second) + " s";
    }
    text += cell.cycles ? " c)" : ")";
  }
  return text;
}

std::string StrictModel::textOf(const Filter& filter, const std::string& left,
                                const std::string& right) {
  std::string text;
  for (const Comparison& each : filter) {
    const std::string& table = each.isRight ? right : left;
    text += text.empty() ? " WHERE " : each.beginsGroup ? " || " : " && ";
    text += table + "." + model_.tables.at(table).columns[each.column].name + " " + each.op;
    if (each.op[0] != 'I') text += " " + operand(each.wanted);
  }
  return text;
}

std::string StrictModel::textOf(const Output& output, const Select& select) const {
  if (output.function == "COUNT(*)") return output.function;
  const std::string& table = output.isRight ? select.joined : select.table;
  const std::string name = table + "." + model_.tables.at(table).columns[output.column].name;
  return output.function.empty() ? name : output.function + "(" + name + ")";
}

std::string StrictModel::textOf(const Select& select) {
  const auto nameOf = [&](const std::string& table, std::size_t column) {
    return table + "." + model_.tables.at(table).columns[column].name;
  };
  std::string text = "SELECT ";
  const auto add = [&](const char* first, const Output& output, const std::string& rest = "") {
    text += first + textOf(output, select) + rest;
  };
  for (const Output& each : select.outputs) add(&each == &select.outputs[0] ? "" : ", ", each);
  text += " FROM " + select.table;
  if (!select.joined.empty()) {
    text += " JOIN " + select.joined + " ON " + nameOf(select.table, select.leftOn) + " = " +
            nameOf(select.joined, select.rightOn);
  }
  text += textOf(select.filter, select.table, select.joined);
  for (const Output& each : select.groupBy) {
    add(&each == &select.groupBy[0] ? " GROUP BY " : ", ", each);
  }
  for (const auto& each : select.orderBy) {
    add(&each == &select.orderBy[0] ? " ORDER BY " : ", ", each.first, each.second ? " DESC" : "");
  }
  if (select.limit) text += " LIMIT " + operand(static_cast<std::int64_t>(*select.limit));
  if (select.offset > 0) text += " OFFSET " + operand(static_cast<std::int64_t>(select.offset));
  return text;
}

// Runs the command with the values put aside; a failure is compared by its code.
void StrictModel::expect(const std::string& command, const std::function<std::string()>& expected) {
  const std::vector<Value> values = std::exchange(values_, {});
  past_ += "> " + command;
  for (const Value& value : values) past_ += "  ?" + literal(value);
  past_ += "\n";
  std::string answer;
  try {
    answer = expected();
  } catch (const Refused& refused) {
    answer = "! " + std::to_string(refused.code);
  }
  handles::Values given;
  for (const Value& each : values) given.push_back(bound(each));
  const std::string actual = run(command, given);
  const std::string compared =
      actual.starts_with("! ") ? actual.substr(0, actual.find_first_of(" :", 2)) : actual;
  ASSERT_EQ(compared, answer) << past_ << actual;
}

void StrictModel::create(const std::string& table) {
  std::string command = "CREATE TABLE " + table;
  for (const auto& [name, columns] : definitions) {
    if (name != table) continue;
    for (const Column& column : columns) {
      command += " " + column.name + " " + column.type;
      if (column.states > 0) command += " " + std::to_string(column.states);
    }
    expect(command, [&, &columns = columns]() -> std::string {
      if (model_.tables.contains(table)) throw Refused{VELMORA_EXISTS};
      model_.tables[table].columns = columns;
      return "0 rows";
    });
  }
}

void StrictModel::changeRows() {
  const std::string table = pickTable();
  const std::size_t kind = below(10);
  if (kind == 0) {
    const Filter filter = randomFilter(table, "");
    expect("DELETE FROM " + table + textOf(filter, table, ""),
           [&] { return model_.remove(table, filter); });
    return;
  }
  const Assignments given = randomAssignments(table);
  if (kind < 4) {
    const Filter filter = randomFilter(table, "");
    const std::string text = textOf(table, given);
    expect("UPDATE " + table + " SET" + text + textOf(filter, table, ""),
           [&] { return model_.update(table, given, filter); });
  } else {
    expect("INSERT INTO " + table + textOf(table, given),
           [&] { return model_.insert(table, given); });
  }
}

void StrictModel::changeLinks() {
  const Link& link = pick(possibleLinks);
  const std::string text =
      link.child + "." + link.childColumn + " --> " + link.parent + "." + link.parentColumn;
  const std::size_t kind = below(6);
  const auto answered = [](const std::function<void()>& change) {
    return [=] {
      change();
      return std::string("0 rows");
    };
  };
  if (kind < 3) {
    expect("LINK " + text, answered([&] { model_.link(link); }));
  } else if (kind == 3) {
    expect("UNLINK " + text, answered([&] { model_.unlink(link); }));
  } else {
    const std::string table = kind == 4 ? "c" : pickTable();
    expect("DROP TABLE " + table, answered([&] { model_.drop(table); }));
    create(table);
  }
}

void StrictModel::transact() {
  if (!before_) {
    expect("BEGIN", [&] {
      before_ = model_;
      return "0 rows";
    });
    return;
  }
  const bool isKept = oneIn(2);
  expect(isKept ? "COMMIT" : "ROLLBACK", [&] {
    if (!isKept) {
      before_->now = model_.now;
      model_ = *before_;
    }
    before_.reset();
    return "0 rows";
  });
}

void StrictModel::restart() {
  const std::size_t kind = below(4);
  if (kind < 2 && before_) return;
  if (kind == 0) expect("CHECKPOINT", [] { return "0 rows"; });
  if (kind == 1) {
    past_ += "> VACUUM\n";
    EXPECT_NE(run("VACUUM").substr(0, 1), "!") << past_;
  }
  if (kind < 2) return;
  past_ += kind == 2 ? "crash\n" : "close\n";
  EXPECT_EQ(kind == 2 ? crash() : reopen(), "") << past_;
  if (!before_) return;
  before_->now = model_.now;
  model_ = *before_;
  before_.reset();
}

void StrictModel::ask() {
  const Select select = randomSelect();
  const bool isAt = oneIn(2);
  const std::int64_t asked =
      isAt ? model_.now - 20 + static_cast<std::int64_t>(below(60)) : model_.now;
  const std::string text = textOf(select);
  const std::vector<Value> values = values_;
  const std::string expected = model_.select(select, asked);
  expect(isAt ? text + " AT " + std::to_string(asked) : text, [&] { return expected; });
  // Whoever keeps the answer up to its next change is right.
  handles::Values given;
  for (const Value& value : values) given.push_back(bound(value));
  std::int64_t next = -1;
  handles::run(db, text + " AT " + std::to_string(asked), given, &next);
  const std::int64_t end = next == -1 ? asked + 100 : next;
  ASSERT_GT(end, asked) << past_;
  for (const std::int64_t at :
       {end - 1, asked + static_cast<std::int64_t>(below(static_cast<std::size_t>(end - asked)))}) {
    ASSERT_EQ(model_.select(select, at), expected) << past_ << "AT " << at << ", until " << end;
  }
}

void StrictModel::askSchedule() {
  const std::int64_t until = model_.now + static_cast<std::int64_t>(below(30));
  const std::string command = "SHOW SCHEDULE UNTIL " + std::to_string(until);
  velmora_result* result = nullptr;
  velmora_run(db, command.data(), command.size(), nullptr, 0, &result, nullptr);
  std::string actual;
  for (std::size_t row = 0; row < velmora_result_rows(result); ++row) {
    for (const std::size_t column : {0, 1, 3, 4, 5, 6}) {
      actual += handles::shown(result, row, column) + (column == 6 ? "\n" : " ");
    }
  }
  velmora_result_destroy(result);
  EXPECT_EQ(actual, model_.schedule(until)) << past_ << command;
}

void StrictModel::step() {
  if (oneIn(4)) {
    model_.now += static_cast<std::int64_t>(below(9));
    second = model_.now;
    past_ += "clock " + std::to_string(second) + "\n";
  }
  const std::size_t kind = below(40);
  if (kind < 16) {
    changeRows();
  } else if (kind < 19) {
    changeLinks();
  } else if (kind < 23) {
    transact();
  } else if (kind < 25) {
    restart();
  } else if (kind < 27) {
    askSchedule();
  } else {
    ask();
  }
}

void StrictModel::runSequence(std::uint64_t seed, std::size_t length) {
  random_.seed(seed);
  model_ = Model();
  model_.now = second;
  before_.reset();
  past_ = "seed " + std::to_string(seed) + "\n";
  for (const auto& definition : definitions) create(definition.first);
  for (std::size_t i = 0; i < length && !HasFailure(); ++i) step();
  close();
  std::filesystem::remove_all(path());
  ASSERT_EQ(open(), "") << past_;
}

TEST_F(StrictModel, AnswersEveryCommandAlike) {
  const std::uint64_t first = wish("VELMORA_MODEL_SEED", 1);
  const std::uint64_t count = wish("VELMORA_MODEL_COUNT", usualCount);
  const std::uint64_t length = wish("VELMORA_MODEL_LENGTH", 120);
  for (std::uint64_t seed = first; seed < first + count && !HasFailure(); ++seed) {
    runSequence(seed, length);
  }
}

}  // namespace
}  // namespace model::strict
