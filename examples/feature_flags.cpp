// A feature-flag service in C++: each flag belongs to a team and switches itself at the time that
// it was given. The service keeps what is on until the answer changes by itself, which it knows the
// second of; it can say what will be on next week, and who has to be asked.
//
//   c++ -std=c++20 feature_flags.cpp -o flags $(pkg-config --cflags --libs velmora) && ./flags
//
// Where velmora is built but not installed, PKG_CONFIG_PATH has to name the build directory.
#include <cstdint>
#include <iostream>
#include <optional>
#include <string>
#include <tuple>
#include <vector>

#include "velmora/velmora.hpp"

namespace {

constexpr std::int64_t hour = 3600;
constexpr std::int64_t day = 24 * hour;
constexpr const char* on = "SELECT name FROM flags WHERE enabled = true ORDER BY name";

// The program's own clock, which does not make its readers wait.
std::int64_t now = 1'800'000'000;

velmora_options withOwnClock() {
  velmora_options options = velmora::options();
  options.clock = [](void*) { return now; };
  return options;
}

using Names = std::vector<std::string>;
using Flag = std::tuple<std::string, std::string, bool>;  // name, team, enabled

Names namesIn(const velmora::Result& result) {
  Names names;
  for (const auto& [name] : result.rows<std::string>()) names.push_back(name);
  return names;
}

class Flags {
 public:
  explicit Flags(const char* path) : database_(path, withOwnClock()) {
    if (database_.run("SHOW TABLES").size() > 0) return;
    velmora::Transaction transaction(database_);
    database_.run("CREATE TABLE teams name string contact string");
    database_.run("CREATE TABLE flags name string team string enabled bool 3");
    database_.run("LINK flags.team --> teams.name");
    transaction.commit();
  }

  // A team and its flags, all or none.
  void load(const std::string& team, const std::string& contact, const std::vector<Flag>& flags) {
    kept_.reset();
    velmora::Transaction transaction(database_);
    database_.run("INSERT INTO teams name = ? contact = ?", team, contact);
    database_.prepare("INSERT INTO flags name = ? team = ? enabled = ?").runMany(flags);
    transaction.commit();
  }

  // A state from now on, and the opposite one so many seconds later.
  void switchFor(const std::string& name, bool isOn, std::int64_t seconds) {
    kept_.reset();
    database_.run("UPDATE flags SET enabled = ? --> ? @ ? s WHERE name = ?", isOn, !isOn, seconds,
                  name);
  }

  // Answered from memory until the second at which the answer becomes another. A service that
  // pushes changes to its clients sets a timer to that second instead.
  const velmora::Result& isOn() {
    if (!kept_ || kept_->nextChange().value_or(now + 1) <= now) kept_ = database_.run(on);
    return *kept_;
  }

  // What will be on then, if nobody intervenes.
  Names isOnAt(std::int64_t second) {
    return namesIn(database_.run(std::string(on) + " AT ?", second));
  }

  std::string ownerOf(const std::string& name) {
    const auto result = database_.run(
        "SELECT teams.contact FROM flags JOIN teams ON flags.team = teams.name "
        "WHERE flags.name = ?",
        name);
    return result.size() == 0 ? "nobody" : result[0].get<std::string>("teams.contact");
  }

 private:
  velmora::Database database_;
  std::optional<velmora::Result> kept_;  // what is on, as long as that is known to be true
};

void show(const std::string& when, const Names& names) {
  std::cout << when << ":";
  for (const std::string& name : names) std::cout << " [" << name << "]";
  std::cout << "\n";
}

}  // namespace

int main() {
  try {
    Flags flags("flags.db");
    flags.load("search", "Ada", {{"beta search", "search", false}});
    flags.load("shop", "Pat O'Brien", {{"new checkout", "shop", true}, {"x' y", "shop", true}});
    flags.switchFor("beta search", true, 14 * day);
    flags.switchFor("new checkout", false, hour);
    show("on now", namesIn(flags.isOn()));
    std::cout << "to be kept for " << (*flags.isOn().nextChange() - now) / hour << " hour\n";
    show("on tomorrow", flags.isOnAt(now + day));
    show("on in three weeks", flags.isOnAt(now + 21 * day));
    std::cout << "new checkout is " << flags.ownerOf("new checkout") << "'s\n";
    now += hour;
    show("an hour later", namesIn(flags.isOn()));
    try {
      flags.load("mail", "Grace", {{"digest", "mail", true}, {"ghost", "someone", true}});
    } catch (const velmora::ConstraintError& error) {
      std::cout << "refused: " << error.what() << "\n";
    }
    std::cout << "and nothing of it is there: digest is " << flags.ownerOf("digest") << "'s\n";
  } catch (const std::exception& error) {
    std::cerr << "velmora: " << error.what() << "\n";
    return 1;
  }
}
