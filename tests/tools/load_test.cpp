// load: what is guessed from files, what is refused in them, and that nothing is ever half done.
#include "tool_fixture.h"
#include "velmora/velmora.hpp"

namespace velmora_tests {
namespace {

class Load : public ToolFixture {
 protected:
  // What a dry run shows of the content, without its first line.
  std::string guess(const std::string& content, std::vector<std::string> more = {},
                    const std::string& file = "f.csv") const {
    write(file, content);
    more.insert(more.begin(), {"load", "db", "t", file, "--dry-run"});
    const std::string shown = outputOf(more);
    EXPECT_FALSE(std::filesystem::exists(at("db")));
    return shown.substr(shown.find('\n') + 1);
  }

  // Loads the content into a new table, and gives its rows as CSV.
  std::string loaded(const std::string& content, std::vector<std::string> more = {},
                     const std::string& file = "f.csv") const {
    write(file, content);
    std::filesystem::remove_all(at("db"));
    more.insert(more.begin(), {"load", "db", "t", file});
    const ToolRun result = run(more);
    EXPECT_EQ(result.code, 0) << result.errors;
    return rows();
  }

  std::string rows() const {
    const std::string all = outputOf({"dump", "db"});
    return all.substr(all.find("CREATE"), all.find("COMMIT") - all.find("CREATE"));
  }

