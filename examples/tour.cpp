// c++ -std=c++20 tour.cpp -o tour $(pkg-config --cflags --libs velmora) && ./tour
#include <ctime>
#include <iostream>

#include "velmora/velmora.hpp"

int main() {
  velmora::Database db("tour.db");
  if (db.run("SHOW TABLES").size() == 0)
    db.run("CREATE TABLE users id ApexInt name string plan string 2");
  const auto added =
      db.run("INSERT INTO users name = ? plan = ? --> ? @ 14 d", "Ada", "trial", "basic");
  const auto user = db.run("SELECT plan FROM users WHERE id = ?", added.identity()).at(0);
  const auto timed = user.timed("plan").value();
  std::cout << user.get<std::string>("plan") << ", then " << std::get<std::string>(timed.next)
            << " in " << (*timed.changeSecond - std::time(nullptr) + 43200) / 86400 << " days\n";
  {
    velmora::Transaction transaction(db);
    db.run("DELETE FROM users");
  }  // rolled back: nobody called transaction.commit()
  try {
    db.run("SELECT name FROM user");
  } catch (const velmora::Error& error) {
    std::cout << "error " << error.code() << " at byte " << error.offset() << ": ";
    std::cout << error.what() << "\n";
  }
}  // closes the database
