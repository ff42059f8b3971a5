// The input of the directory fuzzer: several files in one text.
#pragma once

#include <string>
#include <string_view>

#include "scratch_directory.h"

namespace velmora::fuzz {

Files filesOf(std::string_view input);
// The input that filesOf makes these files of; files whose names the fuzzer does not use are left
// out.
std::string inputOf(const Files& files);

}  // namespace velmora::fuzz
