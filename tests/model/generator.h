// Random command sequences for the model and the engine.
//
// A sequence is made of texts and clock steps only, so that it can be printed, shrunk and run
// again. While it is being made a model follows along, for the generator to know which tables and
// columns there are; what the commands must answer is no concern of this file.
#pragma once

#include <cstdint>
#include <random>
#include <string>
#include <vector>

#include "model/model.h"

namespace model {

struct Step {
  std::int64_t advance = 0;  // seconds that pass before the command
  std::string command;
  bool restart = false;  // stop and start the engine, instead of a command
};

using Sequence = std::vector<Step>;

struct Wishes {
  std::size_t length = 40;  // steps, without the rows that are there at the start
  bool restarts = false;
  // Rows of the first table at the start. With any, values vary more and reads come again, so that
  // whatever the engine keeps to answer them faster is built, used and kept up.
  std::size_t rows = 0;
};

class Generator {
 public:
  Generator(std::uint64_t seed, const Wishes& wishes) : random_(seed), wishes_(wishes) {}

  Sequence make();

 private:
  std::size_t below(std::size_t limit) { return static_cast<std::size_t>(random_() % limit); }
  bool oneIn(std::size_t chances) { return below(chances) == 0; }
  // For values that turn many a later answer into an error.
  bool rarely() { return oneIn(150 + 10 * wishes_.rows); }
  bool isLarge() const { return wishes_.rows > 0; }
  const std::string& pick(const std::vector<std::string>& texts) {
    return texts[below(texts.size())];
  }

  void add(Step step);
  void addCommand(const std::string& command);
  void addRows();
  void addLinkedTables();
  void addReplacement();
  std::string command();
  std::string largeCommand();
  std::string read();
  std::string createTable(const std::string& name);
  std::string columnDefinition(const std::string& name);
  std::string insert(const std::string& table);
  std::string update();
  std::string erase();
  std::string select();
  std::string join();
  std::string link();
  std::string malformed();
  std::string assignment(const Column& column);
  std::string value(const std::string& type);
  std::string number(const std::string& type);
  std::string quoted();
  std::string schedule(const Column& column);
  std::string duration();
  std::string where(const std::string& table, const std::string& other, bool changes);
  std::string condition(const std::string& table, const std::string& other, bool changes);
  std::string comparison(bool changes);
  std::string literal(const std::string& type);
  std::string clockSuffix();
  std::string tableName();
  std::string knownTable();
  const Column* anyColumn(const std::string& table);

  std::mt19937_64 random_;
  Wishes wishes_;
  Model model_;
  Sequence sequence_;
  std::vector<std::string> reads_;
};

}  // namespace model
