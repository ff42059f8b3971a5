// The commands that the crash tests give, as records that the model can apply and the engine's
// command texts can be made from.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace velmora::crash {

// What a cell is given: a plain text, or the states of a timed value.
struct Value {
  struct Period {
    std::string text;
    std::int64_t seconds;
  };
  std::vector<Period> periods;  // one without a length: a plain value
  bool repeats = false;
  std::int64_t start = 0;

  static Value plain(const std::string& text) { return {{{text, 0}}, false, 0}; }
  bool isTimed() const { return periods.size() > 1; }
  // The text in force at a second.
  const std::string& at(std::int64_t second) const { return periods[current(second)].text; }
  // The texts that the cell shows at a second or can show later.
  std::vector<std::string> coming(std::int64_t second) const;
  // How many coming changes of state are scheduled when it is stored.
  int changes() const;

 private:
  std::size_t current(std::int64_t second) const;
};

enum class Kind {
  createTable,
  dropTable,
  insert,
  update,
  erase,
  link,
  listen,
  begin,
  commit,
  rollback,
  checkpoint,
};

struct Comparison {
  std::string column;
  std::string value;
};

struct Command {
  Kind kind = Kind::checkpoint;
  std::string table;
  std::vector<std::pair<std::string, Value>> values;  // of insert, and the one of update
  std::optional<Comparison> where;                    // equality; none means every row
  std::string beforeWhere = " ";                      // what stands in front of WHERE
  int conditions = 0;                                 // of listen
  std::string column;                                 // of link; the target of listen
  std::string parent;
  std::string parentColumn;
  std::int64_t second = 0;

  bool isLogged() const;
  std::string text() const;
};

// The tables of the tests: name, columns as CREATE TABLE writes them. The first ones are small.
inline constexpr std::size_t smallTables = 6;
struct ColumnPlan {
  std::string name;
  std::string type;
  int maxStates = 0;
  int width = 60;
};
struct TablePlan {
  std::string name;
  std::vector<ColumnPlan> columns;
};
const std::vector<TablePlan>& tablePlans();
const TablePlan& planOf(const std::string& table);
const ColumnPlan& columnOf(const std::string& table, const std::string& column);

}  // namespace velmora::crash
