// The number of rows stands in front of the rows but is known behind them, so room is left for the
// head, which is then written to end where the rows begin.
#include "sqlite_answer.h"

#include <charconv>

namespace bench {

namespace {

constexpr std::size_t headRoom = 256;

void appendInt(std::string& text, int number) {
  char digits[16];
  text.append(digits, std::to_chars(digits, digits + sizeof digits, number).ptr);
}

}  // namespace

const char* SqliteAnswer::run(sqlite3_stmt* statement) {
  const int columnCount = sqlite3_column_count(statement);
  if (membersOf_ != statement) makeMembers(statement);
  text_.resize(headRoom);
  int rowCount = 0;
  int outcome = sqlite3_step(statement);
  for (; outcome == SQLITE_ROW; outcome = sqlite3_step(statement)) {
    appendRow(statement);
    ++rowCount;
  }
  return finish(columnCount, rowCount, outcome);
}

void SqliteAnswer::makeMembers(sqlite3_stmt* statement) {
  const int columnCount = sqlite3_column_count(statement);
  members_.resize(static_cast<std::size_t>(columnCount));
  for (int column = 0; column < columnCount; ++column) {
    std::string& member = members_[static_cast<std::size_t>(column)];
    member = column == 0 ? "    {\"" : ", \"";
    member += sqlite3_column_name(statement, column);
    member += "\": ";
  }
  membersOf_ = statement;
}

void SqliteAnswer::appendRow(sqlite3_stmt* statement) {
  int column = 0;
  for (const std::string& member : members_) {
    text_ += member;
    appendValue(statement, column++);
  }
  text_ += "},\n";
}

void SqliteAnswer::appendValue(sqlite3_stmt* statement, int column) {
  switch (sqlite3_column_type(statement, column)) {
    case SQLITE_INTEGER:
      appendInt(text_, sqlite3_column_int(statement, column));
      break;
    case SQLITE_FLOAT: {
      char digits[32];
      const double number = sqlite3_column_double(statement, column);
      const auto end =
          std::to_chars(digits, digits + sizeof digits, number, std::chars_format::general, 6);
      text_.append(digits, end.ptr);
      break;
    }
    case SQLITE_TEXT: {
      const auto* chars = reinterpret_cast<const char*>(sqlite3_column_text(statement, column));
      const int size = sqlite3_column_bytes(statement, column);
      text_ += '"';
      text_.append(chars, static_cast<std::size_t>(size));
      text_ += '"';
      break;
    }
    default:
      text_ += "null";
  }
}

const char* SqliteAnswer::finish(int columnCount, int rowCount, int outcome) {
  isSuccess_ = outcome == SQLITE_DONE;
  if (!isSuccess_) {
    text_.resize(headRoom);
    text_ += "\n}";
    return putHead(false, 0, sqlite3_errmsg(database_));
  }
  if (columnCount == 0) {
    text_ += "\n}";
    return putHead(false, sqlite3_changes(database_), "success!");
  }
  if (rowCount > 0) {
    text_.replace(text_.size() - 2, 2, "\n  ]\n}");
  } else {
    text_ += "\n}";
  }
  return putHead(rowCount > 0, rowCount, "");
}

const char* SqliteAnswer::putHead(bool hasData, int rowsAffected, std::string_view message) {
  head_ = isSuccess_ ? "{\n  \"success\": true,\n  \"message\": \""
                     : "{\n  \"success\": false,\n  \"message\": \"Error: ";
  head_ += message.substr(0, headRoom / 2);
  head_ += "\",\n  \"rows_affected\": ";
  appendInt(head_, rowsAffected);
  if (hasData) head_ += ",\n  \"data\": [\n";
  text_.replace(headRoom - head_.size(), head_.size(), head_);
  return text_.data() + (headRoom - head_.size());
}

}  // namespace bench
