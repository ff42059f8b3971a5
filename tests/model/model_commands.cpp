// The model's command language: the shape of each command, timed literals, the JSON text.
//
// Relies on tokens.h and on the operations of the other model sources. Commands are read with a
// cursor that stops at the first thing it did not expect; there is no recovery.
#include <algorithm>
#include <stdexcept>

#include "model/model.h"
#include "model/tokens.h"
#include "model/values.h"

namespace model {

namespace {

std::string render(const Result& result) {
  std::string text = "{\n  \"success\": ";
  text += result.success ? "true" : "false";
  text += ",\n  \"message\": \"" + result.message + "\",\n  \"rows_affected\": ";
  text += std::to_string(result.rowsAffected);
  if (result.columns.empty() || result.rows.empty()) return text + "\n}";
  text += ",\n  \"data\": [\n";
  for (std::size_t row = 0; row < result.rows.size(); ++row) {
    text += "    {";
    for (std::size_t i = 0; i < result.columns.size(); ++i) {
      if (i > 0) text += ", ";
      text += "\"" + result.columns[i] + "\": " + result.rows[row][i];
    }
    text += row + 1 < result.rows.size() ? "},\n" : "}\n";
  }
  return text + "  ]\n}";
}

Result failed(const std::string& message) {
  Result result;
  result.success = false;
  result.message = message;
  return result;
}

Result done(const std::string& message) {
  Result result;
  result.message = message;
  return result;
}

}  // namespace

// A place in the tokens of a command.
class Cursor {
 public:
  Cursor(const std::vector<Token>& tokens, std::size_t position)
      : tokens_(tokens), position_(position) {}

  bool atEnd() const { return position_ >= tokens_.size(); }
  bool is(const std::string& text) const { return !atEnd() && peek().text == text; }
  bool is(Kind kind) const { return !atEnd() && peek().kind == kind; }
  const Token& peek() const { return tokens_[position_]; }
  const std::string& take() { return tokens_[position_++].text; }
  const std::string& take(Kind kind, const std::string& message) {
    if (!is(kind)) fail(message);
    return take();
  }
  void expect(const std::string& text, const std::string& message) {
    if (!is(text)) fail(message);
    ++position_;
  }
  bool skip(const std::string& text) {
    if (!is(text)) return false;
    ++position_;
    return true;
  }

