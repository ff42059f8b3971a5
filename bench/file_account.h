// What this process has done to its files. A checkpoint ends in syncs, and what they cost is the
// disk's affair: they are reported apart. Linux only.
#pragma once

#include <cstddef>

namespace bench {

// Seconds spent in fsync and fdatasync.
double secondsInSync();

// Bytes handed to the system for writing.
std::size_t bytesWritten();

}  // namespace bench
