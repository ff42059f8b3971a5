// Changes: what the strict language's commands do to a database's memory. Each is noted in the undo
// log before it is made; a command that fails leaves it to its caller to go back to where the log
// was before. Nothing here touches a file.
//
// While a log is replayed (Database::isReplaying) nothing is refused that only a rule refuses: what
// stands in the log has been accepted, whatever rules there are by now.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "../answer.h"
#include "../database/database.h"
#include "../interrupt.h"
#include "../strict/statement.h"
#include "fitting.h"
#include "undo_log.h"

namespace velmora {

// What an INSERT has looked up. Good as long as the catalogue stays as it is.
struct InsertPlan {
  Table* table;
  Targets targets;
  std::vector<std::size_t> sources;  // by column: the assignment that gives its value, or noColumn
};

class Changes {
 public:
  // The database has to stay.
  explicit Changes(Database& database) : database_(&database), undo_(database) {}

  UndoLog& undo() noexcept { return undo_; }

  // They throw Failure; what they have changed then is in the undo log. The answer is empty before,
  // and has the rows affected and the identity number afterwards.
  void run(const strict::CreateTable& command, const RunContext& context, Answer& answer);
  void run(const strict::DropTable& command, const RunContext& context, Answer& answer);
  InsertPlan planOf(const strict::Insert& command);
  void run(const strict::Insert& command, const InsertPlan& plan, const RunContext& context,
           Answer& answer);
  void run(const strict::Update& command, const RunContext& context, Answer& answer);
  void run(const strict::Delete& command, const RunContext& context, Answer& answer);
  void run(const strict::Link& command, const RunContext& context, Answer& answer);
  void run(const strict::Unlink& command, const RunContext& context, Answer& answer);
  void run(const strict::Listen& command, const RunContext& context, Answer& answer);
  void run(const strict::Unlisten& command, const RunContext& context, Answer& answer);
  // Gives back what deleted rows hold, in one table or all. Rows keep their order, and numbering
  // goes on where it was. The tables as they were are given back, for restore, which puts them in
  // place again.
  std::vector<Table> vacuum(const strict::Vacuum& command, const RunContext& context);
  void restore(std::vector<Table>& tables, std::int64_t now);

 private:
  Table& tableOf(const strict::Name& name);
  static std::size_t columnOf(const Table& table, const strict::Name& name);
  void fillRow(const InsertPlan& plan, std::size_t row, std::int64_t now, Answer& answer);
  void fileRow(Table& table, std::size_t row, std::int64_t now);
  void linkRow(const Table& table, std::size_t row, std::int64_t now);
  void moveKey(Table& table, std::size_t row, const FittedValue& value, std::int64_t now);
  void giveValue(Table& table, const std::vector<std::int32_t>& rows, const FittedValue& value,
                 std::int64_t now);
  void makeKey(Table& parent, std::size_t column, const strict::Name& name, std::int64_t now);
  static void refuseOrphans(const Table& child, std::size_t childColumn, const Table& parent,
                            std::size_t offset, std::int64_t now);
  void unlink(Table& child, const LinkRecord& link, std::int64_t now);
  void forgetLink(Table& child, const LinkRecord& link, std::int64_t now);
  void forgetKey(const LinkRecord& link);
  bool isParent(const std::string& table) const;

  Database* database_;
  UndoLog undo_;
  std::vector<FittedValue> fitted_;  // of the command that is run; keeps its memory
};

}  // namespace velmora
