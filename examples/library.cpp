// The library of the tutorial, asked by a program: who has to bring a book back, and how long that
// answer holds.
//
//   c++ -std=c++20 library.cpp -o library $(pkg-config --cflags --libs velmora) && ./library
//
// Where velmora is built but not installed, PKG_CONFIG_PATH has to name the build directory.
#include <ctime>
#include <iostream>
#include <string>

#include "velmora/velmora.hpp"

namespace {

void lend(velmora::Database& library, const std::string& book, std::time_t since) {
  library.run(
      "INSERT INTO loans book = ? state = 'lent' --> 'due' @ 14 d --> 'overdue' @ 3 d #TIME# ?",
      book, since);
}

}  // namespace

int main() try {
  constexpr std::time_t day = 86400;
  const std::time_t now = std::time(nullptr);
  velmora::Database library("library.db");
  library.run("CREATE TABLE loans id ApexInt book string(80) state string 3");
  lend(library, "The Sea", now);
  lend(library, "Ada's Notes", now - 15 * day);
  lend(library, "Maps", now - 30 * day);

  const auto late = library.run("SELECT book, state FROM loans WHERE state != ?", "lent");
  for (const auto& [book, state] : late.rows<std::string, std::string>()) {
    std::cout << book << " is " << state << "\n";
  }
  // A program that has nothing else to do sleeps until then, and asks again.
  std::cout << "this holds for " << (*late.nextChange() - now + day / 2) / day << " days\n";
} catch (const velmora::Error& error) {
  std::cerr << error.what() << "\n";
  return 1;
}
