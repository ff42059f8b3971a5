// Scans: whatever lies in the columns of a table, a filter finds the rows that a plain walk over
// the texts of their cells finds, and fails as that walk does: at the first row, and in it at the
// first condition, that does not convert.

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "column_fixture.h"
#include "database_fixture.h"

namespace velmora {
namespace {

// What a filter comes to: its rows, or the failure with its place.
struct Outcome {
  std::vector<std::int32_t> rows;
  std::string failure;
  bool operator==(const Outcome&) const = default;
};

void PrintTo(const Outcome& outcome, std::ostream* out) {
  *out << outcome.rows.size() << " rows " << testing::PrintToString(outcome.rows) << ' '
       << outcome.failure;
}

std::string describe(const char* what, const FailedConversion& failure) {
  const std::string row = failure.row ? std::to_string(*failure.row) : "none";
  return std::string(what) + " '" + failure.text + "' " + failure.table + '.' + failure.column +
         " row " + row;
}

template <typename Find>
Outcome outcomeOf(Find find) {
  try {
    return {find(), ""};
  } catch (const InvalidNumber& failure) {
    return {{}, std::string("invalid ") + describe(failure.what(), failure)};
  } catch (const NumberOutOfRange& failure) {
    return {{}, std::string("out of range ") + describe(failure.what(), failure)};
  }
}

// Whether the number in a text is less than, equal to or greater than the literal's, as -1, 0 or 1;
// the text is read before the literal.
template <typename Parse>
int compareNumbers(Parse parse, const Table& table, std::size_t column, std::size_t row,
                   std::string_view text, std::string_view literal) {
  const auto one = atPlace(table, column, row, [&] { return parse(text); });
  const auto other = atPlace(table, column, std::nullopt, [&] { return parse(literal); });
  return one < other ? -1 : one > other ? 1 : 0;
}

int compare(const Table& table, std::size_t column, std::size_t row, std::string_view text,
            std::string_view literal) {
  switch (table.kind(column)) {
    case ValueKind::integer:
      return compareNumbers(parseInt, table, column, row, text, literal);
    case ValueKind::real:
      return compareNumbers(parseFloat, table, column, row, text, literal);
    case ValueKind::longInteger:
      return compareNumbers(parseLong, table, column, row, text, literal);
    case ValueKind::doubleReal:
      return compareNumbers(parseDouble, table, column, row, text, literal);
    case ValueKind::boolean:
      return text == "false" && literal == "true" ? -1 : text == "true" && literal == "false";
    case ValueKind::text:
      return text.compare(literal);
    case ValueKind::unknown:
      break;
  }
  return 0;
}

bool holds(const Condition& condition, const Table& table, std::size_t row, std::int64_t now) {
  const std::size_t column = table.columnPosition(condition.column);
  if (column == noColumn) return false;
  const std::string text = textOf(table, row, column, now);
  const std::string& literal = condition.value;
  const std::string& op = condition.op;
  if (op == "=" || op == "==") return text == literal;
  if (op == "!=") return text != literal;
  if (op != "<" && op != "<=" && op != ">" && op != ">=") return false;
  const int order = compare(table, column, row, text, literal);
  const bool isBeyond = op.front() == '<' ? order < 0 : order > 0;
  return isBeyond || (op.size() == 2 && text == literal);
}

// Each group of conditions joined by && walks over all rows, one group after the other.
std::vector<std::int32_t> walk(const std::vector<Condition>& conditions, const Table& table,
                               std::int64_t now) {
  std::vector<bool> isFound(table.rowCount());
  std::size_t start = 0;
  do {
    std::size_t end = start;
    while (end < conditions.size() && (end == start || conditions[end].logic != 'o')) ++end;
    for (std::size_t row = 0; row < table.rowCount(); ++row) {
      bool matches = table.isLive(row);
      for (std::size_t i = start; matches && i < end; ++i) {
        matches = holds(conditions[i], table, row, now);
      }
      if (matches) isFound[row] = true;
    }
    start = end;
  } while (start < conditions.size());
  std::vector<std::int32_t> rows;
  for (std::size_t row = 0; row < table.rowCount(); ++row) {
    if (isFound[row]) rows.push_back(static_cast<std::int32_t>(row));
  }
  return rows;
}

const std::vector<Column> columnsOfAllKinds = {
    {"i", "int", 5},  {"n", "int", 5},    {"f", "float", 5}, {"g", "float", 5},
    {"b", "bool", 5}, {"s", "string", 5}, {"o", "other", 5}};

// How seldom a table has rows that take more than a look at the arrays; 0 is never.
struct Rarity {
  std::int64_t odd;
  std::int64_t timed;
  std::int64_t missing;
  std::int64_t deleted;
};

class Scans : public DatabaseTest {
 protected:
  explicit Scans(unsigned seed = 1) : choices_(seed) {}

