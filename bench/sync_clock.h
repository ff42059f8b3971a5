// How long this process has spent in fsync and fdatasync. A checkpoint ends in one, and what it
// costs is the disk's affair: it is reported apart.
#pragma once

namespace bench {

double secondsInSync();

}  // namespace bench
