// The language of the handles, sentence by sentence, as a host meets it: what is refused, with
// which code and at which byte, what values are, and what each command answers.
#include <limits>

#include "handle_fixture.h"

namespace handles {
namespace {

class StrictLanguage : public HandleTest {};

// A table with a column of each type, and rows that a refused command must leave as they are.
class StrictRows : public HandleTest {
 protected:
  StrictRows() {
    run("CREATE TABLE t3 s string(5) b bool f float l long d double i int 3 u string");
    run("INSERT INTO t3 s = 'grün' i = 5 l = 6");
    before_ = run("SELECT * FROM t3");
  }
  ~StrictRows() override { EXPECT_EQ(run("SELECT * FROM t3"), before_); }

 private:
  std::string before_;
};

TEST_F(StrictLanguage, refusesDefinitionsThatNoFileCouldHold) {
  check({
      {"CREATE TABLE f n int l int", "0 rows"},
      {"CREATE TABLE bad", "! 11 16: Expected a column name, found the end of the command"},
      {"CREATE TABLE on n int", "! 11 13: Expected a table name, found the word 'on'"},
      {"CREATE TABLE Set n int", "! 11 13: Expected a table name, found the word 'Set'"},
      {"CREATE TABLE t on int", "! 11 15: Expected a column name, found the word 'on'"},
      {"CREATE TABLE t 'Worldwide Gross' int",
       "! 11 15: Expected a column name, found ''Worldwide Gross''"},
      {"CREATE TABLE 'x y' n int", "! 11 13: Expected a table name, found ''x y''"},
      {"CREATE TABLE 1x n int", "! 11 13: Malformed number '1x'"},
      {"CREATE TABLE t n int n int", "! 11 21 t.n: Column 'n' is defined twice"},
      {"CREATE TABLE t n ApexInt m ApexInt",
       "! 11 27 t.m: A table can only have one ApexInt column"},
      {"CREATE TABLE t n int(5)", "! 11 20: Expected a column name, found '('"},
      {"CREATE TABLE t n string(0)", "! 10 24: Expected a whole number from 1 to 65535, found '0'"},
      {"CREATE TABLE t n string(70000)",
       "! 10 24: Expected a whole number from 1 to 65535, found '70000'"},
      {"CREATE TABLE t n string(?)", "! 11 24: Expected a whole number, found '?'"},
      {"CREATE TABLE t n nix",
       "! 11 17: Expected a type (int, ApexInt, float, bool, string, long, double), found 'nix'"},
      {"CREATE TABLE t n INT",
       "! 11 17: Expected a type (int, ApexInt, float, bool, string, long, double), found 'INT'"},
      {"CREATE TABLE t n int -1", "! 10 21: Expected a whole number from 0 to 65535, found '-1'"},
      {"CREATE TABLE webhooks n int", "! 11 13: The name 'webhooks' is not free for tables"},
      {"CREATE TABLE abcdefghijklmnop n int",
       "! 11 13: The name 'abcdefghijklmnop' has more than 15 bytes"},
      {"CREATE TABLE abcdefghijklmno n int", "0 rows"},
      {"CREATE TABLE t2 abcdefghijklmnop int",
       "! 11 16: The name 'abcdefghijklmnop' has more than 15 bytes"},
      {"CREATE TABLE f n int", "! 5 13 f: Table 'f' exists"},
  });
  EXPECT_EQ(run("SHOW TABLES"), "abcdefghijklmno 0; f 0");
}

TEST_F(StrictRows, takeNoValueOfAnotherType) {
  check({
      {"INSERT INTO t3 s = 'abcdef'",
       "! 10 19 t3.s: A text of 6 bytes is longer than 5 for column 's' of table 't3', which is "
       "string"},
      {"INSERT INTO t3 s = 'grüne'",
       "! 10 19 t3.s: A text of 6 bytes is longer than 5 for column 's' of table 't3', which is "
       "string"},
      {"INSERT INTO t3 b = 1",
       "! 9 19 t3.b: 1 is no value for column 'b' of table 't3', which is bool"},
      {"INSERT INTO t3 b = 'true'",
       "! 9 19 t3.b: 'true' is no value for column 'b' of table 't3', which is bool"},
      {"INSERT INTO t3 b = TRUE", "! 11 19: Expected a value after '=', found the word 'TRUE'"},
      {"INSERT INTO t3 f = 1e39",
       "! 10 19 t3.f: 1e+39 is out of range for column 'f' of table 't3', which is float"},
      {"INSERT INTO t3 f = 1e-60",
       "! 10 19 t3.f: 1e-60 is out of range for column 'f' of table 't3', which is float"},
      {"INSERT INTO t3 d = 1e400", "! 10 19: No double can hold '1e400'"},
      {"INSERT INTO t3 d = 1e-400", "! 10 19: No double can hold '1e-400'"},
      {"INSERT INTO t3 f = inf", "! 11 19: Expected a value after '=', found 'inf'"},
      {"INSERT INTO t3 f = 'x'",
       "! 9 19 t3.f: 'x' is no value for column 'f' of table 't3', which is float"},
      {"INSERT INTO t3 i = 2147483648",
       "! 10 19 t3.i: 2147483648 is out of range for column 'i' of table 't3', which is int"},
      {"INSERT INTO t3 i = 5.5",
       "! 9 19 t3.i: 5.5 is no value for column 'i' of table 't3', which is int"},
      {"INSERT INTO t3 i = 5.0",
       "! 9 19 t3.i: 5.0 is no value for column 'i' of table 't3', which is int"},
      {"INSERT INTO t3 i = '5'",
       "! 9 19 t3.i: '5' is no value for column 'i' of table 't3', which is int"},
      {"INSERT INTO t3 l = 9223372036854775808",
       "! 10 19 t3.l: 9223372036854775808.0 is out of range for column 'l' of table 't3', which is "
       "long"},
  });
}

TEST_F(StrictRows, takeNoTimedValueThatIsNone) {
  check({
      {"INSERT INTO t3 i = 1 --> 2 @ 0 s",
       "! 10 29: Expected a whole number from 1 to 1099511627776, found '0'"},
      {"INSERT INTO t3 i = 1 --> 2 @ 1.5 s",
       "! 9 29: Expected a whole number from 1 to 1099511627776, found '1.5'"},
      {"INSERT INTO t3 i = 1 --> 2 @ -1 s",
       "! 10 29: Expected a whole number from 1 to 1099511627776, found '-1'"},
      {"INSERT INTO t3 i = 1 --> 2 @ 5 w",
       "! 11 31: Expected a time unit (s, m, h, d, mo), found 'w'"},
      {"INSERT INTO t3 i = 1 --> 2 @ 5",
       "! 11 30: Expected a time unit (s, m, h, d, mo), found the end of the command"},
      {"INSERT INTO t3 i = 1 --> 2 5 s", "! 11 27: Expected '@', found '5'"},
      {"INSERT INTO t3 i = 1 --> ",
       "! 11 25: Expected a value after '-->', found the end of the command"},
      {"INSERT INTO t3 i = 1 --> NULL @ 5 s",
       "! 9 25 t3.i: NULL is no state for column 'i' of table 't3', which is int"},
      {"INSERT INTO t3 i = 1 --> 'two' @ 5 s",
       "! 9 25 t3.i: 'two' is no value for column 'i' of table 't3', which is int"},
      {"INSERT INTO t3 i = 1 --> 2 @ 5 s --> 3 @ 5 s --> 4 @ 5 s",
       "! 10 19 t3.i: 4 states are more than 3 for column 'i' of table 't3', which is int"},
      {"INSERT INTO t3 l = 1 --> 2 @ 5 s",
       "! 10 19 t3.l: 2 states are more than 0 for column 'l' of table 't3', which is long"},
      {"INSERT INTO t3 i = (1 --> 2 @ 5 s", "! 11 33: Expected ')', found the end of the command"},
      {"INSERT INTO t3 i = 1 --> 2 @ 5 s #TIME# -5",
       "! 10 40: Expected a whole number from 0 to 1099511627776, found '-5'"},
  });
}

TEST_F(StrictRows, takeNoBoundValueThatIsNone) {
  const std::string duration =
      "! 10 29 t3.i: A duration has to be a positive whole number, and no longer than "
      "1099511627776 seconds: ";
  const std::string timed = "INSERT INTO t3 i = 1 --> 2 @ ? s";
  EXPECT_EQ(run(timed, {0}), duration + "0");
  EXPECT_EQ(run(timed, {1.5}), duration + "1.5");
  EXPECT_EQ(run(timed, {Bound()}), duration + "NULL");
  EXPECT_EQ(run(timed, {(std::int64_t{1} << 40) + 1}), duration + "1099511627777");
  const std::string clock = ": The clock has to be a whole number from 0 to 1099511627776";
  const std::string started = "INSERT INTO t3 i = 1 --> 2 @ 5 s #TIME# ?";
  EXPECT_EQ(run(started, {Bound()}), "! 9 40" + clock);
  EXPECT_EQ(run(started, {-1}), "! 10 40" + clock);
  EXPECT_EQ(run(started, {std::numeric_limits<std::int64_t>::max()}), "! 10 40" + clock);
  EXPECT_EQ(run("INSERT INTO t3 l = ?", {5.0}),
            "! 9 19 t3.l: 5.0 is no value for column 'l' of table 't3', which is long");
  EXPECT_EQ(run("INSERT INTO t3 i = ?", {std::string(59, 'x') + "\u00fc"}),
            "! 9 19 t3.i: '" + std::string(59, 'x') +
                "...' is no value for column 'i' of table 't3', which is int");
  EXPECT_EQ(run("INSERT INTO t3 s = ?", {"\xff"}), "! 10: Value 1 is not UTF-8");
  EXPECT_EQ(run("INSERT INTO t3 s = ?", {std::string("a\0b", 3)}), "! 10: Value 1 has a zero byte");
  EXPECT_EQ(run("SELECT i FROM t3 LIMIT ?", {-1}), "! 10 23: LIMIT must not be below 0");
  EXPECT_EQ(run("SELECT i FROM t3 LIMIT 1 OFFSET ?", {Bound()}),
            "! 9 32: OFFSET takes a whole number");
  EXPECT_EQ(run("SELECT i FROM t3 AT ?", {-1}), "! 10 20: AT must not be below 0");
  EXPECT_EQ(run("SELECT i FROM t3 WHERE i = ?", {"x"}),
            "! 9 27 t3.i: Column 'i' of type int cannot be compared with a text");
  EXPECT_EQ(run("LISTEN t3.x --> 'y' WHERE i = ?", {"x"}),
            "! 9 30 t3.i: Column 'i' of type int cannot be compared with a text");
  EXPECT_EQ(run("SELECT i FROM t3 WHERE i = ?"), "! 1: The command has places for 1 values, not 0");
}

TEST_F(StrictRows, surviveCommandsThatAreNotUnderstood) {
  check({
      {"INSERT INTO t3", "! 11 14: Expected a column name, found the end of the command"},
      {"INSERT INTO t3 nix = 1", "! 4 15 t3.nix: Unknown column 'nix'"},
      {"INSERT INTO t3 s = 'a' s = 'b'", "! 11 23 t3.s: Column 's' is given twice"},
      {"INSERT INTO t3 s 'a'", "! 11 17: Expected '=', found ''a''"},
      {"INSERT INTO t3 s = 'a', b = true", "! 11 22: Expected a column name, found ','"},
      {"INSERT INTO t3 s = 'a", "! 11 19: A literal that begins here has no end"},
      {"INSERT INTO nix a = 1", "! 4 12 nix: Unknown table 'nix'"},
      {"DELETE FROM t3 WHERE", "! 11 20: Expected a column name, found the end of the command"},
      {"DELETE FROM t3 WEHRE i = 1", "! 11 15: Unexpected 'WEHRE' after the command"},
      {"DELETE FROM t3 LIMIT 1", "! 11 15: Unexpected 'LIMIT' after the command"},
      {"DELETE FROM t3 WHERE nix = 1", "! 4 21 t3.nix: Unknown column 'nix'"},
      {"DELETE FROM nix", "! 4 12 nix: Unknown table 'nix'"},
      {"UPDATE t3 SET s = 'x' WHERE nix = 1", "! 4 28 t3.nix: Unknown column 'nix'"},
      {"UPDATE t3 s = 'x'", "! 11 10: Expected SET, found 's'"},
      {"UPDATE t3 SET", "! 11 13: Expected a column name, found the end of the command"},
      {"UPDATE t3 SET s = 'x' i = 'y'",
       "! 9 26 t3.i: 'y' is no value for column 'i' of table 't3', which is int"},
      {"SELECT * FROM t3 t", "! 11 17: Unexpected 't' after the command"},
      {"SELECT * FROM t3;", "! 11 16: Unknown character ';'"},
      {"SELECT * FROM t3 WHERE i ~ 5", "! 11 25: Unknown character '~'"},
      {"SELECT * FROM t3 WHERE i = 5 &&",
       "! 11 31: Expected a column name, found the end of the command"},
      {"SELECT * FROM t3 WHERE i = 5 AND l = 6", "! 11 29: Unexpected 'AND' after the command"},
      {"SELECT * FROM t3 WHERE (i = 5)", "! 11 23: Expected a column name, found '('"},
      {"SELECT nix FROM t3", "! 4 7 t3.nix: Unknown column 'nix'"},
      {"SELECT SUM(*) FROM t3", "! 11 11: Expected a column name, found '*'"},
      {"SELECT COUNT() FROM t3", "! 11 13: Expected a column name, found ')'"},
      {"SELECT FOO(i) FROM t3", "! 11 7: Unknown function 'FOO'"},
      {"SELECT i FROM t3 ORDER BY nix", "! 4 26 t3.nix: Unknown column 'nix'"},
      {"SELECT i FROM t3 GROUP BY nix", "! 4 26 t3.nix: Unknown column 'nix'"},
      {"SELECT i FROM t3 LIMIT", "! 11 22: Expected a whole number, found the end of the command"},
      {"SELECT i FROM t3 OFFSET 3", "! 11 17: Unexpected 'OFFSET' after the command"},
      {"SELECT i FROM t3 LIMIT 1 ORDER BY i", "! 11 25: Unexpected 'ORDER' after the command"},
      {"SELECT i FROM t3 AT", "! 11 19: Expected a whole number, found the end of the command"},
      {"SELECT i FROM t3 #TIME# 5", "! 11 17: Unexpected '#TIME#' after the command"},
      {"DELETE FROM t3 #TIME# 5", "! 11 15: Unexpected '#TIME#' after the command"},
  });
}

TEST_F(StrictLanguage, knowsWhatThereIsNotToBeShownOrLinked) {
  check({
      {"CREATE TABLE f n int l int", "0 rows"},
      {"CREATE TABLE t3 s string(5) b bool f float l long d double i int 3 u string", "0 rows"},
      {"COMMIT", "! 17: No transaction is open"},
      {"ROLLBACK", "! 17: No transaction is open"},
      {"BEGIN x", "! 11 6: Unexpected 'x' after the command"},
      {"CHECKPOINT now", "! 11 11: Unexpected 'now' after the command"},
      {"VACUUM nix", "! 4 7 nix: Unknown table 'nix'"},
      {"SHOW nix",
       "! 11 5: Expected TABLES, COLUMNS, LINKS, LISTENERS, SCHEDULE, STATES or STORAGE, found "
       "'nix'"},
      {"SHOW COLUMNS FROM nix", "! 4 18 nix: Unknown table 'nix'"},
      {"SHOW SCHEDULE FROM nix", "! 4 19 nix: Unknown table 'nix'"},
      {"LINK a.b --> c.d", "! 4 5 a: Unknown table 'a'"},
      {"LINK f.n --> f.nix", "! 4 15 f.nix: Unknown column 'nix'"},
      {"LINK f.n -> f.l", "! 11 9: Unknown character '-'"},
      {"LINK t3.s --> f.n", "! 9 8 t3.s: Columns of different types cannot be linked"},
      {"LINK t3.b --> t3.b", "! 9 8 t3.b: Only int, ApexInt and string columns can be linked"},
      {"UNLINK f.n --> f.l", "! 4 7 f: Column 'f.n' is not linked to 'f.l'"},
      {"UNLISTEN f.x --> 'y'", "! 4 9 f: Table 'f' has no such listener"},
      {"LISTEN nix.x --> 'y'", "! 4 7 nix: Unknown table 'nix'"},
      {"LISTEN f.x --> 'y' WHERE nix = 1", "! 4 25 f.nix: Unknown column 'nix'"},
      {"LISTEN f.x --> 'y' WHERE n > 1", "1 row"},
      {"LISTEN f.x --> 'y' WHERE n > 1", "0 rows"},
  });
}

TEST_F(StrictLanguage, keepsEveryValueToTheLastBit) {
  check({
      {"CREATE TABLE v s string(200) f float d double l long i int b bool", "0 rows"},
      {"INSERT INTO v s = 'it''s \"here\" ? #TIME# 5' f = 0.1 d = 0.1 l = -9223372036854775808 i = "
       "-2147483648 b = false",
       "1 row"},
      {"INSERT INTO v s = \"a \"\"b\"\" 'c'\" f = 3.4028235e38 d = 1.7976931348623157e308 l = "
       "9223372036854775807 i = 2147483647 b = true",
       "1 row"},
      {"INSERT INTO v s = '' f = -0.0 d = 5e-324 l = 0", "1 row"},
      {"INSERT INTO v i = NULL", "1 row"},
  });
  checkLasting({
      {"SELECT * FROM v",
       "'it's \"here\" ? #TIME# 5' 0.10000000149011612 0.1 -9223372036854775808 -2147483648 false; "
       "'a \"b\" 'c'' "
       "3.4028234663852886e+38 1.7976931348623157e+308 9223372036854775807 2147483647 true; '' -0 "
       "5e-324 0 "
       "NULL NULL; NULL NULL NULL NULL NULL NULL"},
  });
}

TEST_F(StrictLanguage, comparesNumbersAsNumbersAndNothingWithNull) {
  check({
      {"CREATE TABLE n id ApexInt i int l long f float d double b bool s string", "0 rows"},
      {"INSERT INTO n i = 14 l = 9007199254740993 f = 0.1 d = 0.1 b = true s = 'b'",
       "1 row, number 1"},
      {"INSERT INTO n i = -1 l = 9007199254740992 f = 16777216 d = -0.0 b = false s = 'B'",
       "1 row, number 2"},
      {"INSERT INTO n s = ''", "1 row, number 3"},
  });
  checkLasting({
      {"SELECT id FROM n WHERE i < 14.5", "1; 2"},
      {"SELECT id FROM n WHERE i = 14.5", ""},
      {"SELECT id FROM n WHERE i != 14.5", "1; 2"},
      {"SELECT id FROM n WHERE l = 9007199254740993", "1"},
      {"SELECT id FROM n WHERE l > 9007199254740992.0", "1"},
      {"SELECT id FROM n WHERE l < 9223372036854775808", "1; 2"},
      {"SELECT id FROM n WHERE f = 0.1", "1"},
      {"SELECT id FROM n WHERE f < 16777217", "1; 2"},
      {"SELECT id FROM n WHERE f > 1e-50", "1; 2"},
      {"SELECT id FROM n WHERE f = 1e-50", ""},
      {"SELECT id FROM n WHERE f < 1e39", "1; 2"},
      {"SELECT id FROM n WHERE d = 0", "2"},
      {"SELECT id FROM n WHERE d >= 0.1", "1"},
      {"SELECT id FROM n WHERE s >= 'B'", "1; 2"},
      {"SELECT id FROM n WHERE s = ''", "3"},
      {"SELECT id FROM n WHERE s != 'b'", "2; 3"},
      {"SELECT id FROM n WHERE i IS NULL", "3"},
      {"SELECT id FROM n WHERE s IS NULL", ""},
      {"SELECT id FROM n WHERE i IS NOT NULL", "1; 2"},
      {"SELECT id FROM n WHERE i = NULL", ""},
      {"SELECT id FROM n WHERE i != NULL", ""},
      {"SELECT id FROM n WHERE i < NULL || id = 3", "3"},
      {"SELECT id FROM n WHERE i = 14 && f = 0.1 || id = 3 && s = ''", "1; 3"},
      {"SELECT id FROM n WHERE id = 1 || i IS NULL && b IS NULL", "1; 3"},
      {"SELECT id FROM n WHERE b = 1",
       "! 9 27 n.b: Column 'b' of type bool cannot be compared with a number"},
      {"SELECT id FROM n WHERE s = 5",
       "! 9 27 n.s: Column 's' of type string cannot be compared with a number"},
      {"SELECT id FROM n WHERE i = '5'",
       "! 9 27 n.i: Column 'i' of type int cannot be compared with a text"},
      {"SELECT id FROM n WHERE m.id = 2", "! 4 23 m: Unknown table 'm'"},
  });
}

TEST_F(StrictLanguage, ordersLimitsGroupsAndCounts) {
  check({
      {"CREATE TABLE r g string x int y double t bool", "0 rows"},
      {"INSERT INTO r g = 'a' x = 1 y = 0.5", "1 row"},
      {"INSERT INTO r g = 'b' x = 2 y = 1.5 t = true", "1 row"},
      {"INSERT INTO r g = 'a' x = 3 t = false", "1 row"},
      {"INSERT INTO r x = 4 y = -2", "1 row"},
      {"INSERT INTO r g = 'b'", "1 row"},
      {"SELECT x FROM r ORDER BY g", "4; 1; 3; 2; NULL"},
      {"SELECT x FROM r ORDER BY g DESC", "2; NULL; 1; 3; 4"},
      {"SELECT x FROM r ORDER BY g ASC, x DESC", "4; 3; 1; 2; NULL"},
      {"SELECT x FROM r ORDER BY y LIMIT 2", "3; NULL"},
      {"SELECT x FROM r ORDER BY y LIMIT 2 OFFSET 4", "2"},
      {"SELECT x FROM r LIMIT 9223372036854775807 OFFSET 9223372036854775807", ""},
      {"SELECT x FROM r ORDER BY x LIMIT 9223372036854775807 OFFSET 3", "3; 4"},
      {"SELECT COUNT(*), COUNT(g), COUNT(x), COUNT(t) FROM r", "5 4 4 2"},
      {"SELECT MIN(x), MAX(x), SUM(x), AVG(x) FROM r", "1 4 10 2.5"},
      {"SELECT MIN(y), MAX(y), SUM(y), AVG(y) FROM r", "-2 1.5 0 0"},
      {"SELECT MIN(g), MAX(g), MIN(t), MAX(t) FROM r", "a b false true"},
      {"SELECT COUNT(*), COUNT(x), MIN(x), MAX(x), SUM(x), AVG(x) FROM r WHERE x > 100",
       "0 0 NULL NULL NULL NULL"},
      {"SELECT g, COUNT(*) FROM r WHERE x > 100 GROUP BY g", ""},
      {"SELECT g, COUNT(*), SUM(x), AVG(y) FROM r GROUP BY g", "a 2 4 0.5; b 2 2 1.5; NULL 1 4 -2"},
      {"SELECT g FROM r GROUP BY g ORDER BY COUNT(*) DESC, g", "a; b; NULL"},
      {"SELECT g, t, COUNT(*) FROM r GROUP BY g, t",
       "a NULL 1; b true 1; a false 1; NULL NULL 1; b NULL 1"},
      {"SELECT COUNT(*) FROM r GROUP BY t LIMIT 1", "3"},
      {"SELECT g, x FROM r GROUP BY g",
       "! 11 10 r.x: Column 'x' has to be in GROUP BY or within a function"},
      {"SELECT * FROM r GROUP BY g", "! 11 14: * does not go with GROUP BY or a function"},
      {"SELECT x FROM r ORDER BY SUM(x)",
       "! 11 7 r.x: Column 'x' has to be in GROUP BY or within a function"},
      {"SELECT SUM(g) FROM r", "! 9 11 r.g: SUM(g) takes numbers"},
      {"SELECT AVG(t) FROM r", "! 9 11 r.t: AVG(t) takes numbers"},
      {"select x from r where x = 3 order by x limit 1", "3"},
  });
}

TEST_F(StrictLanguage, refusesTotalsThatDoNotFit) {
  check({
      {"CREATE TABLE big l long d double", "0 rows"},
      {"INSERT INTO big l = 9223372036854775807 d = 1.7e308", "1 row"},
      {"INSERT INTO big l = 1 d = 1.7e308", "1 row"},
      {"SELECT SUM(l) FROM big", "! 10: SUM(l) does not fit 64 bits"},
      {"SELECT AVG(l) FROM big", "4611686018427387904"},
      {"SELECT SUM(d) FROM big", "! 10: SUM(d) does not fit a double"},
      {"SELECT AVG(d) FROM big", "! 10: AVG(d) does not fit a double"},
      {"SELECT SUM(l), SUM(d) FROM big WHERE l = 1", "1 1.7e+308"},
  });
}

TEST_F(StrictLanguage, joinsByEitherSide) {
  check({
      {"CREATE TABLE u id ApexInt name string", "0 rows"},
      {"CREATE TABLE o buyer int item string price double", "0 rows"},
      {"INSERT INTO u name = 'Ann'", "1 row, number 1"},
      {"INSERT INTO u name = 'Bob'", "1 row, number 2"},
      {"INSERT INTO u name = 'Cy'", "1 row, number 3"},
      {"INSERT INTO o buyer = 2 item = 'lamp' price = 2.5", "1 row"},
      {"INSERT INTO o buyer = 1 item = 'desk' price = 10", "1 row"},
      {"INSERT INTO o buyer = 2 item = 'chair' price = 4", "1 row"},
      {"INSERT INTO o item = 'gift'", "1 row"},
      {"SELECT name, item FROM u JOIN o ON u.id = o.buyer", "Ann desk; Bob lamp; Bob chair"},
      {"SELECT name, item FROM u JOIN o ON o.buyer = u.id", "Ann desk; Bob lamp; Bob chair"},
      {"SELECT item, name FROM o JOIN u ON buyer = id WHERE u.name = 'Bob' && price > 3",
       "chair Bob"},
      {"SELECT item, name FROM o JOIN u ON buyer = id WHERE u.name = 'Ann' || o.item = 'lamp'",
       "lamp Bob; desk Ann"},
      {"SELECT name, COUNT(*), SUM(price) FROM u JOIN o ON id = buyer GROUP BY name ORDER BY "
       "SUM(price) DESC",
       "Ann 1 10; Bob 2 6.5"},
      {"SELECT COUNT(*) FROM u JOIN o ON id = buyer WHERE price IS NULL", "0"},
      {"SELECT * FROM u JOIN o ON id = buyer ORDER BY price LIMIT 1", "2 Bob 2 lamp 2.5"},
      {"SELECT name FROM u JOIN o ON id = item",
       "! 9 34 o.item: Columns 'id' and 'item' cannot be compared"},
      {"SELECT name FROM u JOIN o ON u.id = u.name",
       "! 11 38: JOIN ON needs a column of each table"},
      {"SELECT name FROM u JOIN o ON x.id = o.buyer", "! 4 29 x: Unknown table 'x'"},
      {"SELECT name FROM u JOIN nix ON u.id = nix.buyer", "! 4 24 nix: Unknown table 'nix'"},
      {"SELECT nix FROM u JOIN o ON id = buyer", "! 4 7 o.nix: Unknown column 'nix'"},
      {"SELECT name FROM u JOIN o ON id", "! 11 31: Expected '=', found the end of the command"},
      {"SELECT name FROM u JOIN o", "! 11 25: Expected ON, found the end of the command"},
  });
}

TEST_F(StrictLanguage, answersForAnySecond) {
  check({
      {"CREATE TABLE t place string colour string 3 n int 4", "0 rows"},
      {"INSERT INTO t place = 'a' colour = 'red' --> 'green' @ 10 s --> 'amber' @ 5 s c n = 1 --> "
       "2 @ 1 m",
       "1 row"},
      {"INSERT INTO t place = 'b' colour = 'red' n = 7", "1 row"},
      {"INSERT INTO t place = 'c' colour = ('off' --> 'on' @ 1 h) n = 3 --> 4 @ 10 s #TIME# "
       "1699999995",
       "1 row"},
  });
  checkLasting({
      {"SELECT colour FROM t", "red; red; off"},
      {"SELECT place FROM t WHERE colour = 'red' AT 1700000010", "b"},
      {"SELECT colour, COUNT(*) FROM t GROUP BY colour AT 1700000015", "amber 1; red 1; off 1"},
      {"SELECT place FROM t ORDER BY n DESC AT 1700000060", "b; c; a"},
      {"SELECT SUM(n) FROM t AT 1700000004", "11"},
      {"SELECT SUM(n) FROM t AT 1700000005", "12"},
      {"SELECT SUM(n) FROM t AT 1700000060", "13"},
      {"SELECT colour FROM t AT 0", "red; red; off"},
      {"SELECT colour FROM t AT 9223372036854775807", "red; red; on"},
      {"SHOW SCHEDULE",
       "1700000005 t 2 NULL n 4 false; 1700000010 t 0 NULL colour green true; 1700000060 t 0 NULL "
       "n 2 false; 1700003595 t 2 NULL colour on false"},
      {"SHOW SCHEDULE FROM t UNTIL 1700000020",
       "1700000005 t 2 NULL n 4 false; 1700000010 t 0 NULL colour green true; 1700000015 t 0 NULL "
       "colour amber true; 1700000020 t 0 NULL colour red true"},
      {"SHOW SCHEDULE UNTIL 1700000004", ""},
      {"SHOW STATES FROM t",
       "0 NULL colour 1700000000 1 red 10 true; 0 NULL colour 1700000000 2 green 5 true; "
       "0 NULL colour 1700000000 3 amber 5 true; 0 NULL n 1700000000 1 1 60 false; "
       "0 NULL n 1700000000 2 2 60 false; 2 NULL colour 1699999995 1 off 3600 false; "
       "2 NULL colour 1699999995 2 on 3600 false; 2 NULL n 1699999995 1 3 10 false; "
       "2 NULL n 1699999995 2 4 10 false"},
  });
  check({
      {"UPDATE t SET colour = 'blue' WHERE place = 'a'", "1 row"},
      {"SHOW STATES FROM nix", "! 4 17 nix: Unknown table 'nix'"},
      {"DELETE FROM t WHERE place = 'b'", "1 row"},
      {"UPDATE t SET n = 5 WHERE place = 'c'", "1 row"},
      {"SHOW STATES FROM t",
       "0 NULL n 1700000000 1 1 60 false; 0 NULL n 1700000000 2 2 60 false; "
       "1 NULL colour 1699999995 1 off 3600 false; 1 NULL colour 1699999995 2 on 3600 false"},
      {"DELETE FROM t WHERE place = 'c'", "1 row"},
      {"SHOW SCHEDULE UNTIL 1800000000", "1700000060 t 0 NULL n 2 false"},
  });
}

TEST_F(StrictLanguage, takesBackTablesLinksAndListenersAtARollback) {
  check({
      {"CREATE TABLE p id ApexInt name string", "0 rows"},
      {"CREATE TABLE c p int", "0 rows"},
      {"INSERT INTO p name = 'a'", "1 row, number 1"},
      {"INSERT INTO c p = 1", "1 row"},
      {"LINK c.p --> p.id", "0 rows"},
      {"LISTEN c.change --> 'there' WHERE p > 0", "1 row"},
      {"BEGIN", "0 rows"},
      {"BEGIN", "! 17: A transaction is open"},
      {"CHECKPOINT", "! 17: A checkpoint cannot be part of a transaction"},
      {"VACUUM", "! 17: VACUUM cannot be part of a transaction"},
      {"INSERT INTO p name = 'b'", "1 row, number 2"},
      {"INSERT INTO c p = 3",
       "! 7 c.p: Table 'p' has no row with the key '3', which column 'p' of table 'c' is linked "
       "to"},
      {"UPDATE c SET p = 2", "1 row"},
      {"DELETE FROM p WHERE id = 2", "! 8 p.id: Rows are linked to the key '2' of table 'p'"},
      {"UNLINK c.p --> p.id", "0 rows"},
      {"DELETE FROM p", "2 rows"},
      {"DROP TABLE c", "0 rows"},
      {"CREATE TABLE c other string", "0 rows"},
      {"LISTEN c.e --> 'q'", "1 row"},
      {"UNLISTEN c.x --> 'q'", "! 4 9 c: Table 'c' has no such listener"},
      {"SHOW LISTENERS", "c e q ''"},
      {"SHOW LINKS", ""},
      {"ROLLBACK", "0 rows"},
      {"SHOW LISTENERS", "c change there 'p > 0'"},
      {"SHOW LINKS", "c p p id"},
      {"SHOW TABLES", "c 1; p 1"},
      {"SELECT * FROM p", "1 a"},
      {"SELECT * FROM c", "1"},
      {"DELETE FROM p", "! 8 p.id: Rows are linked to the key '1' of table 'p'"},
      {"INSERT INTO p name = 'b'", "1 row, number 2"},
  });
}

TEST_F(StrictLanguage, letsNoKeyBeDoubledMissedOrTimed) {
  check({
      {"CREATE TABLE q k string n int s string 3", "0 rows"},
      {"CREATE TABLE r k string", "0 rows"},
      {"INSERT INTO q k = 'a' s = 'x' --> 'y' @ 5 s", "1 row"},
      {"INSERT INTO q k = 'a'", "1 row"},
      {"LINK r.k --> q.k",
       "! 6 15 q.k: Cannot create Primary Key: Duplicate value 'a' already exists in column"},
      {"DELETE FROM q WHERE s IS NULL", "1 row"},
      {"LINK r.k --> q.s", "! 9 15 q.s: Column 'q.s' has rows that are timed, which no key can be"},
      {"LINK r.k --> q.k", "0 rows"},
      {"LINK r.k --> q.k", "! 5 5 r: Column 'r.k' is linked to 'q.k'"},
      {"INSERT INTO q k = 'a'", "! 6 q.k: Table 'q' has a row with the key 'a'"},
      {"INSERT INTO q n = 1", "! 9 q.k: Column 'k' of table 'q' is its key, which cannot be NULL"},
      {"INSERT INTO q k = NULL",
       "! 9 18 q.k: Column 'k' of table 'q' is its key, which cannot be NULL"},
      {"UPDATE q SET k = NULL",
       "! 9 17 q.k: Column 'k' of table 'q' is its key, which cannot be NULL"},
      {"INSERT INTO q k = '#/#?'", "! 10 18 q.k: '#/#?' is no key"},
      {"INSERT INTO r k = 'b'",
       "! 7 r.k: Table 'q' has no row with the key 'b', which column 'k' of table 'r' is linked "
       "to"},
      {"INSERT INTO r k = 'a'", "1 row"},
      {"INSERT INTO r k = NULL", "1 row"},
      {"UPDATE q SET k = 'b'", "! 8 q.k: Rows are linked to the key 'a' of table 'q'"},
      {"DELETE FROM q", "! 8 q.k: Rows are linked to the key 'a' of table 'q'"},
      {"DROP TABLE q", "! 8 11 q: Tables are linked to table 'q'"},
      {"INSERT INTO q k = 'b'", "1 row"},
      {"UPDATE r SET k = 'b' WHERE k = 'a'", "1 row"},
      {"UPDATE q SET k = 'c' WHERE k = 'a'", "1 row"},
      {"SELECT k FROM q", "c; b"},
      {"DROP TABLE r", "0 rows"},
      {"SHOW COLUMNS FROM q",
       "k string 60 0 false NULL; n int NULL 0 false NULL; s string 60 3 false NULL"},
      {"INSERT INTO q k = 'c'", "1 row"},
      {"CREATE TABLE w k string 3", "0 rows"},
      {"CREATE TABLE x k string", "0 rows"},
      {"INSERT INTO w k = 'a' --> 'b' @ 5 s", "1 row"},
      {"LINK x.k --> w.k", "! 9 15 w.k: Column 'w.k' has rows that are timed, which no key can be"},
      {"UPDATE w SET k = 'a'", "1 row"},
      {"LINK x.k --> w.k", "0 rows"},
      {"INSERT INTO w k = 'b' --> 'c' @ 5 s",
       "! 9 18 w.k: Column 'k' of table 'w' is its key, which cannot be timed"},
      {"UPDATE w SET k = 'b' --> 'c' @ 5 s",
       "! 9 17 w.k: Column 'k' of table 'w' is its key, which cannot be timed"},
  });
}

}  // namespace
}  // namespace handles
