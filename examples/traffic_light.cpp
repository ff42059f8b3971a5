// Traffic lights that change by themselves: each is one row whose colour cycles, and the program
// only ever reads. Given a number, it goes on watching for so many seconds.
//
//   c++ -std=c++20 traffic_light.cpp -o lights $(pkg-config --cflags --libs velmora) && ./lights
//
// Where velmora is built but not installed, PKG_CONFIG_PATH has to name the build directory.
#include <chrono>
#include <cstdlib>
#include <ctime>
#include <iostream>
#include <string>
#include <thread>

#include "velmora/velmora.hpp"

namespace {

constexpr int greenSeconds = 50;
constexpr int amberSeconds = 10;
constexpr int redSeconds = 30;  // twice: the last state of a cycle lasts as long as the one before

// A light that has been in its cycle for so many seconds.
void addLight(velmora::Database& database, const std::string& place, int secondsAgo) {
  database.run(
      "INSERT INTO lights place = ? colour = "
      "? --> ? @ ? s --> ? @ ? s --> ? @ ? s c #TIME# ?",
      place, "green", "amber", greenSeconds, "red", amberSeconds, "red", redSeconds,
      std::time(nullptr) - secondsAgo);
}

void flashAmber(velmora::Database& database, const std::string& place) {
  database.run("UPDATE lights SET colour = ? --> ? @ ? s c WHERE place = ?", "amber", "dark", 60,
               place);
}

void show(velmora::Database& database) {
  for (const velmora::Row& row : database.run("SELECT place, colour FROM lights")) {
    std::cout << "  " << row.get<std::string>("place") << ": " << row.get<std::string>("colour")
              << "\n";
  }
}

void watch(velmora::Database& database, int seconds) {
  for (int second = 1; second <= seconds; ++second) {
    std::this_thread::sleep_for(std::chrono::seconds(1));
    std::cout << "after " << second << " s\n";
    show(database);
  }
}

}  // namespace

int main(int argc, char** argv) {
  try {
    velmora::Database database("lights.db");
    try {
      database.run("CREATE TABLE lights place string colour string 4");
    } catch (const velmora::Error& error) {
      if (error.code() != VELMORA_EXISTS) throw;
      database.run("DELETE FROM lights");  // of an earlier run
    }
    addLight(database, "harbour", 15);
    addLight(database, "bridge", 55);
    addLight(database, "king's road", 90);
    std::cout << "three lights, each elsewhere in the same cycle\n";
    show(database);

    const auto free = database.run("SELECT place FROM lights WHERE colour = ?", "green");
    std::cout << "free now: " << free.at(0).get<std::string>("place") << "\n";

    flashAmber(database, "king's road");
    std::cout << "king's road flashes\n";
    show(database);
    if (argc > 1) watch(database, std::atoi(argv[1]));
  } catch (const std::exception& error) {
    std::cerr << "traffic_light: " << error.what() << "\n";
    return 1;
  }
}
