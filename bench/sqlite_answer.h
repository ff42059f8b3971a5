// The answer of a SQLite statement: its rows, or what it changed, as velmora's JSON.
#pragma once

#include <sqlite3.h>

#include "answer_text.h"

namespace bench {

class SqliteAnswer {
 public:
  explicit SqliteAnswer(sqlite3* database) : database_(database) {}

  // Steps the statement to its end and returns the answer, which stays until the next call.
  const char* run(sqlite3_stmt* statement);
  // Must be called when a statement is finalized: another may get its address.
  void forgetColumns() { columnsOf_ = nullptr; }
  bool isSuccess() const { return isSuccess_; }

 private:
  void setColumns(sqlite3_stmt* statement);
  void appendRow(sqlite3_stmt* statement, int columnCount);

  sqlite3* database_;
  bool isSuccess_ = false;
  AnswerText text_;
  const sqlite3_stmt* columnsOf_ = nullptr;
};

// Steps the statement to its end and reads each value by its type.
void readRows(sqlite3_stmt* statement);

}  // namespace bench
