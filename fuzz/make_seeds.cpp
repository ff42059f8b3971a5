// Writes the seed corpora: make_seeds DIRECTORY. They are made of the sample database, so a change
// of a file format or of the language reaches them by running this program again.
#include <filesystem>
#include <fstream>
#include <iostream>
#include <string>
#include <utility>

#include "directory_input.h"
#include "engine_run.h"
#include "sample_database.h"

namespace {

using namespace velmora::fuzz;

namespace fs = std::filesystem;

// One of each shape that the commands of the sample database do not have.
constexpr const char* furtherCommands =
    "SELECT * FROM customers\n"
    "SELECT id, name FROM customers WHERE id >= 2 && score < 1.5 || name != 'Ada'\n"
    "SELECT customers.name, note FROM orders JOIN customers ON orders.customer = customers.id "
    "WHERE orders.id > 0 && customers.active == true\n"
    "SELECT * FROM lamps JOIN tags ON name = name\n"
    "UPDATE customers SET name = ('Eve') score = 3.25 WHERE id = 1\n"
    "UPDATE lamps SET bright = 2 --> 1 @ 2 mo c\n"
    "UPDATE tags SET lit = (true --> false @ 90 s c) WHERE weight <= 2.5 #TIME# 1699999990\n"
    "DELETE FROM orders\n"
    "DROP TABLE orders\n"
    "BEGIN\n"
    "COMMIT\n"
    "ROLLBACK\n"
    "LISTEN orders.INSERT --> 'somewhere'\n"
    "LINK tags . name --> lamps . name\n"
    "SELECT nothing FROM nowhere\n";

// The fuzzers of one kind of file, and the file that they replace.
constexpr std::pair<const char*, const char*> fuzzedFiles[] = {
    {"table", "lamps.bin"},
    {"deletion", "tags.del"},
    {"whole_row", "tags.row"},
    {"timed", "lamps.tmp"},
    {"relation", "orders-customer_customers-id.rel"},
    {"listener", "listeners.bin"},
    {"webhook", "webhooks.bin"},
    {"log", "velmora.wal"},
    {"marker", "velmora.ckpt"},
};

// Commands of the strict language; see strict_fuzzer.cpp.
constexpr const char* strictCommands[] = {
    "INSERT INTO t a = 'it''s' --> ? @ 5 mo c b = (-1.5E+10) c = NULL #TIME# ?",
    "UPDATE t SET a=?b=?-->true@?s WHERE a IS NOT NULL && t.b >= 7 || c != \"x\" #TIME# 17",
    "CREATE TABLE t id ApexInt s string(30) 3 l long d double f float b bool 2 i int",
    ("SELECT a, COUNT(*), t.b FROM t JOIN u ON t.a = u.b WHERE a < ? GROUP BY a ORDER BY MAX(b) "
     "DESC, a LIMIT?OFFSET?AT?"),
    "LISTEN t.INSERT --> 'x' WHERE a IS NULL",
    "UNLINK a.b --> c.d",
    "SHOW SCHEDULE FROM t UNTIL ?",
};

// Sequences of them; see handle_fuzzer.cpp.
constexpr const char* handleSequences[] = {
    "CREATE TABLE p id ApexInt s string(30) 3 l long d double f float b bool 2\n"
    "CREATE TABLE c p int 3 k string x double\nINSERT INTO p s = 'a' --> 'b' @ 5 s c l = ?\n"
    "INSERT INTO p s = ? b = true d = ? f = 0.1\nLINK c.p --> p.id\nINSERT INTO c p = 1 --> 2 @ 9 "
    "s\n"
    "!kill\nUPDATE c SET k = ? WHERE p = 1 || x IS NULL\n!clock 6\nDELETE FROM p\n!stop\n"
    "SELECT p.s, COUNT(*), SUM(x) FROM p JOIN c ON id = c.p GROUP BY s ORDER BY s AT ?\n",
    "CREATE TABLE q k string n int\nCREATE TABLE r k string\nINSERT INTO q k = 'a'\n"
    "LINK r.k --> q.k\nBEGIN\nINSERT INTO r k = 'a'\nUPDATE q SET n = 2\nUNLINK r.k --> q.k\n"
    "DROP TABLE q\nLISTEN r.INSERT --> 'x' WHERE k = ?\nROLLBACK\nDELETE FROM q\nDROP TABLE r\n",
    "CREATE TABLE t n int s string 4\nINSERT INTO t n = ?\nINSERT INTO t n = 1\n"
    "DELETE FROM t WHERE n > 0\nVACUUM t\n!kill\nINSERT INTO t s = 'x' --> ? @ ? s #TIME# ?\n"
    "SHOW SCHEDULE UNTIL 1700000020\nCHECKPOINT\nSELECT MIN(n), MAX(s) FROM t LIMIT ?\n",
};

// A checkpoint's marker, which no finished checkpoint leaves.
constexpr const char* marker = "lamps.del\nlamps.bin\nlamps.tmp\nlog 1 0\nend\n";

// Short sequences run often; each takes up where the tables begin.
constexpr const char* shortSequences[] = {
    "CREATE TABLE a k string ( 9 ) 2 n int\n"
    "INSERT INTO a k = 'x' --> 'y' @ 5 s n = 05\n"
    "!kill\nUPDATE a SET n = 7 WHERE k = 'x'\n!clock 6\n!stop\nSELECT * FROM a WHERE n >= 7\n",
    "CREATE TABLE p id ApexInt\nCREATE TABLE c r int 3\nINSERT INTO p id = 0\n"
    "INSERT INTO p id = 0\nLINK c.r --> p.id\nINSERT INTO c r = 1 --> 2 @ 1 m c\n!kill\n"
    "DELETE FROM p WHERE id = 1\n!clock 61\nUPDATE c SET r = 2\nDELETE FROM p WHERE id = 1\n",
    "CREATE TABLE s k string v float\nCREATE TABLE u k string\nINSERT INTO s k = 'a' v = 1.5\n"
    "LINK u.k --> s.k\nBEGIN\nINSERT INTO u k = 'a'\nUPDATE s SET v = 2\nDELETE FROM u\n"
    "ROLLBACK\nINSERT INTO s k = 'a'\nDELETE FROM s\nINSERT INTO s k = 'a'\n!stop\n",
    "CREATE TABLE d n int s string\nINSERT INTO d\rn = 1 s = 'x\rDELETE FROM d'\n"
    "UPDATE d\rSET\rn = 2\nDELETE FROM d 'y'\rINSERT INTO d n = 3\n",
    ("CREATE TABLE b f bool 2 t string\nINSERT INTO b f = true --> false @ 1 d t = 'text'\n"
     "LISTEN b.INSERT --> 'h' WHERE f = true\nDROP TABLE b\nCREATE TABLE b f int\n!kill\n"),
};

void write(const fs::path& path, const std::string& bytes) {
  fs::create_directories(path.parent_path());
  std::ofstream(path, std::ios::binary) << bytes;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 2) {
    std::cerr << "usage: make_seeds DIRECTORY\n";
    return 2;
  }
  prepareProcess();
  const fs::path root = fs::absolute(argv[1]);
  const std::string all = std::string(sampleCommands) + furtherCommands;
  std::size_t count = 0;
  for (const std::string& command : linesOf(all)) {
    write(root / "command" / (std::to_string(++count) + ".txt"), command);
  }
  write(root / "json" / "all.txt", all);
  count = 0;
  for (const char* const sequence : shortSequences) {
    write(root / "sequence" / (std::to_string(++count) + ".txt"), sequence);
    write(root / "json" / (std::to_string(count) + ".txt"), sequence);
  }
  write(root / "sequence" / "restarts.txt", std::string(sampleCommands) + "!kill\n" +
                                                furtherCommands + "!clock 40\n!stop\n" +
                                                furtherCommands);
  count = 0;
  for (const char* const command : strictCommands) {
    write(root / "strict" / (std::to_string(++count) + ".txt"), std::string("0") + command);
  }
  count = 0;
  for (const char* const sequence : handleSequences) {
    write(root / "handle" / (std::to_string(++count) + ".txt"), std::string("0") + sequence);
  }
  const Files sample = sampleFiles();
  for (const auto& [fuzzer, file] : fuzzedFiles) {
    const auto found = sample.find(file);
    write(root / fuzzer / file, found == sample.end() ? std::string(marker) : found->second);
  }
  write(root / "directory" / "all.bin", inputOf(sample));
  for (const auto& [name, bytes] : sample) {
    write(root / "directory" / (name + ".bin"), inputOf({{name, bytes}}));
  }
  return 0;
}
