// See failure.h.
#include "failure.h"

#include <cstdio>
#include <system_error>

namespace tool {

ExitCode exitCodeOf(const velmora::Error& error) {
  return error.code() == VELMORA_INTERRUPTED ? exitInterrupted : exitFailed;
}

void tell(const std::string& text) { std::fprintf(stderr, "velmora-tool: %s\n", text.c_str()); }

void throwSystem(const std::string& name, int systemError, ExitCode code) {
  throw Failure(code, name + ": " + std::generic_category().message(systemError));
}

}  // namespace tool
