// The parser of the strict language: what each command is read as, and for each text that is none
// the code, the byte offset and the message.

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "failure.h"
#include "strict/lexer.h"
#include "strict/parser.h"
#include "strict_description.h"

namespace velmora::strict {
namespace {

using namespace std::string_literals;

struct Accepted {
  std::string text;
  std::string description;
};

void expectAccepted(const std::vector<Accepted>& cases) {
  for (const Accepted& expected : cases) {
    try {
      EXPECT_EQ(describe(parse(expected.text)), expected.description) << expected.text;
    } catch (const Failure& failure) {
      ADD_FAILURE() << expected.text << "\n" << failure.what() << " at " << failure.offset;
    }
  }
}

struct Refused {
  std::string text;
  std::ptrdiff_t offset;
  std::string message;
  Code code = Code::syntax;
};

void expectRefused(const std::vector<Refused>& cases) {
  for (const Refused& expected : cases) {
    try {
      ADD_FAILURE() << expected.text << "\nis read as " << describe(parse(expected.text));
    } catch (const Failure& failure) {
      EXPECT_EQ(failure.what(), expected.message) << expected.text;
      EXPECT_EQ(failure.offset, expected.offset) << expected.text;
      EXPECT_EQ(failure.code, expected.code) << expected.text;
    }
  }
}

TEST(StrictCommands, bareOnes) {
  expectAccepted({{"BEGIN", "begin"},
                  {" commit\n", "commit"},
                  {"\tRollback ", "rollback"},
                  {"CHECKPOINT", "checkpoint"}});
  expectRefused({{"", 0, "Expected a command, found the end of the command"},
                 {" \n ", 3, "Expected a command, found the end of the command"},
                 {"BEGINS", 0, "Expected a command, found 'BEGINS'"},
                 {"users", 0, "Expected a command, found 'users'"},
                 {"'BEGIN'", 0, "Expected a command, found ''BEGIN''"},
                 {"FROM", 0, "Expected a command, found the word 'FROM'"},
                 {"BEGIN now", 6, "Unexpected 'now' after the command"},
                 {"COMMIT;", 6, "Unknown character ';'"},
                 {"ROLLBACK ROLLBACK", 9, "Unexpected 'ROLLBACK' after the command"},
                 {"CHECKPOINT #TIME# 5", 11, "Unexpected '#TIME#' after the command"}});
}

TEST(StrictCommands, createTable) {
  expectAccepted(
      {{"CREATE TABLE t a int", "create t a:int:60:0"},
       {"create table users id ApexInt name string(30) 3 age int 2 w float b bool l long d double "
        "4",
        "create users id:ApexInt:60:0 name:string:30:3 age:int:60:2 w:float:60:0 b:bool:60:0 "
        "l:long:60:0 d:double:60:4"},
       {"CREATE TABLE t a string() b string 5 c string(65535)65535",
        "create t a:string:60:0 b:string:60:5 c:string:65535:65535"},
       {"CREATE TABLE abcdefghijklmno abcdefghijklmno int 0",
        "create abcdefghijklmno abcdefghijklmno:int:60:0"},
       {"CREATE TABLE t at long until int desc string count int tables int c int s int TIME int",
        "create t at:long:60:0 until:int:60:0 desc:string:60:0 count:int:60:0 tables:int:60:0 "
        "c:int:60:0 s:int:60:0 TIME:int:60:0"}});
  const std::string types =
      "Expected a type (int, ApexInt, float, bool, string, long, double), found ";
  expectRefused(
      {{"CREATE", 6, "Expected TABLE, found the end of the command"},
       {"CREATE TABEL t", 7, "Expected TABLE, found 'TABEL'"},
       {"CREATE TABLE", 12, "Expected a table name, found the end of the command"},
       {"CREATE TABLE t ", 15, "Expected a column name, found the end of the command"},
       {"CREATE TABLE 't' a int", 13, "Expected a table name, found ''t''"},
       {"CREATE TABLE 5 a int", 13, "Expected a table name, found '5'"},
       {"CREATE TABLE t.u a int", 14, "Expected a column name, found '.'"},
       {"CREATE TABLE on a int", 13, "Expected a table name, found the word 'on'"},
       {"CREATE TABLE abcdefghijklmnop a int", 13,
        "The name 'abcdefghijklmnop' has more than 15 bytes"},
       {"CREATE TABLE webhooks a int", 13, "The name 'webhooks' is not free for tables"},
       {"CREATE TABLE listeners a int", 13, "The name 'listeners' is not free for tables"},
       {"CREATE TABLE velmora a int", 13, "The name 'velmora' is not free for tables"},
       {"CREATE TABLE t Set int", 15, "Expected a column name, found the word 'Set'"},
       {"CREATE TABLE t 'Worldwide Gross' float", 15,
        "Expected a column name, found ''Worldwide Gross''"},
       {"CREATE TABLE t int int", 15, "The name 'int' is a type and not free for columns"},
       {"CREATE TABLE t double int", 15, "The name 'double' is a type and not free for columns"},
       {"CREATE TABLE t abcdefghijklmnop int", 15,
        "The name 'abcdefghijklmnop' has more than 15 bytes"},
       {"CREATE TABLE t a", 16, types + "the end of the command"},
       {"CREATE TABLE t a text", 17, types + "'text'"},
       {"CREATE TABLE t a INT", 17, types + "'INT'"},
       {"CREATE TABLE t a 'int'", 17, types + "''int''"},
       {"CREATE TABLE t a int, b int", 20, "Expected a column name, found ','"},
       {"CREATE TABLE t a int(5)", 20, "Expected a column name, found '('"},
       {"CREATE TABLE t a string(", 24, "Expected a whole number, found the end of the command"},
       {"CREATE TABLE t a string(0)", 24, "Expected a whole number from 1 to 65535, found '0'",
        Code::range},
       {"CREATE TABLE t a string(65536)", 24,
        "Expected a whole number from 1 to 65535, found '65536'", Code::range},
       {"CREATE TABLE t a string(2.5)", 24, "Expected a whole number from 1 to 65535, found '2.5'",
        Code::type},
       {"CREATE TABLE t a string('5')", 24, "Expected a whole number from 1 to 65535, found ''5''",
        Code::type},
       {"CREATE TABLE t a string(?)", 24, "Expected a whole number, found '?'"},
       {"CREATE TABLE t a string(5", 25, "Expected ')', found the end of the command"},
       {"CREATE TABLE t a int -1", 21, "Expected a whole number from 0 to 65535, found '-1'",
        Code::range},
       {"CREATE TABLE t a int 1.0", 21, "Expected a whole number from 0 to 65535, found '1.0'",
        Code::type},
       {"CREATE TABLE t a int ?", 21, "Expected a column name, found '?'"},
       {"CREATE TABLE t a int 2 3", 23, "Expected a column name, found '3'"}});
}

TEST(StrictCommands, dropTableAndVacuum) {
  expectAccepted({{"DROP TABLE t", "drop t"},
                  {"drop table t", "drop t"},
                  {"VACUUM", "vacuum"},
                  {"VACUUM t", "vacuum t"}});
  expectRefused({{"DROP t", 5, "Expected TABLE, found 't'"},
                 {"DROP TABLE", 10, "Expected a table name, found the end of the command"},
                 {"DROP TABLE t u", 13, "Unexpected 'u' after the command"},
                 {"DROP TABLE t WHERE a = 1", 13, "Unexpected 'WHERE' after the command"},
                 {"VACUUM t u", 9, "Unexpected 'u' after the command"},
                 {"VACUUM 't'", 7, "Expected a table name, found ''t''"}});
}

TEST(StrictCommands, insert) {
  expectAccepted({{"INSERT INTO t a = 1", "insert t a=1"},
                  {"insert into t a=1 b='x'c=true d=false e=NULL f=null g=?",
                   "insert t a=1 b=[x] c=true d=false e=NULL f=NULL g=?0"},
                  {"INSERT INTO t a = (5) a = 6", "insert t a=5 a=6"},
                  {"INSERT INTO t where_ = 1 limits = 2", "insert t where_=1 limits=2"}});
  expectRefused(
      {{"INSERT t a = 1", 7, "Expected INTO, found 't'"},
       {"INSERT INTO t", 13, "Expected a column name, found the end of the command"},
       {"INSERT INTO t #TIME# 5", 14, "Expected a column name, found '#TIME#'"},
       {"INSERT INTO webhooks.t a = 1", 20, "Expected a column name, found '.'"},
       {"INSERT INTO t a", 15, "Expected '=', found the end of the command"},
       {"INSERT INTO t a == 1", 16, "Expected '=', found '=='"},
       {"INSERT INTO t a =", 17, "Expected a value after '=', found the end of the command"},
       {"INSERT INTO t a = b", 18, "Expected a value after '=', found 'b'"},
       {"INSERT INTO t a = TRUE", 18, "Expected a value after '=', found the word 'TRUE'"},
       {"INSERT INTO t a = 1, b = 2", 19, "Expected a column name, found ','"},
       {"INSERT INTO t a = 1 2", 20, "Expected a column name, found '2'"},
       {"INSERT INTO t a = 1 on = 2", 20, "Expected a column name, found the word 'on'"},
       {"INSERT INTO t 'a' = 1", 14, "Expected a column name, found ''a''"},
       {"INSERT INTO t t.a = 1", 15, "Expected '=', found '.'"},
       {"INSERT INTO t a = (1", 20, "Expected ')', found the end of the command"},
       {"INSERT INTO t a = 1)", 19, "Expected a column name, found ')'"},
       {"INSERT INTO t a = ((1))", 19, "Expected a value after '=', found '('"},
       {"INSERT INTO t a = ()", 19, "Expected a value after '=', found ')'"},
       {"INSERT INTO t a = 1 WHERE a = 1", 20, "Unexpected 'WHERE' after the command"}});
}

TEST(StrictCommands, timedValues) {
  expectAccepted(
      {{"INSERT INTO t a = 'red' --> 'green' @ 30 s c", "insert t a=[red]-->[green]@30*1 cycles"},
       {"INSERT INTO t a = 1-->2@1 m-->-3@2 h-->NULL@3 d-->?@? mo b = 1",
        "insert t a=1-->2@1*60-->-3@2*3600-->NULL@3*86400-->?0@?1*2592000 b=1"},
       {"UPDATE t SET a = (true --> false @ 8 h c) b = (1) WHERE c = 1",
        "update t a=true-->false@8*3600 cycles b=1 where c=1"},
       {"INSERT INTO t c = 1 c = 2", "insert t c=1 c=2"},
       {"INSERT INTO t a = (1 --> 2 @ 5 s) c = 2", "insert t a=1-->2@5*1 c=2"},
       {"INSERT INTO t a = 1 --> 2 @ 1099511627776 s", "insert t a=1-->2@1099511627776*1"},
       {"INSERT INTO t a = 1 --> 2 @ 424194 mo", "insert t a=1-->2@424194*2592000"}});
  const std::string amount = "Expected a whole number from 1 to 1099511627776, found ";
  const std::string units = "Expected a time unit (s, m, h, d, mo), found ";
  expectRefused(
      {{"INSERT INTO t a = 1 -->", 23,
        "Expected a value after '-->', found the end of the command"},
       {"INSERT INTO t a = 1 --> b @ 5 s", 24, "Expected a value after '-->', found 'b'"},
       {"INSERT INTO t a = 1 --> 2 5 s", 26, "Expected '@', found '5'"},
       {"INSERT INTO t a = 1 --> 2 @", 27, "Expected a whole number, found the end of the command"},
       {"INSERT INTO t a = 1 --> 2 @ x s", 28, "Expected a whole number, found 'x'"},
       {"INSERT INTO t a = 1 --> 2 @ 0 s", 28, amount + "'0'", Code::range},
       {"INSERT INTO t a = 1 --> 2 @ -5 s", 28, amount + "'-5'", Code::range},
       {"INSERT INTO t a = 1 --> 2 @ 2.9 s", 28, amount + "'2.9'", Code::type},
       {"INSERT INTO t a = 1 --> 2 @ 5.0 s", 28, amount + "'5.0'", Code::type},
       {"INSERT INTO t a = 1 --> 2 @ '5' s", 28, amount + "''5''", Code::type},
       {"INSERT INTO t a = 1 --> 2 @ 1099511627777 s", 28, amount + "'1099511627777'", Code::range},
       {"INSERT INTO t a = 1 --> 2 @ 424195 mo", 28, "A state lasts at most 1099511627776 seconds",
        Code::range},
       {"INSERT INTO t a = 1 --> 2 @ 5s", 28, "Malformed number '5s'"},
       {"INSERT INTO t a = 1 --> 2 @ 5", 29, units + "the end of the command"},
       {"INSERT INTO t a = 1 --> 2 @ 5 w", 30, units + "'w'"},
       {"INSERT INTO t a = 1 --> 2 @ 5 S", 30, units + "'S'"},
       {"INSERT INTO t a = 1 --> 2 @ 5 's'", 30, units + "''s''"},
       {"INSERT INTO t a = 1 --> 2 @ 5 s C", 33, "Expected '=', found the end of the command"},
       {"INSERT INTO t a = 1 --> 2 @ 5 s c c", 35, "Expected '=', found the end of the command"},
       {"INSERT INTO t a = 1 c", 21, "Expected '=', found the end of the command"},
       {"INSERT INTO t a = (1 c)", 21, "Expected ')', found 'c'"}});
}

TEST(StrictCommands, clock) {
  expectAccepted({{"INSERT INTO t a = 1 #TIME# 123", "insert t a=1 clock 123"},
                  {"UPDATE t SET a = ? WHERE b = ? #TIME# ?", "update t a=?0 where b=?1 clock ?2"},
                  {"UPDATE t SET a = 1\n#TIME# 0\n", "update t a=1 clock 0"},
                  {"INSERT INTO t a = ' #TIME# 5' b = \" #TIME# 6\"",
                   "insert t a=[ #TIME# 5] b=[ #TIME# 6]"}});
  const std::string second = "Expected a whole number from 0 to 1099511627776, found ";
  expectRefused(
      {{"INSERT INTO t a = 1 #TIME#", 26, "Expected a whole number, found the end of the command"},
       {"INSERT INTO t a = 1 #TIME# x", 27, "Expected a whole number, found 'x'"},
       {"INSERT INTO t a = 1 #TIME# 5.5", 27, second + "'5.5'", Code::type},
       {"INSERT INTO t a = 1 #TIME# -5", 27, second + "'-5'", Code::range},
       {"INSERT INTO t a = 1 #TIME# 99999999999999999999", 27, second + "'99999999999999999999'",
        Code::type},
       {"INSERT INTO t a = 1 #TIME# 5 b = 2", 29, "Unexpected 'b' after the command"},
       {"INSERT INTO t a = 1 #TIME# 5 #TIME# 6", 29, "Unexpected '#TIME#' after the command"},
       {"INSERT INTO t a = #TIME# 5", 18, "Expected a value after '=', found '#TIME#'"},
       {"INSERT INTO t a = 1 #time# 5", 20, "Unknown character '#'"},
       {"DELETE FROM t #TIME# 5", 14, "Unexpected '#TIME#' after the command"},
       {"SELECT * FROM t #TIME# 5", 16, "Unexpected '#TIME#' after the command"}});
}

TEST(StrictCommands, updateAndDelete) {
  expectAccepted(
      {{"UPDATE t SET a = 1 b = 2", "update t a=1 b=2"},
       {"UPDATE t SET a = NULL WHERE a IS NOT NULL", "update t a=NULL where a is not null"},
       {"DELETE FROM t", "delete t"},
       {"delete from t where a = 1", "delete t where a=1"}});
  expectRefused(
      {{"UPDATE t a = 1", 9, "Expected SET, found 'a'"},
       {"UPDATE t SET", 12, "Expected a column name, found the end of the command"},
       {"UPDATE t SET WHERE a = 1", 13, "Expected a column name, found the word 'WHERE'"},
       {"DELETE t", 7, "Expected FROM, found 't'"},
       {"DELETE FROM t WERE a = 1", 14, "Unexpected 'WERE' after the command"},
       {"DELETE FROM t a = 1", 14, "Unexpected 'a' after the command"},
       {"UPDATE t SET a = 1 WHERE a = 1 b = 2", 31, "Unexpected 'b' after the command"},
       {"DELETE FROM t WHERE", 19, "Expected a column name, found the end of the command"}});
}

TEST(StrictCommands, filters) {
  expectAccepted(
      {{"DELETE FROM t WHERE a = 1 && b == 2 || c != 'x' && d < 1 && e <= 2 || f > 3 || g >= ?",
        "delete t where a=1 and b=2 or c!=[x] and d<1 and e<=2 or f>3 or g>=?0"},
       {"DELETE FROM t WHERE t.a IS NULL || b is not null",
        "delete t where t.a is null or b is not null"},
       {"DELETE FROM t WHERE a=-1&&b=NULL", "delete t where a=-1 and b=NULL"}});
  const std::string operators = "Expected an operator (=, !=, <, <=, >, >=, IS), found ";
  expectRefused(
      {{"DELETE FROM t WHERE 1 = a", 20, "Expected a column name, found '1'"},
       {"DELETE FROM t WHERE t. = 1", 23, "Expected a column name, found '='"},
       {"DELETE FROM t WHERE a.b.c = 1", 23, operators + "'.'"},
       {"DELETE FROM t WHERE a", 21, operators + "the end of the command"},
       {"DELETE FROM t WHERE a 1", 22, operators + "'1'"},
       {"DELETE FROM t WHERE a && b = 1", 22, operators + "'&&'"},
       {"DELETE FROM t WHERE a --> 1", 22, operators + "'-->'"},
       {"DELETE FROM t WHERE a ! 1", 22, "Unknown character '!'"},
       {"DELETE FROM t WHERE a = 1 & b = 1", 26, "Unknown character '&'"},
       {"DELETE FROM t WHERE a <> 1", 23, "Expected a value to compare with, found '>'"},
       {"DELETE FROM t WHERE a = b", 24, "Expected a value to compare with, found 'b'"},
       {"DELETE FROM t WHERE a =", 23,
        "Expected a value to compare with, found the end of the command"},
       {"DELETE FROM t WHERE a = 1 &&", 28, "Expected a column name, found the end of the command"},
       {"DELETE FROM t WHERE a = 1 || ", 29,
        "Expected a column name, found the end of the command"},
       {"DELETE FROM t WHERE a = 1 && || b = 1", 29, "Expected a column name, found '||'"},
       {"DELETE FROM t WHERE a = 1 AND b = 1", 26, "Unexpected 'AND' after the command"},
       {"DELETE FROM t WHERE a IS 5", 25, "Expected NULL, found '5'"},
       {"DELETE FROM t WHERE a IS NOT", 28, "Expected NULL, found the end of the command"},
       {"DELETE FROM t WHERE a NOT NULL", 22, operators + "the word 'NOT'"},
       {"DELETE FROM t WHERE (a = 1)", 20, "Expected a column name, found '('"}});
}

TEST(StrictCommands, selectLists) {
  expectAccepted({{"SELECT * FROM t", "select * from t"},
                  {"SELECT a, t.b,a FROM t", "select a t.b a from t"},
                  {"SELECT COUNT(*), count(a), MIN(t.a), MAX ( a ), SUM(a), AVG(a) FROM t",
                   "select count-rows count:a min:t.a max:a sum:a avg:a from t"},
                  {"SELECT count, min FROM t", "select count min from t"}});
  expectRefused({{"SELECT", 6, "Expected a column name, found the end of the command"},
                 {"SELECT FROM t", 7, "Expected a column name, found the word 'FROM'"},
                 {"SELECT a FORM t", 9, "Expected FROM, found 'FORM'"},
                 {"SELECT a b FROM t", 9, "Expected FROM, found 'b'"},
                 {"SELECT a, FROM t", 10, "Expected a column name, found the word 'FROM'"},
                 {"SELECT *, a FROM t", 8, "Expected FROM, found ','"},
                 {"SELECT a, * FROM t", 10, "Expected a column name, found '*'"},
                 {"SELECT 'a' FROM t", 7, "Expected a column name, found ''a''"},
                 {"SELECT ? FROM t", 7, "Expected a column name, found '?'"},
                 {"SELECT a FROM", 13, "Expected a table name, found the end of the command"},
                 {"SELECT a FROM t, u", 15, "Unexpected ',' after the command"},
                 {"SELECT MEDIAN(a) FROM t", 7, "Unknown function 'MEDIAN'"},
                 {"SELECT t.COUNT(a) FROM t", 14, "Expected FROM, found '('"},
                 {"SELECT COUNT() FROM t", 13, "Expected a column name, found ')'"},
                 {"SELECT SUM(*) FROM t", 11, "Expected a column name, found '*'"},
                 {"SELECT COUNT(* FROM t", 15, "Expected ')', found the word 'FROM'"},
                 {"SELECT COUNT(a, b) FROM t", 14, "Expected ')', found ','"}});
}

TEST(StrictCommands, selectClauses) {
  expectAccepted(
      {{"SELECT a, COUNT(*) FROM t JOIN u ON t.a = b WHERE a > 1 GROUP BY a, u.b "
        "ORDER BY COUNT(*) DESC, a ASC, b LIMIT 10 OFFSET 20 AT 1700000000",
        "select a count-rows from t join u on t.a=b where a>1 group a group u.b down count-rows "
        "up a up b limit 10 offset 20 at 1700000000"},
       {"select * from t order by a desc limit ? offset ? at ?",
        "select * from t down a limit ?0 offset ?1 at ?2"},
       {"SELECT a FROM t LIMIT 0 AT 0", "select a from t limit 0 at 0"},
       {"SELECT at FROM at ORDER BY at AT 5", "select at from at up at at 5"}});
  const std::string count = "Expected a whole number from 0 to 9223372036854775807, found ";
  expectRefused(
      {{"SELECT a FROM t JOIN", 20, "Expected a table name, found the end of the command"},
       {"SELECT a FROM t JOIN ON a = b", 21, "Expected a table name, found the word 'ON'"},
       {"SELECT a FROM t JOIN u", 22, "Expected ON, found the end of the command"},
       {"SELECT a FROM t JOIN u ON a == b", 28, "Expected '=', found '=='"},
       {"SELECT a FROM t JOIN u ON a = 5", 30, "Expected a column name, found '5'"},
       {"SELECT a FROM t JOIN u ON a = b JOIN v ON a = b", 32,
        "Unexpected 'JOIN' after the command"},
       {"SELECT a FROM t GROUP a", 22, "Expected BY, found 'a'"},
       {"SELECT a FROM t GROUP BY", 24, "Expected a column name, found the end of the command"},
       {"SELECT a FROM t GROUP BY a, LIMIT 5", 28,
        "Expected a column name, found the word 'LIMIT'"},
       {"SELECT a FROM t GROUP BY COUNT(a)", 30, "Unexpected '(' after the command"},
       {"SELECT a FROM t ORDER BY 1", 25, "Expected a column name, found '1'"},
       {"SELECT a FROM t ORDER BY a UP", 27, "Unexpected 'UP' after the command"},
       {"SELECT a FROM t ORDER BY a DESC ASC", 32, "Unexpected 'ASC' after the command"},
       {"SELECT a FROM t LIMIT", 21, "Expected a whole number, found the end of the command"},
       {"SELECT a FROM t LIMIT -1", 22, count + "'-1'", Code::range},
       {"SELECT a FROM t LIMIT 1.5", 22, count + "'1.5'", Code::type},
       {"SELECT a FROM t LIMIT NULL", 22, count + "'NULL'", Code::type},
       {"SELECT a FROM t LIMIT all", 22, "Expected a whole number, found 'all'"},
       {"SELECT a FROM t LIMIT 5, 10", 23, "Unexpected ',' after the command"},
       {"SELECT a FROM t OFFSET 5", 16, "Unexpected 'OFFSET' after the command"},
       {"SELECT a FROM t LIMIT 5 OFFSET -1", 31, count + "'-1'", Code::range},
       {"SELECT a FROM t LIMIT 5 WHERE a = 1", 24, "Unexpected 'WHERE' after the command"},
       {"SELECT a FROM t AT -1", 19, count + "'-1'", Code::range},
       {"SELECT a FROM t AT 'noon'", 19, count + "''noon''", Code::type},
       {"SELECT a FROM t AT 5 LIMIT 5", 21, "Unexpected 'LIMIT' after the command"}});
}

TEST(StrictCommands, linksAndListeners) {
  expectAccepted({{"LINK a.b --> c.d", "link a.b-->c.d"},
                  {"unlink a . b-->c . d", "unlink a.b-->c.d"},
                  {"LISTEN t.INSERT --> 'http://x/it''s' WHERE a = 1",
                   "listen t.INSERT-->[http://x/it's] where a=1"},
                  {"LISTEN t.changed --> target", "listen t.changed-->[target]"},
                  {"UNLISTEN t.UPDATE --> \"x\"", "unlisten t.UPDATE-->[x]"}});
  const std::string longTarget(101, 'x');
  expectRefused(
      {{"LINK a.b = c.d", 9, "Expected '-->', found '='"},
       {"LINK a b --> c.d", 7, "Expected '.', found 'b'"},
       {"LINK a.b --> c", 14, "Expected '.', found the end of the command"},
       {"UNLINK a.b --> c.d e", 19, "Unexpected 'e' after the command"},
       {"LISTEN t INSERT --> 'x'", 9, "Expected '.', found the word 'INSERT'"},
       {"LISTEN t.'INSERT' --> 'x'", 9, "Expected an event, found ''INSERT''"},
       {"LISTEN t.abcdefghijklmnop --> 'x'", 9,
        "The name 'abcdefghijklmnop' has more than 15 bytes"},
       {"LISTEN t.INSERT = 'x'", 16, "Expected '-->', found '='"},
       {"LISTEN t.INSERT -->", 19, "Expected a target, found the end of the command"},
       {"LISTEN t.INSERT --> ?", 20, "Expected a target, found '?'"},
       {"LISTEN t.INSERT --> '" + longTarget + "'", 20,
        "The target '" + longTarget.substr(0, 60) + "...' has more than 100 bytes", Code::range},
       {"LISTEN t.INSERT --> 'x' WHERE", 29,
        "Expected a column name, found the end of the command"},
       {"UNLISTEN t.INSERT --> 'x' WHERE a = 1", 26, "Unexpected 'WHERE' after the command"}});
}

TEST(StrictCommands, show) {
  expectAccepted({{"SHOW TABLES", "show tables"},
                  {"SHOW COLUMNS FROM t", "show columns from t"},
                  {"SHOW STATES FROM t", "show states from t"},
                  {"show states from states", "show states from states"},
                  {"SHOW LINKS", "show links"},
                  {"show listeners", "show listeners"},
                  {"SHOW STORAGE", "show storage"},
                  {"SHOW SCHEDULE", "show schedule"},
                  {"SHOW SCHEDULE FROM t", "show schedule from t"},
                  {"SHOW SCHEDULE UNTIL ?", "show schedule until ?0"},
                  {"SHOW SCHEDULE FROM until UNTIL 5", "show schedule from until until 5"}});
  const std::string whats =
      "Expected TABLES, COLUMNS, LINKS, LISTENERS, STORAGE, SCHEDULE or STATES, found ";
  expectRefused({{"SHOW", 4, whats + "the end of the command"},
                 {"SHOW TABLE", 5, whats + "the word 'TABLE'"},
                 {"SHOW TABLES FROM t", 12, "Unexpected 'FROM' after the command"},
                 {"SHOW COLUMNS", 12, "Expected FROM, found the end of the command"},
                 {"SHOW STATES", 11, "Expected FROM, found the end of the command"},
                 {"SHOW STATES FROM t UNTIL 5", 19, "Unexpected 'UNTIL' after the command"},
                 {"SHOW SCHEDULE FROM", 18, "Expected a table name, found the end of the command"},
                 {"SHOW SCHEDULE UNTIL 5 FROM t", 22, "Unexpected 'FROM' after the command"},
                 {"SHOW SCHEDULE UNTIL x", 20, "Expected a whole number, found 'x'"}});
}

TEST(StrictLiterals, numbers) {
  expectAccepted(
      {{"INSERT INTO t a = -5 b = 5.25 c = 1e-7 d = -1.5E+10 e = 007",
        "insert t a=-5 b=5.25f c=9.9999999999999995e-08f d=-15000000000f e=7"},
       {"INSERT INTO t a = 9223372036854775807 b = -9223372036854775808 c = 9223372036854775808",
        "insert t a=9223372036854775807 b=-9223372036854775808 c=9.2233720368547758e+18f"},
       {"INSERT INTO t a = -0 b = -0.0 c = 1e3 d = 5e-324 e = 1.7976931348623157e308",
        "insert t a=0 b=-0f c=1000f d=4.9406564584124654e-324f e=1.7976931348623157e+308f"}});
  const std::string expectedValue = "Expected a value after '=', found ";
  expectRefused({{"INSERT INTO t a = 1.2.3", 18, "Malformed number '1.2.3'"},
                 {"INSERT INTO t a = 12abc", 18, "Malformed number '12abc'"},
                 {"INSERT INTO t a = 5.", 18, "Malformed number '5.'"},
                 {"INSERT INTO t a = .5", 18, expectedValue + "'.'"},
                 {"INSERT INTO t a = +5", 18, "Unknown character '+'"},
                 {"INSERT INTO t a = - 5", 18, "Unknown character '-'"},
                 {"INSERT INTO t a = --5", 18, "Unknown character '-'"},
                 {"INSERT INTO t a = 1e", 18, "Malformed number '1e'"},
                 {"INSERT INTO t a = 1e+", 18, "Malformed number '1e+'"},
                 {"INSERT INTO t a = 1e5.5", 18, "Malformed number '1e5.5'"},
                 {"INSERT INTO t a = 0x10", 18, "Malformed number '0x10'"},
                 {"INSERT INTO t a = 5-3", 19, "Expected a column name, found '-3'"},
                 {"INSERT INTO t a = inf", 18, expectedValue + "'inf'"},
                 {"INSERT INTO t a = 1e309", 18, "No double can hold '1e309'", Code::range},
                 {"INSERT INTO t a = -1e309", 18, "No double can hold '-1e309'", Code::range},
                 {"INSERT INTO t a = 1e-400", 18, "No double can hold '1e-400'", Code::range}});
}

TEST(StrictLiterals, texts) {
  expectAccepted(
      {{"INSERT INTO t a = '' b = \"\" c = '''' d = \"\"\"\"", "insert t a=[] b=[] c=['] d=[\"]"},
       {R"(INSERT INTO t a = 'it''s "here"' b = "it's ""here""")",
        R"(insert t a=[it's "here"] b=[it's "here"])"},
       {"INSERT INTO t a = 'x\ny\t?' b = 'gr\xC3\xBC\xC3\x9F'",
        "insert t a=[x\ny\t?] b=[gr\xC3\xBC\xC3\x9F]"},
       {"INSERT INTO t a = '\\' b = 'NULL'", "insert t a=[\\] b=[NULL]"}});
  expectRefused({{"INSERT INTO t a = 'x", 18, "A literal that begins here has no end"},
                 {"INSERT INTO t a = 'x\"", 18, "A literal that begins here has no end"},
                 {"INSERT INTO t a = 'x''", 18, "A literal that begins here has no end"},
                 {"INSERT INTO t a = 1 '", 20, "A literal that begins here has no end"},
                 {"INSERT INTO t a = 'x' 'y'", 22, "Expected a column name, found ''y''"}});
}

TEST(StrictTexts, areUtf8WithoutZeroBytes) {
  expectRefused(
      {{"BEGIN\0"s, 5, "A command holds no zero bytes"},
       {"INSERT INTO t a = 'x\0y'"s, 20, "A command holds no zero bytes"},
       {"INSERT INTO t a = 'x\xC3'", 20, "The text is not UTF-8 here", Code::range},
       {"INSERT INTO t a = 'x\xC3\xBCx\xED\xA0\x80'", 23, "The text is not UTF-8 here",
        Code::range},
       {"INSERT INTO t a = '\xC0\x80'", 19, "The text is not UTF-8 here", Code::range},
       {"INSERT INTO t a = '\xF5\x80\x80\x80'\0"s, 19, "The text is not UTF-8 here", Code::range},
       {"INSERT INTO t a = '\0\xFF'"s, 19, "A command holds no zero bytes"},
       {"INSERT INTO t gr\xC3\xBC = 1", 16, "Unknown character '\xC3\xBC'"},
       {"SELECT a FROM t -- all", 16, "Unknown character '-'"}});
}

TEST(StrictMessages, showFoundWordsPrintableAndCut) {
  const std::string longWord(61, 'x');
  expectRefused({{longWord, 0, "Expected a command, found '" + longWord.substr(1) + "...'"},
                 {longWord.substr(1), 0, "Expected a command, found '" + longWord.substr(1) + "'"},
                 {"'" + std::string(58, 'x') + "\xC3\xBC'", 0,
                  "Expected a command, found ''" + std::string(58, 'x') + "...'"},
                 {"'a\nb'", 0, "Expected a command, found ''a\\x0ab''"},
                 {"BEGIN \x01", 6, "Unknown character '\\x01'"}});
}

TEST(StrictWords, areReservedInAnyCase) {
  for (const char* word :
       {"BEGIN",  "BY",     "CHECKPOINT", "COMMIT", "CREATE", "DELETE",   "DROP",     "FALSE",
        "FROM",   "GROUP",  "INSERT",     "INTO",   "IS",     "JOIN",     "LIMIT",    "LINK",
        "LISTEN", "NOT",    "NULL",       "OFFSET", "ON",     "ORDER",    "ROLLBACK", "SELECT",
        "SET",    "SHOW",   "TABLE",      "TRUE",   "UNLINK", "UNLISTEN", "UPDATE",   "VACUUM",
        "WHERE",  "select", "fRom",       "on"}) {
    EXPECT_TRUE(isReservedWord(word)) << word;
  }
  for (const char* word : {"", "FRO", "FROMM", "at", "until", "desc", "count", "int", "_from"}) {
    EXPECT_FALSE(isReservedWord(word)) << word;
  }
}

TEST(StrictStatements, keepTheTextInFrontOfTheClock) {
  EXPECT_EQ(parse(" INSERT INTO t a = 1 \t #TIME# 5 ").text, " INSERT INTO t a = 1");
  EXPECT_EQ(parse("INSERT INTO t a = ' '\n").text, "INSERT INTO t a = ' '");
  EXPECT_EQ(parse("\nBEGIN ").text, "\nBEGIN");
}

TEST(StrictStatements, countTheirParameters) {
  const Statement statement = parse("UPDATE t SET a = ? --> ? @ ? s b = '?' WHERE c > ? #TIME# ?");
  EXPECT_EQ(statement.parameterCount, 5);
  EXPECT_EQ(statement.clock->parameter, 4);
  EXPECT_EQ(parse("BEGIN").parameterCount, 0);
}

TEST(StrictStatements, knowWhereTheirWordsStand) {
  const Statement statement = parse("SELECT b, u.c FROM t JOIN u ON b = c WHERE t.a = 'x''y'");
  const auto& select = std::get<Select>(statement.command);
  EXPECT_EQ(select.outputs[0].column.column.offset, 7U);
  EXPECT_EQ(select.outputs[1].column.table.offset, 10U);
  EXPECT_EQ(select.outputs[1].column.column.offset, 12U);
  EXPECT_EQ(select.table.offset, 19U);
  EXPECT_EQ(select.join->table.offset, 26U);
  EXPECT_EQ(select.filter[0].operand.offset, 49U);
  EXPECT_EQ(select.filter[0].operand.size, 6U);
}

}  // namespace
}  // namespace velmora::strict
