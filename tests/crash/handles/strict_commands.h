// Random commands of the strict language over a few tables that hold every type, nulls, long texts,
// timed values, links and listeners. Many of them are refused, which is wanted.
#pragma once

#include <cstdint>
#include <random>
#include <string>
#include <string_view>
#include <vector>

#include "value.h"

namespace velmora::handles {

struct StrictCommand {
  std::string text;
  std::vector<Value> values;
};
// One call of the engine: a command, or several as a batch.
using Call = std::vector<StrictCommand>;

class StrictCommands {
 public:
  explicit StrictCommands(std::uint64_t seed) : random_(seed) {}

  // All tables, links and some rows.
  static std::vector<StrictCommand> preparation();
  Call next(bool isInTransaction);
  std::mt19937_64& random() { return random_; }

 private:
  int upTo(int most);
  template <typename T>
  T oneOf(const std::vector<T>& choices);
  std::string table();
  std::string number();
  std::string text();
  std::string timed(const std::vector<std::string>& states);
  std::string filter();
  StrictCommand insert();
  StrictCommand update();
  StrictCommand command();

  std::mt19937_64 random_;
};

// Whether the command, once it is answered, has brought everything to the files.
bool isCheckpoint(std::string_view command);

}  // namespace velmora::handles
