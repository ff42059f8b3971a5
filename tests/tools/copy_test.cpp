// dump, hash and diff: what comes out of a database makes the same one again.
#include "rich_database.h"
#include "velmora/velmora.hpp"

namespace velmora_tests {
namespace {

class Copies : public RichDatabase {};

TEST_F(Copies, dumpsCommands) {
  makeRich("rich");
  EXPECT_EQ(outputOf({"dump", "rich"}),
            "-- A velmora database; velmora-tool run makes it again in an empty directory.\n"
            "BEGIN;\n"
            "CREATE TABLE Mixed a int b long c float d double e bool f string(80);\n"
            "INSERT INTO Mixed a = -2147483648 b = -5 c = 3.4028235e+38 d = -1e-300 e = false "
            "f = 'two\nlines\tand \x1b[31m red';\n"
            "INSERT INTO Mixed a = NULL b = NULL c = NULL d = NULL e = NULL f = '';\n"
            "INSERT INTO Mixed a = 1 b = NULL c = NULL d = NULL e = NULL f = NULL;\n"
            "INSERT INTO Mixed a = 1 b = NULL c = NULL d = NULL e = NULL f = NULL;\n"
            "CREATE TABLE lights pole string(8) colour string(6) 3 level int 4 on_ bool 2;\n"
            "INSERT INTO lights pole = 'a' colour = ('amber' --> 'red' @ 5 s --> 'green' @ 30 s c) "
            "level = 7 on_ = (true --> false @ 60 s) #TIME# 1000000000;\n"
            "INSERT INTO lights pole = '' colour = ('red' --> 'off' @ 2592000 s) "
            "level = (1 --> 2 @ 1 s) #TIME# 1900000000;\n"
            "UPDATE lights SET on_ = (false --> true @ 40 s) WHERE pole = '' #TIME# 999999960;\n"
            "UPDATE lights SET pole = 'a' WHERE pole = '';\n"
            "CREATE TABLE places id ApexInt name string(20) open bool 3;\n"
            "INSERT INTO places name = 'Zürich ☃' "
            "open = (true --> false @ 28800 s --> false @ 28800 s c) #TIME# 1000000000;\n"
            "INSERT INTO places name = NULL;\n"
            "INSERT INTO places name = 'it''s \"here\"; -- no' open = NULL;\n"
            "INSERT INTO places name = NULL;\n"
            "DELETE FROM places WHERE id >= 2 && id <= 2;\n"
            "DELETE FROM places WHERE id >= 4 && id <= 4;\n"
            "CREATE TABLE stays place int 3 guest string(30) price float 4 code long 2;\n"
            "INSERT INTO stays place = (1 --> 3 @ 3600 s) guest = 'Ada' price = 0.1 "
            "code = 9223372036854775807 #TIME# 1000000000;\n"
            "INSERT INTO stays place = 0 guest = NULL #TIME# 1000000000;\n"
            "UPDATE stays SET price = (1.5 --> 2.5 @ 10 s --> 1e+20 @ 20 s c) WHERE place = 0 "
            "#TIME# 999999940;\n"
            "UPDATE stays SET code = (1 --> -9223372036854775808 @ 86400 s) WHERE place = 0 "
            "#TIME# 999999940;\n"
            "UPDATE stays SET place = (3 --> 1 @ 5 s c) WHERE place = 0 #TIME# 1000000000;\n"
            "LINK stays.place --> places.id;\n"
            "LISTEN places.change --> 'there';\n"
            "LISTEN stays.INSERT --> 'mail''er' WHERE price > 1.5 && guest = 'it''s';\n"
            "COMMIT;\n"
            "VACUUM;\n");
}

TEST_F(Copies, tellsWhatNoCommandCanGiveAgain) {
  make("odd", {"CREATE TABLE t a bool 2 b bool 2", "INSERT INTO t a = (true --> false @ 5 s)",
               "UPDATE t SET b = (true --> false @ 5 s) #TIME# 5"});
  EXPECT_EQ(outputOf({"dump", "odd", "--now", "1000000000"}),
            "-- A velmora database; velmora-tool run makes it again in an empty directory.\n"
            "-- Not kept: the plan of t.b in row 0, which no command can give to this row alone.\n"
            "BEGIN;\n"
            "CREATE TABLE t a bool 2 b bool 2;\n"
            "INSERT INTO t a = (true --> false @ 5 s) b = false #TIME# 1000000000;\n"
            "COMMIT;\n"
            "VACUUM;\n");
}

TEST_F(Copies, commandsMakeTheSameDatabaseAgain) {
  makeRich("rich");
  load("again", outputOf({"dump", "rich"}));
  EXPECT_EQ(outputOf({"diff", "rich", "again"}), "");
  EXPECT_EQ(outputOf({"hash", "rich"}), outputOf({"hash", "again"}));
  EXPECT_EQ(outputOf({"dump", "rich"}), outputOf({"dump", "again"}));
}

TEST_F(Copies, aHashDependsNeitherOnFilesNorOnTheSecondNorOnTheOrderOfRows) {
  make("one", {"CREATE TABLE t a int b string 2", "INSERT INTO t a = 1 b = 'x' --> 'y' @ 1 m",
               "INSERT INTO t a = 2", "INSERT INTO t a = 2"});
  make("two", {"CREATE TABLE t a int b string 2", "INSERT INTO t a = 2", "INSERT INTO t a = 3",
               "INSERT INTO t a = 1 b = 'x' --> 'y' @ 1 m", "CHECKPOINT", "INSERT INTO t a = 2",
               "DELETE FROM t WHERE a = 3", "VACUUM"});
  const std::string hash = outputOf({"hash", "one", "--now", "1000000000"});
  EXPECT_EQ(hash, "d08cd9ab5b2e3562b63b585b1f638655e42f91cbf8675c70817e06f5e4f5a516\n");
  EXPECT_EQ(outputOf({"hash", "one", "--now", "1000000060"}), hash);
  EXPECT_EQ(outputOf({"hash", "two"}), hash);
  make("two", {"UPDATE t SET b = 'x' --> 'y' @ 1 m WHERE a = 1 #TIME# 1000000001"});
  EXPECT_NE(outputOf({"hash", "two"}), hash);
}

TEST_F(Copies, differencesAreListed) {
  make("one",
       {"CREATE TABLE p id ApexInt name string(9) 2", "CREATE TABLE t a int b int",
        "CREATE TABLE only n int", "INSERT INTO p name = 'a'", "INSERT INTO p name = 'b'",
        "INSERT INTO p name = 'c' --> 'd' @ 5 s", "INSERT INTO t a = 1", "INSERT INTO t a = 1",
        "INSERT INTO t a = 2", "LINK t.a --> p.id", "LISTEN t.x --> 'y'"});
  make("two", {"CREATE TABLE p id ApexInt name string(9) 2", "CREATE TABLE t a int b long",
               "CREATE TABLE u a int", "INSERT INTO p name = 'a'", "INSERT INTO p name = 'x'",
               "INSERT INTO p name = 'c' --> 'd' @ 6 s", "INSERT INTO p name = 'e'"});
  const ToolRun result = run({"diff", "one", "two", "--format", "markdown"});
  EXPECT_EQ(result.code, 1);
  EXPECT_EQ(result.errors, "");
  EXPECT_EQ(result.output,
            "| what     | table | key  | column | first                                 | second   "
            "        "
            "                     |\n"
            "| -------- | ----- | ---- | ------ | ------------------------------------- | "
            "-----------------"
            "-------------------- |\n"
            "| table    | only  | NULL | NULL   | CREATE TABLE only n int               | NULL     "
            "        "
            "                     |\n"
            "| column   | p     | NULL | id     | ApexInt, key, next 4                  | ApexInt, "
            "key, next "
            "5                  |\n"
            "| value    | p     | 2    | name   | 'b'                                   | 'x'      "
            "        "
            "                     |\n"
            "| value    | p     | 3    | name   | ('c' --> 'd' @ 5 s) #TIME# 1000000000 | ('c' --> "
            "'d' @ 6 "
            "s) #TIME# 1000000000 |\n"
            "| row      | p     | 4    | NULL   | NULL                                  | id = 4 "
            "name = 'e'"
            "                     |\n"
            "| column   | t     | NULL | b      | int                                   | long     "
            "        "
            "                     |\n"
            "| table    | u     | NULL | NULL   | NULL                                  | CREATE "
            "TABLE u a "
            "int                  |\n"
            "| link     | t     | NULL | a      | LINK t.a --> p.id                     | NULL     "
            "        "
            "                     |\n"
            "| listener | t     | NULL | NULL   | LISTEN t.x --> 'y'                    | NULL     "
            "        "
            "                     |\n");
}

TEST_F(Copies, rowsWithoutAKeyAreCountedAsAWhole) {
  make("one", {"CREATE TABLE t a int", "INSERT INTO t a = 1", "INSERT INTO t a = 1",
               "INSERT INTO t a = 2"});
  make("two", {"CREATE TABLE t a int", "INSERT INTO t a = 2", "INSERT INTO t a = 1",
               "INSERT INTO t a = 3"});
  const ToolRun result = run({"diff", "one", "two"});
  EXPECT_EQ(result.code, 1);
  EXPECT_EQ(result.output, "what,table,key,column,first,second\nrow,t,,,a = 1,\nrow,t,,,,a = 3\n");
  EXPECT_EQ(outputOf({"diff", "one", "one"}), "");
}

TEST_F(Copies, writesFiles) {
  makeRich("rich");
  EXPECT_EQ(outputOf({"dump", "rich", "--csv", "csv", "--now", "1000000000"}), "");
  EXPECT_EQ(read("csv/schema.vel"),
            "CREATE TABLE Mixed a int b long c float d double e bool f string(80);\n"
            "CREATE TABLE lights pole string(8) colour string(6) 3 level int 4 on_ bool 2;\n"
            "CREATE TABLE places id ApexInt name string(20) open bool 3;\n"
            "CREATE TABLE stays place int 3 guest string(30) price float 4 code long 2;\n"
            "LINK stays.place --> places.id;\n"
            "LISTEN places.change --> 'there';\n"
            "LISTEN stays.INSERT --> 'mail''er' WHERE price > 1.5 && guest = 'it''s';\n");
  EXPECT_EQ(read("csv/Mixed.csv"),
            "a,b,c,d,e,f\n-2147483648,-5,3.4028235e+38,-1e-300,false,\"two\nlines\tand \x1b[31m "
            "red\"\n,,,,,\"\"\n1,,,,,\n1,,,,,\n");
  EXPECT_EQ(read("csv/lights.csv"), "pole,colour,level,on_\na,amber,7,true\na,red,1,true\n");
  EXPECT_EQ(read("csv/places.states.csv"),
            "ordinal,key,column,start,number,value,seconds,cycles\n"
            "0,1,open,1000000000,1,true,28800,true\n"
            "0,1,open,1000000000,2,false,28800,true\n"
            "0,1,open,1000000000,3,false,28800,true\n");
  EXPECT_EQ(outputOf({"dump", "rich", "--jsonl", "jsonl", "--now", "1000000000"}), "");
  EXPECT_EQ(read("jsonl/lights.jsonl"),
            "{\"pole\": \"a\", \"colour\": \"amber\", \"level\": 7, \"on_\": true}\n"
            "{\"pole\": \"a\", \"colour\": \"red\", \"level\": 1, \"on_\": true}\n");
  const ToolRun result = run({"dump", "rich", "--csv", "csv"});
  EXPECT_EQ(result.code, 1);
  EXPECT_EQ(result.errors, "velmora-tool: csv: the directory is not empty\n");
}

}  // namespace
}  // namespace velmora_tests
