// The smallest careful host in C++:
//
//   c++ -std=c++20 hello.cpp -o hello $(pkg-config --cflags --libs velmora) && ./hello
//
// Where velmora is built but not installed, PKG_CONFIG_PATH has to name the build directory.
//
// What a command does wrong comes back in its answer; what the engine cannot put into an answer, or
// cannot do at a start or a stop, leaves it as an exception.
#include <iostream>
#include <stdexcept>

#include "velmora/velmora.h"

int main() {
  try {
    StartEngine();
    std::cout << ExecuteQuery("CREATE TABLE scores player string points int") << "\n";
    std::cout << ExecuteQuery("INSERT INTO scores player = 'Ada' points = 7") << "\n";
    try {
      // Compares each row's points with a text that is no number.
      std::cout << ExecuteQuery("SELECT player FROM scores WHERE points > many") << "\n";
    } catch (const std::logic_error& error) {
      std::cout << "the engine could not read a number: " << error.what() << "\n";
    }
    StopEngine();
  } catch (const std::exception& error) {
    std::cerr << "velmora: " << error.what() << "\n";
    return 1;
  }
}
