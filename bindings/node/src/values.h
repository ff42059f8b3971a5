// Values from JavaScript, for commands. lib/scratch.js has packed them: a kind each, numbers in
// arrays, and all texts behind one another in one string.
#pragma once

#include <cstddef>
#include <span>
#include <string>
#include <vector>

#include "addon.h"

namespace velmora_node {

class Values {
 public:
  // The first `count` of the scratch arrays, and the string of their texts.
  void read(const Call& call, std::size_t count, napi_value texts);
  std::span<const velmora_value> all() const { return values_; }

 private:
  void readTexts(const Call& call, std::size_t units, napi_value texts);
  void readWideTexts(napi_env env, napi_value texts);

  std::string texts_;
  std::vector<velmora_value> values_;
};

}  // namespace velmora_node
