// Another thread of the host, which goes on asking velmora while the first waits for something.
#pragma once

#include <functional>

namespace bench {

// Runs the work while a second thread selects items by their keys, 1 to rows, one after another,
// and returns the seconds of the longest of those answered from the work's beginning to its end.
double longestSelectDuring(int rows, const std::function<void()>& work);

}  // namespace bench
