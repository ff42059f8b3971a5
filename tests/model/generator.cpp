// How the random commands are made: few names and few values, so that keys collide, links find
// their parents and conditions match; and among them what is easy to get wrong, such as numbers
// that are not written canonically, missing values, reused keys and rules that start in the future.
#include "model/generator.h"

#include <utility>

namespace model {

namespace {

const std::vector<std::string> tableNames = {"t", "u", "v"};
const std::vector<std::string> columnNames = {"k", "a", "b", "c", "d"};
const std::vector<std::string> smallTexts = {"'a'", "'b'", "'c'", "'ab'", "'5'", "'1'", "'2'"};

}  // namespace

Sequence Generator::make() {
  model_.now = 1700000000;
  if (oneIn(2)) {
    addLinkedTables();
  } else {
    const std::size_t count = 1 + below(3);
    for (std::size_t i = 0; i < count; ++i) addCommand(createTable(tableNames[i]));
    addRows();
  }
  const std::size_t start = sequence_.size();
  while (sequence_.size() < start + wishes_.length) {
    if (wishes_.restarts && oneIn(12) && model_.canStop()) {
      add({0, "", true});
    } else if (oneIn(30)) {
      addReplacement();
    } else {
      addCommand(isLarge() ? largeCommand() : command());
    }
  }
  std::vector<std::string> names;
  for (const auto& entry : model_.tables) names.push_back(entry.first);
  for (const std::string& name : names) addCommand("SELECT * FROM " + name);
  return std::exchange(sequence_, {});
}

// The first table gets all rows that are wished for, the others a tenth.
void Generator::addRows() {
  std::size_t count = isLarge() ? wishes_.rows : 4;
  for (const std::string& name : tableNames) {
    if (model_.tables.count(name) == 0) break;
    for (std::size_t i = 0; i < count; ++i) add({0, insert(name), false});
    if (isLarge()) count = wishes_.rows / 10;
  }
}

// A parent table whose key is no identity column, and a child table that refers to it.
void Generator::addLinkedTables() {
  const std::string type = pick({"int", "string"});
  const std::string limit = oneIn(4) ? " 3" : "";
  addCommand("CREATE TABLE t k " + type + limit + columnDefinition("a") + columnDefinition("b"));
  addCommand("CREATE TABLE u" + std::string(oneIn(2) ? " id ApexInt" : "") + " a " + type + limit +
             columnDefinition("b") + columnDefinition("c"));
  const bool linksFirst = oneIn(2);
  if (linksFirst) addCommand("LINK u.a --> t.k");
  const std::size_t parents = isLarge() ? wishes_.rows : 3 + below(4);
  for (std::size_t i = 0; i < parents; ++i) {
    // Not in ascending order, each once.
    const std::size_t number = parents % 7 == 0 ? i : i * 7 % parents;
    std::string key = std::to_string(number + 1);
    if (type == "string") key = isLarge() ? "'key " + key + "'" : smallTexts[number];
    const auto& columns = model_.tables["t"].columns;
    add({0, "INSERT INTO t k = " + key + assignment(columns[1]) + assignment(columns[2]), false});
  }
  const std::size_t children = isLarge() ? wishes_.rows / 10 : 4;
  for (std::size_t i = 0; i < children; ++i) add({0, insert("u"), false});
  if (!linksFirst) addCommand("LINK u.a --> t.k");
}

// A row deleted and its key given to another, perhaps for a while only.
void Generator::addReplacement() {
  const std::string table = knownTable();
  const std::string key = model_.tables[table].keyColumn;
  const auto position = model_.tables[table].find(key);
  if (!position) return;
  const Column column = model_.tables[table].columns[*position];
  const std::string chosen = value(column.type);
  const bool inTransaction = !oneIn(3);
  const bool beginsLate = oneIn(2);
  if (inTransaction && !beginsLate) addCommand("BEGIN");
  addCommand("DELETE FROM " + table + " WHERE " + key + " = " + chosen);
  if (inTransaction && beginsLate) addCommand("BEGIN");
  if (oneIn(3)) {
    addCommand("UPDATE " + table + " SET " + key + " = " + chosen + where(table, "", true));
  } else {
    addCommand("INSERT INTO " + table + " " + key + " = " + chosen);
  }
  if (oneIn(3)) addCommand(command());
  if (inTransaction) addCommand(oneIn(4) ? "COMMIT" : "ROLLBACK");
  addCommand("SELECT * FROM " + table + " WHERE " + key + " = " + chosen);
  addCommand("INSERT INTO " + table + " " + key + " = " + chosen);
}

void Generator::addCommand(const std::string& command) {
  std::int64_t advance = 0;
  if (oneIn(3)) advance = static_cast<std::int64_t>(1 + below(oneIn(10) ? 2000 : 8));
  add({advance, command, false});
}

void Generator::add(Step step) {
  model_.now += step.advance;
  if (step.restart) {
    model_.restart();
  } else {
    model_.run(step.command);
  }
  sequence_.push_back(std::move(step));
}

std::string Generator::command() {
  const std::size_t choice = below(100);
  if (choice < 28) return insert(tableName());
  if (choice < 43) return update();
  if (choice < 50) return erase();
  if (choice < 66) return select();
  if (choice < 76) return join();
  if (choice < 83) return link();
  if (choice < 92) return pick({"BEGIN", "BEGIN", "COMMIT", "ROLLBACK", "ROLLBACK"});
  if (choice < 94) return createTable(pick(tableNames));
  if (choice < 95) return "DROP TABLE " + tableName();
  if (choice < 97) return "CHECKPOINT";
  return malformed();
}

// Mostly reads, half of which have been asked before.
std::string Generator::largeCommand() {
  if (!oneIn(3)) {
    if (reads_.size() > 3 && oneIn(2)) return pick(reads_);
    reads_.push_back(read());
    return reads_.back();
  }
  const std::size_t choice = below(20);
  if (choice < 6) return insert(tableName());
  if (choice < 12) return update();
  if (choice < 15) return erase();
  if (choice < 16) return link();
  return pick({"BEGIN", "BEGIN", "COMMIT", "ROLLBACK", "ROLLBACK"});
}

std::string Generator::read() { return oneIn(4) ? join() : select(); }

std::string Generator::knownTable() {
  std::vector<std::string> names;
  for (const auto& entry : model_.tables) names.push_back(entry.first);
  return names.empty() ? "t" : pick(names);
}

std::string Generator::tableName() {
  if (oneIn(60)) return "nowhere";
  return oneIn(40) ? pick(tableNames) : knownTable();
}

// Null when the table has none or is not there.
const Column* Generator::anyColumn(const std::string& table) {
  const auto found = model_.tables.find(table);
  if (found == model_.tables.end() || found->second.columns.empty()) return nullptr;
  return &found->second.columns[below(found->second.columns.size())];
}

std::string Generator::createTable(const std::string& name) {
  std::string text = "CREATE TABLE " + name;
  const bool identity = !oneIn(3);
  if (identity) text += " id ApexInt";
  if (identity && !wishes_.restarts && oneIn(6)) text += " 2";
  text += columnDefinition(pick(columnNames) + "1");
  for (const std::string& column : columnNames) {
    if (!oneIn(3)) text += columnDefinition(column);
  }
  if (identity && oneIn(30)) text += " second ApexInt after int";
  return text;
}

std::string Generator::columnDefinition(const std::string& name) {
  const std::string type = pick({"int", "int", "int", "string", "string", "float", "bool"});
  std::string text = " " + name + " " + type;
  if (type == "string" && oneIn(3)) text += oneIn(2) ? "(20)" : " ( 60 )";
  if (oneIn(3)) text += " " + std::to_string(2 + below(3));
  return text;
}

std::string Generator::insert(const std::string& table) {
  const auto found = model_.tables.find(table);
  std::string text = "INSERT INTO " + table;
  std::string given;
  if (found != model_.tables.end()) {
    for (const Column& column : found->second.columns) {
      const bool skipped = column.type == "ApexInt" ? !oneIn(8) : oneIn(8);
      if (!skipped) given += assignment(column);
    }
  }
  if (given.empty()) given = " a = 1";
  return text + given + clockSuffix();
}

std::string Generator::update() {
  const std::string table = tableName();
  std::string text = "UPDATE " + table + " SET";
  const std::size_t count = oneIn(4) ? 2 : 1;
  for (std::size_t i = 0; i < count; ++i) {
    const Column* column = anyColumn(table);
    if (column != nullptr && column->type == "ApexInt" && !oneIn(6)) column = anyColumn(table);
    text += column == nullptr ? " a = 1" : assignment(*column);
  }
  return text + (oneIn(isLarge() ? 200 : 8) ? " WHERE" : where(table, "", true)) + clockSuffix();
}

std::string Generator::erase() {
  const std::string table = tableName();
  return "DELETE FROM " + table + where(table, "", true);
}

std::string Generator::select() {
  const std::string table = tableName();
  std::string list = "*";
  if (oneIn(2)) {
    list = "";
    const std::size_t count = 1 + below(3);
    for (std::size_t i = 0; i < count; ++i) {
      const Column* column = anyColumn(table);
      if (i > 0) list += ", ";
      list += column == nullptr || oneIn(40) ? "a" : column->name;
    }
  }
  return "SELECT " + list + " FROM " + table + where(table, "", false);
}

std::string Generator::join() {
  const std::string left = knownTable();
  std::string right = knownTable();
  if (isLarge() && right == left && model_.tables.size() > 1) right = left == "t" ? "u" : "t";
  const Column* leftKey = anyColumn(left);
  const Column* rightKey = anyColumn(right);
  if (isLarge() && leftKey != nullptr && leftKey->type == "bool") return select();
  if (leftKey == nullptr || rightKey == nullptr) return "SELECT * FROM " + left;
  for (int i = 0; i < 9 && leftKey->type != rightKey->type; ++i) rightKey = anyColumn(right);
  std::string list = "*";
  if (!oneIn(3)) {
    list = left + "." + anyColumn(left)->name + ", " + right + "." + anyColumn(right)->name;
    if (oneIn(2)) list += " " + anyColumn(right)->name;
    if (oneIn(30)) list += " nowhere";
    if (oneIn(30)) list += " nowhere.a";
  }
  std::string on = left + "." + leftKey->name + " = " + right + "." + rightKey->name;
  if (left != right && oneIn(4)) {
    on = right + "." + rightKey->name + " = " + left + "." + leftKey->name;
  }
  if (oneIn(4)) on = leftKey->name + " = " + rightKey->name;
  if (left != right && oneIn(8)) on = left + "." + leftKey->name + " = " + rightKey->name;
  if (left != right && oneIn(8)) on = leftKey->name + " = " + right + "." + rightKey->name;
  return "SELECT " + list + " FROM " + left + " JOIN " + right + " ON " + on +
         where(left, right, false);
}

std::string Generator::link() {
  const std::string child = tableName();
  const std::string parent = tableName();
  const Column* childColumn = anyColumn(child);
  const Column* parentColumn = anyColumn(parent);
  if (childColumn == nullptr || parentColumn == nullptr) {
    return "LINK " + child + ".a --> " + parent + ".a";
  }
  const std::string& key = model_.tables[parent].keyColumn;
  const auto keyPosition = model_.tables[parent].find(key);
  if (keyPosition && !oneIn(6)) parentColumn = &model_.tables[parent].columns[*keyPosition];
  const std::string wanted = parentColumn->type == "ApexInt" ? "int" : parentColumn->type;
  for (int i = 0; i < 6 && childColumn->type != wanted; ++i) childColumn = anyColumn(child);
  return "LINK " + child + "." + childColumn->name + " --> " + parent + "." + parentColumn->name;
}

std::string Generator::assignment(const Column& column) {
  const std::string given =
      value(column.type) + (oneIn(column.statesLimit > 0 ? 3 : 60) ? schedule(column) : "");
  return " " + column.name + " = " + (oneIn(10) ? "(" + given + ")" : given);
}

std::string Generator::value(const std::string& type) {
  if (rarely()) return pick({"5", "'5'", "true", "word", "SELECT"});
  if (type == "string") return quoted();
  if (type == "bool") return pick({"true", "false"});
  return number(type);
}

std::string Generator::quoted() {
  if (oneIn(12)) {
    return pick({"'NULL'", "'null'", "\"it's\"", "'#/#?'", "'a b'", "' 5'", "'5.0'", "''",
                 "'a long text that is longer than the sixty bytes that a file has for one 1'",
                 "'a long text that is longer than the sixty bytes that a file has for one 2'"});
  }
  if (isLarge() && !oneIn(20)) return "'key " + std::to_string(below(wishes_.rows / 3)) + "'";
  return oneIn(8) ? "'05'" : pick(smallTexts);
}

std::string Generator::number(const std::string& type) {
  if (rarely()) {
    return pick({"99999999999", "2147483647", "-2147483648", "2147483648", "5.",
                 "340282346638528859811704183484516925441",
                 "400000000000000000000000000000000000000",
                 "0.00000000000000000000000000000000000000000000000001", "-0"});
  }
  if (type == "float" && oneIn(isLarge() ? 20 : 2)) {
    return pick({"0.5", "1.0", "1.50", "-2.25", "0.1", "1234567", "3.1415926", "2.", "100000"});
  }
  if (isLarge() && type == "float" && oneIn(2)) return std::to_string(below(999)) + ".25";
  if (oneIn(isLarge() ? 30 : 5)) return pick({"05", "5.0", "007", "-1", "-01", "2.9", "1.", "010"});
  if (isLarge() && !oneIn(20)) return std::to_string(below(wishes_.rows / 3));
  return std::to_string(1 + below(7));
}

std::string Generator::duration() {
  if (oneIn(60)) return pick({"0 s", "-5 s", "9223372036854775807 d", "99999999999999999999 s"});
  if (oneIn(60)) return pick({"5 w", "x s", "5", "5 S"});
  if (oneIn(8)) return pick({"1 m", "2.9 s", "1 h", "1 d", "1 mo", "007 s"});
  return std::to_string(1 + below(12)) + " s";
}

std::string Generator::schedule(const Column& column) {
  std::size_t states = 2;
  if (column.statesLimit > 2) states += below(static_cast<std::size_t>(column.statesLimit) - 1);
  if (oneIn(40)) ++states;
  std::string text;
  if (column.type == "ApexInt" && oneIn(8)) text = " --> 2147483647 @ " + duration();
  for (std::size_t i = 1; i < states; ++i) {
    text += " --> " + value(column.type) + " @ " + duration();
  }
  return text + (oneIn(2) ? " c" : "");
}

std::string Generator::clockSuffix() {
  if (!oneIn(12)) return "";
  if (oneIn(20)) return " #TIME# 99999999999999999999";
  const std::int64_t second = model_.now - 40 + static_cast<std::int64_t>(below(60));
  return " #TIME# " + std::to_string(oneIn(20) ? 0 : second);
}

std::string Generator::where(const std::string& table, const std::string& other, bool changes) {
  if (oneIn(isLarge() ? (changes ? 200 : 20) : 4)) return "";
  std::string text = " WHERE " + condition(table, other, changes);
  while (oneIn(2)) text += pick({" && ", " || "}) + condition(table, other, changes);
  return text;
}

std::string Generator::condition(const std::string& table, const std::string& other, bool changes) {
  const std::string& side = !other.empty() && oneIn(2) ? other : table;
  const Column* column = anyColumn(side);
  const auto found = model_.tables.find(side);
  if (found != model_.tables.end() && oneIn(3)) {
    const auto key = found->second.find(found->second.keyColumn);
    if (key) column = &found->second.columns[*key];
  }
  std::string name = column == nullptr || oneIn(40) ? "nowhere" : column->name;
  if (!other.empty() || oneIn(10)) name = (oneIn(60) ? "nowhere" : side) + "." + name;
  const std::string type = column == nullptr ? "int" : column->type;
  return name + " " + comparison(changes) + " " + literal(type);
}

// Changes of a large table leave most of it as it is.
std::string Generator::comparison(bool changes) {
  if (isLarge() && changes && !oneIn(10)) return "=";
  if (oneIn(60)) return pick({"!", "&&", "-->"});
  return pick({"=", "=", "=", "==", "!=", "<", ">", "<=", ">="});
}

std::string Generator::literal(const std::string& type) {
  if (oneIn(60)) {
    return pick({"abc", "'nan'", "'inf'", "' 5'", "'+5'", "'0x10'", "'1e1'", "'5abc'", "''", "'-'",
                 "'#/#?'", "99999999999", "'-inf'", "'\t6'", "'1e99'", "'.5'", "'0x1p2'"});
  }
  if (oneIn(30)) return value(pick({"int", "string", "float", "bool"}));
  if (oneIn(30)) return "5";
  return value(type);
}

std::string Generator::malformed() {
  const std::string table = knownTable();
  return pick({"",
               "   ",
               "select ;",
               "drop table " + table,
               "DROP " + table,
               "CREATE TABLE w",
               "CREATE TABLE webhooks a int",
               "CREATE TABLE listeners a int",
               "CREATE TABLE w a",
               "CREATE TABLE w a int b",
               "CREATE TABLE w a text",
               "CREATE TABLE w a int a int",
               "CREATE TABLE sixteenletters16 a int",
               "CREATE TABLE 'a/b' a int",
               "CREATE TABLE '' a int",
               "CREATE TABLE w int int",
               "CREATE TABLE w a string(0)",
               "CREATE TABLE w a string(65536)",
               "CREATE TABLE w a int 65536",
               "CREATE TABLE w a int -1",
               "CREATE TABLE w '' int",
               "SELECT * " + table,
               "SELECT * FROM nowhere",
               "SELECT a, b " + table,
               "SELECT a b c d",
               "INSERT INTO " + table,
               "INSERT INTO " + table + " a",
               "INSERT INTO " + table + " a =",
               "INSERT INTO " + table + " a 1",
               "INSERT INTO " + table + " 5 = 1",
               "INSERT INTO " + table + " a = (",
               "INSERT INTO nowhere a = 1",
               "INSERT INTO nowhere ,",
               "UPDATE " + table + " a = 1",
               "UPDATE nowhere SET a = 1",
               "UPDATE nowhere SET WHERE a = 1",
               "UPDATE " + table + " SET WHERE a = 1",
               "DELETE FROM nowhere",
               "DELETE FROM nowhere2 WHERE a = 1",
               "DELETE " + table,
               "SELECT a FROM nowhere",
               "SELECT , FROM nowhere3",
               "SELECT , FROM " + table,
               "DELETE FROM " + table + " WHERE a",
               "DELETE FROM " + table + " WHERE a =",
               "DELETE FROM " + table + " WHERE a = 1 &&",
               "DELETE FROM " + table + " WHERE a = 1 ||",
               "DELETE FROM " + table + " WHERE a = 1 b",
               "DELETE FROM " + table + " WHERE 1 = a",
               "DELETE FROM " + table + " WHERE t. = 1",
               "DELETE FROM " + table + " WHERE a = (",
               "DELETE FROM " + table + " WHERE a = 1 = 2",
               "DELETE FROM " + table + " WHERE SET = 2",
               "LINK " + table + ".a -> t.a",
               "LINK " + table + ".a = t.a",
               "LINK " + table + " x a --> t y a",
               "LINK t.a --> nowhere.a",
               "LINK t.a",
               "LISTEN t",
               "LISTEN " + table + ".INSERT --> 'x'",
               "LISTEN t.INSERT --> 'x' WHERE a = 1",
               "LISTEN t.INSERT --> 'x' WHERE a",
               "LISTEN t x INSERT --> 'x'",
               "LISTEN t.INSERT = 'x'",
               "LISTEN users INSERT --> 'x'",
               "rollback",
               "commit now",
               "begin",
               "\"BEGIN\"",
               "a = 'open",
               "Begin #TIME# x",
               "SELECT 'a #TIME# b' FROM t",
               "SELECT * FROM " + table + " junk",
               "SELECT * FROM " + table + " WHERE",
               "SELECT a FROM t JOIN u",
               "SELECT a FROM t JOIN",
               "SELECT a FROM t JOIN u ON a b",
               "SELECT * FROM " + table + " JOIN " + table + " ON a",
               "SELECT a FROM t JOIN u ON t.a = t.b",
               "SELECT a FROM t JOIN u ON x.a = t.b",
               "SELECT id FROM t JOIN u ON id = nowhere",
               "SELECT t.id FROM t"});
}

}  // namespace model
