// Sixty seconds in C++:
//   c++ -std=c++20 tour.cpp -o tour $(pkg-config --cflags --libs velmora) && ./tour
#include <ctime>
#include <iostream>

#include "velmora/velmora.hpp"

int main() {
  velmora::Database db("tour.db");
  if (db.run("SHOW TABLES").size() == 0)
    db.run("CREATE TABLE users id ApexInt name string plan string 2");

  // A timed value: on trial for 14 days, and basic from then on.
  const auto added =
      db.run("INSERT INTO users name = ? plan = ? --> ? @ 14 d", "Ada", "trial", "basic");
  for (const auto& row : db.run("SELECT plan FROM users WHERE id = ?", added.identity())) {
    const auto timed = row.timed("plan").value();
    const auto days = (timed.changeSecond.value() - std::time(nullptr) + 43200) / 86400;
    std::cout << row.get<std::string>("plan") << ", then " << std::get<std::string>(timed.next)
              << " in " << days << " days\n";
  }

  {
    velmora::Transaction transaction(db);
    db.run("DELETE FROM users");
  }  // rolled back: nobody called transaction.commit()
  try {
    db.run("SELECT name FROM user");
  } catch (const velmora::Error& error) {
    std::cout << "error " << error.code() << " at byte " << error.offset() << ": " << error.what()
              << "\n";
  }
}  // closes the database
