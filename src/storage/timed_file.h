// The records of a timed-value file, for those who read or write many of them at once: the loader
// of a table and the checkpoint. The layout is told in timed_file.cpp; slots count from 0, and a
// table has one record size.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

#include "../cell.h"

namespace velmora {

// Bytes of one slot in a table whose largest states limit is maxStates.
std::size_t timedRecordSize(std::int32_t maxStates);
// The slot behind `count` others. Throws std::runtime_error "Too many timed values" when slot
// numbers have run out.
std::int32_t slotBehind(std::int64_t count);
// The bytes of one slot.
std::string timedRecord(std::int32_t row, std::int32_t column, const TempRule& rule,
                        std::int32_t maxStates);
// The timed value in a slot of a file's bytes; null when the slot lies outside, is cut off, or has
// no states, or more than there is room for.
std::unique_ptr<TempRule> timedRuleAt(std::string_view file, std::int32_t slot,
                                      std::int32_t maxStates);

}  // namespace velmora
