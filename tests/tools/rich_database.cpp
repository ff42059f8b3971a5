// See rich_database.h.
#include "rich_database.h"

#include "velmora/velmora.hpp"

namespace velmora_tests {

void RichDatabase::makeRich(const std::string& database) const {
  make(database,
       {"CREATE TABLE places id ApexInt name string(20) open bool 3",
        "CREATE TABLE stays place int 3 guest string(30) price float 4 code long 2",
        "CREATE TABLE lights pole string(8) colour string(6) 3 level int 4 on_ bool 2",
        "CREATE TABLE Mixed a int b long c float d double e bool f string(80)",
        "INSERT INTO places name = 'Zürich ☃' open = (true --> false @ 8 h --> false @ 8 h c)",
        "INSERT INTO places name = 'gone'",
        "INSERT INTO places name = 'it''s \"here\"; -- no'",
        "INSERT INTO places name = 'last'",
        "DELETE FROM places WHERE id = 2 || id = 4",
        "INSERT INTO stays place = (1 --> 3 @ 1 h) guest = 'Ada' price = 0.1 "
        "code = 9223372036854775807",
        "INSERT INTO stays place = 3 guest = NULL "
        "price = (1.5 --> 2.5 @ 10 s --> 1e+20 @ 20 s c) "
        "code = (1 --> -9223372036854775808 @ 1 d) #TIME# 999999940",
        "UPDATE stays SET place = (3 --> 1 @ 5 s c) WHERE code = 1",
        "INSERT INTO lights pole = 'a' colour = ('amber' --> 'red' @ 5 s --> 'green' @ 30 s c) "
        "level = 7 on_ = (true --> false @ 1 m)",
        "INSERT INTO lights pole = 'b' colour = ('red' --> 'off' @ 1 mo) level = (1 --> 2 @ 1 s) "
        "#TIME# 1900000000",
        "UPDATE lights SET on_ = (false --> true @ 40 s) WHERE pole = 'b' #TIME# 999999960",
        "UPDATE lights SET pole = 'a' WHERE pole = 'b'",
        "INSERT INTO Mixed a = -2147483648 b = -5 c = 3.4028235e+38 d = -1e-300 e = false "
        "f = 'two\nlines\tand \x1b[31m red'",
        "INSERT INTO Mixed f = ''",
        "INSERT INTO Mixed a = 1 f = NULL",
        "INSERT INTO Mixed a = 1 f = NULL",
        "LINK stays.place --> places.id",
        "LISTEN stays.INSERT --> 'mail''er' WHERE price > 1.5 && guest = 'it''s'",
        "LISTEN places.change --> there"});
}

void RichDatabase::load(const std::string& database, const std::string& commands) const {
  velmora::Database open(at(database).string());
  std::string command;
  char quote = '\0';
  for (const char c : commands) {
    if (quote == '\0' && c == '\n' && command.starts_with("--")) {
      command.clear();
    } else if (quote == '\0' && c == ';' && !command.starts_with("--")) {
      open.run(command);
      command.clear();
    } else if (c != '\n' || quote != '\0' || !command.empty()) {
      command += c;
    }
    const bool isQuote = c == '\'' && !command.starts_with("--");
    if (isQuote) quote = quote == '\0' ? '\'' : '\0';
  }
}

}  // namespace velmora_tests
