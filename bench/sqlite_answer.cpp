// Steps a statement and puts the values of each row, by the types that SQLite gives them, into the
// answer's text.
#include "sqlite_answer.h"

namespace bench {

const char* SqliteAnswer::run(sqlite3_stmt* statement) {
  const int columnCount = sqlite3_column_count(statement);
  if (columnsOf_ != statement) setColumns(statement);
  text_.begin();
  int outcome = sqlite3_step(statement);
  for (; outcome == SQLITE_ROW; outcome = sqlite3_step(statement)) {
    appendRow(statement, columnCount);
  }
  isSuccess_ = outcome == SQLITE_DONE;
  if (!isSuccess_) return text_.finishFailure(sqlite3_errmsg(database_));
  return columnCount == 0 ? text_.finishChange(sqlite3_changes(database_)) : text_.finishRows();
}

void SqliteAnswer::setColumns(sqlite3_stmt* statement) {
  for (int column = 0; column < sqlite3_column_count(statement); ++column) {
    text_.setColumn(static_cast<std::size_t>(column), sqlite3_column_name(statement, column));
  }
  columnsOf_ = statement;
}

void SqliteAnswer::appendRow(sqlite3_stmt* statement, int columnCount) {
  for (int column = 0; column < columnCount; ++column) {
    const auto index = static_cast<std::size_t>(column);
    switch (sqlite3_column_type(statement, column)) {
      case SQLITE_INTEGER:
        text_.append(index, sqlite3_column_int(statement, column));
        break;
      case SQLITE_FLOAT:
        text_.append(index, sqlite3_column_double(statement, column));
        break;
      case SQLITE_TEXT: {
        const auto* chars = reinterpret_cast<const char*>(sqlite3_column_text(statement, column));
        const auto size = static_cast<std::size_t>(sqlite3_column_bytes(statement, column));
        text_.append(index, std::string_view(chars, size));
        break;
      }
      default:
        text_.appendNull(index);
    }
  }
  text_.endRow();
}

void readRows(sqlite3_stmt* statement) {
  const int columnCount = sqlite3_column_count(statement);
  while (sqlite3_step(statement) == SQLITE_ROW) {
    for (int column = 0; column < columnCount; ++column) {
      switch (sqlite3_column_type(statement, column)) {
        case SQLITE_INTEGER:
          sqlite3_column_int64(statement, column);
          break;
        case SQLITE_FLOAT:
          sqlite3_column_double(statement, column);
          break;
        default:
          sqlite3_column_text(statement, column);
          sqlite3_column_bytes(statement, column);
      }
    }
  }
}

}  // namespace bench
