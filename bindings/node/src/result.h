// Results that JavaScript holds, and the columns of any.
#pragma once

#include <string>
#include <vector>

#include "addon.h"

namespace velmora_node {

struct ColumnName {
  std::string name;
  std::string declaredType;
  int type;
};
using Columns = std::vector<ColumnName>;

Columns columnsOf(const velmora_result* result);
bool hasColumns(const velmora_result* result, const Columns& columns);
// An array of [name, declared type, type].
napi_value columnsValue(napi_env env, const Columns& columns);

// Gives a result out to JavaScript; takes it over.
napi_value giveOutResult(napi_env env, velmora_result* result);

}  // namespace velmora_node
