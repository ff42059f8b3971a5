// What a host can read of a database, as one text that is equal for equal databases: every answer
// of SHOW, and every row of every table as typed values, to the bit, with what becomes of timed
// ones.
#pragma once

#include <cstdint>
#include <map>
#include <span>
#include <string>
#include <string_view>

#include "answer.h"
#include "engine/engine.h"
#include "value.h"

namespace velmora::handles {

// They throw Failure.
Answer execute(Engine& engine, std::string_view text, std::span<const Value> values = {});
std::string stateOf(Engine& engine);

// The identity numbers that tables without other needs than a column n give next, by table. The
// inserts that show them are rolled back.
using Numbers = std::map<std::string, std::int64_t>;
Numbers nextNumbers(Engine& engine);

}  // namespace velmora::handles
