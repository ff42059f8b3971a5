// Several commands for one call, from what lib/database.js gives of them.
#pragma once

#include <string>
#include <vector>

#include "addon.h"
#include "values.h"

namespace velmora_node {

// Not to be moved: what is handed to the engine points into it.
struct Batch {
  // (database, texts, the number of values of each, the number of all values, their texts)
  explicit Batch(const Call& call);
  Batch(const Batch&) = delete;
  Batch& operator=(const Batch&) = delete;

  std::vector<std::string> texts;
  Values values;
  std::vector<velmora_command> commands;
};

}  // namespace velmora_node
