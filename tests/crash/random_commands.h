// Random commands that make sense for a model's state: most succeed, some fail, and the tables,
// links, keys and transactions that they need come about in any order.
#pragma once

#include <random>
#include <string>

#include "model.h"

namespace velmora::crash {

class RandomCommands {
 public:
  explicit RandomCommands(std::uint64_t seed) : random_(seed) {}

  // The next command for a model in this state. Each is given a few seconds after the last one.
  Command next(const Model& model);
  std::int64_t second() const { return second_; }
  int upTo(int most) { return std::uniform_int_distribution<int>(0, most)(random_); }

 private:
  Command bare(Kind kind, const std::string& table = "");
  Command insert(const Model& model);
  Command update(const Model& model);
  Command erase(const Model& model);
  Command schema(const Model& model);
  Command transaction(const Model& model);

  Value valueFor(const State& state, const std::string& table, const ColumnPlan& column);
  std::string textFor(const State& state, const std::string& table, const ColumnPlan& column);
  std::string keyOf(const State& state, const std::string& table);
  std::string freshOrFreedCode(const State& state);
  std::string randomText();
  std::optional<Comparison> filterFor(const State& state, const std::string& table);
  std::size_t anyPlan();
  std::string anyTable(const State& state);
  bool isTrue(int percent) { return upTo(99) < percent; }

  std::mt19937_64 random_;
  std::int64_t second_ = 1'700'000'000;
  int codes_ = 0;
  int targets_ = 0;
};

// The two links that the tables may have.
const ModelLink& peopleLink();
const ModelLink& codesLink();

}  // namespace velmora::crash
