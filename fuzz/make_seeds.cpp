// Writes the seed corpora: make_seeds DIRECTORY. They are made of the sample database, so a change
// of a file format or of the language reaches them by running this program again.
#include <filesystem>
#include <fstream>
#include <iostream>
#include <string>

#include "directory_input.h"
#include "engine_run.h"
#include "sample_database.h"

namespace {

using namespace velmora::fuzz;

namespace fs = std::filesystem;

// One of each shape that the commands of the sample database do not have.
constexpr const char* furtherCommands =
    "SELECT * FROM customers\n"
    "SELECT id, name FROM customers WHERE id >= 2 && score < 1.5 || name != 'Ada'\n"
    "SELECT customers.name, note FROM orders JOIN customers ON orders.customer = customers.id "
    "WHERE orders.id > 0 && customers.active == true\n"
    "SELECT * FROM lamps JOIN tags ON name = name\n"
    "UPDATE customers SET name = ('Eve') score = 3.25 WHERE id = 1\n"
    "UPDATE lamps SET bright = 2 --> 1 @ 2 mo c\n"
    "UPDATE tags SET lit = (true --> false @ 90 s c) WHERE weight <= 2.5 #TIME# 1699999990\n"
    "DELETE FROM orders\n"
    "DROP TABLE orders\n"
    "BEGIN\n"
    "COMMIT\n"
    "ROLLBACK\n"
    "LISTEN orders.INSERT --> 'somewhere'\n"
    "LINK tags . name --> lamps . name\n"
    "SELECT nothing FROM nowhere\n";

void write(const fs::path& path, const std::string& bytes) {
  fs::create_directories(path.parent_path());
  std::ofstream(path, std::ios::binary) << bytes;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 2) {
    std::cerr << "usage: make_seeds DIRECTORY\n";
    return 2;
  }
  prepareProcess();
  const fs::path root = fs::absolute(argv[1]);
  const std::string all = std::string(sampleCommands) + furtherCommands;
  std::size_t count = 0;
  for (const std::string& command : linesOf(all)) {
    write(root / "command" / (std::to_string(++count) + ".txt"), command);
  }
  write(root / "json" / "all.txt", all);
  write(root / "sequence" / "all.txt", all);
  write(root / "sequence" / "restarts.txt", std::string(sampleCommands) + "!kill\n" +
                                                furtherCommands + "!clock 40\n!stop\n" +
                                                furtherCommands);
  const Files sample = sampleFiles();
  for (const auto& [name, bytes] : sample) write(root / "file" / name, bytes);
  write(root / "directory" / "all.bin", inputOf(sample));
  for (const auto& [name, bytes] : sample) {
    write(root / "directory" / (name + ".bin"), inputOf({{name, bytes}}));
  }
  return 0;
}