  bool isDue(std::int64_t rarity) { return rarity > 0 && choices_.oneIn(rarity); }

  // A value that is told by the arrays, of few that there are, so that filters find some.
  std::string usual(ValueKind kind) {
    switch (kind) {
      case ValueKind::integer:
        return std::to_string(choices_.within(-20, 20));
      case ValueKind::real:
        return std::to_string(choices_.within(-20, 20)) +
               choices_.of(Texts{"", ".0", ".5", ".50", ".25", ".123456", ".000001"});
      case ValueKind::boolean:
        return choices_.oneIn(2) ? "true" : "false";
      default:
        return choices_.of(Texts{"", "a", "b", "name", "a text longer than fifteen bytes",
                                 "a text longer than fifteen byteS", "1", "true"}) +
               choices_.of(Texts{"", "x", std::string(1, '\0')});
    }
  }
  std::string odd(ValueKind kind) {
    // Of those that never convert few, or no filter would come to its end.
    if (kind == ValueKind::integer) return choices_.of(Texts{"05", "+7", "-0", " 3", "7x"});
    if (kind == ValueKind::real) return choices_.of(Texts{"05", "1e1", "5.", ".5", "7x", "inf"});
    if (kind == ValueKind::boolean) return choices_.of(Texts{"1", "yes", "TRUE"});
    return "#/#?";
  }
  std::string unreadable() { return choices_.of(Texts{"x", "#/#?", "99999999999", "1e99", ""}); }
  std::string textFor(ValueKind kind, const Rarity& rarity) {
    if (isDue(rarity.missing)) return std::string(missingValue);
    return isDue(rarity.odd) ? odd(kind) : usual(kind);
  }

  Table makeTable(std::size_t rowCount, const Rarity& rarity) {
    Table table("t", columnsOfAllKinds);
    for (std::size_t row = 0; row < rowCount; ++row) {
      table.appendRow();
      for (std::size_t column = 0; column < columnsOfAllKinds.size(); ++column) {
        const ValueKind kind = table.kind(column);
        if (isDue(rarity.timed)) {
          const Texts states = {textFor(kind, rarity), textFor(kind, rarity), usual(kind)};
          table.set(row, column, timedCell(choices_.rule(states, second - 60, second + 60)),
                    second);
        } else if (isDue(rarity.missing) && choices_.oneIn(2)) {
          continue;  // as it was appended
        } else {
          table.set(row, column, plainCell(textFor(kind, rarity)), second);
        }
      }
      if (isDue(rarity.deleted)) table.setDeleted(row, true);
    }
    // A few cells that no order can read.
    for (std::int64_t i = choices_.within(0, 3); i > 0 && rowCount > 0; --i) {
      const auto last = static_cast<std::int64_t>(rowCount) - 1;
      const auto row = static_cast<std::size_t>(choices_.within(0, last));
      table.set(row, static_cast<std::size_t>(choices_.within(0, 6)), plainCell(unreadable()),
                second);
    }
    return table;
  }

