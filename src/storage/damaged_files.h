// Keeping what is about to be repaired.
#pragma once

#include <string>

#include "files.h"

namespace velmora {

// Copies all regular files of the directory into a new directory within it, and returns what that
// is called: "damaged-N". Throws WriteFailure, and std::runtime_error "Failed to read file: NAME".
std::string keepDamaged(const Directory& directory);

}  // namespace velmora
