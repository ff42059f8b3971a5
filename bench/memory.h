// The memory of this process: what it holds, and making sure before a timed part that the system
// has pages at hand, so that their supply does not decide the figure.
#pragma once

#include <cstddef>

namespace bench {

// Touches and gives back as many bytes as the last setFreshMemory said.
void freshMemory();
void setFreshMemory(std::size_t bytes);

// Bytes of this process that are in memory now.
double residentBytes();

}  // namespace bench
