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
void addLight(velmora::Engine& engine, const std::string& place, int secondsAgo) {
  engine.run(
      "INSERT INTO lights place = ? colour = "
      "? --> ? @ ? s --> ? @ ? s --> ? @ ? s c #TIME# ?",
      place, "green", "amber", greenSeconds, "red", amberSeconds, "red", redSeconds,
      std::time(nullptr) - secondsAgo);
}

void flashAmber(velmora::Engine& engine, const std::string& place) {
  engine.run("UPDATE lights SET colour = ? --> ? @ ? s c WHERE place = ?", "amber", "dark", 60,
             place);
}

void show(velmora::Engine& engine) {
  for (const velmora::Row& row : engine.run("SELECT place, colour FROM lights").rows()) {
    std::cout << "  " << row.get<std::string>("place") << ": " << row.get<std::string>("colour")
              << "\n";
  }
}

void watch(velmora::Engine& engine, int seconds) {
  for (int second = 1; second <= seconds; ++second) {
    std::this_thread::sleep_for(std::chrono::seconds(1));
    std::cout << "after " << second << " s\n";
    show(engine);
  }
}

}  // namespace

int main(int argc, char** argv) {
  try {
    velmora::Engine engine;
    engine.tryRun("DROP TABLE lights");  // of an earlier run, if there was one
    engine.run("CREATE TABLE lights place string colour string 4");
    addLight(engine, "harbour", 15);
    addLight(engine, "bridge", 55);
    addLight(engine, "king's road", 90);
    std::cout << "three lights, each elsewhere in the same cycle\n";
    show(engine);

    const auto free = engine.run("SELECT place FROM lights WHERE colour = ?", "green").rows();
    std::cout << "free now: " << free.at(0).get<std::string>("place") << "\n";

    flashAmber(engine, "king's road");
    std::cout << "king's road flashes\n";
    show(engine);
    if (argc > 1) watch(engine, std::atoi(argv[1]));
    engine.stop();
  } catch (const std::exception& error) {
    std::cerr << "traffic_light: " << error.what() << "\n";
    return 1;
  }
}
