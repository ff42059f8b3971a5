// See failure.h.
#include "failure.h"

#include <system_error>

namespace tool {

void throwSystem(const std::string& name, int systemError, ExitCode code) {
  throw Failure(code, name + ": " + std::generic_category().message(systemError));
}

}  // namespace tool