  Condition condition(const Table& table) {
    const auto column = static_cast<std::size_t>(choices_.within(0, 6));
    const ValueKind kind = table.kind(column);
    const std::string name = choices_.oneIn(50) ? "nosuch" : columnsOfAllKinds[column].name;
    const std::string literal = choices_.oneIn(12)  ? unreadable()
                                : choices_.oneIn(6) ? odd(kind)
                                                    : usual(kind);
    const std::string op =
        choices_.oneIn(50) ? "=<" : choices_.of(Texts{"=", "==", "!=", "<", ">", "<=", ">="});
    return {"", name, literal, op, choices_.oneIn(3) ? 'o' : 'a'};
  }
  std::vector<Condition> filter(const Table& table) {
    std::vector<Condition> conditions;
    for (std::int64_t i = choices_.within(0, 4); i > 0; --i) {
      conditions.push_back(condition(table));
    }
    return conditions;
  }
  static std::string toText(const std::vector<Condition>& conditions) {
    std::string text;
    for (const Condition& each : conditions) {
      text += std::string(each.logic == 'o' ? " || " : " && ") + each.column + ' ' + each.op +
              " '" + each.value + '\'';
    }
    return text;
  }

  // Some filters at some seconds, forwards and backwards.
  void compareOn(const Table& table, int filterCount) {
    for (int i = 0; i < filterCount; ++i) {
      const std::vector<Condition> conditions = filter(table);
      const std::int64_t now = second + choices_.within(-100, 100);
      const auto found = [&] { return database.getRequestedRows(conditions, table, now); };
      const auto expected = [&] { return walk(conditions, table, now); };
      const Outcome outcome = outcomeOf(found);
      failures += outcome.failure.empty() ? 0 : 1;
      matches += outcome.rows.empty() ? 0 : 1;
      ASSERT_EQ(outcome, outcomeOf(expected)) << toText(conditions) << " at " << now;
    }
  }

  Choices choices_;
  int failures = 0;  // of the filters so far
  int matches = 0;   // with some rows
};

TEST_F(Scans, FindWhatAPlainWalkFinds) {
  const std::vector<Rarity> rarities = {
      {0, 0, 0, 0}, {0, 0, 0, 7}, {50, 0, 0, 20},     {0, 50, 0, 20}, {0, 0, 50, 20},
      {9, 9, 9, 9}, {2, 2, 2, 2}, {500, 500, 500, 3}, {0, 1, 0, 0},   {1, 0, 0, 0}};
  for (const std::size_t rowCount : {0U, 1U, 7U, 8U, 63U, 64U, 300U, 2047U, 2048U, 2049U, 4500U}) {
    for (const Rarity& rarity : rarities) {
      const Table table = makeTable(rowCount, rarity);
      ASSERT_NO_FATAL_FAILURE(compareOn(table, rowCount < 1000 ? 60 : 25)) << rowCount << " rows";
    }
  }
  // Both have come about often.
  EXPECT_GT(failures, 500);
  EXPECT_GT(matches, 500);
}

// Conditions on the key are asked of the rows that the key map names, and all others by scans.
TEST_F(Scans, FindTheSameInATableWithAKey) {
  for (const std::size_t rowCount : {300U, 2049U}) {
    Table table("t", columnsOfAllKinds);
    for (std::size_t row = 0; row < rowCount; ++row) {
      table.appendRow();
      table.set(row, 0, plainCell(std::to_string((row * 7919) % rowCount)), second);
      for (std::size_t column = 1; column < columnsOfAllKinds.size(); ++column) {
        table.set(row, column, plainCell(usual(table.kind(column))), second);
      }
      if (choices_.oneIn(9)) table.setDeleted(row, true);
    }
    table.setUpPrimaryKeyMap("i", second);
    for (int i = 0; i < 300; ++i) {
      std::vector<Condition> conditions = filter(table);
      for (Condition& each : conditions) each.value = usual(table.kind(table.columnPosition("n")));
      ASSERT_EQ(database.getRequestedRows(conditions, table, second),
                walk(conditions, table, second))
          << toText(conditions);
    }
  }
}

}  // namespace
}  // namespace velmora
