// What filters let pass: comparisons of numbers as numbers, of texts, of bools and with null, by
// scan and by key, and what of them is refused.

#include <gtest/gtest.h>

#include "query_fixture.h"

namespace velmora {
namespace {

using Found = std::vector<std::int32_t>;

// A table of one column with these values.
Table tableWith(const std::string& type, const std::vector<Value>& values) {
  Table table = tableOf(type);
  for (const Value& value : values) addRow(table, {value});
  return table;
}

Found found(const Table& table, Operator op, Value value) {
  return rowsPassing(table, {where("c", op, std::move(value))});
}

Value number(std::int64_t value) { return value; }

TEST(QueryFilter, comparesIntegersWithFloatsAsNumbers) {
  const Table table = tableWith("int", {number(14), number(15), Value(), number(-1)});
  EXPECT_EQ(found(table, Operator::less, 14.5), (Found{0, 3}));
  EXPECT_EQ(found(table, Operator::lessOrEqual, 14.0), (Found{0, 3}));
  EXPECT_EQ(found(table, Operator::greater, 14.5), (Found{1}));
  EXPECT_EQ(found(table, Operator::equal, 14.0), (Found{0}));
  EXPECT_EQ(found(table, Operator::equal, 14.5), (Found{}));
  EXPECT_EQ(found(table, Operator::notEqual, 14.5), (Found{0, 1, 3}));
  EXPECT_EQ(found(table, Operator::less, 1e300), (Found{0, 1, 3}));
  EXPECT_EQ(found(table, Operator::greater, number(99999999999)), (Found{}));
  EXPECT_EQ(found(table, Operator::greater, number(-99999999999)), (Found{0, 1, 3}));
  EXPECT_EQ(found(table, Operator::notEqual, number(99999999999)), (Found{0, 1, 3}));
}

TEST(QueryFilter, comparesTheEndsOf64BitsExactly) {
  constexpr std::int64_t most = std::numeric_limits<std::int64_t>::max();
  constexpr std::int64_t least = std::numeric_limits<std::int64_t>::min();
  const Table table = tableWith("/long", {number(most), number(most - 1), number(least)});
  EXPECT_EQ(found(table, Operator::less, number(most)), (Found{1, 2}));
  EXPECT_EQ(found(table, Operator::greaterOrEqual, number(most)), (Found{0}));
  EXPECT_EQ(found(table, Operator::less, number(least)), (Found{}));
  EXPECT_EQ(found(table, Operator::less, 0x1p63), (Found{0, 1, 2}));
  EXPECT_EQ(found(table, Operator::greater, -0x1p63), (Found{0, 1}));
  const Table reals = tableWith("/double", {Value(0x1p63), Value(0x1p62), Value()});
  EXPECT_EQ(found(reals, Operator::greater, number(most)), (Found{0}));
  EXPECT_EQ(found(reals, Operator::equal, number(most)), (Found{}));
}

TEST(QueryFilter, takesALiteralForTheFloatThatIsWrittenSo) {
  const Table table = tableWith("float", {Value(0.1), Value(0.25), Value(), Value(-0.0)});
  EXPECT_EQ(found(table, Operator::equal, 0.1), (Found{0}));
  EXPECT_EQ(found(table, Operator::lessOrEqual, 0.1), (Found{0, 3}));
  EXPECT_EQ(found(table, Operator::less, 0.1), (Found{3}));
  EXPECT_EQ(found(table, Operator::equal, number(0)), (Found{3}));
  EXPECT_EQ(found(table, Operator::notEqual, 0.1), (Found{1, 3}));
  EXPECT_EQ(found(table, Operator::less, number(1)), (Found{0, 1, 3}));
  EXPECT_EQ(found(table, Operator::less, 1e300), (Found{0, 1, 3}));
}

TEST(QueryFilter, ordersTextsByBytesAndFalseBeforeTrue) {
  const Table texts = tableWith("string", {textValue("a"), textValue("b"), Value(),
                                           textValue("#/#?"), textValue("a longer text than 15")});
  EXPECT_EQ(found(texts, Operator::less, textValue("b")), (Found{0, 3, 4}));
  EXPECT_EQ(found(texts, Operator::notEqual, textValue("a")), (Found{1, 3, 4}));
  EXPECT_EQ(found(texts, Operator::equal, textValue("#/#?")), (Found{3}));
  EXPECT_EQ(found(texts, Operator::equal, textValue("a longer text than 15")), (Found{4}));
  const Table bools = tableWith("bool", {Value(true), Value(false), Value()});
  EXPECT_EQ(found(bools, Operator::less, Value(true)), (Found{1}));
  EXPECT_EQ(found(bools, Operator::notEqual, Value(true)), (Found{1}));
  EXPECT_EQ(found(bools, Operator::greaterOrEqual, Value(false)), (Found{0, 1}));
}

TEST(QueryFilter, tellsNullFromEveryValueAndComparesItWithNone) {
  const std::vector<std::pair<std::string, Value>> values = {
      {"int", number(0)},      {"/long", number(0)},   {"float", Value(0.0)},
      {"/double", Value(0.0)}, {"bool", Value(false)}, {"string", textValue("#/#?")}};
  for (const auto& [type, value] : values) {
    const Table table = tableWith(type, {value, Value()});
    EXPECT_EQ(rowsPassing(table, {where("c", Operator::isNull)}), (Found{1})) << type;
    EXPECT_EQ(rowsPassing(table, {where("c", Operator::isNotNull)}), (Found{0})) << type;
    for (const Operator op : {Operator::equal, Operator::notEqual, Operator::less,
                              Operator::greater, Operator::lessOrEqual, Operator::greaterOrEqual}) {
      EXPECT_EQ(found(table, op, Value()), Found{}) << type;
      EXPECT_EQ(rowsPassing(table, {where("c", op, parameter(0))}, 0, {Value()}), Found{});
      for (const std::int32_t row : found(table, op, value)) EXPECT_EQ(row, 0) << type;
    }
  }
}

TEST(QueryFilter, passesRowsThatSatisfyAllOfSomeGroup) {
  Table table("t", {{"a", "int"}, {"b", "string"}});
  addRow(table, {number(1), textValue("x")});
  addRow(table, {number(2), textValue("y")});
  addRow(table, {number(3), textValue("x")});
  addRow(table, {number(3), textValue("z")});
  table.setDeleted(3, true);
  const auto isB = [](const char* text) { return where("b", Operator::equal, textValue(text)); };
  EXPECT_EQ(rowsPassing(table, {where("a", Operator::equal, 2), isB("x"),
                                andAlso(where("a", Operator::greater, 1))}),
            (Found{1, 2}));
  EXPECT_EQ(rowsPassing(table, {}), (Found{0, 1, 2}));
  EXPECT_EQ(rowsPassing(table, {where("t.a", Operator::greater, 2)}), (Found{2}));
}

TEST(QueryFilter, findsRowsByTheirKeys) {
  Tables tables;
  Table& table = addTable(tables, "t", {{"id", "ApexInt"}, {"b", "int"}}, "id");
  for (std::int64_t i = 1; i <= 9; ++i) addRow(table, {number(10 * i), number(i)});
  table.setDeleted(4, true);
  const auto isKey = [](const Value& key) { return where("id", Operator::equal, key); };
  EXPECT_EQ(rowsPassing(table, {isKey(number(30))}), (Found{2}));
  EXPECT_EQ(rowsPassing(table, {isKey(30.0)}), (Found{2}));
  EXPECT_EQ(rowsPassing(table, {isKey(30.5)}), Found{});
  EXPECT_EQ(rowsPassing(table, {isKey(number(50))}), Found{});
  EXPECT_EQ(rowsPassing(table, {isKey(number(1LL << 40))}), Found{});
  EXPECT_EQ(rowsPassing(table, {isKey(Value())}), Found{});
  EXPECT_EQ(rowsPassing(table, {isKey(number(70)), isKey(number(20)), isKey(number(70))}),
            (Found{1, 6}));
  EXPECT_EQ(rowsPassing(table, {isKey(number(30)), andAlso(where("b", Operator::greater, 3))}),
            Found{});
  EXPECT_EQ(rowsPassing(table, {where("id", Operator::equal, parameter(0))}, 0, {number(40)}),
            (Found{3}));
  Table& named = addTable(tables, "n", {{"name", "string"}}, "name");
  addRow(named, {textValue("one")});
  addRow(named, {textValue("two")});
  EXPECT_EQ(rowsPassing(named, {where("name", Operator::equal, textValue("two"))}), (Found{1}));
}

TEST(QueryFilter, isOfTheSecondThatIsAskedFor) {
  Table table = tableOf("int");
  add(table, timedCell(ruleOf({{"1", 10}, {"2", 10}, {"3", 10}}, false, 100)), 100);
  add(table, plainCell("2"));
  EXPECT_EQ(rowsPassing(table, {where("c", Operator::equal, 2)}, 105), (Found{1}));
  EXPECT_EQ(rowsPassing(table, {where("c", Operator::equal, 2)}, 110), (Found{0, 1}));
  EXPECT_EQ(rowsPassing(table, {where("c", Operator::greater, 2)}, 120), (Found{0}));
}

TEST(QueryFilter, refusesUnknownNamesAndValuesThatCannotBeCompared) {
  Table table("t", {{"a", "int"}, {"b", "string"}, {"l", "/long"}, {"o", "bool"}});
  const auto failure = [&](strict::Comparison comparison, std::vector<Value> values = {}) {
    return failureOf([&] { return rowsPassing(table, {std::move(comparison)}, 0, values); });
  };
  strict::Comparison unknown = where("x", Operator::equal, 1);
  unknown.column.column.offset = 7;
  EXPECT_EQ(failure(unknown), "4 Unknown column 'x' at 7");
  unknown.column = {{"u", 5}, {"a", 7}};
  EXPECT_EQ(failure(unknown), "4 Unknown table 'u' at 5");
  EXPECT_EQ(failure(where("a", Operator::equal, operandOf(textValue("x"), 9))),
            "9 Column 'a' of type int cannot be compared with a text at 9");
  EXPECT_EQ(failure(where("l", Operator::equal, operandOf(Value(true), 9))),
            "9 Column 'l' of type long cannot be compared with a bool at 9");
  EXPECT_EQ(failure(where("b", Operator::less, parameter(0, 3)), {Value(0.5)}),
            "9 Column 'b' of type string cannot be compared with a number at 3");
  EXPECT_EQ(failure(where("o", Operator::less, parameter(0, 3)), {number(1)}),
            "9 Column 'o' of type bool cannot be compared with a number at 3");
}

TEST(QueryFilter, asksNothingOfTimedRowsThatWereTakenBack) {
  Table table("t", {{"c", "int", 2}});
  for (int i = 0; i < 20; ++i) add(table, timedCell(ruleOf({{"1", 10}, {"2", 10}}, true, 0)));
  const strict::Filter isTwo = {where("c", Operator::equal, 2)};
  EXPECT_EQ(rowsPassing(table, isTwo, 35).size(), 20U);
  table.removeLastRow();
  EXPECT_EQ(rowsPassing(table, isTwo, 15).size(), 19U);
  addRow(table, {number(2)});
  EXPECT_EQ(rowsPassing(table, isTwo, 25), (Found{19}));
}

TEST(QueryFilter, stopsWhenItIsInterrupted) {
  const Table table = tableWith("int", {number(1)});
  Interrupts interrupts;
  const Interrupt interrupt(interrupts);
  interrupts.interruptAll();
  const RowFilter filter({}, table);
  EXPECT_EQ(failureOf([&] { return filter.rows({{}, 0, interrupt}); }), "16 Interrupted at -1");
}

}  // namespace
}  // namespace velmora
