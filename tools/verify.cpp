// See verify.h.
#include "verify.h"

#include "failure.h"
#include "open.h"

namespace tool {

std::vector<Fault> faultsOf(const std::string& directory) {
  std::vector<Fault> faults;
  const velmora_fault add = [](void* context, const char* file, std::int64_t offset,
                               const char* meaning) {
    static_cast<std::vector<Fault>*>(context)->push_back({file, offset, meaning});
  };
  velmora_error* error = nullptr;
  const int code = velmora_check(directory.data(), directory.size(), add, &faults, &error);
  if (code == VELMORA_OK || code == VELMORA_CORRUPT) {
    velmora_error_destroy(error);
    return faults;
  }
  throw Failure(exitNotOpened, openingText(directory, velmora::Error(code, error)));
}

}  // namespace tool
