// The JSON answer that velmora gives, built from a SQLite statement the way a careful host would:
// plain code, one reused buffer, the member names made once for a statement. Without it SQLite
// would be timed doing less.
#pragma once

#include <sqlite3.h>

#include <string>
#include <string_view>
#include <vector>

namespace bench {

class SqliteAnswer {
 public:
  explicit SqliteAnswer(sqlite3* database) : database_(database) {}

  // Steps the statement to its end and returns the answer, which stays until the next call.
  const char* run(sqlite3_stmt* statement);
  // Must be called when a statement is finalized: another may get its address.
  void forgetMembers() { membersOf_ = nullptr; }
  bool isSuccess() const { return isSuccess_; }

 private:
  void makeMembers(sqlite3_stmt* statement);
  void appendRow(sqlite3_stmt* statement);
  void appendValue(sqlite3_stmt* statement, int column);
  const char* finish(int columnCount, int rowCount, int outcome);
  const char* putHead(bool hasData, int rowsAffected, std::string_view message);

  sqlite3* database_;
  bool isSuccess_ = false;
  std::string text_;
  std::string head_;
  std::vector<std::string> members_;  // what stands before each value of a row
  const sqlite3_stmt* membersOf_ = nullptr;
};

}  // namespace bench