 private:
  const std::vector<Token>& tokens_;
  std::size_t position_;
};

namespace {

Condition parseCondition(Cursor& cursor) {
  Condition condition;
  condition.column = cursor.take(Kind::word, "Syntax Error: Expected column name in WHERE clause");
  if (cursor.skip(".")) {
    condition.table = condition.column;
    condition.column = cursor.take(Kind::word, "Syntax Error: Expected column name after '.'");
  }
  condition.operation = cursor.take(
      Kind::operation, "Syntax Error: Expected operator (=, >, <, >=, <=) after column");
  if (!cursor.is(Kind::word) && !cursor.is(Kind::literal) && !cursor.is(Kind::number)) {
    fail("Syntax Error: Expected value to compare against");
  }
  condition.literal = cursor.take();
  return condition;
}

std::vector<Condition> parseFilter(Cursor& cursor) {
  std::vector<Condition> conditions;
  bool opensGroup = true;
  while (!cursor.atEnd()) {
    conditions.push_back(parseCondition(cursor));
    conditions.back().opensGroup = opensGroup;
    if (cursor.atEnd()) break;
    const bool connective = cursor.is(Kind::operation) && (cursor.is("||") || cursor.is("&&"));
    if (!connective) {
      fail("Syntax Error: Unexpected token '" + cursor.peek().text + "' after condition");
    }
    const std::string text = cursor.take();
    if (cursor.atEnd()) fail("Syntax Error: Dangling '" + text + "' at end of query");
    opensGroup = text == "||";
  }
  return conditions;
}

std::vector<Condition> parseWhere(Cursor& cursor) {
  return cursor.skip("WHERE") ? parseFilter(cursor) : std::vector<Condition>();
}

bool fits(const Token& token, const std::string& type) {
  if (token.kind == Kind::literal) return type == "string";
  if (token.kind == Kind::number) return type == "int" || type == "float" || type == "ApexInt";
  return token.kind == Kind::word && type == "bool" &&
         (token.text == "true" || token.text == "false");
}

std::string takeValue(Cursor& cursor, const std::string& type) {
  if (!fits(cursor.peek(), type)) fail("Unmatching type to column");
  return cursor.take();
}

std::int64_t unitSeconds(const std::string& unit) {
  static const std::map<std::string, std::int64_t> units = {
      {"s", 1}, {"m", 60}, {"h", 3600}, {"d", 86400}, {"mo", 2592000}};
  const auto found = units.find(unit);
  if (found == units.end()) fail("Unknown time period");
  return found->second;
}

// One column of CREATE TABLE: its name, type, length of a string, states limit.
Column parseDefinition(Cursor& cursor) {
  static const std::set<std::string> types = {"int", "float", "bool", "string", "ApexInt"};
  Column column;
  column.name = cursor.take();
  if (cursor.atEnd()) fail("Mismatched column name and type");
  column.type = cursor.take();
  int length = 60;
  long limit = 0;
  if (column.type == "string" && cursor.skip("(")) {
    if (cursor.is(Kind::number)) length = std::stoi(cursor.take());
    cursor.skip(")");
  }
  if (cursor.is(Kind::number)) limit = std::stol(cursor.take());
  const std::string& name = column.name;
  if (name.empty() || name.size() > 15 || types.count(name) == 1 ||
      name.find('/') != std::string::npos) {
    fail("Forbidden column name");
  }
  if (length < 1 || length > 65535) fail("Forbidden string length");
  if (limit < 0 || limit > 65535) fail("Forbidden states limit");
  column.statesLimit = static_cast<int>(limit);
  return column;
}

// One step through the list of a SELECT, which is read in two ways at once: as a join reads it,
// with "t.c" as one column, and as a plain select does, for which that names two.
void parseList(Cursor& cursor, std::vector<std::string>& plain, QualifiedColumns& qualified) {
  if (!cursor.is(Kind::word)) {
    cursor.take();
    return;
  }
  QualifiedColumn column;
  column.name = cursor.take();
  plain.push_back(column.name);
  if (cursor.skip(".") && cursor.is(Kind::word)) {
    column.table = column.name;
    column.name = cursor.take();
    plain.push_back(column.name);
  }
  qualified.push_back(column);
}

}  // namespace

Answer Model::run(const std::string& command) {
  try {
    return {render(handle(command)), ""};
  } catch (const std::invalid_argument& error) {
    return {"", std::string("invalid_argument: ") + error.what()};
  } catch (const std::out_of_range& error) {
    return {"", std::string("out_of_range: ") + error.what()};
  }
}

Result Model::handle(const std::string& command) {
  try {
    std::string text = command;
    commandClock_ = takeClock(text, now);
    const auto tokens = tokenize(text);
    if (!tokens) return failed("Lexer Error");
    if (tokens->empty()) return failed("Empty command");
    return dispatch(*tokens);
  } catch (const std::runtime_error& error) {
    return failed(std::string("Error: ") + error.what());
  }
}

Result Model::dispatch(const std::vector<Token>& tokens) {
  const std::size_t count = tokens.size();
  const std::string& word = tokens[0].text;
  const std::string second = count > 1 ? tokens[1].text : "";
  if (word == "BEGIN") return begin();
  if (word == "CHECKPOINT") return checkpoint();
  if (word == "ROLLBACK") return rollback();
  if (word == "COMMIT") return commit();
  if (word == "CREATE" && count >= 4 && second == "TABLE") return parseCreate(tokens);
  if (word == "DROP" && count >= 3 && second == "TABLE") return drop(tokens[2].text);
  if (word == "INSERT" && count >= 4 && second == "INTO") return parseInsert(tokens);
  if (word == "SELECT" && count >= 4) return parseSelect(tokens);
  if (word == "UPDATE" && count >= 5) return parseUpdate(tokens);
  if (word == "DELETE" && count >= 3 && second == "FROM") return parseDelete(tokens);
  if (word == "LISTEN" && count >= 6) return parseListen(tokens);
  if (word == "LINK" && count >= 8) return parseLink(tokens);
  fail("Unknown command or missing parameters");
}

Result Model::parseCreate(const std::vector<Token>& tokens) {
  const std::string& name = tokens[2].text;
  if (name == "webhooks" || name == "listeners" || name.empty() || name.size() > 15 ||
      name.find_first_of("/.\n") != std::string::npos) {
    fail("Forbidden table name");
  }
  std::vector<Column> columns;
  Cursor cursor(tokens, 3);
  while (!cursor.atEnd()) {
    const Column column = parseDefinition(cursor);
    for (const Column& earlier : columns) {
      if (earlier.name == column.name) fail("Duplicate column name");
    }
    columns.push_back(column);
  }
  const auto found = tables.find(name);
  if (found != tables.end() && !found->second.columns.empty()) fail("Column size error");
  return create(name, columns);
}

Result Model::parseInsert(const std::vector<Token>& tokens) {
  Cursor cursor(tokens, 3);
  const Assignments given = parseAssignments(cursor, tokens[2].text, false);
  return insert(tokens[2].text, given);
}

Result Model::parseUpdate(const std::vector<Token>& tokens) {
  Cursor cursor(tokens, 2);
  cursor.expect("SET", "Expected SET");
  const Assignments given = parseAssignments(cursor, tokens[1].text, true);
  return update(tokens[1].text, given, parseWhere(cursor));
}

Result Model::parseDelete(const std::vector<Token>& tokens) {
  Cursor cursor(tokens, 3);
  return erase(tokens[2].text, parseWhere(cursor));
}

Model::Assignments Model::parseAssignments(Cursor& cursor, const std::string& table,
                                           bool endsAtWhere) {
  Assignments given;
  while (!cursor.atEnd() && !(endsAtWhere && cursor.is("WHERE"))) {
    const std::string column = cursor.take(Kind::word, "Expected column name");
    cursor.expect("=", "Expected '='");
    const Value value = parseValue(cursor, table, column);
    const auto earlier = std::find_if(given.begin(), given.end(),
                                      [&](const auto& entry) { return entry.first == column; });
    if (earlier == given.end()) {
      given.emplace_back(column, value);
    } else {
      earlier->second = value;
    }
  }
  return given;
}

Value Model::parseValue(Cursor& cursor, const std::string& table, const std::string& column) {
  const bool opened = cursor.is(Kind::symbol);
  if (opened) cursor.take();
  if (cursor.atEnd()) fail("Expected value");
  const Table& target = existing(table);
  const auto position = target.find(column);
  const bool known = position && *position < target.typedColumns;
  const std::string type = known ? target.columns[*position].type : "";
  Value value;
  value.text = takeValue(cursor, type);
  if (cursor.is("-->")) {
    value.schedule = parseSchedule(cursor, value.text, type);
    const int limit = target.columns[*position].statesLimit;
    if (value.schedule->states.size() > static_cast<std::size_t>(limit)) {
      fail("Exceeded maximum allowed states limit of " + std::to_string(limit));
    }
  }
  if (opened) cursor.skip(")");
  return value;
}

Schedule Model::parseSchedule(Cursor& cursor, const std::string& first, const std::string& type) {
  Schedule schedule;
  schedule.start = commandClock_;
  std::string pending = first;
  while (cursor.skip("-->")) {
    if (cursor.atEnd()) fail("Expected value after -->");
    const std::string next = takeValue(cursor, type);
    cursor.expect("@", "Expected '@'");
    const std::string amount = cursor.take(Kind::number, "Expected time amount");
    const std::string unit = cursor.take(Kind::word, "Expected time unit");
    const std::int64_t seconds = unitSeconds(unit);
    schedule.states.push_back({pending, product(std::stoll(amount), seconds)});
    pending = next;
  }
  schedule.states.push_back({pending, schedule.states.back().seconds});
  for (const State& state : schedule.states) schedule.total = sum(schedule.total, state.seconds);
  if (cursor.is(Kind::word) && cursor.is("c")) {
    cursor.take();
    schedule.cycles = true;
  }
  return schedule;
}

Result Model::parseSelect(const std::vector<Token>& tokens) {
  Cursor cursor(tokens, 1);
  std::vector<std::string> plain;
  QualifiedColumns qualified;
  if (cursor.skip("*")) {
    for (const Column& column : existing(tokens[3].text).columns) {
      plain.push_back(column.name);
      qualified.push_back({"", column.name});
    }
  } else {
    while (!cursor.atEnd() && !cursor.is("FROM")) parseList(cursor, plain, qualified);
  }
  cursor.expect("FROM", "Expected FROM");
  const std::string table = cursor.take();
  if (cursor.skip("JOIN")) return parseJoin(cursor, table, qualified);
  const Conditions conditions = parseWhere(cursor);
  return select(table, plain, conditions);
}

Result Model::parseJoin(Cursor& cursor, const std::string& left, const QualifiedColumns& list) {
  if (cursor.atEnd()) fail("Expected table name after JOIN");
  const std::string right = cursor.take();
  cursor.expect("ON", "Expected ON");
  QualifiedColumns on(2);
  for (QualifiedColumn& side : on) {
    if (&side == &on[1]) cursor.expect("=", "Expected '=' in JOIN ON");
    side.name = cursor.take();
    if (cursor.skip(".")) {
      side.table = side.name;
      side.name = cursor.take();
    }
  }
  const Conditions conditions = parseWhere(cursor);
  return join(left, right, on, list, conditions);
}

Result Model::parseListen(const std::vector<Token>& tokens) {
  if (tokens[2].text != ".") fail("Expected '.'");
  if (tokens[4].text != "-->") fail("Expected '-->'");
  Cursor cursor(tokens, 6);
  parseWhere(cursor);
  return done("success! Listener attached.");
}

Result Model::parseLink(const std::vector<Token>& tokens) {
  if (tokens[4].text != "-->") fail("Expected -->");
  return link(tokens[1].text, {tokens[3].text, tokens[5].text, tokens[7].text});
}

Table& Model::existing(const std::string& name) {
  const auto found = tables.find(name);
  if (found == tables.end()) fail("Syntax Error: Table '" + name + "' does not exist.");
  return found->second;
}

}  // namespace model
