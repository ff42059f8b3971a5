// The statements are too long to be written out, so they are put together column by column.
#include "wide_table.h"

#include "data.h"

namespace bench {

namespace {

constexpr int columnCount = 63;  // beside the key

struct ColumnType {
  const char* velmora;
  const char* sqlite;
};
constexpr ColumnType types[] = {{" int", " INT"}, {" string", " TEXT"}, {" float", " REAL"}};

Values wideValues(int row) {
  Values values;
  for (int column = 0; column < columnCount; ++column) {
    const int number = scatterBelow(1000, row, column);
    if (column % 3 == 0) values.emplace_back(number);
    if (column % 3 == 1) values.emplace_back("text" + std::to_string(number));
    if (column % 3 == 2) values.emplace_back(0.25 * number);
  }
  return values;
}

}  // namespace

void fillWide(Engine& engine, int rows) {
  Statement create = {"CREATE TABLE wide id ApexInt", "CREATE TABLE wide (id INTEGER PRIMARY KEY"};
  Statement insert = {"INSERT INTO wide", "INSERT INTO wide VALUES (NULL"};
  for (int column = 0; column < columnCount; ++column) {
    const std::string name = "c" + std::to_string(column);
    const std::string place = "?" + std::to_string(column + 1);
    create.velmora += " " + name + types[column % 3].velmora;
    create.sqlite += ", " + name + types[column % 3].sqlite;
    insert.velmora += " " + name + " = " + place;
    insert.sqlite += ", " + place;
  }
  create.sqlite += ")";
  insert.sqlite += ")";
  engine.execute(create);
  engine.fill(insert, rows, wideValues);
}

}  // namespace bench
