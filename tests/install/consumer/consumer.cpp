// A host outside the project's build: one of each kind of value, bound, kept and read back.
#include <iostream>
#include <string>

#include "velmora/velmora.hpp"

int main() {
  velmora::Database database("lamps.db");
  database.run("CREATE TABLE lamps name string watts int price float lit bool");
  database.run("INSERT INTO lamps name = ? watts = ? price = ? lit = ?", "north's", 40, 2.5, true);
  for (const velmora::Row& row : database.run("SELECT * FROM lamps")) {
    std::cout << row.get<std::string>("name") << " " << row.get<int>("watts") << " "
              << row.get<double>("price") << " " << row.get<bool>("lit") << "\n";
  }
  std::cout << VELMORA_VERSION << " " << velmora_version() << "\n";
}
