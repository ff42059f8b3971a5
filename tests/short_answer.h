// What a command answers through a handle, as the documents show it: each row as JSON on a line of
// its own; or how many rows have been changed; or what was refused, with its code and its place.
#pragma once

#include <string>

#include "velmora/velmora.h"

namespace velmora::golden {

std::string shortAnswer(velmora_db* db, const std::string& command);

}  // namespace velmora::golden