  // What is said of a file that is refused, after which there is no database.
  std::string refusal(const std::string& content, std::vector<std::string> more = {},
                      const std::string& file = "f.csv") const {
    write(file, content);
    more.insert(more.begin(), {"load", "db", "t", file});
    const ToolRun result = run(more);
    EXPECT_EQ(result.code, 1);
    EXPECT_EQ(result.output, "");
    EXPECT_FALSE(std::filesystem::exists(at("db")));
    return result.errors;
  }
};

TEST_F(Load, guessesTypes) {
  EXPECT_EQ(guess("a,b,c,d,e,f,g,h\n1,2147483648,1.5,true,x,00501,,9007199254740993\n"
                  "-2,1,1e5,FALSE,yz,1,,0.5\n"),
            "CREATE TABLE t a int b long c double d bool e string(2) f string(5) g string(1) "
            "h string(16)\n");
  EXPECT_EQ(
      guess("{\"a\": 1, \"b\": \"1\", \"c\": null}\n{\"d\": [1, 2], \"c\": true}\n", {}, "f.jsonl"),
      "CREATE TABLE t a int b string(1) c bool d string(5)\n");
  EXPECT_EQ(guess("n\nnan\ninf\n0x10\n"), "CREATE TABLE t n string(4)\n");
}

TEST_F(Load, cleansNames) {
  EXPECT_EQ(guess("Worldwide Gross (US$),2nd,on,int,Größe, a ,a-,a,averyveryverylong1,"
                  "averyveryverylong2,\"\"\n1,2,3,4,5,6,7,8,9,10,11\n"),
            "CREATE TABLE t Worldwide_Gross int _2nd int on_ int int_ int Gr_e int a int a2 int "
            "a3 int averyveryverylo int averyveryveryl2 int column11 int\n"
            "'Worldwide Gross (US$)' becomes Worldwide_Gross\n'2nd' becomes _2nd\n"
            "'on' becomes on_\n'int' becomes int_\n'Größe' becomes Gr_e\n' a ' becomes a\n"
            "'a-' becomes a2\n'a' becomes a3\n'averyveryverylong1' becomes averyveryverylo\n"
            "'averyveryverylong2' becomes averyveryveryl2\n'' becomes column11\n");
}

TEST_F(Load, readsCsvAsItIsSeen) {
  EXPECT_EQ(loaded("\xEF\xBB\xBF"
                   "a,b\r\n1,\"x, \"\"y\"\"\r\nz\"\r\n\r\n2,\r\n3,\"\"\r\n4,5\" pipe"),
            "CREATE TABLE t a int b string(9);\n"
            "INSERT INTO t a = 1 b = 'x, \"y\"\r\nz';\n"
            "INSERT INTO t a = 2 b = NULL;\nINSERT INTO t a = 3 b = '';\n"
            "INSERT INTO t a = 4 b = '5\" pipe';\n");
  EXPECT_EQ(loaded("1;N/A\n2;\n", {"--delimiter", ";", "--null", "N/A", "--no-header"}),
            "CREATE TABLE t column1 int column2 string(1);\n"
            "INSERT INTO t column1 = 1 column2 = NULL;\n"
            "INSERT INTO t column1 = 2 column2 = '';\n");
  EXPECT_EQ(loaded("a\tb\n1\t2\n", {"--delimiter", "\\t"}),
            "CREATE TABLE t a int b int;\nINSERT INTO t a = 1 b = 2;\n");
  EXPECT_EQ(loaded("n\n1\n\n3\n"),
            "CREATE TABLE t n int;\nINSERT INTO t n = 1;\nINSERT INTO t n = NULL;\n"
            "INSERT INTO t n = 3;\n");
}

TEST_F(Load, readsJsonLines) {
  EXPECT_EQ(
      loaded("{\"a\": 1, \"b\": \"x\\ny\"}\n\n{\"b\": \"\", \"c\": {\"d\": []}}\n", {}, "f.jsonl"),
      "CREATE TABLE t a int b string(3) c string(8);\n"
      "INSERT INTO t a = 1 b = 'x\ny' c = NULL;\n"
      "INSERT INTO t a = NULL b = '' c = '{\"d\":[]}';\n");
}

TEST_F(Load, takesGivenTypesAndDates) {
  EXPECT_EQ(loaded("n,code,day,at\n1,7,2027-01-31,31.01.2027 10:30\n",
                   {"--types", "id ApexInt, code string(20) 3, n float", "--dates", "day",
                    "--dates", "at=%d.%m.%Y %H:%M"}),
            "CREATE TABLE t id ApexInt n float code string(20) 3 day long at long;\n"
            "INSERT INTO t n = 1 code = '7' day = 1801353600 at = 1801391400;\n");
  EXPECT_EQ(loaded("d\n2027-01-31T10:30:59.5+02:00\n1969-12-31 23:59Z\n", {"--dates", "d"}),
            "CREATE TABLE t d long;\nINSERT INTO t d = 1801384259;\nINSERT INTO t d = -60;\n");
  std::filesystem::remove_all(at("db"));
  EXPECT_EQ(refusal("d\n2027-02-29\n", {"--dates", "d", "--yes"}),
            "f.csv: 1 rows\nCREATE TABLE t d long\n"
            "velmora-tool: f.csv:2:1: column d: '2027-02-29' is no date\n");
}

TEST_F(Load, appendsByName) {
  make("db", {"CREATE TABLE t id ApexInt name string(5) n int 2", "INSERT INTO t name = 'a'"});
  write("f.csv", "n,name\n7,bcd\n,e\n");
  const ToolRun result = run({"load", "db", "t", "f.csv"});
  EXPECT_EQ(result.code, 0);
  EXPECT_EQ(result.output, "t: 2 rows loaded\n");
  EXPECT_EQ(result.errors, "f.csv: 2 rows\nTable t is there already\n");
  EXPECT_EQ(rows(),
            "CREATE TABLE t id ApexInt name string(5) n int 2;\n"
            "INSERT INTO t name = 'a' n = NULL;\nINSERT INTO t name = 'bcd' n = 7;\n"
            "INSERT INTO t name = 'e' n = NULL;\n");
  const auto refused = [this](const std::string& content, int code = 1) {
    write("f.csv", content);
    const ToolRun bad = run({"load", "db", "t", "f.csv"});
    EXPECT_EQ(bad.code, code);
    EXPECT_EQ(bad.output, "");
    return bad.errors;
  };
  EXPECT_EQ(refused("n,other\n1,2\n"),
            "velmora-tool: f.csv: table t has no column for column 'other' of the input\n");
  EXPECT_EQ(refused("id\n1\n"),
            "velmora-tool: f.csv: column 'id' of the input is numbered by the engine\n");
  const std::string there = "f.csv: 2 rows\nTable t is there already\nvelmora-tool: f.csv:3:";
  EXPECT_EQ(refused("n,name\n1,a\n2,sixsix\n"),
            there + "3: column name: 'sixsix' has 6 bytes, more than the 5 of the column\n");
  EXPECT_EQ(refused("n\n1\n2147483648\n"),
            there + "1: column n: '2147483648' does not fit an int\n");
  EXPECT_EQ(refused("n\n1\n2.5\n"), there + "1: column n: '2.5' is no whole number\n");
  EXPECT_EQ(outputOf({"run", "db", "--read-only", "-c", "SHOW TABLES"}), "table,rows\nt,3\n");
}

TEST_F(Load, namesTheRecordThatTheEngineRefuses) {
  make("db", {"CREATE TABLE p id ApexInt n int", "INSERT INTO p n = 1", "CREATE TABLE t p int",
              "LINK t.p --> p.id"});
  write("f.csv", "p\n1\n1\n7\n1\n");
  ToolRun result = run({"load", "db", "t", "f.csv"});
  EXPECT_EQ(result.code, 1);
  const std::string reason =
      "Table 'p' has no row with the key '7', which column 'p' of table 't' is linked to";
  EXPECT_EQ(result.errors,
            "f.csv: 4 rows\nTable t is there already\nvelmora-tool: f.csv:4:1: " + reason + "\n");
  EXPECT_EQ(outputOf({"run", "db", "--read-only", "-c", "SHOW TABLES"}), "table,rows\np,1\nt,0\n");
  result = run({"load", "db", "t", "f.csv", "--rejects", "bad.csv"});
  EXPECT_EQ(result.code, 1);
  EXPECT_EQ(result.output, "t: 3 rows loaded, 1 rejected\n");
  EXPECT_EQ(read("bad.csv"), "line,reason,record\n4,\"" + reason + "\",7\n");
}

TEST_F(Load, refusesBadFilesAndMakesNothing) {
  EXPECT_EQ(refusal("a,b\n1,2\n\n3\n"),
            "velmora-tool: f.csv:4:1: a record of 1 fields, where there are 2 columns\n");
  EXPECT_EQ(refusal("a,b\n1,2,3\n"),
            "velmora-tool: f.csv:2:1: a record of 3 fields, where there are 2 columns\n");
  EXPECT_EQ(refusal("a,b\n1,\"x\n\n"), "velmora-tool: f.csv:2:3: a quote that is never closed\n");
  EXPECT_EQ(refusal("a,b\n\"x\ny\"z,2\n"),
            "velmora-tool: f.csv:3:3: text behind the closing quote of a field\n");
  EXPECT_EQ(refusal(std::string("a,b\n1,x\0y\n", 10)),
            "velmora-tool: f.csv:2:4: a zero byte, which no text can hold\n");
  EXPECT_EQ(refusal("a,b\n1,caf\xE9\n"),
            "velmora-tool: f.csv:2:6: not UTF-8; iconv makes it so from other encodings\n");
  EXPECT_EQ(refusal("a,b,a\n1,2,3\n"), "velmora-tool: f.csv:1:5: two columns are called 'a'\n");
  EXPECT_EQ(refusal(""), "velmora-tool: f.csv: empty\n");
  EXPECT_EQ(refusal("\n\n"), "velmora-tool: f.csv:1:1: nothing but blank lines\n");
  EXPECT_EQ(refusal("a,b\n"),
            "velmora-tool: f.csv: no rows to guess types from; --types gives them\n");
  EXPECT_EQ(refusal("a,b\n1," + std::string(16 << 20, 'x') + "\n"),
            "velmora-tool: f.csv:2:3: a field of 16777216 bytes; a text has at most 65535\n");
  EXPECT_EQ(refusal("{\"a\": 1}\n{\"a\": }\n", {}, "f.jsonl"),
            "velmora-tool: f.jsonl:2:7: not a JSON text\n");
  EXPECT_EQ(refusal("[1]\n", {}, "f.jsonl"), "velmora-tool: f.jsonl:1:1: not a JSON object\n");
}

TEST_F(Load, putsBadRecordsIntoAFile) {
  write("f.csv", "a,b\n1,x\nshort\n2,\"y\"z\n\n3,w\n9999999999,v\n4,\"open\n");
  const ToolRun result = run({"load", "db", "t", "f.csv", "--types", "a int", "--rejects", "bad"});
  EXPECT_EQ(result.code, 1);
  EXPECT_EQ(result.output, "t: 2 rows loaded, 4 rejected\n");
  EXPECT_EQ(rows(),
            "CREATE TABLE t a int b string(1);\nINSERT INTO t a = 1 b = 'x';\n"
            "INSERT INTO t a = 3 b = 'w';\n");
  EXPECT_EQ(read("bad"),
            "line,reason,record\n"
            "3,\"a record of 1 fields, where there are 2 columns\",short\n"
            "4,text behind the closing quote of a field,\"2,\"\"y\"\"z\"\n"
            "7,column a: '9999999999' does not fit an int,\"9999999999,v\"\n"
            "8,a quote that is never closed,\"4,\"\"open\"\n");
}

TEST_F(Load, readsStandardInput) {
  const ToolRun result = run({"load", "db", "t", "-", "--jsonl"}, "{\"n\": 1}\n");
  EXPECT_EQ(result.code, 0);
  EXPECT_EQ(result.output, "t: 1 rows loaded\n");
  EXPECT_EQ(result.errors, "standard input: 1 rows\nCREATE TABLE t n int\n");
}

TEST_F(Load, wrongUseIsExplained) {
  write("f.csv", "a,b\n1,2\n");
  const auto refused = [this](std::vector<std::string> arguments) {
    arguments.insert(arguments.begin(), {"load", "db", "t"});
    const ToolRun result = run(arguments);
    EXPECT_EQ(result.code, 2);
    return result.errors;
  };
  EXPECT_EQ(refused({"-"}), "velmora-tool: Standard input needs --csv or --jsonl\n");
  EXPECT_EQ(refused({"f.csv", "--delimiter", "ab"}),
            "velmora-tool: --delimiter takes one character, or \\t\n");
  EXPECT_EQ(refused({"f.csv", "--types", "a text"}),
            "velmora-tool: --types takes \"name type, ...\", not 'a text'\n");
  EXPECT_EQ(refused({"f.csv", "--types", "a ApexInt"}),
            "velmora-tool: Column a of the input cannot be an ApexInt: the engine numbers it\n");
  EXPECT_EQ(refused({"f.csv", "--dates", "c"}),
            "velmora-tool: --dates: the input has no column 'c'\n");
}

TEST_F(Load, loadsWhatDumpWrites) {
  make("old", {"CREATE TABLE t n int f float s string(70)", "INSERT INTO t n = 1 f = 0.1 s = ''",
               "INSERT INTO t s = 'a \"b\", c'", "INSERT INTO t n = -5"});
  outputOf({"dump", "old", "--csv", "files"});
  make("db", {"CREATE TABLE t n int f float s string(70)"});
  EXPECT_EQ(run({"load", "db", "t", "files/t.csv"}).code, 0);
  EXPECT_EQ(outputOf({"diff", "old", "db"}), "");
}

}  // namespace
}  // namespace velmora_tests
