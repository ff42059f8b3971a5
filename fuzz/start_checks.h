// What must hold of a start over any files in the scratch directory.
#pragma once

namespace velmora::fuzz {

void checkStart();

}  // namespace velmora::fuzz
